// The text-only operations of LocalFileSystemOps: parent, file name, extension,
// normalisation, absolute paths.
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include <opc/core/local_file_system_ops.h>

namespace {

struct NameCase {
  std::u16string path;
  std::u16string expected;
};

std::string narrow(std::u16string const& text) { return std::string(text.begin(), text.end()); }

class LocalFileSystemOpsNamesTest : public ::testing::Test {
 protected:
  opc::LocalFileSystemOps fileSystem_;
};

TEST_F(LocalFileSystemOpsNamesTest, ParentPathIsTheHoldingFolder) {
  NameCase const cases[] = {
      {u"/a/b", u"/a"}, {u"/a/b/", u"/a"},    {u"/a", u"/"},        {u"/", u"/"},
      {u"//a", u"/"},   {u"a/b", u"a"},       {u"a//b", u"a"},      {u"a", u""},
      {u"", u""},       {u"/a/b//", u"/a"},   {u"/a/./b", u"/a/."}, {u"a\\b", u""},
      {u"///", u"/"},   {u"/a/b.txt", u"/a"},
  };
  for (NameCase const& c : cases) {
    EXPECT_EQ(fileSystem_.getParentPath(c.path), c.expected) << narrow(c.path);
  }
}

TEST_F(LocalFileSystemOpsNamesTest, FilenameIsTheLastComponent) {
  NameCase const cases[] = {
      {u"/a/b", u"b"}, {u"/a/b/", u"b"}, {u"/", u""},        {u"///", u""},
      {u"a", u"a"},    {u"", u""},       {u"a\\b", u"a\\b"}, {u"/a/.bashrc", u".bashrc"},
  };
  for (NameCase const& c : cases) {
    EXPECT_EQ(fileSystem_.getFilename(c.path), c.expected) << narrow(c.path);
  }
}

TEST_F(LocalFileSystemOpsNamesTest, ExtensionComesWithoutItsDot) {
  NameCase const cases[] = {
      {u"a.tar.gz", u"gz"},
      {u".bashrc", u""},
      {u"a.", u""},
      {u"dir.d/file", u""},
      {u"/x/y/report.PDF", u"PDF"},
      {u"a.txt/", u"txt"},
      {u"", u""},
      {u"/", u""},
      {u"..", u""},
      {u"noext", u""},
      {u"/a/.hidden.txt", u"txt"},
      {u"\u00e9t\u00e9.\u00e9", u"\u00e9"},
  };
  for (NameCase const& c : cases) {
    EXPECT_EQ(fileSystem_.getExtension(c.path), c.expected) << narrow(c.path);
  }
}

TEST_F(LocalFileSystemOpsNamesTest, NormalizePathByTheTextAlone) {
  NameCase const cases[] = {
      {u"/a//b", u"/a/b"}, {u"/a/./b", u"/a/b"},
      {u"/a/../b", u"/b"}, {u"/..", u"/"},
      {u"/../a", u"/a"},   {u"a/..", u"."},
      {u"../a", u"../a"},  {u"a/../../b", u"../b"},
      {u"/a/b/", u"/a/b"}, {u"", u""},
      {u"/", u"/"},        {u"./", u"."},
      {u"//a//", u"/a"},   {u"a\\..\\b", u"a\\..\\b"},
  };
  for (NameCase const& c : cases) {
    EXPECT_EQ(fileSystem_.normalizePath(c.path), c.expected) << narrow(c.path);
  }
}

TEST_F(LocalFileSystemOpsNamesTest, IsAbsolutePathByTheLeadingSlash) {
  EXPECT_TRUE(fileSystem_.isAbsolutePath(u"/"));
  EXPECT_TRUE(fileSystem_.isAbsolutePath(u"/a/b"));
  EXPECT_FALSE(fileSystem_.isAbsolutePath(u""));
  EXPECT_FALSE(fileSystem_.isAbsolutePath(u"a/b"));
  EXPECT_FALSE(fileSystem_.isAbsolutePath(u"C:\\data"));
  EXPECT_FALSE(fileSystem_.isAbsolutePath(u"\\server\\x"));
}

TEST_F(LocalFileSystemOpsNamesTest, LocalPathPutsRelativePathsBehindTheCurrentFolder) {
  char buffer[4096];
  ASSERT_NE(::getcwd(buffer, sizeof buffer), nullptr);
  std::string current = buffer;
  std::u16string out = u"untouched";
  ASSERT_TRUE(fileSystem_.getLocalPath(u"a/b", out));
  EXPECT_EQ(out, std::u16string(current.begin(), current.end()) + u"/a/b");
  ASSERT_TRUE(fileSystem_.getLocalPath(u"/x/../y", out));
  EXPECT_EQ(out, u"/x/../y");
  std::u16string withNul = u"a";
  withNul.push_back(u'\0');
  out = u"untouched";
  EXPECT_FALSE(fileSystem_.getLocalPath(withNul, out));
  EXPECT_EQ(out, u"untouched");
}

}  // namespace
