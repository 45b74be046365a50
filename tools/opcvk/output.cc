#include "output.h"

#include <cstdio>

namespace opcvk {
namespace {

constexpr std::size_t kFlushAt = 1 << 20;

}  // namespace

Output::~Output() { flush(); }

void Output::line(std::string const& text) {
  buffer_ += text;
  buffer_ += '\n';
  if (buffer_.size() >= kFlushAt) flush();
}

void Output::write(char const* bytes, std::size_t count) {
  buffer_.append(bytes, count);
  if (buffer_.size() >= kFlushAt) flush();
}

void Output::flush() {
  if (buffer_.empty()) return;
  std::fwrite(buffer_.data(), 1, buffer_.size(), stdout);
  buffer_.clear();
}

}  // namespace opcvk
