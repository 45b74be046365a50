#include <optional>

#include <opc/model/exceptions.h>
#include <opc/model/relationship_id.h>

#include "text_chars.h"

namespace opc {
namespace model {
namespace {

// XML 1.0 fifth edition, production [4] NameStartChar, without ":".
bool isNameStartCharacter(char32_t c) {
  return detail::isAsciiAlpha(c) || c == '_' || (c >= 0xC0 && c <= 0xD6) ||
         (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) || (c >= 0x370 && c <= 0x37D) ||
         (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) ||
         (c >= 0x2070 && c <= 0x218F) || (c >= 0x2C00 && c <= 0x2FEF) ||
         (c >= 0x3001 && c <= 0xD7FF) || (c >= 0xF900 && c <= 0xFDCF) ||
         (c >= 0xFDF0 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0xEFFFF);
}

// Production [4a] NameChar, without ":".
bool isNameCharacter(char32_t c) {
  return isNameStartCharacter(c) || detail::isAsciiDigit(c) || c == '-' || c == '.' || c == 0xB7 ||
         (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

std::optional<std::string> findIdError(std::u16string const& id) {
  if (id.empty()) return std::string("an id must not be empty");
  std::size_t i = 0;
  char32_t const first = detail::nextCodePoint(id, i);
  if (!isNameStartCharacter(first)) {
    if (isNameCharacter(first) || first == ':') {
      return std::string("an id must start with a letter or \"_\"");
    }
    return "character " + detail::describeCharacter(first) + " is not allowed";
  }
  while (i < id.size()) {
    char32_t const c = detail::nextCodePoint(id, i);
    if (!isNameCharacter(c)) return "character " + detail::describeCharacter(c) + " is not allowed";
  }
  return std::nullopt;
}

std::u16string makeId(std::uint64_t counter) {
  static char16_t const kHex[] = u"0123456789ABCDEF";
  std::u16string digits;
  do {
    digits.insert(digits.begin(), kHex[counter & 0xF]);
    counter >>= 4;
  } while (counter != 0);
  return u"R" + digits;
}

}  // namespace

bool isValidRelationshipId(std::u16string const& id) { return !findIdError(id).has_value(); }

void ensureValidRelationshipId(std::u16string const& id) {
  if (auto error = findIdError(id)) {
    throw InvalidRelationship("Invalid relationship id " + detail::quoted(id) + ": " + *error);
  }
}

std::u16string generateRelationshipId(std::function<bool(std::u16string const&)> const& isTaken,
                                      std::uint64_t firstCounter) {
  // A 64-bit counter cannot run out before memory does: every step needs one more id that
  // is taken.
  for (std::uint64_t counter = firstCounter == 0 ? 1 : firstCounter;; ++counter) {
    std::u16string id = makeId(counter);
    if (!isTaken(id)) return id;
  }
}

std::u16string generateRelationshipId(std::set<std::u16string> const& taken) {
  return generateRelationshipId([&taken](std::u16string const& id) { return taken.count(id) != 0; },
                                taken.size() + 1);
}

}  // namespace model
}  // namespace opc
