// The failure of one of the tool's own checks, reported as "opcvk: <message>" with exit code 1
// like a failure of the library.
#ifndef TOOLS_OPCVK_TOOL_ERROR_H_
#define TOOLS_OPCVK_TOOL_ERROR_H_

#include <stdexcept>

namespace opcvk {

class ToolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_TOOL_ERROR_H_
