#include "filesystem/block_buffer_source.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using opc::model::ContentType;
using opc::vkservices::BlockBufferSource;

// Reads everything with reads of `step` bytes.
std::string readAll(opc::InputStream& input, std::size_t step) {
  std::string text;
  std::vector<unsigned char> buffer(step);
  input.open();
  while (!input.isDone()) {
    std::size_t const count = input.read(buffer.data(), buffer.size());
    text.append(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(count));
  }
  input.close();
  return text;
}

TEST(BlockBufferSourceTest, GivesBackWhatWasWrittenAcrossBlocks) {
  BlockBufferSource source(ContentType(u"text/xml"));
  std::string expected;
  // Pieces of odd sizes that cross the 1 MiB blocks at odd places, over three blocks.
  for (std::size_t i = 0; expected.size() < (3u << 20) + 17; ++i) {
    std::string const piece(1 + (i * 7919) % 70000, static_cast<char>('a' + i % 26));
    source.writer().write(reinterpret_cast<unsigned char const*>(piece.data()), piece.size());
    expected += piece;
  }
  EXPECT_EQ(readAll(source.getInputStream(), 65521), expected);
  EXPECT_EQ(source.getContentType().toString(), u"text/xml");
}

TEST(BlockBufferSourceTest, NothingWrittenReadsAsEmpty) {
  BlockBufferSource source(ContentType(u"text/xml"));
  EXPECT_TRUE(source.getInputStream().isDone());
  EXPECT_EQ(readAll(source.getInputStream(), 10), "");
}

TEST(BlockBufferSourceTest, ReadsSmallerThanAByteRunGiveEveryByteOnce) {
  BlockBufferSource source(ContentType(u"text/xml"));
  std::string const text = "<a>manifest</a>";
  source.writer().write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
  source.writer().write(nullptr, 0);
  EXPECT_EQ(readAll(source.getInputStream(), 1), text);
}

}  // namespace
