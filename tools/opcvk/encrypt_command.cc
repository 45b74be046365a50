// opcvk encrypt PACKAGE: a plain package's file system encrypted in place.
#include <memory>
#include <string>

#include <opc/model/package_options.h>

#include "commands.h"
#include "open_package.h"
#include "package_key.h"
#include "progress.h"

namespace opcvk {
namespace {

struct EncryptOptions {
  std::string package;
  bool quiet = false;
  KeyOptions key;
  double wait = 0;
};

void runEncrypt(EncryptOptions const& options) {
  OpenPackage open(options.package, opc::model::PackageAccess::Modify, ManifestForms::Current,
                   waitingUpTo(options.wait));
  Progress progress(Progress::wanted(options.quiet), 0, 0);
  progress.phase("encrypting");
  // Converts every file, from its plain part to an encrypted one, through the package's
  // spool; nothing reaches the package's file before the save.
  unlockPackage(open, options.package, options.key, KeyUse::Encrypt);
  progress.phase("writing the package");
  // The model writes beside the package and renames: a failure leaves it as it was.
  open.save();
}

}  // namespace

void addEncryptCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<EncryptOptions>();
  CLI::App* command = app.add_subcommand(
      "encrypt", "Encrypt the file system of a plain package in place, under a key or a password.");
  command->add_option("PACKAGE", options->package, "The package to encrypt")->required();
  addKeyOptions(*command, options->key);
  addQuietFlag(*command, options->quiet);
  addWaitOption(*command, options->wait);
  command->footer(
      "Every file's content and the manifest are encrypted under AES-256-GCM, each with a\n"
      "fresh random IV, in stored parts whose names are made from a keyed digest of the\n"
      "paths; links and empty folders stay, in the encrypted manifest.  A fixed IV portion\n"
      "reused under one key would repeat IVs, which breaks GCM: the tool never uses one.\n"
      "The package is written whole or not at all: it is replaced only once everything is\n"
      "encrypted.  An older manifest beside the current one goes, since it is never\n"
      "encrypted.  A package that is already encrypted is refused.\n"
      "Without --key-file the key is derived from a password, from --password-file or asked\n"
      "for twice at the terminal; the package keeps all a reader needs but the password.\n"
      "\n"
      "Examples:\n"
      "  head -c 32 /dev/urandom > photos.key\n"
      "  opcvk encrypt --key-file photos.key photos.opc\n"
      "  opcvk encrypt photos.opc");
  commands.push_back({command, [options] { runEncrypt(*options); }});
}

}  // namespace opcvk
