#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <fl/i18n/charset.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/content_types.h>
#include <opc/vkservices/ude_to_utf8_transform.h>

#include "data/text/sample_texts.h"
#include "unit/content/cout_capture.h"
#include "unit/content/transform_test_util.h"

namespace opc {
namespace vkservices {
namespace {

namespace texts = opcvk_test::texts;
using opc::model::ContentType;
using opcvk_test::CoutCapture;

struct Recoded {
  std::string bytes;
  std::string remarks;
};

// The bytes of a transform over `content`, and what it wrote to std::cout meanwhile.
Recoded recode(std::string const& content, char16_t const* type = u"text/plain") {
  auto record = std::make_shared<opcvk_test::MemorySourceRecord>(content);
  record->type = ContentType(type);
  UDEToUTF8Transform transform(std::make_unique<opcvk_test::MemorySource>(record));
  CoutCapture capture;
  Recoded result;
  result.bytes = opcvk_test::drain(transform);
  result.remarks = capture.text();
  return result;
}

ContentType typeOf(char16_t const* type) {
  auto record = std::make_shared<opcvk_test::MemorySourceRecord>("");
  record->type = ContentType(type);
  UDEToUTF8Transform transform(std::make_unique<opcvk_test::MemorySource>(record));
  return transform.getContentType();
}

std::string const kUtf8Bom("\xEF\xBB\xBF");

TEST(UDEToUTF8TransformTest, TransformsTheEntireStream) {
  UDEToUTF8Transform transform(std::make_unique<opcvk_test::MemorySource>(
      std::make_shared<opcvk_test::MemorySourceRecord>("")));
  EXPECT_TRUE(transform.mustTransformEntireStream());
}

TEST(UDEToUTF8TransformTest, Utf8PassesByteForByte) {
  for (std::string const& text : {texts::kFrenchUtf8, texts::kJapaneseUtf8, texts::kMixedUtf8,
                                  std::string("plain ASCII\n")}) {
    EXPECT_TRUE(recode(text).bytes == text);
  }
}

TEST(UDEToUTF8TransformTest, Utf8KeepsItsByteOrderMark) {
  std::string const marked = kUtf8Bom + texts::kQuotesUtf8;
  Recoded const result = recode(marked);
  EXPECT_TRUE(result.bytes == marked);
  EXPECT_EQ(result.remarks, "charset of <unknown>: UTF-8 (byte order mark)\n");
}

TEST(UDEToUTF8TransformTest, RecodesOtherEncodingsToUtf8) {
  EXPECT_TRUE(recode(texts::kFrenchLatin1).bytes == texts::kFrenchUtf8);
  EXPECT_TRUE(recode(texts::kQuotesWindows1252).bytes == texts::kQuotesUtf8);
  EXPECT_TRUE(recode(texts::kJapaneseShiftJis).bytes == texts::kJapaneseUtf8);
  EXPECT_TRUE(recode(texts::kMixedUtf16le).bytes == texts::kMixedUtf8);
  EXPECT_TRUE(recode(texts::kMixedUtf16be).bytes == texts::kMixedUtf8);
}

TEST(UDEToUTF8TransformTest, RecodedUtf16LosesItsByteOrderMark) {
  EXPECT_TRUE(recode("\xFF\xFE" + texts::kMixedUtf16le).bytes == texts::kMixedUtf8);
  EXPECT_TRUE(recode("\xFE\xFF" + texts::kMixedUtf16be).bytes == texts::kMixedUtf8);
}

TEST(UDEToUTF8TransformTest, EmptyInputGoesThroughDetection) {
  Recoded const result = recode("");
  EXPECT_EQ(result.bytes, "");
  EXPECT_EQ(result.remarks, "charset of <unknown>: UTF-8 (empty)\n");
}

TEST(UDEToUTF8TransformTest, RemarksReachStandardOutput) {
  Recoded const result = recode(texts::kJapaneseShiftJis);
  EXPECT_EQ(result.remarks.rfind("charset of <unknown>: Shift_JIS (", 0), 0u) << result.remarks;
  EXPECT_EQ(result.remarks.find('\n'), result.remarks.size() - 1) << result.remarks;
}

TEST(UDEToUTF8TransformTest, ContentTypeIsReadWithoutTouchingTheData) {
  auto record = std::make_shared<opcvk_test::MemorySourceRecord>(texts::kFrenchLatin1);
  record->type = getTextContentType();
  UDEToUTF8Transform transform(std::make_unique<opcvk_test::MemorySource>(record));
  CoutCapture capture;
  EXPECT_EQ(transform.getContentType().toString(), u"text/plain;charset=utf-8");
  EXPECT_EQ(record->streamQueries, 0);
  EXPECT_EQ(capture.text(), "");
}

TEST(UDEToUTF8TransformTest, PlainTextGainsCharset) {
  EXPECT_EQ(typeOf(u"text/plain").toString(), u"text/plain;charset=utf-8");
  // Type and subtype are compared without regard to case.
  EXPECT_EQ(typeOf(u"Text/PLAIN").toString(), u"Text/PLAIN;charset=utf-8");
}

TEST(UDEToUTF8TransformTest, OtherTypesGainEncoding) {
  EXPECT_EQ(typeOf(u"text/html").toString(), u"text/html;encoding=utf-8");
  EXPECT_EQ(typeOf(u"application/xml").toString(), u"application/xml;encoding=utf-8");
  ContentType const family = getORVANECodeContentType();
  ContentType expected(family);
  expected.addParameter(u"encoding", u"utf-8");
  auto record = std::make_shared<opcvk_test::MemorySourceRecord>("");
  record->type = family;
  UDEToUTF8Transform transform(std::make_unique<opcvk_test::MemorySource>(record));
  EXPECT_EQ(transform.getContentType(), expected);
  EXPECT_FALSE(transform.getContentType().hasParameter(u"charset"));
}

TEST(UDEToUTF8TransformTest, PlainTextWithParametersIsNotPlainText) {
  // Equality counts parameters, so a text/plain that names its charset falls to the branch
  // of other types.
  EXPECT_EQ(typeOf(u"text/plain;charset=windows-1252").toString(),
            u"text/plain;charset=windows-1252;encoding=utf-8");
}

TEST(UDEToUTF8TransformTest, DataAndTypeComeFromTheSameSource) {
  auto record = std::make_shared<opcvk_test::MemorySourceRecord>(texts::kQuotesWindows1252);
  record->type = getTextContentType();
  UDEToUTF8Transform transform(std::make_unique<opcvk_test::MemorySource>(record));
  CoutCapture capture;
  EXPECT_EQ(transform.getContentType().toString(), u"text/plain;charset=utf-8");
  EXPECT_TRUE(opcvk_test::drain(transform) == texts::kQuotesUtf8);
  EXPECT_EQ(transform.getContentType().toString(), u"text/plain;charset=utf-8");
}

}  // namespace
}  // namespace vkservices
}  // namespace opc
