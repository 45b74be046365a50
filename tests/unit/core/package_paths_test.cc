#include <gtest/gtest.h>

#include <opc/core/package_paths.h>

namespace {

using opc::detail::getFilename;
using opc::detail::getParentPath;

struct PathCase {
  std::u16string path;
  std::u16string parent;
  std::u16string filename;
};

class PackagePathsTest : public ::testing::TestWithParam<PathCase> {};

TEST_P(PackagePathsTest, SplitsParentAndFilename) {
  PathCase const& c = GetParam();
  EXPECT_EQ(getParentPath(c.path), c.parent);
  EXPECT_EQ(getFilename(c.path), c.filename);
}

INSTANTIATE_TEST_SUITE_P(
    Table, PackagePathsTest,
    ::testing::Values(PathCase{u"/a/b", u"/a", u"b"}, PathCase{u"/a", u"/", u"a"},
                      PathCase{u"/", u"/", u""}, PathCase{u"/a/b/c.txt", u"/a/b", u"c.txt"},
                      // A trailing slash is passed through unchanged by callers: defined, no error.
                      PathCase{u"/a/", u"/a", u""}, PathCase{u"/a/b/", u"/a/b", u""},
                      // Not package paths: no parent, the text is its own last component.
                      PathCase{u"a", u"", u"a"}, PathCase{u"", u"", u""},
                      PathCase{u"a/b", u"a", u"b"},
                      PathCase{u"/\u00e9t\u00e9/\u65e5\u672c", u"/\u00e9t\u00e9",
                               u"\u65e5\u672c"}));

}  // namespace
