// The one-pass check of an item name: the byte-wise rule on names it must take and refuse, and
// the sixteen-byte check held to it on the same names and on random ones of every length
// around its steps.
#include "plain_item_name.h"

#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

namespace {

using opc::model::detail::isPlainItemNameBytewise;

struct PlainCase {
  std::string name;
  bool plain;
};

// A name of `count` copies of `unit`, to move a case across the sixteen-byte steps.
std::string repeated(std::string_view unit, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += unit;
  return text;
}

std::vector<PlainCase> const& cases() {
  static std::vector<PlainCase> const kCases = [] {
    std::vector<PlainCase> list = {
        {"", false},
        {"a", true},
        {"a/b.xml", true},
        {"_rels/.rels", true},
        {"-._~!$&'()*+,;=:@", true},
        {".a/..b/a..c", true},
        {"/a", false},
        {"a/", false},
        {"a//b", false},
        {"a/./b", false},
        {"a/../b", false},
        {"a./b", false},
        {".", false},
        {"..", false},
        {"a.", false},
        {"a/b.", false},
        // Escapes of bytes that must be escaped, in either case, and those that may not be.
        {"a%20b", true},
        {"M%C3%BCnchen/%c3%a9.txt", true},
        {"%7F%25%2f", false},
        {"%7F%25", true},
        {"a%2Fb", false},
        {"a%5cb", false},
        {"a%41", false},
        {"a%2e", false},
        {"a%7E", false},
        {"a%2", false},
        {"a%", false},
        {"%", false},
        {"a%g0", false},
        {"a%0g", false},
        {"a%%41", false},
        {"a%20/", false},
        {"a%20./b", false},
        {"a b", false},
        {"caf\xc3\xa9", false},
        {"a\x7f", false},
        {"a\x01", false},
        {std::string("a\0b", 3), false},
    };
    // Every byte in the middle of a name, taken only if a segment character or a "/"; every
    // escape, taken only for a byte that is not unreserved, "/" or "\\".
    std::string const taken =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~!$&'()*+,;=:@/";
    std::string const unescapable =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~/\\";
    for (int b = 0; b < 256; ++b) {
      char const c = static_cast<char>(b);
      list.push_back({std::string("ab") + c + "xy", taken.find(c) != std::string::npos});
      static char const kHex[] = "0123456789ABCDEF";
      std::string const escape = {'%', kHex[b >> 4], kHex[b & 0xF]};
      list.push_back({"ab" + escape + "cd", unescapable.find(c) == std::string::npos});
    }
    // The same faults on either side of a step and at its last byte.
    for (std::size_t pad : {13, 14, 15, 16, 17, 30, 31, 32}) {
      std::string const lead = repeated("x", pad);
      list.push_back({lead + "//b", false});
      list.push_back({lead + "./b", false});
      list.push_back({lead + "/b", true});
      list.push_back({lead + "#b", false});
      list.push_back({lead + "\xc3\xa9", false});
      list.push_back({lead + ".", false});
      list.push_back({lead + "/", false});
      list.push_back({lead + "%20", true});
      list.push_back({lead + "%2", false});
      list.push_back({lead + "%2Fb", false});
    }
    return list;
  }();
  return kCases;
}

TEST(PlainItemNameTest, BytewiseTakesOnlyPlainNames) {
  for (PlainCase const& c : cases()) {
    EXPECT_EQ(isPlainItemNameBytewise(c.name), c.plain) << '"' << c.name << '"';
  }
}

#if defined(__SSE2__)
using opc::model::detail::isPlainItemNameWide;

TEST(PlainItemNameTest, WideTakesOnlyPlainNames) {
  for (PlainCase const& c : cases()) {
    EXPECT_EQ(isPlainItemNameWide(c.name), c.plain) << '"' << c.name << '"';
  }
}

TEST(PlainItemNameTest, WideAgreesWithBytewiseOnRandomNames) {
  // Mostly plain bytes, so that many names pass and a fault late in a long one is reached;
  // every other byte now and then.
  std::string const common = "ab/./ab-_~A%9C2";
  std::mt19937 random(20261125);
  std::size_t plainSeen = 0;
  for (int round = 0; round < 200000; ++round) {
    std::size_t const length = random() % 70;
    std::string name;
    for (std::size_t i = 0; i < length; ++i) {
      name +=
          random() % 64 == 0 ? static_cast<char>(random() % 256) : common[random() % common.size()];
    }
    bool const expected = isPlainItemNameBytewise(name);
    plainSeen += expected ? 1 : 0;
    ASSERT_EQ(isPlainItemNameWide(name), expected) << '"' << name << '"';
  }
  // The inputs must exercise both answers for the comparison to mean anything.
  EXPECT_GT(plainSeen, 1000u);
}
#endif

#if defined(OPC_MODEL_PLAIN_ITEM_NAME_SHUFFLE)
using opc::model::detail::isPlainItemNameShuffle;

TEST(PlainItemNameTest, ShuffleTakesOnlyPlainNames) {
  if (!__builtin_cpu_supports("ssse3")) GTEST_SKIP() << "the processor has no shuffle";
  for (PlainCase const& c : cases()) {
    EXPECT_EQ(isPlainItemNameShuffle(c.name), c.plain) << '"' << c.name << '"';
  }
}

TEST(PlainItemNameTest, ShuffleAgreesWithBytewiseOnRandomNames) {
  if (!__builtin_cpu_supports("ssse3")) GTEST_SKIP() << "the processor has no shuffle";
  // Escapes of every kind among plain bytes, so that the escapes told sixteen at a time meet
  // the others, cut ones and bad digits on every side of a step.
  std::vector<std::string> const units = {"a",  "b/",  ".", "%C3", "%a9", "%20", "%2F",
                                          "%4", "%G0", "%", "-_",  "Z",   "%8f", "%fF"};
  std::mt19937 random(20261126);
  std::size_t plainSeen = 0;
  for (int round = 0; round < 200000; ++round) {
    std::size_t const length = random() % 40;
    std::string name;
    for (std::size_t i = 0; i < length; ++i) {
      name += random() % 64 == 0 ? std::string(1, static_cast<char>(random() % 256))
                                 : units[random() % units.size()];
    }
    bool const expected = isPlainItemNameBytewise(name);
    plainSeen += expected ? 1 : 0;
    ASSERT_EQ(isPlainItemNameShuffle(name), expected) << '"' << name << '"';
  }
  EXPECT_GT(plainSeen, 1000u);
}
#endif

}  // namespace
