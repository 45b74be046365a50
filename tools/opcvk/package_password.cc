#include "package_password.h"

#include <foundation/crypto/secure_bytes.h>
#include <opc/vkservices/cipher_data_manager.h>

#include "open_package.h"
#include "password_input.h"
#include "password_key.h"
#include "tool_error.h"

namespace opcvk {
namespace {

// Said when a password is needed and can be had from nowhere: a tool run from a script must
// fail at once rather than wait for an answer nobody will type.
constexpr char kNoTerminal[] =
    "(standard input is not a terminal, so a password cannot be asked for)";

// The password from the file the options name, or typed at the terminal (twice for a new
// one); `nowhere` is the message when there is neither.
Password obtainPassword(KeyOptions const& options, bool confirm, std::string const& nowhere) {
  if (!options.passwordFile.empty()) return readPasswordFile(options.passwordFile);
  if (!standardInputIsTerminal()) throw ToolError(nowhere);
  return promptForPassword(confirm);
}

PackageKey toPackageKey(Key const& key) {
  // PackageKey wipes its bytes when it goes, as Key does.
  foundation::crypto::SecureBytes const& bytes = key.getKeyBytes();
  return PackageKey(opc::vkservices::bytes(bytes.begin(), bytes.end()));
}

}  // namespace

void addPasswordOption(CLI::App& command, CLI::Option* keyFile, KeyOptions& options) {
  CLI::Option* passwordFile =
      command
          .add_option("--password-file", options.passwordFile,
                      "Read the package's password from the first line of FILE (UTF-8)")
          ->type_name("FILE");
  passwordFile->excludes(keyFile);
}

void addEncryptFlag(CLI::App& command, KeyOptions& options) {
  command.add_flag("--encrypt", options.encrypt,
                   "Encrypt under a password, asked for twice at the terminal unless "
                   "--password-file gives it");
}

bool wantsNewPassword(KeyOptions const& options) {
  return options.keyFile.empty() && (options.encrypt || !options.passwordFile.empty());
}

bool hasPassword(OpenPackage& open) { return hasFileSystemEntry(open.cipherData()); }

bool passwordAvailable(KeyOptions const& options) {
  return !options.passwordFile.empty() || standardInputIsTerminal();
}

PackageKey newPasswordKey(OpenPackage& open, std::string const& path, KeyOptions const& options) {
  Password const password = obtainPassword(
      options, true,
      std::string("Encrypting needs a key or a password; give it with --key-file FILE or "
                  "--password-file FILE ") +
          kNoTerminal + ": " + path);
  return toPackageKey(newFileSystemKey(open.cipherData(), password));
}

PackageKey passwordKey(OpenPackage& open, std::string const& path, KeyOptions const& options) {
  if (!hasPassword(open)) {
    throw ToolError(
        "Package is encrypted with a key, not a password; give its key with "
        "--key-file: " +
        path);
  }
  Password const password = obtainPassword(
      options, false,
      std::string("Package is protected by a password; give it with --password-file FILE ") +
          kNoTerminal + ": " + path);
  return toPackageKey(fileSystemKey(open.cipherData(), password));
}

}  // namespace opcvk
