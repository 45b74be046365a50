// The rules that let the core part be read without the parser must vouch only for documents
// that the validating parser accepts against the part's schema, with the same values: the
// parser is the reference here, on many generated documents of valid and invalid forms.
#include "coreproperties/core_properties_names.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/string_conversions.h>
#include <opc/model/xml/xml_exceptions.h>

#include "contracts/model/xml_engine/plain_xml.h"
#include "support/byte_streams.h"

namespace {

using opc::model::detail::XmlNode;
using opc::vkservices::detail::isPlainlyValidCoreDocument;

std::u16string textOf(XmlNode const& root, char16_t const* name) {
  std::u16string text;
  opc::model::detail::getElementText(opc::model::detail::findElement(&root, name), text);
  return text;
}

TEST(CorePropertiesNamesTest, PlainRulesVouchOnlyForDocumentsThatTheSchemaAccepts) {
  auto const reader =
      opc::vkservices::detail::makeCoreReader(opc::vkservices::detail::coreSchemaText());
  std::string const ns = opc::detail::toUTF8String(opc::vkservices::detail::coreNamespace());
  std::u16string const ns16 = opc::vkservices::detail::coreNamespace();
  static char const* const kElements[] = {"contentType", "contentTypeFriendlyName", "orvaneRelease",
                                          "orvaneVersion", "other"};
  static char const* const kTexts[] = {
      "application/vnd.veltrance.a.b", "", " x ", "a &amp; b", "\xC3\xA9", "<i>b</i>", "<!--c-->"};
  std::mt19937 random(11);
  int vouched = 0;
  for (int i = 0; i < 3000; ++i) {
    bool const prefixed = random() % 4 == 0;
    std::string const open = prefixed ? "p:" : "";
    std::string text = "<" + open + "vkcoreProperties xmlns" + (prefixed ? ":p" : "") + "='" +
                       (random() % 20 ? ns : ns + "x") + "'" + (random() % 20 ? "" : " a='1'") +
                       ">";
    std::vector<int> order = {0, 1, 2};
    if (random() % 3 == 0) order.push_back(3);
    if (random() % 6 == 0) order.push_back(static_cast<int>(random() % 5));
    if (random() % 6 == 0) order.erase(order.begin() + static_cast<long>(random() % order.size()));
    if (random() % 8 == 0) std::swap(order.front(), order.back());
    for (int element : order) {
      text += "\n  <" + open + kElements[element] + (random() % 30 ? "" : " b='2'") + ">" +
              kTexts[random() % 7] + "</" + open + kElements[element] + ">";
    }
    text += random() % 20 ? "\n" : "tail";
    text += "</" + open + "vkcoreProperties>";
    XmlNode plain;
    if (!opc::model::detail::readPlainXml(reinterpret_cast<unsigned char const*>(text.data()),
                                          text.size(), plain) ||
        !isPlainlyValidCoreDocument(plain, ns16)) {
      continue;
    }
    ++vouched;
    opcvk_test::MemoryInputStream in(text);
    XmlNode parsed;
    try {
      parsed = reader->read(in, true, u"", u"");
    } catch (opc::model::InvalidXMLDocument const& e) {
      FAIL() << "vouched for a document that the schema refuses: " << e.what() << "\n" << text;
    }
    for (char16_t const* name : {u"contentType", u"contentTypeFriendlyName", u"orvaneRelease"}) {
      EXPECT_EQ(textOf(parsed, name), textOf(plain, name)) << text;
    }
  }
  // Documents of the usual form are the common case: many are read plainly.
  EXPECT_GT(vouched, 300);
}

}  // namespace
