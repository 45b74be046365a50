#include "release_info_xml.h"

#include <sstream>
#include <vector>

#include <foundation/release_info/invalid_release_info.h>
#include <foundation/release_info/release_info.h>
#include <opc/core/exception.h>
#include <opc/core/stream_adaptors.h>
#include <opc/core/string_conversions.h>

#include "release_info_schema.h"
#include "xml_engine/plain_xml.h"
#include "xml_engine/xml_engine.h"

namespace foundation {
namespace release_info {
namespace detail {
namespace {

using opc::model::detail::XmlNode;

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
    XmlNode root;
    if (opc::model::detail::readPlainXml(bytes.data(), bytes.size(), root) &&
        isPlainlyValidRelease(root)) {
      return fieldsOf(root);
    }
    opc::model::detail::XmlReaderSettings settings;
    settings.grammars.push_back({schemaText(), u"releaseInfo.xsd"});
    auto const reader = opc::model::detail::xmlEngine().makeTreeReader(settings);
    opc::ByteArrayInAdaptor source(bytes);
    // The grammar declares "releaseInfo" as its only global element, so that validation
    // has made sure of the document element.
    return fieldsOf(reader->read(source, true, u"", kNamespace));
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
      opc::model::detail::writeXmlDocument(root, true, target);
    }
    return text.str();
  } catch (opc::Exception const& e) {
    throw InvalidReleaseInfo(std::string("Could not write the release information: ") + e.what());
  }
}

}  // namespace detail
}  // namespace release_info
}  // namespace foundation
