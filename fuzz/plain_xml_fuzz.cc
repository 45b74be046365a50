// The plain reader and writer of small documents against the parser's road.  Whenever the
// plain reader accepts a document, the parser must accept it too and give the same tree; when
// the core part's or the release record's rules vouch for that tree, the validating parser
// must accept the document against the schema and give the same values.  Whenever the plain
// writer writes a tree, the serializer must write the same bytes.  A document given up on is
// the parser's alone, so nothing is asked of it.
//
// Input: the bytes of a document.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <opc/core/stream_adaptors.h>
#include <opc/model/xml/xml_exceptions.h>

#include "coreproperties/core_properties_names.h"
#include "fuzz_support.h"
#include "release_info_schema.h"
#include "xml_engine/plain_xml.h"
#include "xml_engine/xml_engine.h"

namespace {

using opc::model::detail::XmlNode;
using opcvk_fuzz::check;

struct Fixture {
  std::unique_ptr<opc::model::detail::XmlTreeReader> plainReader =
      opc::model::detail::xmlEngine().makeTreeReader({});
  std::unique_ptr<opc::model::detail::XmlTreeReader> coreReader =
      opc::vkservices::detail::makeCoreReader(opc::vkservices::detail::coreSchemaText());
  std::unique_ptr<opc::model::detail::XmlTreeReader> releaseReader =
      opc::model::detail::xmlEngine().makeTreeReader(
          {{{foundation::release_info::detail::schemaText(), u"releaseInfo.xsd"}}});
  std::u16string const coreNamespace = opc::vkservices::detail::coreNamespace();
};

Fixture& fixture() {
  static Fixture instance;
  return instance;
}

// The whole tree as one text, field by field, to compare and to show.
std::u16string describe(XmlNode const& node) {
  std::u16string text = u"<{" + node.namespaceURI + u"}" + node.name + u"|" + node.localName;
  for (std::size_t i = 0; i < node.attributes.size(); ++i) {
    text += u" " + node.attributes[i].first + u"={" +
            opc::model::detail::attributeNamespace(node, i) + u"}" + node.attributes[i].second;
  }
  text += u" #" + std::u16string(1, static_cast<char16_t>(u'0' + node.attributeNamespaces.size()));
  for (auto const& declaration : node.namespaceDeclarations) {
    text += u" xmlns:" + declaration.first + u"=" + declaration.second;
  }
  text += u">[" + node.text + u"](" + node.tail + u")";
  for (XmlNode const& child : node.children) text += describe(child);
  return text + u"</>";
}

XmlNode parse(opc::model::detail::XmlTreeReader& reader, std::vector<unsigned char> const& bytes,
              bool validate, std::u16string const& ns) {
  opc::ByteArrayInAdaptor in(bytes);
  return reader.read(in, validate, u"", ns);
}

std::u16string leafText(XmlNode const& root, char16_t const* name) {
  std::u16string text;
  opc::model::detail::getElementText(opc::model::detail::findElement(&root, name), text);
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Fixture& f = fixture();
  std::vector<unsigned char> const bytes(data, data + size);
  std::string const shown = opcvk_fuzz::printable(std::string(bytes.begin(), bytes.end()));

  XmlNode plain;
  if (!opc::model::detail::readPlainXml(data, size, plain)) return 0;
  std::u16string const plainText = describe(plain);

  XmlNode parsed;
  opcvk_fuzz::mustNotThrow("the parser reads what the plain reader accepts", shown,
                           [&] { parsed = parse(*f.plainReader, bytes, false, u""); });
  check(describe(parsed) == plainText, "the parser gives the plain reader's tree",
        shown + "\n*** plain:  " + opcvk_fuzz::printable(plainText) +
            "\n*** parser: " + opcvk_fuzz::printable(describe(parsed)));

  using opc::vkservices::detail::isPlainlyValidCoreDocument;
  if (isPlainlyValidCoreDocument(plain, f.coreNamespace)) {
    XmlNode valid;
    opcvk_fuzz::mustNotThrow("the schema accepts a core part that the plain rules vouch for", shown,
                             [&] { valid = parse(*f.coreReader, bytes, true, u""); });
    for (char16_t const* name : {opc::vkservices::detail::kContentTypeElement,
                                 opc::vkservices::detail::kFriendlyNameElement,
                                 opc::vkservices::detail::kReleaseElement}) {
      check(leafText(valid, name) == leafText(plain, name),
            "the validating parser gives the core part's values", shown);
    }
  }

  namespace release = foundation::release_info::detail;
  if (release::isPlainlyValidRelease(plain)) {
    XmlNode valid;
    opcvk_fuzz::mustNotThrow(
        "the schema accepts a release record that the plain rules vouch for", shown,
        [&] { valid = parse(*f.releaseReader, bytes, true, release::kNamespace); });
    release::ReleaseFields const a = release::fieldsOf(valid);
    release::ReleaseFields const b = release::fieldsOf(plain);
    check(a.releaseFamily == b.releaseFamily && a.hasVersion == b.hasVersion &&
              a.version == b.version && a.buildDate == b.buildDate,
          "the validating parser gives the release record's fields", shown);
  }

  // What was read, written again: the plain writer must write the serializer's bytes.
  std::string written;
  if (opc::model::detail::writePlainXml(plain, true, written)) {
    std::vector<unsigned char> engine;
    opcvk_fuzz::mustNotThrow("the serializer writes what the plain writer writes", shown, [&] {
      opc::ByteArrayOutAdaptor out(engine);
      opc::model::detail::xmlEngine().write(plain, true, out);
    });
    check(std::string(engine.begin(), engine.end()) == written,
          "the plain writer writes the serializer's bytes",
          shown + "\n*** plain:  " + opcvk_fuzz::printable(written) +
              "\n*** engine: " + opcvk_fuzz::printable(std::string(engine.begin(), engine.end())));
  }
  return 0;
}
