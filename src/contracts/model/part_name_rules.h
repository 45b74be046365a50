// The grammar of part names, shared by PartName and the ZIP item name mapping.
// Internal to libopcmodel.
#ifndef OPC_MODEL_PART_NAME_RULES_H_
#define OPC_MODEL_PART_NAME_RULES_H_

#include <optional>
#include <string>

namespace opc {
namespace model {
namespace detail {

// The first rule that `name` breaks, worded for a message, or nothing if it is a valid
// part name.
std::optional<std::string> findPartNameError(std::u16string const& name);

// The comparison form of a valid part name: its UTF-8 bytes, each byte above 0x7F as a
// "%xx" escape, ASCII letters (escape digits included) in lower case.
std::string makePartNameKey(std::u16string const& name);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PART_NAME_RULES_H_
