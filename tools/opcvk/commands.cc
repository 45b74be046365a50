#include "commands.h"

namespace opcvk {

void addQuietFlag(CLI::App& command, bool& quiet) {
  command.add_flag("-q,--quiet", quiet, "Show no progress line");
}

}  // namespace opcvk
