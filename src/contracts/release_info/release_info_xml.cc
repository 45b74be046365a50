#include "release_info_xml.h"

#include <sstream>
#include <vector>

#include <foundation/release_info/invalid_release_info.h>
#include <foundation/release_info/release_info.h>
#include <opc/core/exception.h>
#include <opc/core/stream_adaptors.h>
#include <opc/core/string_conversions.h>

#include "xml_engine/xml_engine.h"

namespace foundation {
namespace release_info {
namespace detail {
namespace {

using opc::model::detail::XmlNode;

constexpr char16_t kNamespace[] = u"http://schemas.opcvkservices.org/release/2026/releaseInfo";
constexpr char16_t kRootElement[] = u"releaseInfo";
constexpr char16_t kFamilyElement[] = u"releaseFamily";
constexpr char16_t kVersionElement[] = u"version";
constexpr char16_t kBuildDateElement[] = u"buildDate";

// Strict: a document is understood whole or refused.  The version and the date are checked
// here, so that the reader only has to take the texts; the length limits keep every value to
// what a release can need.
constexpr char kSchemaHead[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<xsd:schema xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\"\n"
    "            xmlns=\"";
constexpr char kSchemaBetween[] = "\" targetNamespace=\"";
constexpr char kSchemaBody[] =
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

std::string schemaText() {
  std::string const ns = opc::detail::toUTF8String(kNamespace);
  return kSchemaHead + ns + kSchemaBetween + ns + kSchemaBody;
}

[[noreturn]] void fail(std::string const& problem) {
  throw InvalidReleaseInfo("Invalid release information: " + problem);
}

// The text from where the stream stands to its end, refusing more than the limit.
std::vector<unsigned char> readBounded(std::istream& input) {
  std::vector<unsigned char> bytes;
  char buffer[4096];
  while (input) {
    input.read(buffer, sizeof buffer);
    std::streamsize const got = input.gcount();
    bytes.insert(bytes.end(), buffer, buffer + got);
    if (bytes.size() > ReleaseInfo::kMaxVersionInfoSize) {
      fail("the text is larger than " + std::to_string(ReleaseInfo::kMaxVersionInfoSize) +
           " bytes");
    }
  }
  if (input.bad()) fail("the stream could not be read");
  return bytes;
}

std::string textOf(XmlNode const* element) {
  std::u16string text;
  opc::model::detail::getElementText(element, text);
  return opc::detail::toUTF8String(text);
}

XmlNode& appendElement(XmlNode& parent, char16_t const* name, std::string const& text) {
  XmlNode& element = parent.children.emplace_back();
  element.namespaceURI = kNamespace;
  element.name = name;
  element.text = opc::detail::toStringFromUTF8String(text);
  return element;
}

}  // namespace

ReleaseFields readReleaseXml(std::istream& input) {
  std::vector<unsigned char> const bytes = readBounded(input);
  try {
    opc::model::detail::XmlReaderSettings settings;
    settings.grammars.push_back({schemaText(), u"releaseInfo.xsd"});
    auto const reader = opc::model::detail::xmlEngine().makeTreeReader(settings);
    opc::ByteArrayInAdaptor source(bytes);
    // The grammar declares "releaseInfo" as its only global element, so that validation
    // has made sure of the document element.
    XmlNode const root = reader->read(source, true, u"", kNamespace);
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
  } catch (opc::Exception const& e) {
    // The parser's and the model's errors, translated here once: the library's callers
    // know its own class only.
    fail(e.what());
  }
}

std::string writeReleaseXml(ReleaseFields const& fields) {
  try {
    XmlNode root;
    root.namespaceURI = kNamespace;
    root.name = kRootElement;
    appendElement(root, kFamilyElement, fields.releaseFamily);
    if (fields.hasVersion) {
      appendElement(root, kVersionElement, fields.version);
      if (!fields.buildDate.empty()) appendElement(root, kBuildDateElement, fields.buildDate);
    }
    std::ostringstream text;
    {
      opc::StdOStreamAdaptor target(text);
      opc::model::detail::xmlEngine().write(root, true, target);
    }
    return text.str();
  } catch (opc::Exception const& e) {
    throw InvalidReleaseInfo(std::string("Could not write the release information: ") + e.what());
  }
}

}  // namespace detail
}  // namespace release_info
}  // namespace foundation
