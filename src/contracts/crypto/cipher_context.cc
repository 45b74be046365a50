#include "cipher_context.h"

#include <cstddef>
#include <string>
#include <utility>

#include <foundation/crypto/exceptions.h>

#include "openssl_errors.h"

namespace foundation {
namespace crypto {
namespace detail {
namespace {

// EVP takes lengths as int: larger pieces are handed over in parts of this size.
constexpr std::size_t kMaxPiece = std::size_t{1} << 30;

char const* cipherName(utils::AESMode mode) {
  return mode == utils::AESMode::GCM ? "AES-256-GCM" : "AES-256-CBC";
}

}  // namespace

void checkCipherArguments(utils::AESMode mode, utils::AESPaddingMode padding, std::size_t ivSize) {
  if (mode != utils::AESMode::GCM && mode != utils::AESMode::CBC) {
    throw utils::Exception("Unsupported AES mode " + std::to_string(static_cast<int>(mode)) +
                           " (1 is CBC, 3 is GCM).");
  }
  if (padding != utils::AESPaddingMode::NoPadding && padding != utils::AESPaddingMode::PKCS7) {
    throw utils::Exception("Unsupported AES padding mode " +
                           std::to_string(static_cast<int>(padding)) +
                           " (0 is none, 1 is PKCS#7).");
  }
  if (mode == utils::AESMode::CBC && ivSize != kAesBlockSize) {
    throw utils::Exception("AES-256-CBC needs an IV of 16 bytes; the IV given has " +
                           std::to_string(ivSize) + " bytes.");
  }
  if (mode == utils::AESMode::GCM && (ivSize == 0 || ivSize > kGcmMaxIvSize)) {
    throw utils::Exception("AES-256-GCM needs an IV of 1 to 128 bytes; the IV given has " +
                           std::to_string(ivSize) + " bytes.");
  }
}

CipherContext::CipherContext(SecureBytes const& key, unsigned char const* iv, std::size_t ivSize,
                             utils::AESMode mode, utils::AESPaddingMode padding,
                             Direction direction)
    : mode_(mode), direction_(direction) {
  checkCipherArguments(mode, padding, ivSize);
  CryptoBackend const* backend = nullptr;
  try {
    backend = &cryptoBackend();
  } catch (utils::Exception const& e) {
    failed_ = true;
    if (direction == Direction::Encrypt) throw utils::CouldNotEncrypt(e.what());
    throw utils::CouldNotDecrypt(e.what());
  }
  bool const gcm = mode == utils::AESMode::GCM;
  int const padded = padding == utils::AESPaddingMode::PKCS7 ? 1 : 0;
  Made<BackendCipher> made =
      backend->makeCipher(cipherName(mode), direction == Direction::Encrypt, key.data(), iv,
                          gcm ? ivSize : 0, gcm ? -1 : padded);
  switch (made.failedAt) {
    case SetupStep::kNone:
      break;
    case SetupStep::kLoad:
      fail("Cannot load " + std::string(cipherName(mode)));
    case SetupStep::kMakeContext:
      fail("Cannot make a cipher context");
    case SetupStep::kSetUp:
      fail("Cannot set up " + describe());
    case SetupStep::kSetPadding:
      fail("Cannot set the padding of " + describe());
  }
  cipher_ = std::move(made.object);
}

std::size_t CipherContext::update(unsigned char const* in, std::size_t size, unsigned char* out) {
  ensureUsable("update");
  std::size_t written = 0;
  for (std::size_t done = 0; done < size;) {
    std::size_t const piece = size - done < kMaxPiece ? size - done : kMaxPiece;
    int length = 0;
    if (!cipher_->update(in + done, static_cast<int>(piece), out + written, &length)) {
      fail(describe() + " failed");
    }
    written += static_cast<std::size_t>(length);
    done += piece;
  }
  return written;
}

std::size_t CipherContext::finish(unsigned char* out) {
  ensureUsable("finish");
  if (mode_ == utils::AESMode::GCM && direction_ == Direction::Decrypt && !tagSet_) {
    fail("AES-256-GCM decryption cannot end without the authentication tag");
  }
  int length = 0;
  bool const ended = cipher_->finish(out, &length);
  finished_ = true;
  if (!ended) {
    if (mode_ == utils::AESMode::GCM && direction_ == Direction::Decrypt) {
      // GCM reports a tag that does not verify by its result alone; the queue holds nothing
      // that would say more.
      discardOpenSslErrors();
      failed_ = true;
      throw utils::CouldNotDecrypt(
          "The data does not authenticate under this key and IV: it was altered, or the key "
          "is wrong.");
    }
    fail(describe() + " failed at the end of the message");
  }
  return static_cast<std::size_t>(length);
}

bytes CipherContext::getTag() {
  if (mode_ != utils::AESMode::GCM || direction_ != Direction::Encrypt || !finished_ || failed_) {
    fail("No authentication tag is available here");
  }
  bytes tag(kGcmTagSize);
  if (!cipher_->getTag(tag.data(), tag.size())) {
    fail("Cannot read the authentication tag of " + describe());
  }
  return tag;
}

void CipherContext::setTag(unsigned char const* tag, std::size_t size) {
  ensureUsable("take a tag");
  if (size != kGcmTagSize) {
    failed_ = true;
    throw utils::CouldNotDecrypt(
        "An AES-256-GCM authentication tag has 16 bytes; the tag given "
        "has " +
        std::to_string(size) + " bytes.");
  }
  if (!cipher_->setTag(tag, size)) {
    fail("Cannot set the authentication tag of " + describe());
  }
  tagSet_ = true;
}

void CipherContext::finishAndVerify() {
  unsigned char none[kAesBlockSize];
  finish(none);
}

void CipherContext::fail(std::string const& what) {
  failed_ = true;
  std::string const message = withOpenSslErrors(what);
  if (direction_ == Direction::Encrypt) throw utils::CouldNotEncrypt(message);
  throw utils::CouldNotDecrypt(message);
}

void CipherContext::ensureUsable(char const* operation) const {
  if (!finished_ && !failed_) return;
  std::string const message = describe() + " cannot " + operation + " after " +
                              (failed_ ? "a failure." : "the end of the message.");
  if (direction_ == Direction::Encrypt) throw utils::CouldNotEncrypt(message);
  throw utils::CouldNotDecrypt(message);
}

std::string CipherContext::describe() const {
  return std::string(cipherName(mode_)) +
         (direction_ == Direction::Encrypt ? " encryption" : " decryption");
}

}  // namespace detail
}  // namespace crypto
}  // namespace foundation
