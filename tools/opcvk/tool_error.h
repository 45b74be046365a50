// The failure of one of the tool's own checks, reported as "opcvk: <message>" with exit code 1
// like a failure of the library; and a failure that the command's output already tells.
#ifndef TOOLS_OPCVK_TOOL_ERROR_H_
#define TOOLS_OPCVK_TOOL_ERROR_H_

#include <stdexcept>

namespace opcvk {

class ToolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A command that has told its whole result on standard output, and whose result is a failure
// (opcvk test found problems): the exit code is 1, with no line on standard error.
class ResultIsFailure : public std::exception {
 public:
  char const* what() const noexcept override { return "the result is a failure"; }
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_TOOL_ERROR_H_
