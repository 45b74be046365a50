#include "encryption/gcm_message_reader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>

namespace opc {
namespace vkservices {
namespace detail {

namespace {

// As the library's stream copy: a transform may give nothing for a piece of its input, but a
// stream that does nothing else for this long is stuck.
constexpr std::size_t kMaxEmptyReadsInARow = 1 << 16;

}  // namespace

GCMMessageReader::GCMMessageReader(opc::InputStream& input)
    : input_(input), buffer_(kPieceSize + kTagSize) {}

void GCMMessageReader::open() {
  if (opened_) return;
  input_.open();
  opened_ = true;
}

void GCMMessageReader::close() { input_.close(); }

void GCMMessageReader::refill() {
  open();
  if (input_.isDone()) {
    inputDone_ = true;
    return;
  }
  if (begin_ > 0) {
    std::memmove(buffer_.data(), buffer_.data() + begin_, buffered());
    end_ -= begin_;
    begin_ = 0;
  }
  if (end_ == buffer_.size()) return;
  std::size_t const count = input_.read(buffer_.data() + end_, buffer_.size() - end_);
  end_ += count;
  if (count == 0 && ++emptyReads_ >= kMaxEmptyReadsInARow) {
    throw opc::Exception(
        "Could not read the encrypted content: its stream gave no bytes before "
        "its end",
        boost::system::error_code(EIO, boost::system::system_category()));
  }
  if (count != 0) emptyReads_ = 0;
  if (input_.isDone()) inputDone_ = true;
}

bool GCMMessageReader::readIV(std::size_t size, bytes& iv) {
  while (buffered() < size && !inputDone_) refill();
  if (buffered() < size) return false;
  iv.assign(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
            buffer_.begin() + static_cast<std::ptrdiff_t>(begin_ + size));
  begin_ += size;
  return true;
}

GCMMessageReader::Piece GCMMessageReader::next(std::size_t size) {
  size = std::min(size, kPieceSize);
  if (!inputDone_ && buffered() < size + kTagSize) refill();
  // Until the input ends, any byte may turn out to be one of the tag's: the last 16 wait.
  std::size_t const available = buffered() > kTagSize ? buffered() - kTagSize : 0;
  std::size_t const count = std::min(size, available);
  Piece const piece{buffer_.data() + begin_, count};
  begin_ += count;
  return piece;
}

bool GCMMessageReader::atEnd() const { return inputDone_ && buffered() <= kTagSize; }

bool GCMMessageReader::truncated() const { return atEnd() && buffered() < kTagSize; }

unsigned char const* GCMMessageReader::tag() const { return buffer_.data() + begin_; }

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
