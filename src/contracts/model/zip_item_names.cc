#include <algorithm>
#include <string>
#include <string_view>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/zip_item_names.h>

#include "part_name_rules.h"
#include "text_chars.h"

namespace opc {
namespace model {
namespace {

// An item name that is not UTF-8 cannot be shown as text; its bytes are shown with every
// byte above 0x7F as "\xHH", so that the message still points at the offending item.
std::string describeBytes(std::string const& bytes) {
  static char const kHex[] = "0123456789ABCDEF";
  std::string result;
  for (char byte : bytes) {
    unsigned char const value = static_cast<unsigned char>(byte);
    if (value >= 0x20 && value < 0x7F) {
      result += byte;
    } else {
      result += "\\x";
      result += kHex[value >> 4];
      result += kHex[value & 0xF];
    }
  }
  return result;
}

}  // namespace

std::string toZipItemName(PartName const& name) {
  // ASCII, nearly every name, is written as it is: the text after the "/".
  std::string_view const ascii = detail::PartNameAccess::asciiText(name);
  if (!ascii.empty()) return std::string(ascii.substr(1));
  static char const kHex[] = "0123456789ABCDEF";
  std::string const utf8 = opc::detail::toUTF8String(name.toString().substr(1));
  std::string item;
  item.reserve(utf8.size());
  for (char byte : utf8) {
    unsigned char const value = static_cast<unsigned char>(byte);
    if (value < 0x80) {
      item += byte;
    } else {
      item += '%';
      item += kHex[value >> 4];
      item += kHex[value & 0xF];
    }
  }
  return item;
}

PartName partNameFromZipItemName(std::string const& itemName) {
  if (!detail::isWellFormedUtf8(itemName)) {
    throw InvalidPartName("Invalid ZIP item name \"" + describeBytes(itemName) +
                          "\": it is not well-formed UTF-8");
  }
  std::u16string name;
  detail::assignPartNameTextOfItem(name, itemName);
  return PartName(name);
}

namespace detail {

bool isZipItemNameOf(std::string_view itemName, PartName const& name) {
  std::string_view const ascii = PartNameAccess::asciiText(name);
  if (!ascii.empty()) return itemName == ascii.substr(1);
  return itemName == toZipItemName(name);
}

void assignPartNameTextOfItem(std::u16string& name, std::string_view itemName) {
  // Appended rather than inserted in front: the same string, without a move that GCC 12
  // mistakes for an overlapping copy at -O2 (-Wrestrict).
  name.assign(1, u'/');
  bool const ascii = std::all_of(itemName.begin(), itemName.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (ascii) {
    name.append(itemName.begin(), itemName.end());
  } else {
    name += opc::detail::toStringFromUTF8String(std::string(itemName), true);
  }
}

}  // namespace detail

}  // namespace model
}  // namespace opc
