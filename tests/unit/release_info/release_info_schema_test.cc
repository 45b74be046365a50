// The rules that let a release record be read without the parser must vouch only for
// documents that the validating parser accepts against the schema, with the same fields: the
// parser is the reference here, on many generated records of valid and invalid forms.
#include "release_info_schema.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/xml/xml_exceptions.h>

#include "support/byte_streams.h"
#include "xml_engine/plain_xml.h"

namespace {

namespace release = foundation::release_info::detail;
using opc::model::detail::XmlNode;

// A family, version or date text of a form that the schema may or may not accept.
std::string value(std::mt19937& random, int kind) {
  auto pick = [&](int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(random); };
  auto digits = [&](int count) {
    std::string text;
    for (int i = 0; i < count; ++i) text += static_cast<char>('0' + pick(10));
    return text;
  };
  switch (kind) {
    case 0: {  // a family, sometimes too long
      std::string text = "R" + digits(4) + (pick(2) ? "a" : "b");
      if (pick(6) == 0) text += std::string(static_cast<std::size_t>(55 + pick(15)), 'x');
      if (pick(8) == 0) text = " " + text;
      return text;
    }
    case 1: {  // a version, sometimes of another form
      std::string text = digits(1 + pick(3));
      for (int i = pick(5); i > 0; --i) text += "." + digits(1 + pick(2));
      switch (pick(10)) {
        case 0:
          return text + ".";
        case 1:
          return " " + text;
        case 2:
          return text + "..1";
        case 3:
          return text + std::string(64, '1');
        default:
          return text;
      }
    }
    default: {  // a date, of any day of any month, sometimes of another form
      std::string text = (pick(20) == 0 ? "0000" : std::to_string(1900 + pick(300))) + "-" +
                         digits(2) + "-" + digits(2);
      if (pick(3)) {
        int const month = 1 + pick(12);
        int const day = 1 + pick(31);
        text = text.substr(0, 5) + (month < 10 ? "0" : "") + std::to_string(month) + "-" +
               (day < 10 ? "0" : "") + std::to_string(day);
      }
      switch (pick(12)) {
        case 0:
          return text + "Z";
        case 1:
          return " " + text;
        case 2:
          return text.substr(1);
        default:
          return text;
      }
    }
  }
}

TEST(ReleaseInfoSchemaTest, VouchesOnlyForRecordsThatTheSchemaAccepts) {
  opc::model::detail::XmlReaderSettings settings;
  settings.grammars.push_back({release::schemaText(), u"releaseInfo.xsd"});
  auto const reader = opc::model::detail::xmlEngine().makeTreeReader(settings);
  std::mt19937 random(7);
  static char const* const kElements[] = {"releaseFamily", "version", "buildDate"};
  int vouched = 0;
  for (int i = 0; i < 3000; ++i) {
    std::string text = std::string("<releaseInfo xmlns='") + (random() % 20 ? "" : "urn:x") +
                       "http://schemas.opcvkservices.org/release/2026/releaseInfo'>";
    // Mostly the elements in order, sometimes one left out, repeated or swapped.
    std::vector<int> order = {0, 1, 2};
    order.resize(1 + random() % 3);
    if (random() % 8 == 0) order.push_back(static_cast<int>(random() % 3));
    if (random() % 8 == 0) std::swap(order.front(), order.back());
    for (int element : order) {
      text += std::string("\n  <") + kElements[element] + ">" + value(random, element) + "</" +
              kElements[element] + ">";
    }
    text += "\n</releaseInfo>\n";
    XmlNode plain;
    ASSERT_TRUE(opc::model::detail::readPlainXml(
        reinterpret_cast<unsigned char const*>(text.data()), text.size(), plain));
    if (!release::isPlainlyValidRelease(plain)) continue;
    ++vouched;
    opcvk_test::MemoryInputStream in(text);
    XmlNode parsed;
    try {
      parsed = reader->read(in, true, u"", release::kNamespace);
    } catch (opc::model::InvalidXMLDocument const& e) {
      FAIL() << "vouched for a record that the schema refuses: " << e.what() << "\n" << text;
    }
    release::ReleaseFields const a = release::fieldsOf(parsed);
    release::ReleaseFields const b = release::fieldsOf(plain);
    EXPECT_EQ(a.releaseFamily, b.releaseFamily) << text;
    EXPECT_EQ(a.hasVersion, b.hasVersion) << text;
    EXPECT_EQ(a.version, b.version) << text;
    EXPECT_EQ(a.buildDate, b.buildDate) << text;
  }
  // Records of the usual form are the common case: most of them are read plainly.
  EXPECT_GT(vouched, 1000);
}

}  // namespace
