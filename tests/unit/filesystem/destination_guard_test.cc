// The names extraction refuses by their text alone: each refusal with its words and code, and
// for any text the same answer as the rules read one component at a time.
#include "filesystem/destination_guard.h"

#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using opc::vkservices::detail::DestinationGuard;
using opc::vkservices::detail::Refusal;

struct NameCase {
  std::u16string path;
  char const* reason;  // nullptr: let through
};

std::string narrow(std::u16string const& text) {
  std::string out;
  for (char16_t c : text) out.push_back(c == u'\0' ? '?' : static_cast<char>(c));
  return out;
}

// The rules, read the plain way: NUL first, then the form, then each component cut at
// slashes, and each piece of a component cut at backslashes.
char const* referenceReason(std::u16string const& path) {
  if (path.find(u'\0') != std::u16string::npos) return "the path holds a NUL character";
  if (path.empty() || path[0] != u'/') return "the path is not absolute";
  if (path.size() == 1) return nullptr;
  bool leaves = false;
  bool unusual = false;
  std::vector<std::u16string> components(1);
  for (std::size_t i = 1; i < path.size(); ++i) {
    if (path[i] == u'/') {
      components.emplace_back();
    } else {
      components.back().push_back(path[i]);
    }
  }
  for (std::u16string const& component : components) {
    if (component.empty() || component == u".") {
      unusual = true;
      continue;
    }
    std::u16string piece;
    for (std::size_t i = 0; i <= component.size(); ++i) {
      if (i == component.size() || component[i] == u'\\') {
        if (piece == u"." || piece == u"..") leaves = true;
        piece.clear();
      } else {
        piece.push_back(component[i]);
      }
    }
  }
  if (leaves) return "the path leaves the destination";
  if (unusual) return "the path has an empty or \".\" component";
  return nullptr;
}

void expectReason(std::u16string const& path, char const* reason) {
  std::optional<Refusal> const refusal = DestinationGuard::checkPathName(path);
  if (reason == nullptr) {
    EXPECT_FALSE(refusal) << narrow(path) << ": " << refusal->message;
    return;
  }
  ASSERT_TRUE(refusal) << narrow(path);
  EXPECT_EQ(refusal->message, "Refused to extract " + narrow(path) + ": " + reason);
  EXPECT_EQ(refusal->code,
            boost::system::errc::make_error_code(boost::system::errc::invalid_argument))
      << narrow(path);
}

TEST(DestinationGuardTest, RefusesNamesThatLeaveOrBendTheDestination) {
  char const* const kLeaves = "the path leaves the destination";
  char const* const kUnusual = "the path has an empty or \".\" component";
  char const* const kNul = "the path holds a NUL character";
  char const* const kRelative = "the path is not absolute";
  std::vector<NameCase> const cases = {
      {u"/", nullptr},
      {u"/a", nullptr},
      {u"/a/b/c.txt", nullptr},
      {u"/...", nullptr},
      {u"/.a/..b/c..", nullptr},
      {u"/a\\b", nullptr},
      {u"/a\\", nullptr},
      {u"/\\", nullptr},
      {u"/a\\...\\b", nullptr},
      {u"", kRelative},
      {u"a/b", kRelative},
      {u"/a/../b", kLeaves},
      {u"/..", kLeaves},
      {u"/a/..", kLeaves},
      {u"/a\\..", kLeaves},
      {u"/..\\a", kLeaves},
      {u"/a\\.\\b", kLeaves},
      {u"/\\.", kLeaves},
      {u"/a/./b", kUnusual},
      {u"/.", kUnusual},
      {u"/a//b", kUnusual},
      {u"/a/", kUnusual},
      {u"//", kUnusual},
      {u"/./..", kLeaves},
      {std::u16string(u"/a\0b", 4), kNul},
      {std::u16string(u"/..\0", 4), kNul},
  };
  for (NameCase const& c : cases) {
    ASSERT_EQ(referenceReason(c.path) == nullptr, c.reason == nullptr) << narrow(c.path);
    expectReason(c.path, c.reason);
  }
}

TEST(DestinationGuardTest, AnswersAsTheRulesReadOneComponentAtATime) {
  std::mt19937 random(2026);
  std::u16string const alphabet(u"ab./\\./\0", 8);
  for (int i = 0; i < 20000; ++i) {
    std::u16string path = random() % 8 == 0 ? u"" : u"/";
    std::size_t const length = random() % 9;
    for (std::size_t k = 0; k < length; ++k) path.push_back(alphabet[random() % alphabet.size()]);
    expectReason(path, referenceReason(path));
  }
}

}  // namespace
