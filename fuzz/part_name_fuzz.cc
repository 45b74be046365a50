// Part names: validation, the exact text kept, equivalence, order and hash, the names of
// relationships parts, derivation, and the ZIP item name of a part.
//
// Input: one name, or two names separated by a line feed, as UTF-8 (see textFromBytes).
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include <boost/optional.hpp>

#include <opc/model/exceptions.h>
#include <opc/model/part_name.h>
#include <opc/model/uri.h>
#include <opc/model/zip_item_names.h>

#include "fuzz_support.h"

namespace {

using opc::model::InvalidPartName;
using opc::model::PartName;
using opcvk_fuzz::check;
using opcvk_fuzz::printable;

// The equivalence the class promises, computed independently: ASCII letters in lower case,
// every non-ASCII character as the escapes of its UTF-8 bytes, escapes in lower case.
std::string equivalenceKey(std::u16string const& name) {
  std::string key;
  for (unsigned char byte : opcvk_fuzz::utf8FromText(name)) {
    if (byte < 0x80) {
      key += static_cast<char>(byte >= 'A' && byte <= 'Z' ? byte - 'A' + 'a' : byte);
    } else {
      char buffer[4];
      std::snprintf(buffer, sizeof buffer, "%%%02x", static_cast<unsigned>(byte));
      key += buffer;
    }
  }
  for (std::size_t i = 0; i + 2 < key.size(); ++i) {
    if (key[i] != '%') continue;
    for (std::size_t k = i + 1; k <= i + 2; ++k) {
      if (key[k] >= 'A' && key[k] <= 'Z') key[k] = static_cast<char>(key[k] - 'A' + 'a');
    }
  }
  return key;
}

std::size_t segmentCount(std::u16string const& name) {
  std::size_t count = 0;
  for (char16_t unit : name) count += unit == u'/' ? 1 : 0;
  return count;
}

bool endsWithNoCase(std::u16string const& text, std::u16string const& suffix) {
  if (text.size() < suffix.size()) return false;
  std::size_t const start = text.size() - suffix.size();
  for (std::size_t i = 0; i < suffix.size(); ++i) {
    char16_t unit = text[start + i];
    if (unit >= u'A' && unit <= u'Z') unit = static_cast<char16_t>(unit - u'A' + u'a');
    if (unit != suffix[i]) return false;
  }
  return true;
}

// Checks one name; returns it if it is valid.
boost::optional<PartName> checkOne(std::u16string const& text) {
  std::string const shown = printable(text);
  boost::optional<PartName> name;
  bool const parsed =
      opcvk_fuzz::succeeds<InvalidPartName>("PartName", shown, [&] { name.emplace(text); });
  check(parsed == PartName::isValid(text), "isValid agrees with the constructor", shown);
  if (!parsed) return name;

  // The text is kept exactly and parses back to an equal name.
  check(name->toString() == text, "toString gives the text back", shown);
  PartName const again(name->toString());
  check(again == *name && !(again < *name) && !(*name < again) && again.hash() == name->hash(),
        "a name equals the name made from its text", shown);

  // The shape the grammar promises.
  check(!text.empty() && text.front() == u'/' && text.back() != u'/' &&
            text.find(u"//") == std::u16string::npos,
        "a valid name is an absolute path of non-empty segments", shown);

  // The URI form names the same part.
  opcvk_fuzz::mustNotThrow("PartName(getURI())", shown, [&] {
    check(PartName(name->getURI()) == *name, "the URI of a name gives the name back", shown);
  });

  // The ZIP item name (the URI form) maps back to the same part name.
  opcvk_fuzz::mustNotThrow("ZIP item name round trip", shown, [&] {
    std::string const item = opc::model::toZipItemName(*name);
    check(opc::model::partNameFromZipItemName(item) == *name,
          "the ZIP item name of a part maps back to its name", shown);
  });

  // Relationships parts and their sources.
  if (name->isRelationshipName()) {
    check(endsWithNoCase(text, u".rels") && segmentCount(text) >= 2,
          "a relationships part name ends with .rels", shown);
    boost::optional<PartName> source;
    bool const hasSource = opcvk_fuzz::succeeds<InvalidPartName>(
        "getRelationshipsSourceName", shown, [&] { source = name->getRelationshipsSourceName(); });
    if (hasSource && !source) {
      check(*name == PartName::getPackageRelationshipsPartName(),
            "only the package relationships part has the package as source", shown);
    }
    // The source of "/_rels/_rels/a.rels.rels" is itself a relationships part, which has no
    // relationships part of its own: the way back exists only for other sources.
    if (hasSource && source && !source->isRelationshipName()) {
      PartName const back = source->getRelationshipsPartName();
      check(back == *name, "the relationships part of the source is the part itself", shown);
    }
    check(!opcvk_fuzz::succeeds<InvalidPartName>("getRelationshipsPartName", shown,
                                                 [&] { name->getRelationshipsPartName(); }),
          "a relationships part has no relationships part", shown);
  } else {
    opcvk_fuzz::mustNotThrow("getRelationshipsPartName", shown, [&] {
      PartName const rels = name->getRelationshipsPartName();
      check(rels.isRelationshipName(), "the relationships part name is one", shown);
      boost::optional<PartName> const source = rels.getRelationshipsSourceName();
      check(source && *source == *name && source->toString() == text,
            "the source of the relationships part is the part", printable(rels.toString()));
    });
  }
  return name;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const input(reinterpret_cast<char const*>(data), size);
  auto const [first, second] = opcvk_fuzz::splitAt(input, '\n');
  std::u16string const firstText = opcvk_fuzz::textFromBytes(first);
  std::u16string const secondText = opcvk_fuzz::textFromBytes(second);
  boost::optional<PartName> const a = checkOne(firstText);
  boost::optional<PartName> const b = checkOne(secondText);
  if (!a || !b) return 0;

  // Equivalence, order and hash agree with each other and with the promised rule.
  std::string const shown = printable(firstText) + "\" and \"" + printable(secondText);
  bool const equivalent = equivalenceKey(firstText) == equivalenceKey(secondText);
  check((*a == *b) == equivalent, "equivalence follows the documented rule", shown);
  check((*a != *b) == !equivalent, "!= is the negation of ==", shown);
  check(!(*a < *b && *b < *a), "the order is asymmetric", shown);
  check((*a == *b) == (!(*a < *b) && !(*b < *a)), "the order is consistent with ==", shown);
  if (*a == *b) check(a->hash() == b->hash(), "equal names hash equal", shown);

  // Derivation: by whole segments, and never of a name from itself.
  if (a->isDerivedFrom(*b)) {
    check(*a != *b && !b->isDerivedFrom(*a), "derivation is strict", shown);
    check(segmentCount(firstText) > segmentCount(secondText), "a derived name is longer", shown);
    std::string const keyA = equivalenceKey(firstText);
    std::string const keyB = equivalenceKey(secondText);
    check(keyA.compare(0, keyB.size(), keyB) == 0 && keyA[keyB.size()] == '/',
          "a derived name starts with the other name and a /", shown);
  } else {
    std::string const keyA = equivalenceKey(firstText);
    std::string const keyB = equivalenceKey(secondText);
    check(!(keyA.size() > keyB.size() && keyA.compare(0, keyB.size(), keyB) == 0 &&
            keyA[keyB.size()] == '/'),
          "a name under another one is derived from it", shown);
  }
  return 0;
}
