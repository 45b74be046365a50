#include "part_name_rules.h"

#include <opc/core/string_conversions.h>

#include "text_chars.h"

namespace opc {
namespace model {
namespace detail {
namespace {

bool isSegmentCharacter(char32_t c) {
  return isUnreserved(c) || isSubDelim(c) || c == ':' || c == '@' || isUcsChar(c);
}

std::optional<std::string> findSegmentError(std::u16string const& segment) {
  if (segment.empty()) return std::string("empty segments are not allowed");
  std::size_t i = 0;
  while (i < segment.size()) {
    if (segment[i] == u'%') {
      if (i + 2 >= segment.size() || !isHexDigit(segment[i + 1]) || !isHexDigit(segment[i + 2])) {
        return std::string("\"%\" must be followed by two hexadecimal digits");
      }
      char32_t const decoded =
          static_cast<char32_t>(hexValue(segment[i + 1]) * 16 + hexValue(segment[i + 2]));
      if (decoded == '/') return std::string("percent-encoded \"/\" is not allowed");
      if (decoded == '\\') return std::string("percent-encoded \"\\\" is not allowed");
      if (isUnreserved(decoded)) {
        return "percent-encoded unreserved character " + describeCharacter(decoded) +
               " is not allowed";
      }
      i += 3;
      continue;
    }
    char32_t const c = nextCodePoint(segment, i);
    if (!isSegmentCharacter(c)) return "character " + describeCharacter(c) + " is not allowed";
  }
  if (segment == u"." || segment == u"..") return "segment " + quoted(segment) + " is not allowed";
  if (segment.back() == u'.') return "segment " + quoted(segment) + " must not end with \".\"";
  return std::nullopt;
}

}  // namespace

std::optional<std::string> findPartNameError(std::u16string const& name) {
  if (name.empty()) return std::string("a part name must not be empty");
  if (name[0] != u'/') return std::string("a part name must start with \"/\"");
  std::size_t const delimiter = name.find_first_of(u"?#");
  if (delimiter != std::u16string::npos) {
    return std::string(name[delimiter] == u'?' ? "a part name must not have a query"
                                               : "a part name must not have a fragment");
  }
  if (name.back() == u'/') return std::string("a part name must not end with \"/\"");
  std::size_t start = 1;
  while (start <= name.size()) {
    std::size_t const slash = name.find(u'/', start);
    std::size_t const stop = slash == std::u16string::npos ? name.size() : slash;
    if (auto error = findSegmentError(name.substr(start, stop - start))) return error;
    start = stop + 1;
  }
  return std::nullopt;
}

std::string makePartNameKey(std::u16string const& name) {
  static char const kHex[] = "0123456789abcdef";
  std::string const bytes = opc::detail::toUTF8String(name);
  std::string key;
  key.reserve(bytes.size());
  for (char byte : bytes) {
    unsigned char const value = static_cast<unsigned char>(byte);
    if (value >= 0x80) {
      key += '%';
      key += kHex[value >> 4];
      key += kHex[value & 0xF];
    } else if (value >= 'A' && value <= 'Z') {
      key += static_cast<char>(value - 'A' + 'a');
    } else {
      key += byte;
    }
  }
  return key;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
