// Standard output in large writes: listings of many thousands of lines cost one system call
// per buffer, not one per line.
#ifndef TOOLS_OPCVK_OUTPUT_H_
#define TOOLS_OPCVK_OUTPUT_H_

#include <cstddef>
#include <string>

namespace opcvk {

class Output {
 public:
  Output() = default;
  Output(Output const&) = delete;
  Output& operator=(Output const&) = delete;
  // Writes what is left.  A write error shows in ferror(stdout), which main() checks.
  ~Output();

  // Appends `text` and a newline.
  void line(std::string const& text);
  // Appends `bytes` as they are.
  void write(char const* bytes, std::size_t count);
  void flush();

 private:
  std::string buffer_;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_OUTPUT_H_
