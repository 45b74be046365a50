// appendPath joins a real folder and a package path, and must never give a path outside the
// folder: extraction writes wherever it points.
#include <string>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/local_file_system_ops.h>

#include "support/expect_exception.h"

namespace {

struct JoinCase {
  std::u16string base;
  std::u16string rest;
  std::u16string expected;
};

class AppendPathTest : public ::testing::Test {
 protected:
  opc::LocalFileSystemOps fileSystem_;
};

TEST_F(AppendPathTest, JoinsInsideTheBase) {
  JoinCase const cases[] = {
      {u"/dest", u"/a.txt", u"/dest/a.txt"},
      {u"/dest", u"/a/b/c.txt", u"/dest/a/b/c.txt"},
      {u"/dest/", u"/a", u"/dest/a"},
      {u"/dest", u"a", u"/dest/a"},
      {u"/", u"/a", u"/a"},
      {u"rel/dest", u"/a", u"rel/dest/a"},
      {u"", u"/a/b", u"a/b"},
      {u"/dest", u"//x", u"/dest/x"},
      {u"/dest", u"/a//b/", u"/dest/a/b"},
      {u"/dest", u"/a/./b", u"/dest/a/b"},
      {u"/dest", u"/a/../b", u"/dest/b"},
      {u"/dest", u"/a/b/../../c", u"/dest/c"},
      {u"/dest", u"/a/..", u"/dest"},
      {u"/dest", u"/", u"/dest"},
      {u"/dest", u"", u"/dest"},
      {u"/dest", u"/.", u"/dest"},
      {u"/dest", u"/a\\..\\..\\x", u"/dest/a\\..\\..\\x"},
      {u"/dest", u"/...", u"/dest/..."},
      {u"/dest", u"/..a/b..", u"/dest/..a/b.."},
      {u"/de//st", u"/a", u"/de//st/a"},
      {u"/dest", u"/\u00e9t\u00e9/\U0001F600", u"/dest/\u00e9t\u00e9/\U0001F600"},
  };
  for (JoinCase const& c : cases) {
    EXPECT_EQ(fileSystem_.appendPath(c.base, c.rest), c.expected)
        << std::string(c.rest.begin(), c.rest.end());
  }
}

TEST_F(AppendPathTest, RaisesWhenTheRestClimbsAboveTheBase) {
  struct EscapeCase {
    std::u16string rest;
    char const* message;
  };
  EscapeCase const cases[] = {
      {u"/../x", "Could not append path: /../x to /dest: the path leads out of the base folder"},
      {u"/a/../../x",
       "Could not append path: /a/../../x to /dest: the path leads out of the base folder"},
      {u"..", "Could not append path: .. to /dest: the path leads out of the base folder"},
      {u"/a/./../..",
       "Could not append path: /a/./../.. to /dest: the path leads out of the base folder"},
      {u"/a/b/../../..",
       "Could not append path: /a/b/../../.. to /dest: the path leads out of the base folder"},
      {u"//..//x",
       "Could not append path: //..//x to /dest: the path leads out of the base folder"},
  };
  for (EscapeCase const& c : cases) {
    EXPECT_THROW_MESSAGE(fileSystem_.appendPath(u"/dest", c.rest), opc::Exception, c.message);
  }
}

TEST_F(AppendPathTest, EscapeCarriesInvalidArgument) {
  try {
    fileSystem_.appendPath(u"/dest", u"/../etc/passwd");
    FAIL() << "no exception";
  } catch (opc::Exception const& e) {
    EXPECT_EQ(e.code(), boost::system::errc::invalid_argument);
  }
}

TEST_F(AppendPathTest, RaisesOnNulInsteadOfCuttingThePath) {
  std::u16string rest = u"/a.txt";
  rest.push_back(u'\0');
  rest += u"/../../../x";
  EXPECT_THROW_MESSAGE(fileSystem_.appendPath(u"/dest", rest), opc::Exception,
                       "Could not append path: /a.txt?/../../../x to /dest: the path holds a NUL "
                       "character");
  std::u16string base = u"/de";
  base.push_back(u'\0');
  EXPECT_THROW_MESSAGE(fileSystem_.appendPath(base, u"/a"), opc::Exception,
                       "Could not append path: /a to /de?: the path holds a NUL character");
}

TEST_F(AppendPathTest, DoesNotResolveLinksInsideTheBase) {
  // A ".." after a component that might be a link is undone by the text, not by the disk.
  EXPECT_EQ(fileSystem_.appendPath(u"/dest", u"/link/../x"), u"/dest/x");
}

}  // namespace
