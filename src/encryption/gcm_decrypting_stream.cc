#include "encryption/gcm_decrypting_stream.h"

#include <stdexcept>
#include <utility>

#include <foundation/crypto/exceptions.h>

namespace opc {
namespace vkservices {
namespace detail {

namespace {

// Runs one step of the cipher, turning its failure into the transform's.
template <typename Step>
void cipherStep(CipherFailure const& failure, Step&& step) {
  try {
    step();
  } catch (std::runtime_error const& e) {
    throw failure(&e);
  } catch (...) {
    throw failure(nullptr);
  }
}

[[noreturn]] void throwDecryptionError(char const* message) {
  throw foundation::crypto::utils::CouldNotDecrypt(message);
}

}  // namespace

GCMDecryptingStream::GCMDecryptingStream(opc::InputStream& input, bytes expectedIV,
                                         foundation::crypto::AESGCMStreamDecryptor cipher,
                                         CipherFailure failure)
    : reader_(input),
      expectedIV_(std::move(expectedIV)),
      ivChecked_(expectedIV_.empty()),
      cipher_(std::move(cipher)),
      failure_(std::move(failure)) {}

GCMDecryptingStream::~GCMDecryptingStream() = default;

void GCMDecryptingStream::open() { reader_.open(); }

std::size_t GCMDecryptingStream::read(unsigned char* buffer, std::size_t count) {
  if (finished_ || count == 0) return 0;
  if (!ivChecked_) checkIV();
  GCMMessageReader::Piece const piece = reader_.next(count);
  cipherStep(failure_, [&] { cipher_.update(piece.data, piece.size, buffer); });
  // The last plaintext is held until the tag verified: a caller that stops at the first
  // failure never holds the end of a message that did not authenticate.
  if (reader_.atEnd()) {
    finish(reader_, cipher_, failure_);
    finished_ = true;
  }
  return piece.size;
}

bool GCMDecryptingStream::isDone() const { return finished_; }

void GCMDecryptingStream::close() { reader_.close(); }

void GCMDecryptingStream::authenticate(opc::InputStream& input,
                                       foundation::crypto::AESGCMStreamDecryptor& cipher,
                                       CipherFailure const& failure) {
  GCMMessageReader reader(input);
  reader.open();
  while (!reader.atEnd()) {
    GCMMessageReader::Piece const piece = reader.next(GCMMessageReader::kPieceSize);
    // Decrypted in place, into the reader's own buffer, and dropped: only the tag counts.
    cipherStep(failure, [&] { cipher.update(piece.data, piece.size, piece.data); });
  }
  finish(reader, cipher, failure);
}

void GCMDecryptingStream::checkIV() {
  bytes iv;
  bool const whole = reader_.readIV(expectedIV_.size(), iv);
  cipherStep(failure_, [&] {
    if (!whole) throwDecryptionError("The data ends before its IV.");
    // The first pass authenticated the message under the IV it read; another one now means
    // that the content is no longer what was authenticated.
    if (iv != expectedIV_) {
      throwDecryptionError("The encrypted content changed after it was authenticated.");
    }
  });
  ivChecked_ = true;
}

void GCMDecryptingStream::finish(GCMMessageReader const& reader,
                                 foundation::crypto::AESGCMStreamDecryptor& cipher,
                                 CipherFailure const& failure) {
  cipherStep(failure, [&] {
    if (reader.truncated())
      throwDecryptionError("The data ends before its 16-byte authentication tag.");
    cipher.finish(reader.tag(), GCMMessageReader::kTagSize);
  });
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
