#include "content/text_spool.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "content/spooled_input_stream.h"
#include "unit/content/transform_test_util.h"

namespace opc {
namespace vkservices {
namespace detail {
namespace {

// A bound small enough that a few bytes reach the file.
constexpr std::size_t kSmallBound = 8;

void write(TextSpool& spool, std::string const& text) {
  spool.write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
}

std::string asText(bytes const& data) { return std::string(data.begin(), data.end()); }

// Everything that the spool kept, read back as the transform reads it, in reads of `size`.
std::string readBack(TextSpool& spool, std::size_t size) {
  SpooledInputStream stream(spool.takeHead(), spool.takeRest());
  return opcvk_test::readAll(stream, size);
}

TEST(TextSpoolTest, TextWithinTheBoundStaysInMemory) {
  TextSpool spool(kSmallBound);
  write(spool, "abcd");
  write(spool, "efgh");
  EXPECT_TRUE(spool.check().settled());
  EXPECT_EQ(asText(spool.takeHead()), "abcdefgh");
  EXPECT_EQ(spool.takeRest(), nullptr);
}

TEST(TextSpoolTest, TextOverTheBoundGoesOnInAFile) {
  TextSpool spool(kSmallBound);
  write(spool, "abcde");
  write(spool, "fghijklmnopqrst");
  EXPECT_EQ(asText(spool.takeHead()), "abcdefgh");
  std::unique_ptr<opc::UnnamedTemporaryFile> rest = spool.takeRest();
  ASSERT_NE(rest, nullptr);
  EXPECT_EQ(rest->size(), 12u);
}

TEST(TextSpoolTest, ReadsBackAcrossMemoryAndFileInReadsOfAnySize) {
  std::string const text = "0123456789abcdefghijklmnopqrstuvwxyz";
  for (std::size_t size : {1, 3, 7, 8, 9, 100}) {
    TextSpool spool(kSmallBound);
    write(spool, text.substr(0, 10));
    write(spool, text.substr(10));
    EXPECT_EQ(readBack(spool, size), text) << size;
  }
}

TEST(TextSpoolTest, ByteThatRulesOutUtf8BringsTheFileBackToMemory) {
  for (std::string const& bad : {std::string("\xFF"), std::string("\0", 1)}) {
    TextSpool spool(kSmallBound);
    write(spool, "0123456789ab");
    write(spool, "cd" + bad + "ef");
    write(spool, "gh");
    EXPECT_FALSE(spool.check().maySettle());
    EXPECT_EQ(spool.takeRest(), nullptr);
    EXPECT_EQ(asText(spool.takeHead()), "0123456789abcd" + bad + "efgh");
  }
}

TEST(TextSpoolTest, WholeTextIncludesTheFile) {
  // A text cut off at its end may still have been UTF-8 while it was read.
  TextSpool spool(kSmallBound);
  write(spool, "0123456789ab\xE2\x82");
  EXPECT_TRUE(spool.check().maySettle());
  EXPECT_FALSE(spool.check().settled());
  EXPECT_EQ(asText(spool.takeWhole()), "0123456789ab\xE2\x82");
}

}  // namespace
}  // namespace detail
}  // namespace vkservices
}  // namespace opc
