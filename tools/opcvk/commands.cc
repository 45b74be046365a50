#include "commands.h"

namespace opcvk {

void addQuietFlag(CLI::App& command, bool& quiet) {
  command.add_flag("-q,--quiet", quiet, "Show no progress line");
}

void addV1ManifestFlag(CLI::App& command, bool& v1Manifest) {
  command.add_flag("--v1-manifest", v1Manifest,
                   "Also write the older (V1) manifest, for readers of the older generation; "
                   "without it, a package of the older generation is upgraded to the current "
                   "manifest alone");
}

void addWaitOption(CLI::App& command, double& seconds) {
  command
      .add_option("--wait", seconds,
                  "Wait up to SECONDS for another writer of the package to finish, instead of "
                  "failing at once")
      ->type_name("SECONDS")
      ->check(CLI::NonNegativeNumber);
}

}  // namespace opcvk
