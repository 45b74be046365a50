// Keeps text that the library writes to std::cout away from the tool's standard output.
#ifndef TOOLS_OPCVK_SILENCED_STDOUT_H_
#define TOOLS_OPCVK_SILENCED_STDOUT_H_

#include <iostream>
#include <streambuf>

namespace opcvk {

// While an object lives, std::cout writes into nothing.  The charset detection behind text
// recoding reports its remarks on std::cout, and the tool's standard output carries results
// only.  The old buffer is put back when the object goes, exceptions included.
class SilencedStdout {
 public:
  SilencedStdout() : saved_(std::cout.rdbuf(&discard_)) {}
  SilencedStdout(SilencedStdout const&) = delete;
  SilencedStdout& operator=(SilencedStdout const&) = delete;
  ~SilencedStdout() { std::cout.rdbuf(saved_); }

 private:
  // A buffer that accepts every character and keeps none.
  class DiscardBuffer : public std::streambuf {
   protected:
    int_type overflow(int_type c) override { return traits_type::not_eof(c); }
    std::streamsize xsputn(char const*, std::streamsize count) override { return count; }
  };

  DiscardBuffer discard_;
  std::streambuf* saved_;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_SILENCED_STDOUT_H_
