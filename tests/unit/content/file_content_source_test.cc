#include <cerrno>
#include <dirent.h>
#include <fstream>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

#include <boost/system/error_code.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/local_file_system_ops.h>
#include <opc/core/stream_helper.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/content_types.h>
#include <opc/vkservices/errors.h>

#include "support/byte_streams.h"
#include "support/expect_exception.h"
#include "support/faulty_file_system_ops.h"
#include "support/in_memory_file_system_ops.h"
#include "support/scoped_thread_locale.h"
#include "support/temp_dir.h"

namespace opc {
namespace vkservices {
namespace {

using opc::model::ContentType;

static_assert(!std::is_copy_constructible<FileContentSource>::value, "not copyable");
static_assert(!std::is_copy_assignable<FileContentSource>::value, "not copyable");

constexpr char16_t kDefaultType[] = u"application/vnd.veltrance.orvane.filesystemDefault";

std::u16string u16(std::string const& text) { return std::u16string(text.begin(), text.end()); }

void writeFile(std::string const& path, std::string const& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  ASSERT_TRUE(out.good()) << path;
}

std::string drain(IContentSource& source) {
  opcvk_test::MemoryOutputStream out;
  opc::StreamHelper::copyStreamToStream(source.getInputStream(), out);
  return out.bytes;
}

boost::system::error_code systemCode(int value) {
  return boost::system::error_code(value, boost::system::system_category());
}

// How many descriptors this process holds open.
int openDescriptors() {
  int count = 0;
  DIR* folder = ::opendir("/proc/self/fd");
  if (folder == nullptr) return -1;
  while (::readdir(folder) != nullptr) ++count;
  ::closedir(folder);
  return count;
}

// Records the mode of each opened input stream, and can claim success without a stream.
class RecordingFileSystemOps : public opcvk_test::InMemoryFileSystemOps {
 public:
  // Written from a const slot; the tests are single-threaded.
  mutable int lastMode = -1;
  bool giveNoStream = false;

 protected:
  std::shared_ptr<std::istream> doCreateInputStream(
      std::u16string const& path, int mode, std::string& text,
      boost::system::error_code& code) const override {
    lastMode = mode;
    if (giveNoStream) return nullptr;
    return InMemoryFileSystemOps::doCreateInputStream(path, mode, text, code);
  }
};

// The type found by extension, for files on disk and in another file system.
struct ExtensionCase {
  char const* name;
  char16_t const* type;
};

constexpr ExtensionCase kExtensionCases[] = {
    {"report.json", u"application/json"},
    {"notes.txt", u"text/plain"},
    {"model.dyx", u"application/vnd.veltrance.dynalith.model"},
    {"photo.jpg", kDefaultType},
    {"NOTES.TXT", kDefaultType},
    {"no-extension", kDefaultType},
    {"tool.ovxa64", kDefaultType},
    {".txt", kDefaultType},
    {"archive.tar.gz", kDefaultType},
};

TEST(FileContentSourceTest, FindsTheTypeOfAFileOnDiskByItsExtension) {
  opcvk_test::TempDir dir;
  for (ExtensionCase const& c : kExtensionCases) {
    SCOPED_TRACE(c.name);
    writeFile(dir / c.name, c.name);
    FileContentSource source(u16(dir / c.name));
    EXPECT_EQ(source.getContentType().toString(), c.type);
    EXPECT_EQ(drain(source), c.name);
  }
}

TEST(FileContentSourceTest, FindsTheTypeThroughTheGivenFileSystem) {
  opcvk_test::InMemoryFileSystemOps memory;
  for (ExtensionCase const& c : kExtensionCases) {
    SCOPED_TRACE(c.name);
    std::u16string const path = u"/only/in/memory/" + u16(c.name);
    memory.addFile(path, c.name);
    FileContentSource source(path, memory);
    EXPECT_EQ(source.getContentType().toString(), c.type);
    EXPECT_EQ(drain(source), c.name);
  }
}

TEST(FileContentSourceTest, KeepsAGivenTypeWhateverTheExtensionSays) {
  opcvk_test::TempDir dir;
  writeFile(dir / "report.json", "{}");
  ContentType const given(u"image/png;quality=high");
  FileContentSource onDisk(u16(dir / "report.json"), given);
  EXPECT_EQ(onDisk.getContentType().toString(), u"image/png;quality=high");

  opcvk_test::InMemoryFileSystemOps memory;
  memory.addFile(u"/report.json", "{}");
  FileContentSource inMemory(u"/report.json", given, memory);
  EXPECT_EQ(inMemory.getContentType(), given);
  EXPECT_EQ(drain(inMemory), "{}");
}

TEST(FileContentSourceTest, GivenTypeSkipsTheExtensionLookup) {
  auto memory = std::make_shared<opcvk_test::InMemoryFileSystemOps>();
  memory->addFile(u"/a.json", "{}");
  opcvk_test::FaultyFileSystemOps faulty(memory);
  faulty.failOn("doGetExtension", systemCode(EIO));
  FileContentSource source(u"/a.json", getTextContentType(), faulty);
  EXPECT_EQ(faulty.callCount("doGetExtension"), 0);
  EXPECT_EQ(source.getContentType(), getTextContentType());
  EXPECT_EQ(drain(source), "{}");
}

TEST(FileContentSourceTest, ChoosesTheTypeBeforeOpening) {
  auto memory = std::make_shared<opcvk_test::InMemoryFileSystemOps>();
  memory->addFile(u"/a.txt", "text");
  opcvk_test::FaultyFileSystemOps faulty(memory);
  faulty.failOn("doGetExtension", systemCode(EIO));
  faulty.failOn("doCreateInputStream", systemCode(EACCES));
  try {
    FileContentSource source(u"/a.txt", faulty);
    ADD_FAILURE() << "no exception";
  } catch (CouldNotOpenFile const&) {
    ADD_FAILURE() << "opened before the type was chosen";
  } catch (opc::Exception const& e) {
    EXPECT_EQ(e.code(), systemCode(EIO));
  }
  EXPECT_EQ(faulty.callCount("doCreateInputStream"), 0);
}

TEST(FileContentSourceTest, OpensForBinaryInput) {
  RecordingFileSystemOps memory;
  memory.addFile(u"/a.bin", "x");
  FileContentSource source(u"/a.bin", memory);
  EXPECT_EQ(memory.lastMode, 33);
}

TEST(FileContentSourceTest, DeliversBinaryContentExactly) {
  opcvk_test::TempDir dir;
  std::string content(300 * 1024 + 17, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>((i * 7) ^ 0x5a);
  content[10] = '\r';
  content[11] = '\n';
  writeFile(dir / "data.bin", content);
  FileContentSource source(u16(dir / "data.bin"));
  EXPECT_EQ(drain(source), content);
}

TEST(FileContentSourceTest, EmptyFileIsDoneAtOnce) {
  opcvk_test::TempDir dir;
  writeFile(dir / "empty.txt", "");
  FileContentSource source(u16(dir / "empty.txt"));
  EXPECT_TRUE(source.getInputStream().isDone());
  EXPECT_EQ(drain(source), "");
}

TEST(FileContentSourceTest, GivesTheSameStreamEveryTime) {
  opcvk_test::TempDir dir;
  writeFile(dir / "a.txt", "abc");
  FileContentSource source(u16(dir / "a.txt"));
  EXPECT_EQ(&source.getInputStream(), &source.getInputStream());
  unsigned char buffer[2];
  ASSERT_EQ(source.getInputStream().read(buffer, 2), 2u);
  EXPECT_EQ(drain(source), "c");
}

TEST(FileContentSourceTest, ReadsTheFileOpenedAtConstruction) {
  opcvk_test::TempDir dir;
  writeFile(dir / "a.txt", "original");
  FileContentSource source(u16(dir / "a.txt"));
  ASSERT_EQ(::unlink((dir / "a.txt").c_str()), 0);
  writeFile(dir / "a.txt", "replacement");
  EXPECT_EQ(drain(source), "original");
}

TEST(FileContentSourceTest, ClosesTheFileWhenDestroyed) {
  opcvk_test::TempDir dir;
  writeFile(dir / "a.txt", "abc");
  int const before = openDescriptors();
  ASSERT_GT(before, 0);
  {
    FileContentSource source(u16(dir / "a.txt"));
    EXPECT_EQ(openDescriptors(), before + 1);
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST(FileContentSourceTest, DoesNotHoldTheSharedLocalFileSystem) {
  opcvk_test::TempDir dir;
  writeFile(dir / "a.txt", "abc");
  std::shared_ptr<opc::LocalFileSystemOps> const& shared = opc::LocalFileSystemOps::getShared();
  long const users = shared.use_count();
  FileContentSource first(u16(dir / "a.txt"));
  FileContentSource second(u16(dir / "a.txt"), getTextContentType());
  EXPECT_EQ(shared.use_count(), users);
  EXPECT_EQ(&opc::LocalFileSystemOps::getShared(), &shared);
}

TEST(FileContentSourceTest, MissingFileRaisesWithTheFileSystemsCode) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "missing.txt";
  try {
    FileContentSource source(u16(path));
    ADD_FAILURE() << "no exception";
  } catch (CouldNotOpenFile const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not open file: " + path);
    EXPECT_EQ(e.code(), systemCode(ENOENT));
  }
  EXPECT_THROW_MESSAGE(FileContentSource(u16(path), getTextContentType()), CouldNotOpenFile,
                       "Could not open file: " + path);
}

TEST(FileContentSourceTest, FolderRaisesCouldNotOpenFile) {
  opcvk_test::TempDir dir;
  try {
    FileContentSource source(u16(dir.path()));
    ADD_FAILURE() << "no exception";
  } catch (CouldNotOpenFile const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not open file: " + dir.path());
    EXPECT_EQ(e.code(), systemCode(EISDIR));
  }
}

TEST(FileContentSourceTest, CarriesExactlyTheCodeTheFileSystemGave) {
  auto memory = std::make_shared<opcvk_test::InMemoryFileSystemOps>();
  memory->addFile(u"/a.txt", "text");
  opcvk_test::FaultyFileSystemOps faulty(memory);
  boost::system::error_code const code(EMFILE, boost::system::system_category());
  faulty.failOn("doCreateInputStream", code);
  try {
    FileContentSource source(u"/a.txt", faulty);
    ADD_FAILURE() << "no exception";
  } catch (CouldNotOpenFile const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not open file: /a.txt");
    EXPECT_EQ(e.code(), code);
  }
}

TEST(FileContentSourceTest, MissingFileInAnotherFileSystemRaises) {
  opcvk_test::InMemoryFileSystemOps memory;
  try {
    FileContentSource source(u"/nowhere/a.txt", getTextContentType(), memory);
    ADD_FAILURE() << "no exception";
  } catch (CouldNotOpenFile const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not open file: /nowhere/a.txt");
    EXPECT_EQ(e.code(), systemCode(ENOENT));
  }
}

TEST(FileContentSourceTest, SuccessWithoutAStreamIsAFailure) {
  RecordingFileSystemOps memory;
  memory.addFile(u"/a.txt", "text");
  memory.giveNoStream = true;
  try {
    FileContentSource source(u"/a.txt", memory);
    ADD_FAILURE() << "no exception";
  } catch (CouldNotOpenFile const& e) {
    EXPECT_EQ(std::string(e.what()), "Could not open file: /a.txt");
    EXPECT_EQ(e.code(), systemCode(EIO));
  }
}

TEST(FileContentSourceTest, NamesThePathInTheUsersEncoding) {
  opcvk_test::InMemoryFileSystemOps memory;
  std::u16string const path = u"/caf\u00e9/\u65e5.txt";
  {
    opcvk_test::ScopedThreadLocale locale("C.UTF-8");
    ASSERT_TRUE(locale.installed());
    EXPECT_THROW_MESSAGE(FileContentSource(path, memory), CouldNotOpenFile,
                         "Could not open file: /caf\xc3\xa9/\xe6\x97\xa5.txt");
  }
  {
    // Not every machine has a Latin-1 locale; where there is one, it is checked too.
    opcvk_test::ScopedThreadLocale locale("en_US.ISO-8859-1");
    if (locale.installed()) {
      EXPECT_THROW_MESSAGE(FileContentSource(path, memory), CouldNotOpenFile,
                           "Could not open file: /caf\xe9/?.txt");
    }
  }
  {
    opcvk_test::ScopedThreadLocale locale("C");
    ASSERT_TRUE(locale.installed());
    EXPECT_THROW_MESSAGE(FileContentSource(path, memory), CouldNotOpenFile,
                         "Could not open file: /caf?/?.txt");
  }
}

// Exit codes of the unprivileged child, each naming what went wrong.
enum ChildResult {
  kRefused = 0,
  kOpened = 1,
  kWrongCode = 2,
  kWrongMessage = 3,
  kReadableFailed = 4,
  kOtherException = 5,
};

TEST(FileContentSourceTest, UnreadableFileRaisesPermissionDenied) {
  opcvk_test::TempDir dir;
  std::string const secret = dir / "secret.txt";
  std::string const open = dir / "open.txt";
  writeFile(secret, "secret");
  writeFile(open, "open");
  ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
  ASSERT_EQ(::chmod(secret.c_str(), 0000), 0);
  ASSERT_EQ(::chmod(open.c_str(), 0644), 0);

  // As root the check would be void: the child drops to the user nobody first.
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    if (::geteuid() == 0 &&
        (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0)) {
      ::_exit(100);
    }
    int result = kOpened;
    try {
      FileContentSource readable(u16(open));
      if (drain(readable) != "open") ::_exit(kReadableFailed);
    } catch (...) {
      ::_exit(kReadableFailed);
    }
    try {
      FileContentSource source(u16(secret));
    } catch (CouldNotOpenFile const& e) {
      if (e.code() != systemCode(EACCES)) {
        result = kWrongCode;
      } else if (std::string(e.what()) != "Could not open file: " + secret) {
        result = kWrongMessage;
      } else {
        result = kRefused;
      }
    } catch (...) {
      result = kOtherException;
    }
    ::_exit(result);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), kRefused);
}

}  // namespace
}  // namespace vkservices
}  // namespace opc
