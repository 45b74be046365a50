// Collects what is written to std::cout, where the recoding transform writes its remarks.
#ifndef TESTS_UNIT_CONTENT_COUT_CAPTURE_H_
#define TESTS_UNIT_CONTENT_COUT_CAPTURE_H_

#include <iostream>
#include <sstream>
#include <string>

namespace opcvk_test {

// Captures std::cout while it lives.  For tests that run on one thread.
class CoutCapture {
 public:
  CoutCapture() : previous_(std::cout.rdbuf(captured_.rdbuf())) {}
  ~CoutCapture() { std::cout.rdbuf(previous_); }
  CoutCapture(CoutCapture const&) = delete;
  CoutCapture& operator=(CoutCapture const&) = delete;

  std::string text() const { return captured_.str(); }

 private:
  std::ostringstream captured_;
  std::streambuf* previous_;
};

}  // namespace opcvk_test

#endif  // TESTS_UNIT_CONTENT_COUT_CAPTURE_H_
