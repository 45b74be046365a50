#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/unnamed_temporary_file.h>

#include "support/expect_exception.h"
#include "support/scoped_environment.h"
#include "support/temp_dir.h"

namespace opc {
namespace {

std::vector<unsigned char> bytesOf(std::string const& text) {
  return std::vector<unsigned char>(text.begin(), text.end());
}

bool folderIsEmpty(std::string const& folder) {
  return std::filesystem::directory_iterator(folder) == std::filesystem::directory_iterator();
}

TEST(UnnamedTemporaryFileTest, ReadsBackWhatWasAppendedFromAnyOffset) {
  UnnamedTemporaryFile file;
  std::vector<unsigned char> const first = bytesOf("hello, ");
  std::vector<unsigned char> const second = bytesOf("world");
  file.append(first.data(), first.size());
  file.append(second.data(), second.size());
  EXPECT_EQ(file.size(), 12u);
  std::vector<unsigned char> buffer(5);
  ASSERT_EQ(file.readAt(7, buffer.data(), buffer.size()), 5u);
  EXPECT_EQ(buffer, second);
  ASSERT_EQ(file.readAt(0, buffer.data(), buffer.size()), 5u);
  EXPECT_EQ(buffer, bytesOf("hello"));
}

TEST(UnnamedTemporaryFileTest, ReadsFewerBytesOnlyAtTheEnd) {
  UnnamedTemporaryFile file;
  std::vector<unsigned char> const text = bytesOf("abcdef");
  file.append(text.data(), text.size());
  std::vector<unsigned char> buffer(10);
  EXPECT_EQ(file.readAt(4, buffer.data(), buffer.size()), 2u);
  EXPECT_EQ(file.readAt(6, buffer.data(), buffer.size()), 0u);
  EXPECT_EQ(file.readAt(100, buffer.data(), buffer.size()), 0u);
}

TEST(UnnamedTemporaryFileTest, LeavesNothingInTheTemporaryFolder) {
  opcvk_test::TempDir folder;
  opcvk_test::ScopedEnvironment tmpdir("TMPDIR", folder.path());
  UnnamedTemporaryFile file;
  std::vector<unsigned char> const text(100000, 'x');
  file.append(text.data(), text.size());
  // Nothing to see even while the file is in use.
  EXPECT_TRUE(folderIsEmpty(folder.path()));
}

TEST(UnnamedTemporaryFileTest, MissingTemporaryFolderIsAClearError) {
  opcvk_test::TempDir folder;
  std::string const missing = folder / "missing";
  opcvk_test::ScopedEnvironment tmpdir("TMPDIR", missing);
  EXPECT_THROW_MESSAGE(UnnamedTemporaryFile(), opc::Exception,
                       "Could not create a temporary file in " + missing);
  try {
    UnnamedTemporaryFile file;
  } catch (opc::Exception const& e) {
    EXPECT_EQ(e.code().value(), ENOENT);
  }
}

}  // namespace
}  // namespace opc
