#include "stream_adaptors.h"

namespace opc {
namespace model {
namespace detail {
namespace {

class InputStreamBytes : public xercesc::BinInputStream {
 public:
  InputStreamBytes(opc::InputStream& stream, StreamFailure& failure)
      : stream_(stream), failure_(failure), position_(0) {}

  XMLFilePos curPos() const override { return position_; }

  XMLSize_t readBytes(XMLByte* const buffer, XMLSize_t const count) override {
    if (failure_.failed()) {
      return 0;
    }
    try {
      std::size_t const got = stream_.read(buffer, count);
      position_ += got;
      return got;
    } catch (...) {
      failure_.capture();
      return 0;
    }
  }

  // No media type is known: the parser finds the encoding from the bytes themselves.
  XMLCh const* getContentType() const override { return nullptr; }

 private:
  opc::InputStream& stream_;
  StreamFailure& failure_;
  XMLFilePos position_;
};

}  // namespace

void StreamFailure::capture() noexcept {
  if (!error_) {
    error_ = std::current_exception();
  }
}

void StreamFailure::rethrowIfAny() const {
  if (error_) {
    std::rethrow_exception(error_);
  }
}

bool StreamFailure::failed() const noexcept { return static_cast<bool>(error_); }

CloseOnFailure::~CloseOnFailure() {
  if (stream_ != nullptr) {
    try {
      stream_->close();
    } catch (...) {
    }
  }
}

void CloseOnFailure::closeNow() {
  opc::InputStream* stream = stream_;
  stream_ = nullptr;
  stream->close();
}

InputStreamSource::InputStreamSource(opc::InputStream& stream, StreamFailure& failure,
                                     std::u16string const& systemId)
    : stream_(stream), failure_(failure) {
  if (!systemId.empty()) {
    setSystemId(systemId.c_str());
  }
}

InputStreamSource::~InputStreamSource() = default;

xercesc::BinInputStream* InputStreamSource::makeStream() const {
  // Owned by the parser, which deletes it when the parse ends.
  return new InputStreamBytes(stream_, failure_);
}

OutputStreamTarget::OutputStreamTarget(opc::OutputStream& stream, StreamFailure& failure)
    : stream_(stream), failure_(failure) {}

OutputStreamTarget::~OutputStreamTarget() = default;

void OutputStreamTarget::writeChars(XMLByte const* const bytes, XMLSize_t const count,
                                    xercesc::XMLFormatter* const) {
  if (failure_.failed()) {
    return;
  }
  try {
    stream_.write(bytes, count);
  } catch (...) {
    failure_.capture();
  }
}

void OutputStreamTarget::flush() {
  if (failure_.failed()) {
    return;
  }
  try {
    stream_.flush();
  } catch (...) {
    failure_.capture();
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc
