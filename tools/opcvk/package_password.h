// The password road to the key of a package: a password from --password-file or typed at the
// terminal, turned into the key of the package's file system by way of the cipher entry that
// the package keeps for it.  package_key.cc asks here whenever a command is to get its key
// from a password rather than from --key-file.
#ifndef TOOLS_OPCVK_PACKAGE_PASSWORD_H_
#define TOOLS_OPCVK_PACKAGE_PASSWORD_H_

#include <string>

#include <CLI/CLI.hpp>

#include "package_key.h"

namespace opcvk {

class OpenPackage;

// Adds --password-file to `command`, bound to `options`, beside (and exclusive of) the
// --key-file option `keyFile` that addKeyOptions made.
void addPasswordOption(CLI::App& command, CLI::Option* keyFile, KeyOptions& options);

// Adds pack's --encrypt flag: encrypt under a password, asked for at the terminal unless
// --password-file gives it.
void addEncryptFlag(CLI::App& command, KeyOptions& options);

// Whether a new package is to be encrypted under a password: --password-file or --encrypt,
// and no --key-file.
bool wantsNewPassword(KeyOptions const& options);

// Whether the package has the cipher entry of its file system, that is, whether a password
// opens it.
bool hasPassword(OpenPackage& open);

// Whether the password of an encrypted package can be had without failing: given by a file,
// or to be asked for at a terminal.
bool passwordAvailable(KeyOptions const& options);

// A new key for the package from a new password (the file's, or typed twice at the terminal),
// with its salt, IV and stored hash recorded in the package's cipher entry, written when the
// package is saved.  Takes one derivation at the default work factor.  Raises ToolError
// "Encrypting needs a key or a password; give it with --key-file FILE or --password-file FILE
// (standard input is not a terminal, so a password cannot be asked for): <path>" without a
// terminal and without a file, and what reading or asking for the password raises.
PackageKey newPasswordKey(OpenPackage& open, std::string const& path, KeyOptions const& options);

// The key of an encrypted package from its password (the file's, or typed once at the
// terminal).  Raises ToolError "Package is encrypted with a key, not a password; give its key
// with --key-file: <path>" if the package has no cipher entry, "Package is protected by a
// password; give it with --password-file FILE (standard input is not a terminal, so a
// password cannot be asked for): <path>" without a terminal and without a file, "wrong password" if
// it does not match, and opc::Exception with the crypto library's words for an entry it refuses.
PackageKey passwordKey(OpenPackage& open, std::string const& path, KeyOptions const& options);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PACKAGE_PASSWORD_H_
