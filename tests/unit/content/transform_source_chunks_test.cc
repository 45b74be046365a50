// A TransformSource that transforms chunk by chunk, as the reader asks.
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/transform_source.h>

#include "support/expect_exception.h"
#include "unit/content/transform_test_util.h"

namespace opc {
namespace vkservices {
namespace {

using opcvk_test::MemorySource;
using opcvk_test::MemorySourceRecord;
using opcvk_test::ScriptedTransform;

constexpr char kDataFailure[] =
    "Failure when attempting to transform data for content type:text/plain;charset=utf-8";

struct Fixture {
  explicit Fixture(std::string content, std::size_t chunk = std::numeric_limits<std::size_t>::max())
      : record(std::make_shared<MemorySourceRecord>(std::move(content), chunk)),
        transform(std::make_unique<MemorySource>(record), false) {}

  std::string read(std::size_t size) {
    std::vector<unsigned char> buffer(size);
    std::size_t n = transform.getInputStream().read(buffer.data(), size);
    return std::string(reinterpret_cast<char const*>(buffer.data()), n);
  }

  std::shared_ptr<MemorySourceRecord> record;
  ScriptedTransform transform;
};

TEST(TransformSourceChunksTest, ChunkSizeIsTheReadersSize) {
  Fixture f("abcdefghij");
  EXPECT_EQ(f.read(4), "ABCD");
  EXPECT_EQ(f.read(4), "EFGH");
  EXPECT_EQ(f.read(4), "IJ");
  EXPECT_TRUE(f.transform.getInputStream().isDone());
  EXPECT_EQ(f.read(4), "");
  EXPECT_EQ(f.transform.inputs, (std::vector<std::string>{"abcd", "efgh", "ij"}));
  for (bool empty : f.transform.outputWasEmpty) EXPECT_TRUE(empty);
}

TEST(TransformSourceChunksTest, ShortReadOfTheWrappedStreamMakesAShortChunk) {
  Fixture f("abcdefghij", 3);
  EXPECT_EQ(f.read(8), "ABC");
  EXPECT_EQ(f.transform.inputs, (std::vector<std::string>{"abc"}));
}

TEST(TransformSourceChunksTest, SmallReadsDrainOneChunkBeforePullingAnother) {
  Fixture f("abcdefgh");
  f.transform.dataFunction = [](bytes const& input, bytes& output) {
    // Each byte three times: a chunk transforms to more than one read takes.
    for (unsigned char c : input) output.insert(output.end(), 3, c);
    return true;
  };
  EXPECT_EQ(f.read(4), "aaab");
  EXPECT_EQ(f.record->stream.reads, 1);
  EXPECT_EQ(f.read(2), "bb");
  EXPECT_EQ(f.read(3), "ccc");
  EXPECT_EQ(f.read(100), "ddd");
  EXPECT_EQ(f.record->stream.reads, 1);
  EXPECT_EQ(f.transform.inputs, (std::vector<std::string>{"abcd"}));
  EXPECT_EQ(f.read(100), "eeefffggghhh");
  EXPECT_EQ(f.record->stream.reads, 2);
}

TEST(TransformSourceChunksTest, NotDoneWhileTransformedBytesWait) {
  Fixture f("ab");
  f.transform.dataFunction = [](bytes const& input, bytes& output) {
    for (unsigned char c : input) output.insert(output.end(), 4, c);
    return true;
  };
  EXPECT_EQ(f.read(2), "aa");
  EXPECT_TRUE(f.record->stream.isDone());
  EXPECT_FALSE(f.transform.getInputStream().isDone());
  EXPECT_EQ(f.read(5), "aabbb");
  EXPECT_FALSE(f.transform.getInputStream().isDone());
  EXPECT_EQ(f.read(5), "b");
  EXPECT_TRUE(f.transform.getInputStream().isDone());
}

TEST(TransformSourceChunksTest, EmptyWrappedStreamNeverReachesTheTransform) {
  Fixture f("");
  EXPECT_TRUE(f.transform.getInputStream().isDone());
  EXPECT_EQ(f.read(16), "");
  EXPECT_TRUE(f.transform.inputs.empty());
  EXPECT_EQ(f.record->stream.reads, 0);
}

TEST(TransformSourceChunksTest, ReadOfNothingPullsNothing) {
  Fixture f("abc");
  unsigned char byte = 0;
  EXPECT_EQ(f.transform.getInputStream().read(&byte, 0), 0u);
  EXPECT_TRUE(f.transform.inputs.empty());
  EXPECT_EQ(f.record->stream.reads, 0);
  EXPECT_EQ(f.read(16), "ABC");
}

TEST(TransformSourceChunksTest, ChunkThatTransformsToNothingReadsZeroButIsNotDone) {
  Fixture f("xxxxabcdxxxxxxxxef");
  f.transform.dataFunction = [](bytes const& input, bytes& output) {
    for (unsigned char c : input) {
      if (c != 'x') output.push_back(c);
    }
    return true;
  };
  EXPECT_EQ(f.read(4), "");
  EXPECT_FALSE(f.transform.getInputStream().isDone());
  EXPECT_EQ(opcvk_test::readAll(f.transform.getInputStream(), 4), "abcdef");
  EXPECT_EQ(f.transform.inputs.size(), 5u);
}

TEST(TransformSourceChunksTest, FailureOnTheFirstChunk) {
  Fixture f("abcdefgh");
  f.transform.dataFunction = [](bytes const&, bytes&) { return false; };
  EXPECT_THROW_MESSAGE(f.read(4), CouldNotTransformContentData, kDataFailure);
}

TEST(TransformSourceChunksTest, FailureOnTheLastChunk) {
  Fixture f("abcdefghij");
  f.transform.dataFunction = [](bytes const& input, bytes& output) {
    if (input.size() < 4) return false;
    return ScriptedTransform::capitals(input, output);
  };
  EXPECT_EQ(f.read(4), "ABCD");
  EXPECT_EQ(f.read(4), "EFGH");
  EXPECT_THROW_MESSAGE(f.read(4), CouldNotTransformContentData, kDataFailure);
}

TEST(TransformSourceChunksTest, WhatAFailedTransformWroteIsNeverRead) {
  Fixture f("abcdefgh");
  f.transform.dataFunction = [](bytes const& input, bytes& output) {
    if (input[0] != 'a') return ScriptedTransform::capitals(input, output);
    output.assign({'j', 'u', 'n', 'k'});
    return false;
  };
  EXPECT_THROW_MESSAGE(f.read(4), CouldNotTransformContentData, kDataFailure);
  // The failed chunk is gone from the wrapped stream; the next read goes on after it.
  EXPECT_FALSE(f.transform.getInputStream().isDone());
  EXPECT_EQ(f.read(4), "EFGH");
  EXPECT_TRUE(f.transform.getInputStream().isDone());
  EXPECT_EQ(f.transform.inputs, (std::vector<std::string>{"abcd", "efgh"}));
}

TEST(TransformSourceChunksTest, FailureNamesTheWrappedTypeNotTheTransformedOne) {
  Fixture f("abc");
  f.record->type = opc::model::ContentType(u"application/octet-stream;encryption=aes");
  f.transform.dataFunction = [](bytes const&, bytes&) { return false; };
  EXPECT_THROW_MESSAGE(
      f.read(4), CouldNotTransformContentData,
      "Failure when attempting to transform data for content type:application/octet-stream;"
      "encryption=aes");
}

TEST(TransformSourceChunksTest, ExceptionOfTheTransformPassesThrough) {
  Fixture f("abc");
  f.transform.dataFunction = [](bytes const&, bytes&) -> bool {
    throw std::runtime_error("own failure");
  };
  EXPECT_THROW_MESSAGE(f.read(4), std::runtime_error, "own failure");
}

TEST(TransformSourceChunksTest, ReadFailureOfTheWrappedStreamPassesThrough) {
  Fixture f("0123456789");
  f.record->stream.failAfter(6);
  EXPECT_EQ(f.read(4), "0123");
  EXPECT_THROW_MESSAGE(f.read(4), opc::Exception, "injected read failure");
  EXPECT_EQ(f.transform.inputs.size(), 1u);
}

TEST(TransformSourceChunksTest, OpenAndClosePassToTheWrappedStream) {
  Fixture f("abc");
  opc::InputStream& stream = f.transform.getInputStream();
  stream.open();
  EXPECT_EQ(f.record->stream.opens, 1);
  stream.close();
  EXPECT_EQ(f.record->stream.closes, 1);
}

TEST(TransformSourceChunksTest, OpenKeepsWhatIsBuffered) {
  Fixture f("abcdef");
  f.transform.dataFunction = [](bytes const& input, bytes& output) {
    for (unsigned char c : input) output.insert(output.end(), 2, c);
    return true;
  };
  EXPECT_EQ(f.read(3), "aab");
  f.transform.getInputStream().open();
  EXPECT_EQ(f.read(3), "bcc");
}

TEST(TransformSourceChunksTest, CopiesWholeThroughTheStreamHelper) {
  std::string content(200 * 1024 + 3, 'z');
  for (std::size_t i = 0; i < content.size(); i += 97) content[i] = 'k';
  Fixture f(content);
  std::string expected = content;
  for (char& c : expected) c = static_cast<char>(c - 'a' + 'A');
  EXPECT_EQ(opcvk_test::drain(f.transform), expected);
  EXPECT_EQ(f.record->stream.opens, 1);
  EXPECT_EQ(f.record->stream.closes, 1);
  // The helper reads 16 KiB first, then 64 KiB at a time, and so the chunks are of those
  // sizes.
  ASSERT_EQ(f.transform.inputs.size(), 4u);
  EXPECT_EQ(f.transform.inputs[0].size(), 16u * 1024);
  EXPECT_EQ(f.transform.inputs[1].size(), 64u * 1024);
  EXPECT_EQ(f.transform.inputs[3].size(), content.size() - 16 * 1024 - 2 * 64 * 1024);
}

}  // namespace
}  // namespace vkservices
}  // namespace opc
