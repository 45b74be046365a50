#include "encryption/decryption_with_inline_iv_transform.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <stdexcept>
#include <utility>

#include <boost/system/error_code.hpp>

#include <foundation/crypto/crypto_engine.h>
#include <foundation/crypto/exceptions.h>
#include <opc/core/exception.h>

#include "encryption/streaming_cipher.h"
#include "encryption/transform_failures.h"

namespace opc {
namespace vkservices {

namespace {

constexpr std::size_t kReadSize = 64 * 1024;
constexpr std::size_t kMaxEmptyReadsInARow = 1 << 16;

void writeFailureLine(std::exception const* cause) {
  detail::writeFailureLine(
      "An error occurred during decryption:", "An error occurred during decryption.", cause);
}

// Closes a stream that a failure leaves behind; the failure is what the caller must see.
void closeQuietly(opc::InputStream& input) noexcept {
  try {
    input.close();
  } catch (...) {
  }
}

}  // namespace

DecryptionWithInlineIVTransform::DecryptionWithInlineIVTransform(
    std::unique_ptr<IContentSource> source, std::shared_ptr<IDecryptor> decryptor,
    std::string const& typeAndMode)
    : DecryptionWithInlineIVTransform(source.get(), std::move(source), std::move(decryptor),
                                      typeAndMode, Authentication::BeforeFirstByte, Reopen(),
                                      kWholeMessageLimit) {}

DecryptionWithInlineIVTransform::DecryptionWithInlineIVTransform(
    std::unique_ptr<IContentSource> source, std::shared_ptr<IDecryptor> decryptor,
    std::string const& typeAndMode, Authentication authentication, Reopen reopen,
    std::size_t wholeMessageLimit)
    : DecryptionWithInlineIVTransform(source.get(), std::move(source), std::move(decryptor),
                                      typeAndMode, authentication, std::move(reopen),
                                      wholeMessageLimit) {}

// The wrapped source is seen before the base takes it over: the base keeps it private.
DecryptionWithInlineIVTransform::DecryptionWithInlineIVTransform(
    IContentSource* wrapped, std::unique_ptr<IContentSource>&& source,
    std::shared_ptr<IDecryptor> decryptor, std::string const& typeAndMode,
    Authentication authentication, Reopen reopen, std::size_t wholeMessageLimit)
    : TransformSource(std::move(source)),
      wrapped_(wrapped),
      decryptor_(std::move(decryptor)),
      typeAndMode_(typeAndMode),
      ivSize_(foundation::crypto::CryptoEngine::getAESBlockSizeInBytes()),
      authentication_(authentication),
      reopen_(std::move(reopen)),
      // A head longer than the limit must hold the whole IV.
      wholeMessageLimit_(std::max(wholeMessageLimit, ivSize_)) {}

DecryptionWithInlineIVTransform::~DecryptionWithInlineIVTransform() = default;

opc::InputStream& DecryptionWithInlineIVTransform::getInputStream() {
  if (stream_ != nullptr) return *stream_;
  bool const canStream =
      dynamic_cast<detail::StreamingDecryptor const*>(decryptor_.get()) != nullptr &&
      (authentication_ == Authentication::AtEnd || reopen_);
  if (!canStream) return TransformSource::getInputStream();

  opc::InputStream& input = wrapped_->getInputStream();
  try {
    bytes head = readHead(input);
    if (input.isDone()) {
      input.close();
      return decryptWhole(head);
    }
    return decryptStreamed(std::move(head), input);
  } catch (...) {
    closeQuietly(input);
    throw;
  }
}

bool DecryptionWithInlineIVTransform::mustTransformEntireStream() { return true; }

bool DecryptionWithInlineIVTransform::transformContentType(opc::model::ContentType const& input,
                                                           opc::model::ContentType& output) {
  output = input;
  output.removeParameter(u"encryption");
  output.removeParameter(u"iv");
  return true;
}

bool DecryptionWithInlineIVTransform::transformData(bytes const& input, bytes& output) {
  try {
    // Content too short to hold an IV fails like any other content that does not decrypt.
    if (input.size() < ivSize_) {
      throw foundation::crypto::utils::CouldNotDecrypt("The data ends before its IV.");
    }
    bytes const iv(input.begin(), input.begin() + static_cast<std::ptrdiff_t>(ivSize_));
    decryptor_->initialize(typeAndMode_, iv);
    output = decryptor_->decrypt(input.data() + ivSize_, input.data() + input.size());
    return true;
  } catch (std::runtime_error const& e) {
    writeFailureLine(&e);
    return false;
  } catch (...) {
    writeFailureLine(nullptr);
    return false;
  }
}

bytes DecryptionWithInlineIVTransform::readHead(opc::InputStream& input) const {
  input.open();
  bytes head;
  std::size_t emptyReads = 0;
  while (!input.isDone() && head.size() <= wholeMessageLimit_) {
    std::size_t const had = head.size();
    head.resize(had + std::min(kReadSize, wholeMessageLimit_ + 1 - had));
    std::size_t const count = input.read(head.data() + had, head.size() - had);
    head.resize(had + count);
    if (count != 0) {
      emptyReads = 0;
    } else if (++emptyReads >= kMaxEmptyReadsInARow) {
      throw opc::Exception(
          "Could not read the encrypted content: its stream gave no bytes before its end",
          boost::system::error_code(EIO, boost::system::system_category()));
    }
  }
  return head;
}

opc::InputStream& DecryptionWithInlineIVTransform::decryptWhole(bytes const& head) {
  // The same road as the base's, on bytes that are already read.
  bytes plaintext;
  if (!transformData(head, plaintext)) throw detail::transformDataFailure(*wrapped_);
  plaintext_ = std::move(plaintext);
  plaintextStream_ = std::make_unique<opc::ByteArrayInAdaptor>(plaintext_);
  stream_ = plaintextStream_.get();
  return *stream_;
}

opc::InputStream& DecryptionWithInlineIVTransform::decryptStreamed(bytes head,
                                                                   opc::InputStream& input) {
  auto const& streaming = dynamic_cast<detail::StreamingDecryptor const&>(*decryptor_);
  detail::CipherFailure const fail = [this](std::exception const* cause) { return failure(cause); };
  // The head holds more than wholeMessageLimit_ bytes, so the whole IV.
  bytes const iv(head.begin(), head.begin() + static_cast<std::ptrdiff_t>(ivSize_));
  std::optional<foundation::crypto::AESGCMStreamDecryptor> cipher;
  try {
    decryptor_->initialize(typeAndMode_, iv);
    cipher.emplace(streaming.beginStream());
  } catch (std::runtime_error const& e) {
    throw failure(&e);
  } catch (...) {
    throw failure(nullptr);
  }

  if (authentication_ == Authentication::AtEnd) {
    rest_ = std::make_unique<detail::PrefixedInputStream>(std::move(head), ivSize_, input);
    decrypting_ =
        std::make_unique<detail::GCMDecryptingStream>(*rest_, bytes(), std::move(*cipher), fail);
    stream_ = decrypting_.get();
    return *stream_;
  }

  {
    detail::PrefixedInputStream rest(std::move(head), ivSize_, input);
    detail::GCMDecryptingStream::authenticate(rest, *cipher, fail);
  }
  input.close();
  std::optional<foundation::crypto::AESGCMStreamDecryptor> second;
  try {
    second.emplace(streaming.beginStream());
  } catch (std::runtime_error const& e) {
    throw failure(&e);
  }
  reopened_ = reopen_();
  decrypting_ = std::make_unique<detail::GCMDecryptingStream>(reopened_->getInputStream(), iv,
                                                              std::move(*second), fail);
  stream_ = decrypting_.get();
  return *stream_;
}

CouldNotTransformContentData DecryptionWithInlineIVTransform::failure(std::exception const* cause) {
  writeFailureLine(cause);
  return detail::transformDataFailure(*wrapped_);
}

}  // namespace vkservices
}  // namespace opc
