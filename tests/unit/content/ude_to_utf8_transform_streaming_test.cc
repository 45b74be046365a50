// The recoding transform reads large UTF-8 text without holding it: these tests hold it to
// the outcome of the whole-buffer road, byte for byte, type and remark included.
#include <cstddef>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/ude_to_utf8_transform.h>

#include "content/text_recoding_transformer.h"
#include "data/text/sample_texts.h"
#include "support/expect_exception.h"
#include "support/scoped_environment.h"
#include "support/temp_dir.h"
#include "unit/content/cout_capture.h"
#include "unit/content/transform_test_util.h"

namespace opc {
namespace vkservices {
namespace {

namespace texts = opcvk_test::texts;
using opc::model::ContentType;
using opcvk_test::CoutCapture;

constexpr std::size_t kBound = detail::kRecodingMemoryBound;
// The block in which a wrapped stream is copied.
constexpr std::size_t kBlock = 64 * 1024;

// A class derived from the transform is not the library's own recoding, so it takes the
// whole-buffer road: the reference that the streaming road must match.
class WholeBufferRecoding : public UDEToUTF8Transform {
 public:
  using UDEToUTF8Transform::UDEToUTF8Transform;
};

struct Outcome {
  std::string bytes;
  std::string remarks;
  std::u16string type;
};

template <class Transform>
Outcome recode(std::string const& content, std::size_t chunk, char16_t const* type) {
  auto record = std::make_shared<opcvk_test::MemorySourceRecord>(content, chunk);
  record->type = ContentType(type);
  Transform transform(std::make_unique<opcvk_test::MemorySource>(record));
  CoutCapture capture;
  Outcome result;
  result.type = transform.getContentType().toString();
  result.bytes = opcvk_test::drain(transform);
  result.remarks = capture.text();
  return result;
}

void expectSameAsWholeBuffer(std::string const& label, std::string const& content,
                             std::size_t chunk = std::string::npos,
                             char16_t const* type = u"text/plain") {
  Outcome const streamed = recode<UDEToUTF8Transform>(content, chunk, type);
  Outcome const whole = recode<WholeBufferRecoding>(content, chunk, type);
  EXPECT_TRUE(streamed.bytes == whole.bytes) << label;
  EXPECT_EQ(streamed.remarks, whole.remarks) << label;
  EXPECT_TRUE(streamed.type == whole.type) << label;
}

// `size` bytes of ASCII text.
std::string asciiText(std::size_t size) {
  static std::string const kLine = "a line of plain text, 40 bytes long ...\n";
  std::string text;
  text.reserve(size + kLine.size());
  while (text.size() < size) text += kLine;
  text.resize(size);
  return text;
}

// ASCII text of `size` bytes with the four-byte character U+1F600 starting at `at`.
std::string withWideCharacterAt(std::size_t size, std::size_t at) {
  std::string text = asciiText(size);
  text.replace(at, 4, "\xF0\x9F\x98\x80");
  return text;
}

TEST(UDEToUTF8TransformStreamingTest, SmallTextsComeOutAsOnTheWholeBufferRoad) {
  std::vector<std::pair<std::string, std::string>> const cases = {
      {"empty", ""},
      {"UTF-8", texts::kJapaneseUtf8},
      {"UTF-8 with mark", "\xEF\xBB\xBF" + texts::kQuotesUtf8},
      {"UTF-16LE", texts::kMixedUtf16le},
      {"UTF-16BE", texts::kMixedUtf16be},
      {"UTF-16LE with mark", "\xFF\xFE" + texts::kMixedUtf16le},
      {"UTF-16BE with mark", "\xFE\xFF" + texts::kMixedUtf16be},
      {"ISO-8859-1", texts::kFrenchLatin1},
      {"Shift_JIS", texts::kJapaneseShiftJis},
      {"cut off UTF-8", "text ending in \xE2\x82"},
      {"UTF-8 with a zero byte", std::string("a\0b", 3)},
  };
  for (auto const& entry : cases) {
    expectSameAsWholeBuffer(entry.first, entry.second);
    // Read a few bytes at a time, so that sequences and the mark are cut between reads.
    expectSameAsWholeBuffer(entry.first + " in reads of 3", entry.second, 3);
  }
}

TEST(UDEToUTF8TransformStreamingTest, TypeGainsItsParameterOnBothRoads) {
  expectSameAsWholeBuffer("text/plain", texts::kFrenchUtf8, std::string::npos, u"text/plain");
  expectSameAsWholeBuffer("text/html", texts::kFrenchUtf8, std::string::npos, u"text/html");
}

TEST(UDEToUTF8TransformStreamingTest, TextsAroundTheMemoryBoundComeOutUnchanged) {
  for (std::size_t size : {kBound - 1, kBound, kBound + 1}) {
    std::string const text = asciiText(size);
    Outcome const streamed = recode<UDEToUTF8Transform>(text, std::string::npos, u"text/plain");
    EXPECT_TRUE(streamed.bytes == text) << size;
    EXPECT_EQ(streamed.remarks, "charset of <unknown>: UTF-8 (well-formed UTF-8, " +
                                    std::to_string(size) + " bytes)\n");
    EXPECT_EQ(streamed.type, u"text/plain;charset=utf-8");
  }
}

TEST(UDEToUTF8TransformStreamingTest, CharacterAcrossEveryBoundaryComesOutUnchanged) {
  // Across the block in which the source is copied, and across the memory bound, where the
  // rest of the text goes to a file.
  for (std::size_t boundary : {kBlock, kBound}) {
    for (std::size_t at = boundary - 3; at <= boundary; ++at) {
      std::string const text = withWideCharacterAt(boundary + kBlock, at);
      Outcome const streamed = recode<UDEToUTF8Transform>(text, std::string::npos, u"text/plain");
      EXPECT_TRUE(streamed.bytes == text) << at;
      EXPECT_EQ(streamed.remarks, "charset of <unknown>: UTF-8 (well-formed UTF-8, " +
                                      std::to_string(text.size()) + " bytes)\n");
    }
  }
}

TEST(UDEToUTF8TransformStreamingTest, LargeTextThatIsNotUtf8TakesTheWholeBufferRoad) {
  // The first byte that rules UTF-8 out comes after the memory bound, when the spool already
  // holds a file.
  std::string latin1 = asciiText(kBound + kBlock);
  latin1[kBound + 10] = '\xE9';
  expectSameAsWholeBuffer("ISO-8859-1 after the bound", latin1);
  // A text cut off at its end is read back from the file before detection (TextSpoolTest).
  expectSameAsWholeBuffer("UTF-8 with mark over the bound", "\xEF\xBB\xBF" + asciiText(kBound));
}

TEST(UDEToUTF8TransformStreamingTest, SourceFailingMidwayFailsAsOnTheWholeBufferRoad) {
  for (std::size_t failAt : {std::size_t{1000}, kBound + 100000}) {
    std::string const text = asciiText(kBound + 200000);
    auto record = std::make_shared<opcvk_test::MemorySourceRecord>(text);
    record->stream.failAfter(failAt);
    UDEToUTF8Transform transform(std::make_unique<opcvk_test::MemorySource>(record));
    CoutCapture capture;
    EXPECT_THROW_MESSAGE(transform.getInputStream(), opc::Exception, "injected read failure");
    EXPECT_EQ(capture.text(), "");
    // No transformer was left: the next call reads on from where the wrapped stream stands,
    // which is what the whole-buffer road does too.
    auto reference = std::make_shared<opcvk_test::MemorySourceRecord>(text);
    reference->stream.failAfter(failAt);
    WholeBufferRecoding whole(std::make_unique<opcvk_test::MemorySource>(reference));
    EXPECT_THROW_MESSAGE(whole.getInputStream(), opc::Exception, "injected read failure");
    record->stream.failAfter(std::string::npos);
    reference->stream.failAfter(std::string::npos);
    std::string const streamed = opcvk_test::drain(transform);
    std::string const expected = opcvk_test::drain(whole);
    EXPECT_TRUE(streamed == expected) << failAt;
    EXPECT_EQ(record->stream.position(), reference->stream.position());
  }
}

TEST(UDEToUTF8TransformStreamingTest, SecondStreamIsTheSameAndTransformsOnce) {
  std::string const text = asciiText(kBound + kBlock);
  auto record = std::make_shared<opcvk_test::MemorySourceRecord>(text);
  UDEToUTF8Transform transform(std::make_unique<opcvk_test::MemorySource>(record));
  CoutCapture capture;
  opc::InputStream& first = transform.getInputStream();
  opc::InputStream& second = transform.getInputStream();
  EXPECT_EQ(&first, &second);
  EXPECT_EQ(record->streamQueries, 1);
  // One remark: the text was read and checked once.
  EXPECT_EQ(capture.text(), "charset of <unknown>: UTF-8 (well-formed UTF-8, " +
                                std::to_string(text.size()) + " bytes)\n");
  EXPECT_TRUE(opcvk_test::readAll(first, 7) == text);
  EXPECT_TRUE(second.isDone());
}

TEST(UDEToUTF8TransformStreamingTest, NoTemporaryFileIsLeftInSight) {
  opcvk_test::TempDir folder;
  opcvk_test::ScopedEnvironment tmpdir("TMPDIR", folder.path());
  std::string const text = asciiText(kBound + kBlock);
  auto record = std::make_shared<opcvk_test::MemorySourceRecord>(text);
  UDEToUTF8Transform transform(std::make_unique<opcvk_test::MemorySource>(record));
  CoutCapture capture;
  transform.getInputStream();
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
  EXPECT_TRUE(opcvk_test::drain(transform) == text);
}

TEST(UDEToUTF8TransformStreamingTest, MissingTemporaryFolderFailsOnlyTextOverTheBound) {
  opcvk_test::TempDir folder;
  std::string const missing = folder / "missing";
  opcvk_test::ScopedEnvironment tmpdir("TMPDIR", missing);
  CoutCapture capture;
  std::string const small = asciiText(kBound);
  UDEToUTF8Transform fits(std::make_unique<opcvk_test::MemorySource>(
      std::make_shared<opcvk_test::MemorySourceRecord>(small)));
  EXPECT_TRUE(opcvk_test::drain(fits) == small);
  // Text that is not UTF-8 from its start never needs the file.
  std::string latin1 = asciiText(kBound + kBlock);
  latin1[0] = '\xE9';
  Outcome const recoded = recode<UDEToUTF8Transform>(latin1, std::string::npos, u"text/plain");
  EXPECT_EQ(recoded.bytes.size(), latin1.size() + 1);
  EXPECT_EQ(recoded.bytes.substr(0, 3), "\xC3\xA9" + latin1.substr(1, 1));
  UDEToUTF8Transform large(std::make_unique<opcvk_test::MemorySource>(
      std::make_shared<opcvk_test::MemorySourceRecord>(asciiText(kBound + 1))));
  EXPECT_THROW_MESSAGE(large.getInputStream(), opc::Exception,
                       "Could not create a temporary file in " + missing);
}

}  // namespace
}  // namespace vkservices
}  // namespace opc
