#include "password_input.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "tool_error.h"

namespace {

using opcvk::Password;
using opcvk::ToolError;
using opcvk_test::TempDir;

class PasswordInputTest : public ::testing::Test {
 protected:
  // Writes `bytes` to a file of the temporary folder and returns its path.
  std::string file(std::string const& bytes) {
    std::string const path = dir / "password";
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  static std::u16string text(Password const& password) {
    return std::u16string(password.begin(), password.end());
  }

  TempDir dir;
};

TEST_F(PasswordInputTest, FirstLineWithoutItsLineBreakIsThePassword) {
  struct Case {
    std::string bytes;
    std::u16string password;
  };
  Case const cases[] = {
      {"secret", u"secret"},
      {"secret\n", u"secret"},
      {"secret\r\n", u"secret"},
      {"secret\nsecond line\n", u"secret"},
      {"  spaced out \t\n", u"  spaced out \t"},
      {"ends in cr\r", u"ends in cr"},
      {"caf\xc3\xa9 \xe4\xb8\xad", u"caf\u00e9 \u4e2d"},
      {"\xf0\x9f\x98\x80", u"\U0001F600"},
      {"a\rb\n", u"a\rb"},
  };
  for (Case const& c : cases) {
    EXPECT_EQ(text(opcvk::readPasswordFile(file(c.bytes))), c.password) << c.bytes;
  }
}

TEST_F(PasswordInputTest, LineOfTheLongestLengthIsReadAndOneByteMoreIsRefused) {
  std::string const longest(opcvk::kMaxPasswordBytes, 'x');
  EXPECT_EQ(opcvk::readPasswordFile(file(longest + "\nrest")).size(), longest.size());
  EXPECT_EQ(opcvk::readPasswordFile(file(longest + "\r\n")).size(), longest.size());
  std::string const path = file(longest + "y\n");
  EXPECT_THROW_MESSAGE(
      opcvk::readPasswordFile(path), ToolError,
      "The first line of the password file " + path + " is longer than 4096 bytes");
  std::string const huge = file(std::string(1 << 20, 'z'));
  EXPECT_THROW_MESSAGE(
      opcvk::readPasswordFile(huge), ToolError,
      "The first line of the password file " + huge + " is longer than 4096 bytes");
}

TEST_F(PasswordInputTest, EmptyFirstLineIsRefused) {
  for (std::string const bytes : {"", "\n", "\r\n", "\nsecond"}) {
    std::string const path = file(bytes);
    EXPECT_THROW_MESSAGE(
        opcvk::readPasswordFile(path), ToolError,
        "The password file " + path + " has an empty first line: a password cannot be empty");
  }
}

TEST_F(PasswordInputTest, BytesThatAreNotUTF8AreRefusedWithoutShowingThem) {
  for (std::string const bytes :
       {"caf\xe9", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xe4\xb8", "\xff"}) {
    std::string const path = file("pw" + bytes + "\n");
    EXPECT_THROW_MESSAGE(opcvk::readPasswordFile(path), ToolError,
                         "The password file " + path + " is not UTF-8 text");
  }
}

TEST_F(PasswordInputTest, MissingFileOrFolderIsRefusedWithTheReason) {
  std::string const missing = dir / "missing";
  EXPECT_THROW_MESSAGE(
      opcvk::readPasswordFile(missing), ToolError,
      "Could not read the password file " + missing + ": No such file or directory");
  EXPECT_THROW_MESSAGE(opcvk::readPasswordFile(dir.path()), ToolError,
                       "Could not read the password file " + dir.path() + ": Is a directory");
}

TEST_F(PasswordInputTest, TextHandedToTheLibraryIsTheWholePassword) {
  Password const password{u'p', u'\u00e9', u'\0', u'x'};
  opcvk::PasswordText const text(password);
  EXPECT_EQ(text.text(), std::u16string(u"p\u00e9\0x", 4));
}

}  // namespace
