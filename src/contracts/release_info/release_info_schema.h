// The schema of a release record's XML text, its names, and what a tree read without
// validation must be for the schema to accept it for certain.  Internal to libvkrelease_info;
// header only, so that the fuzz target comparing the plain reader with the parser compiles
// its own copy of the very same rules.
#ifndef FOUNDATION_RELEASE_INFO_RELEASE_INFO_SCHEMA_H_
#define FOUNDATION_RELEASE_INFO_RELEASE_INFO_SCHEMA_H_

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include <opc/core/string_conversions.h>

#include "release_info_xml.h"
#include "xml_engine/xml_engine.h"

namespace foundation {
namespace release_info {
namespace detail {

using opc::model::detail::XmlNode;

inline constexpr char16_t kNamespace[] =
    u"http://schemas.opcvkservices.org/release/2026/releaseInfo";
inline constexpr char16_t kRootElement[] = u"releaseInfo";
inline constexpr char16_t kFamilyElement[] = u"releaseFamily";
inline constexpr char16_t kVersionElement[] = u"version";
inline constexpr char16_t kBuildDateElement[] = u"buildDate";

// Strict: a document is understood whole or refused.  The version and the date are checked
// here, so that the reader only has to take the texts; the length limits keep every value to
// what a release can need.
inline constexpr char kSchemaHead[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<xsd:schema xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"\n"
    "            xmlns=\"";
inline constexpr char kSchemaBetween[] = "\" targetNamespace=\"";
inline constexpr char kSchemaBody[] =
    "\"\n"
    "            elementFormDefault=\"qualified\" attributeFormDefault=\"unqualified\"\n"
    "            blockDefault=\"#all\">\n"
    "  <xsd:simpleType name=\"familyType\">\n"
    "    <xsd:restriction base=\"xsd:string\"><xsd:maxLength value=\"64\"/></xsd:restriction>\n"
    "  </xsd:simpleType>\n"
    "  <xsd:simpleType name=\"versionType\">\n"
    "    <xsd:restriction base=\"xsd:string\">\n"
    "      <xsd:pattern value=\"[0-9]+(\\.[0-9]+)*\"/>\n"
    "      <xsd:maxLength value=\"64\"/>\n"
    "    </xsd:restriction>\n"
    "  </xsd:simpleType>\n"
    "  <xsd:simpleType name=\"dateType\">\n"
    "    <xsd:restriction base=\"xsd:date\">\n"
    "      <xsd:pattern value=\"[0-9]{4}-[0-9]{2}-[0-9]{2}\"/>\n"
    "    </xsd:restriction>\n"
    "  </xsd:simpleType>\n"
    "  <xsd:complexType name=\"releaseInfoType\">\n"
    "    <xsd:sequence>\n"
    "      <xsd:element name=\"releaseFamily\" type=\"familyType\"/>\n"
    "      <xsd:sequence minOccurs=\"0\">\n"
    "        <xsd:element name=\"version\" type=\"versionType\"/>\n"
    "        <xsd:element name=\"buildDate\" type=\"dateType\" minOccurs=\"0\"/>\n"
    "      </xsd:sequence>\n"
    "    </xsd:sequence>\n"
    "  </xsd:complexType>\n"
    "  <xsd:element name=\"releaseInfo\" type=\"releaseInfoType\"/>\n"
    "</xsd:schema>\n";

inline std::string schemaText() {
  std::string const ns = opc::detail::toUTF8String(kNamespace);
  return kSchemaHead + ns + kSchemaBetween + ns + kSchemaBody;
}

inline std::string textOf(XmlNode const* element) {
  std::u16string text;
  opc::model::detail::getElementText(element, text);
  return opc::detail::toUTF8String(text);
}

// The fields of a document that the schema accepts.
inline ReleaseFields fieldsOf(XmlNode const& root) {
  ReleaseFields fields;
  fields.releaseFamily = textOf(&opc::model::detail::getElement(&root, kFamilyElement));
  std::vector<XmlNode const*> const versions =
      opc::model::detail::getElements(&root, kVersionElement);
  if (!versions.empty()) {
    fields.hasVersion = true;
    fields.version = textOf(versions.front());
    std::vector<XmlNode const*> const dates =
        opc::model::detail::getElements(&root, kBuildDateElement);
    if (!dates.empty()) fields.buildDate = textOf(dates.front());
  }
  return fields;
}

inline bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

// Digits and single dots between them, as the version's pattern wants.
inline bool isPlainVersion(std::u16string const& text) {
  if (text.empty() || text.size() > 64 || !isDigit(text.front()) || !isDigit(text.back())) {
    return false;
  }
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == u'.' && isDigit(text[i + 1])) continue;
    if (!isDigit(text[i])) return false;
  }
  return true;
}

// A date of the pattern YYYY-MM-DD that is a day of the calendar, year 0 excepted.
inline bool isPlainDate(std::u16string const& text) {
  if (text.size() != 10 || text[4] != u'-' || text[7] != u'-') return false;
  for (std::size_t i : {0, 1, 2, 3, 5, 6, 8, 9}) {
    if (!isDigit(text[i])) return false;
  }
  auto number = [&](std::size_t from, std::size_t count) {
    int value = 0;
    for (std::size_t i = from; i < from + count; ++i) value = value * 10 + (text[i] - u'0');
    return value;
  };
  int const year = number(0, 4);
  int const month = number(5, 2);
  int const day = number(8, 2);
  if (year == 0 || month < 1 || month > 12 || day < 1) return false;
  static int const kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool const leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return day <= kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

// Whether the schema accepts `root`, read without validation, for certain: the family, then
// optionally a version and then optionally a build date, each holding text alone within its
// type, no attribute, whitespace between them.  Anything else is left to the validating
// parser, whose messages tell what is wrong.
inline bool isPlainlyValidRelease(XmlNode const& root) {
  if (root.namespaceURI != kNamespace || root.localName != kRootElement) return false;
  if (!root.attributes.empty() || root.children.empty() || root.children.size() > 3) {
    return false;
  }
  static char16_t const* const kElements[] = {kFamilyElement, kVersionElement, kBuildDateElement};
  for (std::size_t i = 0; i < root.children.size(); ++i) {
    XmlNode const& child = root.children[i];
    if (child.namespaceURI != kNamespace || child.localName != kElements[i] ||
        !child.attributes.empty() || !child.children.empty()) {
      return false;
    }
  }
  // A length in UTF-16 units within the bound is within it in characters as well.
  if (root.children[0].text.size() > 64) return false;
  if (root.children.size() > 1 && !isPlainVersion(root.children[1].text)) return false;
  if (root.children.size() > 2 && !isPlainDate(root.children[2].text)) return false;
  return std::all_of(root.text.begin(), root.text.end(),
                     [](char16_t c) { return c == u' ' || c == u'\t' || c == u'\n'; });
}

}  // namespace detail
}  // namespace release_info
}  // namespace foundation

#endif  // FOUNDATION_RELEASE_INFO_RELEASE_INFO_SCHEMA_H_
