#include "encryption/encryption_with_inline_iv_transform.h"

#include <optional>
#include <stdexcept>
#include <utility>

#include <opc/core/string_conversions.h>

#include "encryption/streaming_cipher.h"
#include "encryption/transform_failures.h"

namespace opc {
namespace vkservices {

namespace {

void writeFailureLine(std::exception const* cause) {
  detail::writeFailureLine(
      "An error occurred during encryption:", "An error occurred during encryption.", cause);
}

}  // namespace

EncryptionWithInlineIVTransform::EncryptionWithInlineIVTransform(
    std::unique_ptr<IContentSource> source, std::shared_ptr<IEncryptor> encryptor,
    std::string const& typeAndMode, std::shared_ptr<IVGenerator> ivGenerator)
    : EncryptionWithInlineIVTransform(source.get(), std::move(source), std::move(encryptor),
                                      typeAndMode, std::move(ivGenerator)) {}

// The wrapped source is seen before the base takes it over: the base keeps it private.
EncryptionWithInlineIVTransform::EncryptionWithInlineIVTransform(
    IContentSource* wrapped, std::unique_ptr<IContentSource>&& source,
    std::shared_ptr<IEncryptor> encryptor, std::string const& typeAndMode,
    std::shared_ptr<IVGenerator> ivGenerator)
    : TransformSource(std::move(source)),
      wrapped_(wrapped),
      encryptor_(std::move(encryptor)),
      typeAndMode_(typeAndMode),
      ivGenerator_(std::move(ivGenerator)) {}

// The stream reads the wrapped source, which the base deletes after this destructor.
EncryptionWithInlineIVTransform::~EncryptionWithInlineIVTransform() = default;

opc::InputStream& EncryptionWithInlineIVTransform::getInputStream() {
  if (stream_) return *stream_;
  auto const* streaming = dynamic_cast<detail::StreamingEncryptor const*>(encryptor_.get());
  if (streaming == nullptr) return TransformSource::getInputStream();

  // The same steps as transformData, up to the message itself.
  bytes iv;
  std::optional<foundation::crypto::AESGCMStreamEncryptor> cipher;
  try {
    iv = ivGenerator_->generate();
    encryptor_->initialize(typeAndMode_, iv);
    cipher.emplace(streaming->beginStream());
  } catch (std::runtime_error const& e) {
    throw failure(&e);
  } catch (...) {
    throw failure(nullptr);
  }
  stream_ = std::make_unique<detail::GCMEncryptingStream>(
      wrapped_->getInputStream(), std::move(iv), std::move(*cipher),
      [this](std::exception const* cause) { return failure(cause); });
  return *stream_;
}

bool EncryptionWithInlineIVTransform::mustTransformEntireStream() { return true; }

bool EncryptionWithInlineIVTransform::transformContentType(opc::model::ContentType const& input,
                                                           opc::model::ContentType& output) {
  output = input;
  output.addParameter(u"encryption", opc::toString(typeAndMode_, true));
  output.addParameter(u"iv", u"inline");
  return true;
}

bool EncryptionWithInlineIVTransform::transformData(bytes const& input, bytes& output) {
  try {
    bytes const iv = ivGenerator_->generate();
    encryptor_->initialize(typeAndMode_, iv);
    bytes const cipher = encryptor_->encrypt(input.data(), input.data() + input.size());
    output = iv;
    output.insert(output.end(), cipher.begin(), cipher.end());
    return true;
  } catch (std::runtime_error const& e) {
    writeFailureLine(&e);
    return false;
  } catch (...) {
    writeFailureLine(nullptr);
    return false;
  }
}

CouldNotTransformContentData EncryptionWithInlineIVTransform::failure(std::exception const* cause) {
  writeFailureLine(cause);
  return detail::transformDataFailure(*wrapped_);
}

}  // namespace vkservices
}  // namespace opc
