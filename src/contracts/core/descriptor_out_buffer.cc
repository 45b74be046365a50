#include "descriptor_out_buffer.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace opc {
namespace detail {
namespace {

constexpr std::size_t kBufferSize = 64 * 1024;
// A block at least this large is never copied into the buffer.
constexpr std::size_t kDirectSize = 4 * 1024;

}  // namespace

DescriptorOutBuffer::DescriptorOutBuffer(int fd, bool firstBlockDirect)
    : fd_(fd), firstBlockDirect_(firstBlockDirect) {
  setp(nullptr, nullptr);
}

DescriptorOutBuffer::~DescriptorOutBuffer() = default;

void DescriptorOutBuffer::takeBuffer() {
  if (buffer_) return;
  buffer_.reset(new char[kBufferSize]);
  setp(buffer_.get(), buffer_.get() + kBufferSize);
}

bool DescriptorOutBuffer::flush() {
  bool const ok = writeAll(pbase(), static_cast<std::size_t>(pptr() - pbase()));
  setp(buffer_.get(), buffer_.get() + (buffer_ ? kBufferSize : 0));
  return ok && error_ == 0;
}

DescriptorOutBuffer::int_type DescriptorOutBuffer::overflow(int_type c) {
  if (!flush()) return traits_type::eof();
  takeBuffer();
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  *pptr() = traits_type::to_char_type(c);
  pbump(1);
  return c;
}

std::streamsize DescriptorOutBuffer::xsputn(char const* data, std::streamsize count) {
  std::size_t const size = static_cast<std::size_t>(count);
  std::streamsize const room = epptr() - pptr();
  if (pptr() != pbase() && count <= room) {
    std::memcpy(pptr(), data, size);
    pbump(static_cast<int>(count));
    return count;
  }
  if (!flush()) return 0;
  bool const first = !wrote_ && firstBlockDirect_;
  wrote_ = true;
  if (first || size >= kDirectSize) {
    // Straight to the file rather than through the buffer.
    return writeAll(data, size) ? count : 0;
  }
  takeBuffer();
  std::memcpy(pptr(), data, size);
  pbump(static_cast<int>(count));
  return count;
}

int DescriptorOutBuffer::sync() { return flush() ? 0 : -1; }

DescriptorOutBuffer::pos_type DescriptorOutBuffer::seekoff(off_type offset,
                                                           std::ios_base::seekdir direction,
                                                           std::ios_base::openmode which) {
  if (!(which & std::ios_base::out) || !flush()) return pos_type(off_type(-1));
  int const whence = direction == std::ios_base::beg   ? SEEK_SET
                     : direction == std::ios_base::cur ? SEEK_CUR
                                                       : SEEK_END;
  off_type const target = ::lseek(fd_, offset, whence);
  return pos_type(target < 0 ? off_type(-1) : target);
}

DescriptorOutBuffer::pos_type DescriptorOutBuffer::seekpos(pos_type position,
                                                           std::ios_base::openmode which) {
  return seekoff(off_type(position), std::ios_base::beg, which);
}

bool DescriptorOutBuffer::writeAll(char const* data, std::size_t count) {
  while (count > 0) {
    ssize_t const written = ::write(fd_, data, count);
    if (written < 0) {
      if (errno == EINTR) continue;
      if (error_ == 0) error_ = errno;
      return false;
    }
    data += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace detail
}  // namespace opc
