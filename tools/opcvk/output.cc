#include "output.h"

#include <cstdio>

namespace opcvk {
namespace {

// Large enough that a listing costs a few system calls per thousand lines, small enough that
// the buffer stays out of the way of the tool's memory budget (it never doubles past it).
constexpr std::size_t kFlushAt = 64 * 1024;

}  // namespace

Output::~Output() { flush(); }

void Output::line(std::string const& text) {
  if (buffer_.capacity() < kFlushAt) buffer_.reserve(kFlushAt + 1024);
  buffer_ += text;
  buffer_ += '\n';
  if (buffer_.size() >= kFlushAt) flush();
}

void Output::write(char const* bytes, std::size_t count) {
  if (buffer_.capacity() < kFlushAt) buffer_.reserve(kFlushAt + 1024);
  buffer_.append(bytes, count);
  if (buffer_.size() >= kFlushAt) flush();
}

void Output::flush() {
  if (buffer_.empty()) return;
  std::fwrite(buffer_.data(), 1, buffer_.size(), stdout);
  buffer_.clear();
}

}  // namespace opcvk
