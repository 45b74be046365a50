#include "package_key.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include <foundation/crypto/secure_bytes.h>
#include <opc/model/package_options.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>
#include <opc/vkservices/iv_mode.h>

#include "open_package.h"
#include "package_password.h"
#include "tool_error.h"

namespace opcvk {
namespace {

constexpr std::size_t kKeySize = 32;

using opc::vkservices::FileSystemManager;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// The size to name for a key file that does not hold 32 bytes, `read` bytes having been
// read of it (at most 33).
std::string foundSize(std::string const& path, std::size_t read) {
  if (read <= kKeySize) return std::to_string(read) + " bytes";
  std::error_code error;
  std::uintmax_t const size = std::filesystem::file_size(path, error);
  if (error) return "more than 32 bytes";
  return std::to_string(size) + " bytes";
}

PackageKey readKeyFile(std::string const& path) {
  errno = 0;
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rbe"));
  if (!file) {
    throw ToolError("Could not read key file: " + path + ": " + std::strerror(errno));
  }
  // One byte more than a key, to see that the file ends where the key does, in a buffer
  // wiped when it goes, whatever happens.
  foundation::crypto::SecureBytes buffer(kKeySize + 1);
  std::size_t const read = std::fread(buffer.data(), 1, buffer.size(), file.get());
  if (std::ferror(file.get())) {
    throw ToolError("Could not read key file: " + path + ": " + std::strerror(errno));
  }
  if (read != kKeySize) {
    throw ToolError("Key file must hold exactly 32 bytes (a raw AES-256 key), but " + path +
                    " holds " + foundSize(path, read));
  }
  return PackageKey(opc::vkservices::bytes(buffer.begin(), buffer.begin() + kKeySize));
}

[[noreturn]] void keyNeeded(std::string const& path) {
  throw ToolError("Package is encrypted; give its key with --key-file: " + path);
}

// A key file given to a package that a password opens is most often the wrong option rather
// than the wrong key: say so.
[[noreturn]] void keyDoesNotOpen(OpenPackage& open, std::string const& path,
                                 KeyOptions const& options) {
  if (!options.keyFile.empty() && hasPassword(open)) {
    throw ToolError(
        "The key does not open the package, which is encrypted under a password; give the "
        "password with --password-file: " +
        path);
  }
  throw ToolError("The key does not open the package: " + path);
}

void refuseOlderManifest(OpenPackage& open) {
  if (open.forms() == ManifestForms::CurrentAndV1) {
    throw ToolError(
        "--v1-manifest cannot be used with a key: the older manifest is never encrypted, and "
        "would give away every path of the encrypted package");
  }
}

// Encryption on, with random IVs.  A tool has no way to promise that a fixed IV portion is
// never used again under the same key, and a repeated IV gives GCM away.
void encryptWith(OpenPackage& open, PackageKey const& key) {
  refuseOlderManifest(open);
  open.files().enableEncryption(key.bytes(), opc::vkservices::IVMode::RandomIV, {});
}

// The key of a package that is encrypted: the key file's, or the one its password gives when
// the package keeps a cipher entry or a password is given.  Nothing when neither, and for
// `ReadIfKeyGiven` when the password could only be asked for and there is no terminal.
std::optional<PackageKey> existingKey(OpenPackage& open, std::string const& path,
                                      KeyOptions const& options, KeyUse use) {
  if (!options.keyFile.empty()) return readPackageKey(options);
  if (!options.passwordFile.empty()) return passwordKey(open, path, options);
  if (!hasPassword(open)) return std::nullopt;
  if (use == KeyUse::ReadIfKeyGiven && !passwordAvailable(options)) return std::nullopt;
  return passwordKey(open, path, options);
}

// The key of a new encryption: the key file's, or a new one from a new password, recorded in
// the package; nothing when the options ask for no encryption (`required` false).
std::optional<PackageKey> newKey(OpenPackage& open, std::string const& path,
                                 KeyOptions const& options, bool required) {
  if (!options.keyFile.empty()) return readPackageKey(options);
  if (!required && !wantsNewPassword(options)) return std::nullopt;
  // Refused before the password is asked for and the derivation spent.
  refuseOlderManifest(open);
  return newPasswordKey(open, path, options);
}

bool unlockForReading(OpenPackage& open, std::string const& path, KeyOptions const& options,
                      KeyUse use) {
  FileSystemManager& files = open.files();
  if (!files.isEncrypted()) {
    // A key file given to a plain package is still read, so that a bad one is told.
    readPackageKey(options);
    return true;
  }
  std::optional<PackageKey> const key = existingKey(open, path, options, use);
  if (!key) {
    if (use == KeyUse::ReadIfKeyGiven) return false;
    keyNeeded(path);
  }
  files.enableDecryption(key->bytes());
  try {
    // Loads the tree: the manifest is the first message the key must open.
    files.getVersion();
  } catch (opc::vkservices::CouldNotTransformContentData const&) {
    keyDoesNotOpen(open, path, options);
  }
  return true;
}

void unlockForWriting(OpenPackage& open, std::string const& path, KeyOptions const& options,
                      KeyUse use) {
  bool const encrypted = open.files().isEncrypted();
  if (use == KeyUse::Encrypt && encrypted) {
    throw ToolError("Package is already encrypted: " + path);
  }
  if (use == KeyUse::Modify && !encrypted) {
    if (!options.keyFile.empty()) readPackageKey(options);
    if (!options.keyFile.empty() || !options.passwordFile.empty() || options.encrypt) {
      throw ToolError("Package is not encrypted (encrypt it with 'opcvk encrypt'): " + path);
    }
    return;
  }
  std::optional<PackageKey> const key = use == KeyUse::Encrypt
                                            ? newKey(open, path, options, true)
                                            : existingKey(open, path, options, use);
  if (!key) keyNeeded(path);
  try {
    encryptWith(open, *key);
  } catch (opc::vkservices::CannotEnableEncryption const&) {
    // On a package that is encrypted already, the only refusal left is a key that does not
    // open its manifest; a failed conversion of a plain one is told as the library tells it.
    if (encrypted) keyDoesNotOpen(open, path, options);
    throw;
  }
}

}  // namespace

void addKeyOptions(CLI::App& command, KeyOptions& options) {
  CLI::Option* keyFile =
      command
          .add_option("--key-file", options.keyFile,
                      "Read the package's AES-256 key from FILE, which holds exactly 32 raw bytes")
          ->type_name("FILE");
  addPasswordOption(command, keyFile, options);
}

bool keyGiven(KeyOptions const& options) { return !options.keyFile.empty(); }

PackageKey& PackageKey::operator=(PackageKey&& other) noexcept {
  if (this != &other) {
    wipe();
    key_ = std::move(other.key_);
  }
  return *this;
}

PackageKey::~PackageKey() { wipe(); }

void PackageKey::wipe() noexcept { foundation::crypto::secureWipe(key_.data(), key_.size()); }

std::optional<PackageKey> readPackageKey(KeyOptions const& options) {
  if (!keyGiven(options)) return std::nullopt;
  return readKeyFile(options.keyFile);
}

bool unlockPackage(OpenPackage& open, std::string const& path, KeyOptions const& options,
                   KeyUse use) {
  switch (use) {
    case KeyUse::Read:
    case KeyUse::ReadIfKeyGiven:
      return unlockForReading(open, path, options, use);
    case KeyUse::Create: {
      std::optional<PackageKey> const key = newKey(open, path, options, false);
      if (key) encryptWith(open, *key);
      return true;
    }
    case KeyUse::Modify:
    case KeyUse::Encrypt:
      unlockForWriting(open, path, options, use);
      return true;
  }
  return true;
}

}  // namespace opcvk
