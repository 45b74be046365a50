// Relationship ids: the NCName check, compared with a reference written from the XML 1.0
// (fifth edition) productions, and the making of new ids beside the ids in use.
//
// Input: an id as UTF-8 (see textFromBytes); further ids after line feeds are the ids in use
// when a new one is made.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include <opc/model/exceptions.h>
#include <opc/model/relationship_id.h>

#include "fuzz_support.h"

namespace {

using opc::model::InvalidRelationship;
using opcvk_fuzz::check;
using opcvk_fuzz::printable;

bool isNameStartChar(char32_t c) {
  return (c >= U'A' && c <= U'Z') || c == U'_' || (c >= U'a' && c <= U'z') ||
         (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
         (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) ||
         (c >= 0x200C && c <= 0x200D) || (c >= 0x2070 && c <= 0x218F) ||
         (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
         (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD) ||
         (c >= 0x10000 && c <= 0xEFFFF);
}

bool isNameChar(char32_t c) {
  return isNameStartChar(c) || c == U'-' || c == U'.' || (c >= U'0' && c <= U'9') || c == 0xB7 ||
         (c >= 0x300 && c <= 0x36F) || (c >= 0x203F && c <= 0x2040);
}

// NCName: Name without ":"; characters by code point, so an unpaired surrogate is no
// character at all.
bool isNCName(std::u16string const& text) {
  if (text.empty()) return false;
  bool first = true;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      return false;
    }
    if (first ? !isNameStartChar(c) : !isNameChar(c)) return false;
    first = false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const input(reinterpret_cast<char const*>(data), size);
  auto const [idBytes, rest] = opcvk_fuzz::splitAt(input, '\n');
  std::u16string const id = opcvk_fuzz::textFromBytes(idBytes);
  std::string const shown = printable(id);

  bool const valid = opc::model::isValidRelationshipId(id);
  check(valid == isNCName(id), "an id is valid exactly when it is an NCName", shown);
  bool const accepted = opcvk_fuzz::succeeds<InvalidRelationship>(
      "ensureValidRelationshipId", shown, [&] { opc::model::ensureValidRelationshipId(id); });
  check(accepted == valid, "ensureValidRelationshipId agrees with isValidRelationshipId", shown);

  // A new id is valid, free, and follows the documented form.
  std::set<std::u16string> taken{id};
  std::string remaining = rest;
  while (!remaining.empty() && taken.size() < 64) {
    auto const [next, after] = opcvk_fuzz::splitAt(remaining, '\n');
    taken.insert(opcvk_fuzz::textFromBytes(next));
    remaining = after;
  }
  opcvk_fuzz::mustNotThrow("generateRelationshipId", shown, [&] {
    std::u16string const fresh = opc::model::generateRelationshipId(taken);
    check(opc::model::isValidRelationshipId(fresh), "a new id is valid", printable(fresh));
    check(taken.count(fresh) == 0, "a new id is not in use", printable(fresh));
    check(fresh.size() >= 2 && fresh[0] == u'R' &&
              fresh.find_first_not_of(u"0123456789ABCDEF", 1) == std::u16string::npos,
          "a new id is R and upper-case hexadecimal digits", printable(fresh));

    std::u16string const afterMark = opc::model::generateRelationshipId(
        [&](std::u16string const& candidate) { return taken.count(candidate) != 0; },
        static_cast<std::uint64_t>(size) + 1);
    check(taken.count(afterMark) == 0 && opc::model::isValidRelationshipId(afterMark),
          "a new id after a mark is valid and free", printable(afterMark));
  });
  return 0;
}
