// The grammar of part names, shared by PartName and the ZIP item name mapping.
// Internal to libopcmodel.
#ifndef OPC_MODEL_PART_NAME_RULES_H_
#define OPC_MODEL_PART_NAME_RULES_H_

#include <optional>
#include <string>
#include <string_view>

namespace opc {
namespace model {

class PartName;

namespace detail {

// The first rule that `name` breaks, worded for a message, or nothing if it is a valid
// part name.
std::optional<std::string> findPartNameError(std::u16string const& name);

// The comparison form of a valid part name: its UTF-8 bytes, each byte above 0x7F as a
// "%xx" escape, ASCII letters (escape digits included) in lower case.
std::string makePartNameKey(std::u16string const& name);

// The digits of a "%xx" escape in the comparison form.
inline constexpr char kPartNameKeyHex[] = "0123456789abcdef";

// Appends the comparison form of UTF-8 bytes to `key`: the rule of makePartNameKey, for callers
// that hold a name's bytes already (an archive's item names).
void appendPartNameKeyBytes(std::string& key, std::string_view utf8);

// The text of the part name a ZIP item of the well-formed UTF-8 name `itemName` maps to: "/"
// and the name's characters, into `name`, whose room is used again.
void assignPartNameTextOfItem(std::u16string& name, std::string_view itemName);

// Whether `itemName` is toZipItemName(name), told without making it for an ASCII name.
bool isZipItemNameOf(std::string_view itemName, PartName const& name);

// Whether "/" followed by `itemName` is a valid part name that needs no decoding: every byte
// plain ASCII and a segment character, each "%" followed by two hexadecimal digits of a byte
// that must be escaped, no empty segment, no segment "." or ".." and none ending in ".".
// Such a name's text is its bytes widened, and its comparison form that of its bytes.  False says
// nothing: the name may still be valid, and findPartNameError gives the verdict.  The names of a
// package's items almost always pass, so that opening it checks each name in one pass over its
// bytes.
bool isPlainPartItemName(std::string_view itemName);

// The texts a PartName holds, read without a copy: a package of many parts compares and
// hashes names far more often than it makes them.
class PartNameAccess {
 public:
  // The comparison form (see makePartNameKey).
  static std::string_view key(PartName const& name);
  // The name exactly as given (see PartName::toString); made anew at each call.
  static std::u16string text(PartName const& name);
  // The same text without a copy when it is all ASCII (nearly every name), valid as long as
  // the name; empty for a name with any other character.
  static std::string_view asciiText(PartName const& name);
  // A PartName from a text already known to be valid and its comparison form, without a
  // second check (see isPlainPartItemName).
  static PartName make(std::u16string const& name, std::string const& key);
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PART_NAME_RULES_H_
