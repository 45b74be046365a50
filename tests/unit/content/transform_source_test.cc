#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

#include <boost/system/error_code.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/transform_source.h>

#include "support/expect_exception.h"
#include "unit/content/transform_test_util.h"

namespace opc {
namespace vkservices {
namespace {

using opc::model::ContentType;
using opcvk_test::MemorySource;
using opcvk_test::MemorySourceRecord;
using opcvk_test::ScriptedTransform;

static_assert(!std::is_copy_constructible<ScriptedTransform>::value, "not copyable");

constexpr char kDataFailure[] = "Failure when attempting to transform data for content type:";
constexpr char kTypeFailure[] = "Failure when attempting to transform content type:";

// A transform over memory, entire stream or chunk by chunk, with the record of its source.
struct Fixture {
  Fixture(std::string content, bool entire,
          std::size_t chunk = std::numeric_limits<std::size_t>::max())
      : record(std::make_shared<MemorySourceRecord>(std::move(content), chunk)),
        transform(std::make_unique<MemorySource>(record), entire) {}

  std::shared_ptr<MemorySourceRecord> record;
  ScriptedTransform transform;
};

// --- The content type ---

TEST(TransformSourceTest, ContentTypeIsTheTransformOfTheWrappedType) {
  Fixture f("abc", true);
  EXPECT_EQ(f.transform.getContentType().toString(), u"text/plain;charset=utf-8;transformed=yes");
  ASSERT_EQ(f.transform.outputWasCopyOfInput.size(), 1u);
  EXPECT_TRUE(f.transform.outputWasCopyOfInput[0]);
}

TEST(TransformSourceTest, ContentTypeTouchesNoData) {
  for (bool entire : {true, false}) {
    Fixture f("abc", entire);
    f.transform.getContentType();
    f.transform.getContentType();
    EXPECT_EQ(f.record->streamQueries, 0);
    EXPECT_EQ(f.record->stream.opens, 0);
    EXPECT_EQ(f.record->stream.reads, 0);
    EXPECT_EQ(f.transform.modeQueries, 0);
    EXPECT_TRUE(f.transform.inputs.empty());
  }
}

TEST(TransformSourceTest, ContentTypeIsTheSameBeforeAndAfterTheStream) {
  for (bool entire : {true, false}) {
    Fixture f("abc", entire);
    ContentType const before = f.transform.getContentType();
    EXPECT_EQ(opcvk_test::drain(f.transform), "ABC");
    ContentType const after = f.transform.getContentType();
    EXPECT_EQ(before.toString(), after.toString());
  }
}

TEST(TransformSourceTest, ContentTypeIsAskedAgainOnEveryCall) {
  Fixture f("abc", true);
  f.transform.getContentType();
  f.record->type = ContentType(u"application/xml");
  EXPECT_EQ(f.transform.getContentType().toString(), u"application/xml;transformed=yes");
  EXPECT_EQ(f.record->typeQueries, 2);
  EXPECT_EQ(f.transform.typeCalls, 2);
}

TEST(TransformSourceTest, ContentTypeFailureNamesTheWrappedTypeRightAfterTheColon) {
  Fixture f("abc", true);
  f.transform.typeFunction = [](ContentType const&, ContentType& output) {
    output.addParameter(u"half", u"done");
    return false;
  };
  EXPECT_THROW_MESSAGE(f.transform.getContentType(), CouldNotTransformContentType,
                       std::string(kTypeFailure) + "text/plain;charset=utf-8");
  try {
    f.transform.getContentType();
  } catch (CouldNotTransformContentType const& e) {
    EXPECT_FALSE(e.code());
  }
}

TEST(TransformSourceTest, ContentTypeFailureAsksTheWrappedSourceForTheMessage) {
  Fixture f("abc", true);
  f.transform.typeFunction = [&f](ContentType const&, ContentType&) {
    // What the wrapped source says after the transform ran is what the message names.
    f.record->type = ContentType(u"application/json");
    return false;
  };
  EXPECT_THROW_MESSAGE(f.transform.getContentType(), CouldNotTransformContentType,
                       std::string(kTypeFailure) + "application/json");
  EXPECT_EQ(f.record->typeQueries, 2);
}

TEST(TransformSourceTest, ContentTypeFailureWritesOtherCharactersAsQuestionMarks) {
  Fixture f("abc", true);
  f.record->type = ContentType(u"text/plain;title=\"caf\u00e9 menu\"");
  f.transform.typeFunction = [](ContentType const&, ContentType&) { return false; };
  EXPECT_THROW_MESSAGE(f.transform.getContentType(), CouldNotTransformContentType,
                       std::string(kTypeFailure) + "text/plain;title=\"caf? menu\"");
}

TEST(TransformSourceTest, ContentTypeExceptionOfTheTransformPassesThrough) {
  Fixture f("abc", true);
  f.transform.typeFunction = [](ContentType const&, ContentType&) -> bool {
    throw std::logic_error("own failure");
  };
  EXPECT_THROW_MESSAGE(f.transform.getContentType(), std::logic_error, "own failure");
}

// --- Choosing the transfer and keeping it ---

TEST(TransformSourceTest, StreamIsMadeOnceAndTheChoiceAskedOnce) {
  for (bool entire : {true, false}) {
    SCOPED_TRACE(entire ? "entire" : "single buffer");
    Fixture f("abc", entire);
    opc::InputStream& first = f.transform.getInputStream();
    opc::InputStream& second = f.transform.getInputStream();
    EXPECT_EQ(&first, &second);
    EXPECT_EQ(f.transform.modeQueries, 1);
    EXPECT_EQ(opcvk_test::readAll(f.transform.getInputStream(), 16), "ABC");
    EXPECT_EQ(&f.transform.getInputStream(), &first);
    EXPECT_EQ(f.transform.modeQueries, 1);
  }
}

TEST(TransformSourceTest, OwnsTheWrappedSource) {
  auto record = std::make_shared<MemorySourceRecord>("abc");
  {
    ScriptedTransform transform(std::make_unique<MemorySource>(record), false);
    transform.getInputStream();
    EXPECT_FALSE(record->destroyed);
  }
  EXPECT_TRUE(record->destroyed);
}

TEST(TransformSourceTest, NullSourceIsRefused) {
  try {
    ScriptedTransform transform(nullptr, true);
    ADD_FAILURE() << "no exception";
  } catch (opc::Exception const& e) {
    EXPECT_EQ(std::string(e.what()), "A transform needs a source to wrap");
    EXPECT_EQ(e.code(), boost::system::error_code(EINVAL, boost::system::system_category()));
  }
}

TEST(TransformSourceTest, TransformsNest) {
  auto record = std::make_shared<MemorySourceRecord>("Hello, world", 5);
  auto inner = std::make_unique<ScriptedTransform>(std::make_unique<MemorySource>(record), true);
  inner->typeFunction = [](ContentType const&, ContentType& output) {
    output.addParameter(u"inner", u"1");
    return true;
  };
  ScriptedTransform outer(std::move(inner), false);
  outer.dataFunction = [](bytes const& input, bytes& output) {
    for (unsigned char c : input) {
      output.push_back(c);
      output.push_back('.');
    }
    return true;
  };
  EXPECT_EQ(outer.getContentType().toString(), u"text/plain;charset=utf-8;inner=1;transformed=yes");
  EXPECT_EQ(opcvk_test::readAll(outer.getInputStream(), 3), "H.E.L.L.O.,. .W.O.R.L.D.");
}

// --- Entire stream ---

TEST(TransformSourceTest, EntireStreamTransformsTheWholeContentInOneCall) {
  Fixture f("the whole content, read in small chunks", true, 4);
  EXPECT_EQ(opcvk_test::drain(f.transform), "THE WHOLE CONTENT, READ IN SMALL CHUNKS");
  ASSERT_EQ(f.transform.inputs.size(), 1u);
  EXPECT_EQ(f.transform.inputs[0], "the whole content, read in small chunks");
  EXPECT_TRUE(f.transform.outputWasEmpty[0]);
}

TEST(TransformSourceTest, EntireStreamDoesItsWorkInTheFirstGetInputStream) {
  Fixture f("abc", true);
  f.transform.getInputStream();
  EXPECT_EQ(f.transform.inputs.size(), 1u);
  EXPECT_TRUE(f.record->stream.isDone());
  EXPECT_EQ(f.record->stream.opens, 1);
  EXPECT_EQ(f.record->stream.closes, 1);
  f.transform.getInputStream();
  EXPECT_EQ(f.transform.inputs.size(), 1u);
}

TEST(TransformSourceTest, EntireStreamOfEmptyContentStillCallsTheTransform) {
  Fixture f("", true);
  f.transform.dataFunction = [](bytes const& input, bytes& output) {
    output.assign({'e', 'n', 'd'});
    return input.empty();
  };
  EXPECT_EQ(opcvk_test::drain(f.transform), "end");
  ASSERT_EQ(f.transform.inputs.size(), 1u);
  EXPECT_EQ(f.transform.inputs[0], "");
}

TEST(TransformSourceTest, EntireStreamThatTransformsToNothingIsDoneAtOnce) {
  Fixture f("abc", true);
  f.transform.dataFunction = [](bytes const&, bytes&) { return true; };
  EXPECT_TRUE(f.transform.getInputStream().isDone());
  unsigned char buffer[4];
  EXPECT_EQ(f.transform.getInputStream().read(buffer, sizeof buffer), 0u);
}

TEST(TransformSourceTest, EntireStreamFailureNamesTheWrappedType) {
  Fixture f("abc", true);
  f.transform.dataFunction = [](bytes const&, bytes& output) {
    output.push_back('x');
    return false;
  };
  EXPECT_THROW_MESSAGE(f.transform.getInputStream(), CouldNotTransformContentData,
                       std::string(kDataFailure) + "text/plain;charset=utf-8");
}

TEST(TransformSourceTest, FailedEntireStreamIsTriedAgainOnTheReadStream) {
  Fixture f("abc", true);
  int calls = 0;
  f.transform.dataFunction = [&calls](bytes const& input, bytes& output) {
    ++calls;
    if (calls == 1) return false;
    return ScriptedTransform::capitals(input, output);
  };
  EXPECT_THROW(f.transform.getInputStream(), CouldNotTransformContentData);
  EXPECT_EQ(f.transform.modeQueries, 1);
  // The second attempt finds the wrapped stream already read: it transforms nothing.
  EXPECT_EQ(opcvk_test::drain(f.transform), "");
  EXPECT_EQ(f.transform.modeQueries, 2);
  ASSERT_EQ(f.transform.inputs.size(), 2u);
  EXPECT_EQ(f.transform.inputs[0], "abc");
  EXPECT_EQ(f.transform.inputs[1], "");
}

TEST(TransformSourceTest, EntireStreamReadFailurePassesThroughBeforeTheTransform) {
  Fixture f("0123456789", true, 3);
  f.record->stream.failAfter(5);
  EXPECT_THROW_MESSAGE(f.transform.getInputStream(), opc::Exception, "injected read failure");
  EXPECT_TRUE(f.transform.inputs.empty());
  EXPECT_EQ(f.record->stream.closes, 1);
}

TEST(TransformSourceTest, EntireStreamExceptionOfTheTransformPassesThrough) {
  Fixture f("abc", true);
  f.transform.dataFunction = [](bytes const&, bytes&) -> bool {
    throw CouldNotOpenFile("a transform's own failure",
                           boost::system::error_code(EPERM, boost::system::system_category()));
  };
  EXPECT_THROW_MESSAGE(f.transform.getInputStream(), CouldNotOpenFile, "a transform's own failure");
}

TEST(TransformSourceTest, EntireStreamCarriesLargeContent) {
  std::string content(3 * 1024 * 1024 + 5, 'a');
  for (std::size_t i = 0; i < content.size(); i += 4099) content[i] = 'q';
  Fixture f(content, true, 70000);
  std::string expected = content;
  for (char& c : expected) c = static_cast<char>(c - 'a' + 'A');
  EXPECT_EQ(opcvk_test::drain(f.transform), expected);
}

}  // namespace
}  // namespace vkservices
}  // namespace opc
