// The one road by which a command of opcvk gets the key of an encrypted package, and the
// one place where the key is handed to the package's file system.  Every command that reads
// or writes a file system takes its key options from here, so that another way to give a
// key (a password, say) joins all of them at once.
#ifndef TOOLS_OPCVK_PACKAGE_KEY_H_
#define TOOLS_OPCVK_PACKAGE_KEY_H_

#include <optional>
#include <string>

#include <CLI/CLI.hpp>

#include <opc/vkservices/bytes.h>

namespace opcvk {

class OpenPackage;

// What the command line says about the key.
struct KeyOptions {
  // --key-file: a file of exactly 32 raw bytes, the AES-256 key; empty when not given.
  std::string keyFile;
  // --password-file: a file whose first line is the password; empty when not given
  // (package_password.h).
  std::string passwordFile;
  // pack --encrypt: encrypt under a password even though no password file is given.
  bool encrypt = false;
};

// Adds the key options to `command`, bound to `options`.
void addKeyOptions(CLI::App& command, KeyOptions& options);

// Whether the options ask for a key (and so, for a new package, for encryption), before
// anything is read.
bool keyGiven(KeyOptions const& options);

// A key of 32 bytes, wiped from memory when the object goes.  Moves, never copies.
class PackageKey {
 public:
  explicit PackageKey(opc::vkservices::bytes key) : key_(std::move(key)) {}
  PackageKey(PackageKey&& other) noexcept = default;
  PackageKey& operator=(PackageKey&& other) noexcept;
  PackageKey(PackageKey const&) = delete;
  PackageKey& operator=(PackageKey const&) = delete;
  ~PackageKey();

  opc::vkservices::bytes const& bytes() const { return key_; }

 private:
  void wipe() noexcept;

  opc::vkservices::bytes key_;
};

// The key the options give, or nothing when they give none.  Raises ToolError when a key is
// asked for and cannot be had: "Could not read key file: <file>: <reason>", or "Key file
// must hold exactly 32 bytes (a raw AES-256 key), but <file> holds <n> bytes" (or "more
// than 32 bytes" when the file cannot tell its size).  No byte of a key ever appears in a
// message.
std::optional<PackageKey> readPackageKey(KeyOptions const& options);

// What a command does with the file system of the package it opened, and so how a key is
// used.
enum class KeyUse {
  // Reads the file system: an encrypted one needs the key.
  Read,
  // Tells what it can of a package without the key (info): an encrypted package without a
  // key is no error, only unreadable.
  ReadIfKeyGiven,
  // Writes a new package (pack): with a key, it is encrypted.
  Create,
  // Changes the file system of an existing package: an encrypted one needs the key, and a
  // plain one is not encrypted by the way (that is the encrypt command's work).
  Modify,
  // Encrypts a plain package (encrypt): needs the key.
  Encrypt,
};

// Gets the key from `options` and hands it to the file system of `open` (the package at
// `path`, as given on the command line), as `use` says.  Tells whether the file system can
// be read: false only for ReadIfKeyGiven on an encrypted package without a key.
//
// The key comes from --key-file, or else from a password (package_password.h): for a new
// encryption (Create with --password-file or --encrypt, Encrypt without --key-file) a new
// key whose cipher entry the package keeps; for an encrypted package that keeps a cipher
// entry, or when --password-file is given, the key found again from the password.  Without
// --password-file the password is asked for at the terminal (twice for a new one); without
// a terminal the command fails at once naming --password-file, except info, which then
// tells what it can without the key.  Every check that needs no key comes before the
// password is asked for or derived.
//
// An encrypted package is loaded here, so that a key that does not open it is told before
// the command does anything.  Raises ToolError, with the package's path at the end:
//  - "Package is encrypted; give its key with --key-file: <path>" when a key is needed,
//    and for a new encryption without a key file, password file or terminal, "Encrypting
//    needs a key or a password; give it with --key-file FILE or --password-file FILE
//    (standard input is not a terminal, so a password cannot be asked for): <path>";
//  - "The key does not open the package: <path>" when the key does not decrypt its manifest
//    (a wrong key, or a manifest altered since it was written); for a key file given to a
//    package that a password opens, "The key does not open the package, which is encrypted
//    under a password; give the password with --password-file: <path>";
//  - "Package is not encrypted (encrypt it with 'opcvk encrypt'): <path>" for a key given to
//    change a plain package, which would otherwise be encrypted by the way;
//  - "Package is already encrypted: <path>" for Encrypt of an encrypted package;
//  - "--v1-manifest cannot be used with a key: ..." when the package is to be written
//    encrypted with the older manifest, which is never encrypted;
//  - "wrong password" (that alone) when the password does not match the package's;
// and what readPackageKey and package_password.h raise.
bool unlockPackage(OpenPackage& open, std::string const& path, KeyOptions const& options,
                   KeyUse use);

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PACKAGE_KEY_H_
