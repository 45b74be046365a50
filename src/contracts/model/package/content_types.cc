#include "content_types.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/model/xml/xml_stream_writer.h>

#include "../part_name_rules.h"
#include "../text_chars.h"
#include "../xml/plain_elements.h"
#include "../xml_engine/xml_engine.h"
#include "part_table.h"
#include "plain_part.h"

namespace opc {
namespace model {
namespace detail {

char const kContentTypesItemName[] = "[Content_Types].xml";
char16_t const kContentTypesNamespace[] =
    u"http://schemas.openxmlformats.org/package/2006/content-types";
char16_t const kRelationshipsContentType[] =
    u"application/vnd.openxmlformats-package.relationships+xml";

namespace {

// The kinds of element of the document, and the attributes read from each.
constexpr std::size_t kDefault = 0;
constexpr std::size_t kOverride = 1;
constexpr std::size_t kExtensionValue = 0;
constexpr std::size_t kPartNameValue = 0;
constexpr std::size_t kContentTypeValue = 1;
PlainElementKind const kKinds[] = {{u"Default", {u"Extension", u"ContentType"}},
                                   {u"Override", {u"PartName", u"ContentType"}}};
PlainDocumentShape const kShape{u"Types", kContentTypesNamespace, kKinds, 2};

std::u16string requiredAttribute(PlainElement const& element, std::size_t at,
                                 char const* elementName, std::string const& context) {
  std::optional<std::u16string> const& value = element.values[at];
  if (!value || value->empty()) {
    throw InvalidPackage(context + ": a " + elementName + " element has no " +
                         toUDEString(std::u16string(kKinds[element.kind].attributes[at])) +
                         " attribute");
  }
  return *value;
}

ContentType parseContentType(std::u16string const& text, std::string const& context) {
  try {
    return ContentType(text);
  } catch (InvalidContentType const& e) {
    throw InvalidPackage(context + ": " + e.what());
  }
}

}  // namespace

std::u16string asciiOnly(std::u16string const& text) {
  // Every printable ASCII character stays as it is, so that escapes and reserved characters
  // keep their meaning; only what readers may not take raw is escaped.
  static std::string const kPrintableAscii = [] {
    std::string keep;
    for (char c = 0x20; c < 0x7F; ++c) keep += c;
    return keep;
  }();
  return URI::encodeComponent(text, kPrintableAscii);
}

namespace {

// What follows the last "." of a name's last segment, as it stands; empty when it has none.
// For a part name's text and for its key alike.
template <typename Char>
std::basic_string_view<Char> extensionOf(std::basic_string_view<Char> name) {
  std::size_t const slash = name.rfind(Char('/'));
  std::size_t const dot = name.rfind(Char('.'));
  if (dot == name.npos || (slash != name.npos && dot < slash)) return {};
  return name.substr(dot + 1);
}

// partNameExtension into `extension`, whose room is used again: a package of many parts asks
// it of every part at each save.
void lowerExtensionOf(PartName const& name, std::u16string& extension) {
  extension.clear();
  // The key holds ASCII letters in lower case and every other character as "%" escapes, none
  // of them a "/" or a ".": an extension of the key without "%" is the text's, lowered,
  // without making the text.
  std::string_view const fromKey = extensionOf(PartNameAccess::key(name));
  if (fromKey.find('%') == std::string_view::npos) {
    extension.assign(fromKey.begin(), fromKey.end());
    return;
  }
  std::u16string const text = PartNameAccess::text(name);
  for (char16_t const c : extensionOf(std::u16string_view(text))) {
    extension += asciiLower(c);
  }
}

}  // namespace

std::u16string partNameExtension(PartName const& name) {
  std::u16string extension;
  lowerExtensionOf(name, extension);
  return extension;
}

ContentTypeMap ContentTypeMap::read(opc::InputStream& stream, std::string const& context) {
  std::unique_ptr<XmlTreeReader> const reader = xmlEngine().makeTreeReader(XmlReaderSettings());
  XmlNode root;
  try {
    root = reader->read(stream, false, u"", kContentTypesNamespace);
  } catch (InvalidXMLDocument const& e) {
    throw InvalidPackage(context + ": " + e.what());
  } catch (InvalidPartContent const& e) {
    throw InvalidPackage(context + ": " + e.what());
  }
  if (root.localName != u"Types") {
    throw InvalidPackage(context + ": the document element is not Types");
  }
  return fromElements(plainElementsOf(root, kShape), context);
}

ContentTypeMap ContentTypeMap::read(OpenStream const& open, std::size_t size,
                                    std::string const& context) {
  std::vector<PlainElement> elements;
  // Nearly every package's document is plain: read without the parser, the XML library
  // is not even initialised for it.
  if (readPlainPart(open, size, kShape, elements, context)) return fromElements(elements, context);
  std::shared_ptr<opc::InputStream> const again = open();
  return read(*again, context);
}

ContentTypeMap ContentTypeMap::fromElements(std::vector<PlainElement> const& elements,
                                            std::string const& context) {
  ContentTypeMap map;
  // Every Default before any Override: the elements come kind by kind.
  for (PlainElement const& element : elements) {
    if (element.kind == kDefault) {
      std::u16string const extension =
          requiredAttribute(element, kExtensionValue, "Default", context);
      ContentType const type = parseContentType(
          requiredAttribute(element, kContentTypeValue, "Default", context), context);
      if (!map.defaults_.emplace(asciiLowered(extension), type).second) {
        throw InvalidPackage(context + ": the extension " + quoted(extension) +
                             " has more than one Default");
      }
      continue;
    }
    std::u16string const nameText = requiredAttribute(element, kPartNameValue, "Override", context);
    ContentType const type = parseContentType(
        requiredAttribute(element, kContentTypeValue, "Override", context), context);
    boost::optional<PartName> name;
    try {
      name = PartName(nameText);
    } catch (InvalidPartName const& e) {
      throw InvalidPackage(context + ": " + e.what());
    }
    if (!map.overrides_.emplace(std::string(PartNameAccess::key(*name)), type).second) {
      throw InvalidPackage(context + ": the part " + quoted(nameText) +
                           " has more than one Override");
    }
  }
  if (map.defaults_.size() <= kFewDefaults) {
    for (auto const& byExtension : map.defaults_) {
      std::u16string const& extension = byExtension.first;
      if (std::all_of(extension.begin(), extension.end(), [](char16_t c) { return c < 0x80; })) {
        map.asciiDefaults_.emplace_back(std::string(extension.begin(), extension.end()),
                                        &byExtension.second);
      }
    }
  }
  map.overrideHashes_.reserve(map.overrides_.size());
  for (auto const& override : map.overrides_) {
    map.overrideHashes_.push_back(PartTable::hashOf(override.first));
  }
  std::sort(map.overrideHashes_.begin(), map.overrideHashes_.end());
  return map;
}

boost::optional<ContentType> ContentTypeMap::lookup(PartName const& name) const {
  ContentType const* type = find(name);
  if (type == nullptr) return boost::none;
  return *type;
}

ContentType const* ContentTypeMap::findOverride(std::string_view key) const {
  if (overrides_.empty()) return nullptr;
  auto const override = overrides_.find(std::string(key));
  return override == overrides_.end() ? nullptr : &override->second;
}

ContentType const* ContentTypeMap::find(PartName const& name) const {
  if (ContentType const* type = findOverride(PartNameAccess::key(name))) return type;
  std::u16string const extension = partNameExtension(name);
  if (extension.empty()) return nullptr;
  auto const found = defaults_.find(extension);
  if (found == defaults_.end()) return nullptr;
  return &found->second;
}

ContentType const* ContentTypeMap::findByAsciiKey(std::string_view key, std::uint32_t hash) const {
  if (std::binary_search(overrideHashes_.begin(), overrideHashes_.end(), hash)) {
    auto const override = overrides_.find(std::string(key));
    if (override != overrides_.end()) return &override->second;
  }
  // The key of a plain ASCII name is its text in lower case: its extension is already lowered.
  // It follows the last "." of the last segment: a search back from the end stops at the
  // first "." or "/", so a name without an extension costs its last segment, not its length.
  std::size_t at = key.size();
  while (at > 0 && key[at - 1] != '.' && key[at - 1] != '/') --at;
  if (at == 0 || key[at - 1] != '.' || at == key.size()) return nullptr;
  std::string_view const extension = key.substr(at);
  if (defaults_.size() <= kFewDefaults) {
    for (auto const& byExtension : asciiDefaults_) {
      if (byExtension.first == extension) return byExtension.second;
    }
    return nullptr;
  }
  auto const found = defaults_.find(extension);
  if (found == defaults_.end()) return nullptr;
  return &found->second;
}

bool ContentTypeMap::ExtensionOrder::operator()(std::u16string const& a, std::string_view b) const {
  return std::lexicographical_compare(
      a.begin(), a.end(), b.begin(), b.end(),
      [](char16_t x, char y) { return x < static_cast<unsigned char>(y); });
}

bool ContentTypeMap::ExtensionOrder::operator()(std::string_view a, std::u16string const& b) const {
  return std::lexicographical_compare(
      a.begin(), a.end(), b.begin(), b.end(),
      [](char x, char16_t y) { return static_cast<unsigned char>(x) < y; });
}

void writeContentTypes(std::vector<std::pair<PartName const*, ContentType const*>> const& parts,
                       opc::OutputStream& stream) {
  // Parts that share one type object come one after another often: their text is made once.
  ContentType const* lastType = nullptr;
  std::u16string lastText;
  auto const textOf = [&](ContentType const* type) -> std::u16string const& {
    if (type != lastType) {
      lastText = type->toString();
      lastType = type;
    }
    return lastText;
  };
  // For each extension, how many parts have each type; the first type to reach the highest
  // count becomes the Default, so the output does not depend on hash order.  Extensions are
  // numbered in the order they are first met, which is the order of the Default elements.
  struct Tally {
    std::u16string extension;
    std::vector<std::pair<std::u16string, std::size_t>> counts;
    std::u16string const* best = nullptr;
  };
  constexpr std::size_t kNoExtension = static_cast<std::size_t>(-1);
  std::map<std::u16string, std::size_t> numbers;
  std::vector<Tally> tallies;
  std::vector<std::size_t> extensionOfPart(parts.size(), kNoExtension);
  std::u16string extension;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    lowerExtensionOf(*parts[i].first, extension);
    if (extension.empty()) continue;
    auto number = numbers.find(extension);
    if (number == numbers.end()) {
      number = numbers.emplace(extension, tallies.size()).first;
      tallies.push_back({extension, {}, nullptr});
    }
    extensionOfPart[i] = number->second;
    std::u16string const& type = textOf(parts[i].second);
    auto& counts = tallies[number->second].counts;
    auto found = std::find_if(counts.begin(), counts.end(),
                              [&](auto const& entry) { return entry.first == type; });
    if (found == counts.end()) {
      counts.emplace_back(type, 1);
    } else {
      ++found->second;
    }
  }
  for (Tally& tally : tallies) {
    auto best = tally.counts.begin();
    for (auto it = tally.counts.begin(); it != tally.counts.end(); ++it) {
      if (it->second > best->second) best = it;
    }
    tally.best = &best->first;
  }

  // Elements with attributes only: the streaming writer gives the serializer's bytes without
  // the XML library, so that saving a package does not load it.
  XmlStreamWriter writer(stream);
  writer.startDocument();
  writer.startElement(kContentTypesNamespace, u"Types");
  for (Tally const& tally : tallies) {
    writer.startElement(kContentTypesNamespace, u"Default");
    writer.attribute(u"Extension", tally.extension);
    writer.attribute(u"ContentType", *tally.best);
    writer.endElement();
  }
  for (std::size_t i = 0; i < parts.size(); ++i) {
    std::u16string const& type = textOf(parts[i].second);
    std::size_t const number = extensionOfPart[i];
    if (number != kNoExtension && *tallies[number].best == type) continue;
    writer.startElement(kContentTypesNamespace, u"Override");
    writer.attribute(u"PartName", asciiOnly(PartNameAccess::text(*parts[i].first)));
    writer.attribute(u"ContentType", type);
    writer.endElement();
  }
  writer.endElement();
  writer.endDocument();
}

}  // namespace detail
}  // namespace model
}  // namespace opc
