// The streams of LocalFileSystemOps: modes, ownership of the descriptor, read and write
// errors, and what a failed open leaves behind.
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/local_file_system_ops.h>

#include "local_file_system_ops_test_util.h"
#include "support/expect_exception.h"
#include "support/temp_dir.h"

namespace {

using boost::system::error_code;
namespace errc = boost::system::errc;
using opcvk_test::isCondition;
using opcvk_test::readFile;
using opcvk_test::u16;
using opcvk_test::writeFile;

constexpr int kBinaryIn = 33;
constexpr int kBinaryOut = 34;

int openDescriptorCount() {
  int count = 0;
  DIR* folder = ::opendir("/proc/self/fd");
  if (folder == nullptr) return -1;
  while (::readdir(folder) != nullptr) ++count;
  ::closedir(folder);
  return count;
}

std::string readAll(std::istream& stream) {
  std::string out;
  char block[4096];
  while (stream.read(block, sizeof block) || stream.gcount() > 0) {
    out.append(block, static_cast<std::size_t>(stream.gcount()));
  }
  return out;
}

std::string binaryContent(std::size_t size) {
  std::string content(size, '\0');
  for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>((i * 7 + i / 251) % 256);
  return content;
}

class LocalFileSystemOpsStreamsTest : public ::testing::Test {
 protected:
  std::u16string at(std::string const& name) const { return u16(dir_ / name); }

  opcvk_test::TempDir dir_;
  opc::LocalFileSystemOps fileSystem_;
};

TEST_F(LocalFileSystemOpsStreamsTest, InputStreamReadsEveryByteUnchanged) {
  std::string content = binaryContent(3 * 64 * 1024 + 123) + "\r\n\0\x1a";
  writeFile(dir_ / "data", content);
  error_code code = errc::make_error_code(errc::io_error);
  auto stream = fileSystem_.createInputStream(at("data"), kBinaryIn, code);
  ASSERT_FALSE(code);
  ASSERT_TRUE(stream);
  EXPECT_EQ(readAll(*stream), content);
  EXPECT_TRUE(stream->eof());
  EXPECT_FALSE(stream->bad());
}

TEST_F(LocalFileSystemOpsStreamsTest, InputStreamSeeksAndTells) {
  writeFile(dir_ / "data", "0123456789");
  error_code code;
  auto stream = fileSystem_.createInputStream(at("data"), kBinaryIn, code);
  ASSERT_TRUE(stream);
  char buffer[4] = {};
  stream->read(buffer, 3);
  EXPECT_EQ(stream->tellg(), 3);
  stream->seekg(7);
  EXPECT_EQ(stream->get(), '7');
  stream->seekg(-2, std::ios_base::end);
  EXPECT_EQ(readAll(*stream), "89");
  stream->clear();
  stream->seekg(0);
  EXPECT_EQ(readAll(*stream), "0123456789");
  auto atEnd =
      fileSystem_.createInputStream(at("data"), kBinaryIn | opc::FileSystemOps::kModeAte, code);
  ASSERT_TRUE(atEnd);
  EXPECT_EQ(atEnd->tellg(), 10);
}

TEST_F(LocalFileSystemOpsStreamsTest, InputStreamFollowsLinks) {
  writeFile(dir_ / "data", "through");
  ASSERT_EQ(::symlink("data", (dir_ / "link").c_str()), 0);
  error_code code;
  auto stream = fileSystem_.createInputStream(at("link"), kBinaryIn, code);
  ASSERT_TRUE(stream);
  EXPECT_EQ(readAll(*stream), "through");
}

TEST_F(LocalFileSystemOpsStreamsTest, InputStreamReportsWhyItCannotOpen) {
  ASSERT_EQ(::mkdir((dir_ / "folder").c_str(), 0755), 0);
  struct Case {
    std::u16string path;
    errc::errc_t expected;
  };
  std::u16string withNul = at("a");
  withNul.push_back(u'\0');
  Case const cases[] = {{at("missing"), errc::no_such_file_or_directory},
                        {at("folder"), errc::is_a_directory},
                        {at("missing/x"), errc::no_such_file_or_directory},
                        {withNul, errc::invalid_argument}};
  for (Case const& c : cases) {
    error_code code;
    EXPECT_EQ(fileSystem_.createInputStream(c.path, kBinaryIn, code), nullptr);
    EXPECT_TRUE(isCondition(code, c.expected)) << code.message();
  }
}

TEST_F(LocalFileSystemOpsStreamsTest, InputStreamRefusesModesForWriting) {
  writeFile(dir_ / "data", "keep");
  for (int mode : {kBinaryOut, 1 | 2, 1 | 8, 1 | 16, 1 | 64, 1 | 128, 1 << 20}) {
    error_code code;
    EXPECT_EQ(fileSystem_.createInputStream(at("data"), mode, code), nullptr) << mode;
    EXPECT_TRUE(isCondition(code, errc::invalid_argument)) << mode;
  }
  error_code code;
  auto implied = fileSystem_.createInputStream(at("data"), opc::FileSystemOps::kModeBinary, code);
  ASSERT_TRUE(implied) << "reading is implied, as for std::ifstream";
  EXPECT_EQ(readAll(*implied), "keep");
}

TEST_F(LocalFileSystemOpsStreamsTest, ReadErrorSetsBadbitRatherThanEnd) {
  // Reading the start of the own address space fails with EIO.
  error_code code;
  auto stream = fileSystem_.createInputStream(u"/proc/self/mem", kBinaryIn, code);
  if (!stream) GTEST_SKIP() << "/proc/self/mem cannot be opened here";
  char buffer[16];
  stream->read(buffer, sizeof buffer);
  EXPECT_TRUE(stream->bad());
  EXPECT_EQ(stream->gcount(), 0);
}

TEST_F(LocalFileSystemOpsStreamsTest, ReleasingTheLastPointerClosesTheFile) {
  writeFile(dir_ / "data", "x");
  int before = openDescriptorCount();
  {
    error_code code;
    auto input = fileSystem_.createInputStream(at("data"), kBinaryIn, code);
    auto output = fileSystem_.createOutputStream(at("out"), kBinaryOut, code);
    std::shared_ptr<std::istream> copy = input;
    input.reset();
    EXPECT_EQ(openDescriptorCount(), before + 2);
  }
  EXPECT_EQ(openDescriptorCount(), before);
}

TEST_F(LocalFileSystemOpsStreamsTest, OutputStreamCreatesAndTruncates) {
  writeFile(dir_ / "old", std::string(100000, 'o'));
  std::string content = binaryContent(200000);
  for (char const* name : {"old", "new"}) {
    error_code code;
    auto stream = fileSystem_.createOutputStream(at(name), kBinaryOut, code);
    ASSERT_FALSE(code);
    ASSERT_TRUE(stream);
    stream->write(content.data(), 10);
    stream->write(content.data() + 10, static_cast<std::streamsize>(content.size() - 10));
    stream->flush();
    EXPECT_TRUE(stream->good());
    EXPECT_EQ(readFile(dir_ / name), content) << name;
  }
  mode_t mask = ::umask(0);
  ::umask(mask);
  EXPECT_EQ(opcvk_test::modeOf(dir_ / "new") & 0777, 0666u & ~mask);
}

TEST_F(LocalFileSystemOpsStreamsTest, ReleasedOutputStreamWritesWhatItBuffered) {
  {
    error_code code;
    auto stream = fileSystem_.createOutputStream(at("out"), kBinaryOut, code);
    ASSERT_TRUE(stream);
    *stream << "buffered";
    EXPECT_EQ(readFile(dir_ / "out"), "");
  }
  EXPECT_EQ(readFile(dir_ / "out"), "buffered");
}

TEST_F(LocalFileSystemOpsStreamsTest, OutputStreamOnReadOnlyFileFailsAndLeavesItUntouched) {
  ASSERT_EQ(::chmod(dir_.path().c_str(), 0755), 0);
  writeFile(dir_ / "read-only", "keep me");
  ASSERT_EQ(::chmod((dir_ / "read-only").c_str(), 0444), 0);
  std::u16string path = at("read-only");
  int result = opcvk_test::runUnprivileged([&] {
    error_code code;
    auto stream = fileSystem_.createOutputStream(path, kBinaryOut, code);
    if (stream != nullptr) return 1;
    if (!isCondition(code, errc::permission_denied)) return 2;
    error_code existsCode;
    return fileSystem_.exists(path, existsCode) && !existsCode ? 0 : 3;
  });
  EXPECT_EQ(result, 0);
  EXPECT_EQ(readFile(dir_ / "read-only"), "keep me");
  EXPECT_EQ(opcvk_test::modeOf(dir_ / "read-only") & 0777, 0444u);
}

TEST_F(LocalFileSystemOpsStreamsTest, OutputStreamReportsWhyItCannotOpen) {
  ASSERT_EQ(::mkdir((dir_ / "folder").c_str(), 0755), 0);
  error_code code;
  EXPECT_EQ(fileSystem_.createOutputStream(at("missing/x"), kBinaryOut, code), nullptr);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory));
  EXPECT_EQ(fileSystem_.createOutputStream(at("folder"), kBinaryOut, code), nullptr);
  EXPECT_TRUE(isCondition(code, errc::is_a_directory));
  EXPECT_EQ(fileSystem_.createOutputStream(at("folder/"), kBinaryOut, code), nullptr);
  EXPECT_TRUE(isCondition(code, errc::is_a_directory));
}

TEST_F(LocalFileSystemOpsStreamsTest, OutputStreamHonoursTheOtherModes) {
  using Ops = opc::FileSystemOps;
  struct Case {
    int mode;
    char const* expected;
  };
  Case const cases[] = {
      {Ops::kModeOut, "XY"},
      {Ops::kModeOut | Ops::kModeTrunc, "XY"},
      {Ops::kModeApp, "abcdXY"},
      {Ops::kModeOut | Ops::kModeApp | Ops::kModeBinary, "abcdXY"},
      {Ops::kModeIn | Ops::kModeOut, "XYcd"},
      {Ops::kModeIn | Ops::kModeOut | Ops::kModeTrunc, "XY"},
      {Ops::kModeIn | Ops::kModeApp, "abcdXY"},
      {Ops::kModeIn | Ops::kModeOut | Ops::kModeAte, "abcdXY"},
      {Ops::kModeTrunc, "XY"},
  };
  for (Case const& c : cases) {
    writeFile(dir_ / "file", "abcd");
    {
      error_code code;
      auto stream = fileSystem_.createOutputStream(at("file"), c.mode, code);
      ASSERT_TRUE(stream) << c.mode << " " << code.message();
      *stream << "XY";
    }
    EXPECT_EQ(readFile(dir_ / "file"), c.expected) << c.mode;
  }
}

TEST_F(LocalFileSystemOpsStreamsTest, OutputStreamRefusesNonsenseModes) {
  using Ops = opc::FileSystemOps;
  writeFile(dir_ / "file", "keep");
  for (int mode : {Ops::kModeApp | Ops::kModeTrunc, Ops::kModeOut | Ops::kModeApp | Ops::kModeTrunc,
                   2 | 64, 2 | 256, -1}) {
    error_code code;
    EXPECT_EQ(fileSystem_.createOutputStream(at("file"), mode, code), nullptr) << mode;
    EXPECT_TRUE(isCondition(code, errc::invalid_argument)) << mode;
  }
  EXPECT_EQ(readFile(dir_ / "file"), "keep");
  error_code code;
  EXPECT_EQ(fileSystem_.createOutputStream(at("absent"), Ops::kModeIn | Ops::kModeOut, code),
            nullptr);
  EXPECT_TRUE(isCondition(code, errc::no_such_file_or_directory)) << "in|out does not create";
}

TEST_F(LocalFileSystemOpsStreamsTest, WriteErrorSetsBadbit) {
  error_code code;
  auto stream = fileSystem_.createOutputStream(u"/dev/full", kBinaryOut, code);
  if (!stream) GTEST_SKIP() << "/dev/full cannot be opened here";
  *stream << "small";
  EXPECT_TRUE(stream->good()) << "still buffered";
  stream->flush();
  EXPECT_TRUE(stream->bad());
  auto large = fileSystem_.createOutputStream(u"/dev/full", kBinaryOut, code);
  ASSERT_TRUE(large);
  std::string block(100000, 'x');
  large->write(block.data(), static_cast<std::streamsize>(block.size()));
  EXPECT_TRUE(large->bad());
}

TEST_F(LocalFileSystemOpsStreamsTest, OutputStreamWritesThroughLinks) {
  writeFile(dir_ / "target", "old");
  ASSERT_EQ(::symlink("target", (dir_ / "link").c_str()), 0);
  {
    error_code code;
    auto stream = fileSystem_.createOutputStream(at("link"), kBinaryOut, code);
    ASSERT_TRUE(stream);
    *stream << "new";
  }
  EXPECT_EQ(readFile(dir_ / "target"), "new");
}

}  // namespace
