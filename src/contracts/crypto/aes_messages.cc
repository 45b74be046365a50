#include "aes_messages.h"

#include <cstddef>
#include <cstring>
#include <string>

#include <foundation/crypto/aes_gcm_stream_decryptor.h>
#include <foundation/crypto/aes_gcm_stream_encryptor.h>
#include <foundation/crypto/exceptions.h>

#include "cipher_context.h"

namespace foundation {
namespace crypto {
namespace detail {
namespace {

// The piece in which streams are read and written.
constexpr std::size_t kStreamPiece = std::size_t{64} << 10;

bool isGcm(MessageCipher const& cipher) { return cipher.mode == utils::AESMode::GCM; }

CipherContext makeCbc(MessageCipher const& cipher, Direction direction) {
  return CipherContext(cipher.key.getKeyBytes(), cipher.iv.data(), cipher.iv.size(), cipher.mode,
                       cipher.padding, direction);
}

// Reads up to `size` bytes; fewer only at the end of the stream.  Raises `Failure` if the
// stream fails other than by ending.
template <class Failure>
std::size_t readPiece(std::istream& in, unsigned char* out, std::size_t size, char const* what) {
  in.read(reinterpret_cast<char*>(out), static_cast<std::streamsize>(size));
  if (in.bad()) throw Failure(std::string("Cannot read the ") + what + " from its stream.");
  return static_cast<std::size_t>(in.gcount());
}

template <class Failure>
void writePiece(std::ostream& out, unsigned char const* data, std::size_t size, char const* what) {
  if (size == 0) return;
  out.write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(size));
  if (!out) throw Failure(std::string("Cannot write the ") + what + " to its stream.");
}

bytes cbcMessage(MessageCipher const& cipher, Direction direction, bytes const& input) {
  if (direction == Direction::Encrypt && cipher.padding == utils::AESPaddingMode::NoPadding &&
      input.size() % kAesBlockSize != 0) {
    throw utils::CouldNotEncrypt(
        "AES-256-CBC without padding needs a whole number of 16-byte blocks; the data has " +
        std::to_string(input.size()) + " bytes.");
  }
  CipherContext context = makeCbc(cipher, direction);
  SecureBytes out(input.size() + 2 * kAesBlockSize);
  std::size_t length = context.update(input.data(), input.size(), out.data());
  length += context.finish(out.data() + length);
  return bytes(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(length));
}

}  // namespace

bytes encryptMessage(MessageCipher const& cipher, bytes const& plaintext) {
  if (!isGcm(cipher)) return cbcMessage(cipher, Direction::Encrypt, plaintext);
  AESGCMStreamEncryptor encryptor(cipher.key, cipher.iv);
  bytes out(plaintext.size() + kGcmTagSize);
  encryptor.update(plaintext.data(), plaintext.size(), out.data());
  bytes const tag = encryptor.finish();
  std::memcpy(out.data() + plaintext.size(), tag.data(), tag.size());
  return out;
}

bytes decryptMessage(MessageCipher const& cipher, bytes const& ciphertext) {
  if (!isGcm(cipher)) return cbcMessage(cipher, Direction::Decrypt, ciphertext);
  AESGCMStreamDecryptor decryptor(cipher.key, cipher.iv);
  if (ciphertext.size() < kGcmTagSize) {
    throw utils::CouldNotDecrypt("The data has " + std::to_string(ciphertext.size()) +
                                 " bytes, fewer than its 16-byte authentication tag.");
  }
  std::size_t const length = ciphertext.size() - kGcmTagSize;
  bytes out(length);
  decryptor.update(ciphertext.data(), length, out.data());
  try {
    decryptor.finish(ciphertext.data() + length, kGcmTagSize);
  } catch (...) {
    // Nothing unauthenticated leaves: not even in memory that the caller never sees.
    secureWipe(out.data(), out.size());
    throw;
  }
  return out;
}

void encryptStream(MessageCipher const& cipher, std::istream& plaintext, std::ostream& ciphertext) {
  SecureBytes in(kStreamPiece);
  SecureBytes out(kStreamPiece + kAesBlockSize);
  if (isGcm(cipher)) {
    AESGCMStreamEncryptor encryptor(cipher.key, cipher.iv);
    for (;;) {
      std::size_t const got =
          readPiece<utils::CouldNotEncrypt>(plaintext, in.data(), in.size(), "plaintext");
      if (got == 0) break;
      encryptor.update(in.data(), got, out.data());
      writePiece<utils::CouldNotEncrypt>(ciphertext, out.data(), got, "ciphertext");
    }
    bytes const tag = encryptor.finish();
    writePiece<utils::CouldNotEncrypt>(ciphertext, tag.data(), tag.size(), "ciphertext");
    return;
  }
  CipherContext context = makeCbc(cipher, Direction::Encrypt);
  for (;;) {
    std::size_t const got =
        readPiece<utils::CouldNotEncrypt>(plaintext, in.data(), in.size(), "plaintext");
    if (got == 0) break;
    std::size_t const length = context.update(in.data(), got, out.data());
    writePiece<utils::CouldNotEncrypt>(ciphertext, out.data(), length, "ciphertext");
  }
  std::size_t const length = context.finish(out.data());
  writePiece<utils::CouldNotEncrypt>(ciphertext, out.data(), length, "ciphertext");
}

void decryptStream(MessageCipher const& cipher, std::istream& ciphertext, std::ostream& plaintext) {
  // The last 16 bytes of a GCM message are its tag, and only the end of the stream tells
  // which those are: the last 16 bytes read so far are always held back.
  std::size_t const holdBack = isGcm(cipher) ? kGcmTagSize : 0;
  SecureBytes in(kStreamPiece + holdBack);
  SecureBytes out(kStreamPiece + holdBack + kAesBlockSize);
  std::size_t held = 0;
  if (isGcm(cipher)) {
    AESGCMStreamDecryptor decryptor(cipher.key, cipher.iv);
    for (;;) {
      std::size_t const got = readPiece<utils::CouldNotDecrypt>(ciphertext, in.data() + held,
                                                                kStreamPiece, "ciphertext");
      if (got == 0) break;
      std::size_t const total = held + got;
      std::size_t const ready = total > holdBack ? total - holdBack : 0;
      decryptor.update(in.data(), ready, out.data());
      writePiece<utils::CouldNotDecrypt>(plaintext, out.data(), ready, "plaintext");
      std::memmove(in.data(), in.data() + ready, total - ready);
      held = total - ready;
    }
    if (held < kGcmTagSize) {
      throw utils::CouldNotDecrypt("The data ends before its 16-byte authentication tag.");
    }
    decryptor.finish(in.data(), kGcmTagSize);
    return;
  }
  CipherContext context = makeCbc(cipher, Direction::Decrypt);
  for (;;) {
    std::size_t const got =
        readPiece<utils::CouldNotDecrypt>(ciphertext, in.data(), kStreamPiece, "ciphertext");
    if (got == 0) break;
    std::size_t const length = context.update(in.data(), got, out.data());
    writePiece<utils::CouldNotDecrypt>(plaintext, out.data(), length, "plaintext");
  }
  std::size_t const length = context.finish(out.data());
  writePiece<utils::CouldNotDecrypt>(plaintext, out.data(), length, "plaintext");
}

}  // namespace detail
}  // namespace crypto
}  // namespace foundation
