#include "encryption/gcm_encrypting_stream.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace opc {
namespace vkservices {
namespace detail {

GCMEncryptingStream::GCMEncryptingStream(opc::InputStream& plaintext, bytes iv,
                                         foundation::crypto::AESGCMStreamEncryptor cipher,
                                         CipherFailure failure)
    : plaintext_(plaintext),
      iv_(std::move(iv)),
      cipher_(std::move(cipher)),
      failure_(std::move(failure)) {}

GCMEncryptingStream::~GCMEncryptingStream() = default;

void GCMEncryptingStream::open() { plaintext_.open(); }

std::size_t GCMEncryptingStream::read(unsigned char* buffer, std::size_t count) {
  if (count == 0) return 0;
  if (ivRead_ < iv_.size()) {
    std::size_t const given = std::min(count, iv_.size() - ivRead_);
    std::copy_n(iv_.data() + ivRead_, given, buffer);
    ivRead_ += given;
    return given;
  }
  if (!finished_) {
    if (!plaintext_.isDone()) {
      std::size_t const got = plaintext_.read(buffer, count);
      try {
        cipher_.update(buffer, got, buffer);
      } catch (std::runtime_error const& e) {
        throw failure_(&e);
      } catch (...) {
        throw failure_(nullptr);
      }
      // A read that gave nothing but ended the plaintext goes straight on to the tag, so
      // that the reader is not handed an empty read at the end.
      if (got != 0 || !plaintext_.isDone()) return got;
    }
    finish();
  }
  std::size_t const given = std::min(count, tag_.size() - tagRead_);
  std::copy_n(tag_.data() + tagRead_, given, buffer);
  tagRead_ += given;
  return given;
}

bool GCMEncryptingStream::isDone() const { return finished_ && tagRead_ == tag_.size(); }

void GCMEncryptingStream::close() { plaintext_.close(); }

void GCMEncryptingStream::finish() {
  try {
    tag_ = cipher_.finish();
  } catch (std::runtime_error const& e) {
    throw failure_(&e);
  } catch (...) {
    throw failure_(nullptr);
  }
  finished_ = true;
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
