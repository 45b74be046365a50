// Hostile packages against extraction: whatever the manifest holds and whatever lies in the
// destination already, nothing outside the destination is made, changed or removed, and the
// refusal names the entry.  Each test keeps a sentinel folder beside the destination and
// compares it, byte for byte, mode and time, before and after.
#include <algorithm>
#include <dirent.h>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <vector>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/exception.h>
#include <opc/core/file_system_ops_selector.h>
#include <opc/core/local_file_system_ops.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/model/part_name.h>
#include <opc/model/standard_part_info.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "filesystem/file_system_manifest_xml_names.h"
#include "filesystem/file_system_node.h"
#include "support/file_system_entry_access.h"
#include "support/in_memory_file_system_ops.h"
#include "support/temp_dir.h"
#include "unit/core/local_file_system_ops_test_util.h"
#include "unit/filesystem/file_system_manager_test_support.h"
#include "unit/filesystem/shared_extraction_support.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::CouldNotCreateFile;
using opc::vkservices::CouldNotCreateFolder;
using opc::vkservices::CouldNotCreateLink;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::FileSystemNode;
using opc::vkservices::ReplaceMode;
using opc::vkservices::RestoreMode;
using opc::vkservices::TransformMode;
using opc::vkservices::detail::FileSystemEntryAccess;
using opcvk_test::InMemoryFileSystemOps;
using opcvk_test::modeOf;
using opcvk_test::namesIn;
using opcvk_test::noTime;
using opcvk_test::pathExists;
using opcvk_test::perms;
using opcvk_test::readFile;
using opcvk_test::readLink;
using opcvk_test::TempDir;
using opcvk_test::textType;
using opcvk_test::u16;
using opcvk_test::unknownPerms;
using opcvk_test::writeFile;
using Bytes = std::vector<unsigned char>;
using errc = boost::system::errc::errc_t;

constexpr char kNamespace[] = "http://schemas.opcvkservices.org/package/2013/filesystemManifest";
constexpr char kPayloadPart[] = "/fsroot/payload";
constexpr char kPayload[] = "attacker's bytes";

std::string leaves() { return "the path leaves the destination"; }
std::string dotted() { return "the path has an empty or \".\" component"; }
std::string linkOnTheWay(std::string const& realPath) {
  return realPath + " is a symbolic link inside the destination";
}

// A manifest entry as XML.
std::string entry(std::string const& name, std::string const& type,
                  std::string const& content = "") {
  std::string const stored = type == "File" && content.empty() ? kPayloadPart : content;
  return "<fileEntry name=\"" + name + "\" content=\"" + stored + "\" type=\"" + type + "\"/>";
}

// A package written part by part, not through FileSystemManager: a content part and a
// manifest that says whatever the test wants, saved and opened again for reading.
Bytes craftPackage(std::string const& entries) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  opc::interfaces::StandardPartInfo const info(opc::interfaces::CompressionType::DeflateMetadata,
                                               0);
  opc::model::Part payload =
      package->createPart(opc::model::PartName(u16(kPayloadPart)), textType(), info);
  opc::OutputStream& payloadStream = payload.getOutputStream();
  payloadStream.write(reinterpret_cast<unsigned char const*>(kPayload), sizeof kPayload - 1);
  payloadStream.close();
  std::string const xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n"
      "<fileEntries xmlns=\"" +
      std::string(kNamespace) +
      "\" createdByPlatform=\"linux-x86-64\" createdByEncoding=\"UTF-8\" "
      "version=\"2.0\">\n" +
      entries + "\n</fileEntries>\n";
  opc::model::Part manifest = package->createPart(
      opc::model::PartName(u"/metadata/filesystemManifest.xml"),
      opc::model::ContentType(u"application/vnd.veltrance.package.filesystemManifest+xml"), info);
  opc::OutputStream& manifestStream = manifest.getOutputStream();
  manifestStream.write(reinterpret_cast<unsigned char const*>(xml.data()), xml.size());
  manifestStream.close();
  package->createInternalRelationship(opc::vkservices::detail::kManifestRelationshipType.str(),
                                      manifest.getName().getURI(), u"");
  package->save();
  return package->getBuffer();
}

// What lstat and the content say of one path.
struct Seen {
  mode_t mode = 0;
  long seconds = 0;
  long nanoseconds = 0;
  std::string content;  // bytes of a file, target of a link

  bool operator==(Seen const& other) const {
    return mode == other.mode && seconds == other.seconds && nanoseconds == other.nanoseconds &&
           content == other.content;
  }
};

void snapshot(std::string const& path, std::map<std::string, Seen>& out) {
  struct stat status;
  if (::lstat(path.c_str(), &status) != 0) return;
  Seen& seen = out[path];
  seen.mode = status.st_mode;
  seen.seconds = status.st_mtim.tv_sec;
  seen.nanoseconds = status.st_mtim.tv_nsec;
  if (S_ISREG(status.st_mode)) seen.content = readFile(path);
  if (S_ISLNK(status.st_mode)) seen.content = readLink(path);
  if (!S_ISDIR(status.st_mode)) return;
  DIR* folder = ::opendir(path.c_str());
  if (folder == nullptr) return;
  std::vector<std::string> names;
  while (dirent* item = ::readdir(folder)) {
    std::string const name = item->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(folder);
  for (std::string const& name : names) snapshot(path + "/" + name, out);
}

void setOldTime(std::string const& path) {
  struct timeval const times[2] = {{1000000000, 0}, {1000000000, 0}};
  ASSERT_EQ(::lutimes(path.c_str(), times), 0) << path;
}

// The temporary folder holds "outside", the sentinel, and "box", which holds the destination
// "dest" (not made yet).  Paths in the destination are checked against the real disk.
class ExtractionConfinementTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::mkdir(outside().c_str(), 0755), 0);
    ASSERT_EQ(::mkdir((outside() + "/sub").c_str(), 0755), 0);
    writeFile(outside() + "/secret", "s3cret");
    ASSERT_EQ(::chmod((outside() + "/secret").c_str(), 0640), 0);
    writeFile(outside() + "/sub/deep", "deep");
    ASSERT_EQ(::symlink("secret", (outside() + "/alias").c_str()), 0);
    for (char const* name : {"/secret", "/sub/deep", "/alias", "/sub", ""}) {
      setOldTime(outside() + name);
    }
    ASSERT_EQ(::mkdir(box().c_str(), 0755), 0);
    snapshot(outside(), before_);
  }

  // Nothing outside the destination was made, changed or removed.
  void expectOutsideUntouched() {
    std::map<std::string, Seen> after;
    snapshot(outside(), after);
    EXPECT_EQ(after.size(), before_.size());
    for (auto const& [path, seen] : before_) {
      auto const found = after.find(path);
      ASSERT_NE(found, after.end()) << path << " was removed";
      EXPECT_TRUE(found->second == seen) << path << " was changed";
    }
    EXPECT_EQ(namesIn(temp_.path()), (std::set<std::string>{"box", "outside"}));
    std::set<std::string> const inBox = namesIn(box());
    EXPECT_TRUE(inBox.empty() || inBox == std::set<std::string>{"dest"});
  }

  std::string outside() const { return temp_ / "outside"; }
  std::string box() const { return temp_ / "box"; }
  std::string dest() const { return box() + "/dest"; }
  std::u16string dest16() const { return u16(dest()); }
  std::string in(std::string const& rest) const { return dest() + "/" + rest; }

  // Opens a crafted package; a manager over it that uses the local disk.
  FileSystemManager& open(std::string const& entries) {
    manager_.reset();
    package_ = Package::openBuffer(craftPackage(entries), PackageAccess::Read);
    manager_ = std::make_unique<FileSystemManager>(*package_, opc::FileSystemOpsSelector());
    return *manager_;
  }

  // A package made through the API.
  FileSystemManager& fresh() {
    manager_.reset();
    package_ = Package::openBuffer({}, PackageAccess::Create);
    manager_ = std::make_unique<FileSystemManager>(*package_, opc::FileSystemOpsSelector());
    return *manager_;
  }

  FileSystemEntry addFile(std::u16string const& path, std::string const& content,
                          opc::Perms::Perms_tag permissions = unknownPerms()) {
    FileSystemEntry const e = manager_->createFile(path, textType(), permissions, noTime());
    opc::OutputStream& output = manager_->getFileOutputStream(e);
    output.write(reinterpret_cast<unsigned char const*>(content.data()), content.size());
    output.close();
    return e;
  }

  void extractAll(RestoreMode restore = RestoreMode::RestoreNothing,
                  ReplaceMode replace = ReplaceMode::ReplaceNever) {
    if (sharedThreads_ > 0) {
      opcvk_test::extractShared(*manager_, dest16(), sharedThreads_, restore, replace);
      return;
    }
    manager_->extractAll(dest16(), restore, TransformMode::NoTransforms, replace);
  }

  // extractAll must throw exactly `ErrorClass` with "Refused to extract <entry>: <reason>"
  // and a code of `condition`.
  template <typename ErrorClass>
  void expectRefusal(std::string const& entryPath, std::string const& reason, errc condition,
                     RestoreMode restore = RestoreMode::RestoreNothing,
                     ReplaceMode replace = ReplaceMode::ReplaceNever) {
    try {
      extractAll(restore, replace);
      ADD_FAILURE() << "no error for " << entryPath;
    } catch (ErrorClass const& e) {
      EXPECT_EQ(typeid(e), typeid(ErrorClass));
      EXPECT_EQ(std::string(e.what()), "Refused to extract " + entryPath + ": " + reason);
      EXPECT_EQ(e.code(), boost::system::errc::make_error_condition(condition));
    } catch (std::exception const& e) {
      ADD_FAILURE() << "threw " << typeid(e).name() << ": " << e.what();
    }
  }

  TempDir temp_;
  // Extraction through a SharedExtraction on this many threads, or extractAll for 0.
  unsigned sharedThreads_ = 0;
  std::map<std::string, Seen> before_;
  std::unique_ptr<Package> package_;
  std::unique_ptr<FileSystemManager> manager_;
};

// --- Names that climb or wander ---

TEST_F(ExtractionConfinementTest, CraftedManifestLoadsAsExpected) {
  // The crafted package is read as a real one: the attack reaches extraction.
  FileSystemManager& manager = open(entry("/../outside/secret", "File"));
  EXPECT_TRUE(manager.hasEntry(u"/../outside/secret"));
  EXPECT_EQ(manager.getAllLeafs().size(), 1u);
}

TEST_F(ExtractionConfinementTest, FileWithDotDotSegmentsIsRefused) {
  for (std::string const name :
       {"/../outside/secret", "/a/../../outside/secret", "/a/b/../../../outside/secret",
        "/../../../../../../../../tmp/escape"}) {
    open(entry(name, "File"));
    expectRefusal<CouldNotCreateFile>(name, leaves(), boost::system::errc::invalid_argument,
                                      RestoreMode::RestoreTimeAndPermissions,
                                      ReplaceMode::ReplaceAlways);
    EXPECT_FALSE(pathExists(in("a"))) << name;
  }
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, FolderAndLinkWithDotDotSegmentsAreRefusedAsTheirKind) {
  open(entry("/../outside/made", "Folder"));
  expectRefusal<CouldNotCreateFolder>("/../outside/made", leaves(),
                                      boost::system::errc::invalid_argument);
  open(entry("/../outside/planted", "SymLink", "/etc/passwd"));
  expectRefusal<CouldNotCreateLink>("/../outside/planted", leaves(),
                                    boost::system::errc::invalid_argument);
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, DotAndEmptySegmentsAreRefused) {
  for (std::string const name : {"/./x", "/a/./b", "/a//b", "/a/."}) {
    open(entry(name, "File"));
    expectRefusal<CouldNotCreateFile>(name, dotted(), boost::system::errc::invalid_argument);
  }
  open(entry("/a/..", "Folder"));
  expectRefusal<CouldNotCreateFolder>("/a/..", leaves(), boost::system::errc::invalid_argument);
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, BackslashDotDotIsRefusedAndOtherBackslashesAreNames) {
  open(entry("/..\\outside\\secret", "File"));
  expectRefusal<CouldNotCreateFile>("/..\\outside\\secret", leaves(),
                                    boost::system::errc::invalid_argument);
  open(entry("/a\\..\\..\\x", "File"));
  expectRefusal<CouldNotCreateFile>("/a\\..\\..\\x", leaves(),
                                    boost::system::errc::invalid_argument);
  // On this disk a backslash is part of a name.
  open(entry("/win\\style.txt", "File"));
  extractAll();
  EXPECT_EQ(readFile(in("win\\style.txt")), kPayload);
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, AbsoluteLinkTargetThatClimbsIsRefused) {
  open(entry("/l", "SymLink", "/../../outside/secret"));
  expectRefusal<CouldNotCreateLink>("/l", "the link target leaves the destination",
                                    boost::system::errc::invalid_argument);
  EXPECT_FALSE(pathExists(in("l")));
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, RelativeLinkTargetThatPointsOutIsMadeButNotWrittenThrough) {
  // As archivers do, the link is made; what follows it in a package is refused.
  open(entry("/out", "SymLink", "../../outside"));
  extractAll();
  EXPECT_EQ(readLink(in("out")), "../../outside");
  open(entry("/out/secret", "File"));
  expectRefusal<CouldNotCreateFile>(
      "/out/secret", linkOnTheWay(in("out")), boost::system::errc::too_many_symbolic_link_levels,
      RestoreMode::RestoreTimeAndPermissions, ReplaceMode::ReplaceAlways);
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, LinkWithEntriesBelowItInOneManifestIsMadeAFolder) {
  // A link with children is no leaf: only the entries below it are extracted, and their
  // parent becomes a real folder.
  open(entry("/x", "SymLink", "../../outside") + entry("/x/secret", "File"));
  extractAll();
  EXPECT_TRUE(S_ISDIR(modeOf(in("x"))));
  EXPECT_EQ(readFile(in("x/secret")), kPayload);
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, NamesThatDifferOnlyByCaseStayApartOnACaseSensitiveDisk) {
  open(entry("/X", "SymLink", "../../outside") + entry("/x/secret", "File"));
  extractAll();
  EXPECT_EQ(readLink(in("X")), "../../outside");
  EXPECT_EQ(readFile(in("x/secret")), kPayload);
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, VeryLongNamesFailCleanly) {
  std::string const longName = "/" + std::string(300, 'n');
  open(entry(longName, "File"));
  EXPECT_THROW(extractAll(), CouldNotCreateFile);
  std::string deep;
  for (int i = 0; i < 900; ++i) deep += "/abcd";
  open(entry(deep + "/f", "File"));
  EXPECT_THROW(extractAll(), opc::Exception);
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, ManifestsThatTheLoaderRefusesExtractNothing) {
  // A relative name, and the same name twice: the load fails, before the destination root
  // is even made.
  open(entry("../outside/secret", "File"));
  EXPECT_THROW(extractAll(), opc::Exception);
  open(entry("/a", "File") + entry("/a", "SymLink", "../../outside"));
  EXPECT_THROW(extractAll(), opc::Exception);
  open(entry("/a", "Device"));
  EXPECT_THROW(extractAll(), opc::model::InvalidPartContent);
  EXPECT_FALSE(pathExists(dest()));
  expectOutsideUntouched();
}

// --- Links already in the destination ---

TEST_F(ExtractionConfinementTest, LinkPlantedOnTheWayIsRefused) {
  ASSERT_EQ(::mkdir(dest().c_str(), 0755), 0);
  ASSERT_EQ(::symlink("../../outside", in("x").c_str()), 0);
  ASSERT_EQ(::mkdir(in("real").c_str(), 0755), 0);
  ASSERT_EQ(::symlink("../../../outside/sub", in("real/deeper").c_str()), 0);
  fresh();
  addFile(u"/x/secret", "overwritten?");
  expectRefusal<CouldNotCreateFile>("/x/secret", linkOnTheWay(in("x")),
                                    boost::system::errc::too_many_symbolic_link_levels);
  fresh();
  addFile(u"/real/deeper/new/file", "made?");
  expectRefusal<CouldNotCreateFile>("/real/deeper/new/file", linkOnTheWay(in("real/deeper")),
                                    boost::system::errc::too_many_symbolic_link_levels);
  fresh();
  manager_->createFolder(u"/x/made");
  expectRefusal<CouldNotCreateFolder>("/x/made", linkOnTheWay(in("x")),
                                      boost::system::errc::too_many_symbolic_link_levels);
  fresh();
  manager_->createLink(u"/x/planted", u"anything");
  expectRefusal<CouldNotCreateLink>("/x/planted", linkOnTheWay(in("x")),
                                    boost::system::errc::too_many_symbolic_link_levels);
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, SharedExtractionRefusesAsExtractAll) {
  sharedThreads_ = 3;
  open(entry("/a/../../outside/secret", "File") + entry("/b", "File"));
  expectRefusal<CouldNotCreateFile>(
      "/a/../../outside/secret", leaves(), boost::system::errc::invalid_argument,
      RestoreMode::RestoreTimeAndPermissions, ReplaceMode::ReplaceAlways);
  open(entry("/l", "SymLink", "/../../outside/secret"));
  expectRefusal<CouldNotCreateLink>("/l", "the link target leaves the destination",
                                    boost::system::errc::invalid_argument);
  EXPECT_FALSE(pathExists(in("l")));
  ASSERT_EQ(::symlink("../../outside", in("x").c_str()), 0);
  fresh();
  addFile(u"/w", "made");
  addFile(u"/x/secret", "overwritten?");
  manager_->createLink(u"/x/z-planted", u"anything");
  expectRefusal<CouldNotCreateFile>("/x/secret", linkOnTheWay(in("x")),
                                    boost::system::errc::too_many_symbolic_link_levels);
  EXPECT_EQ(readFile(in("w")), "made");
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, FileWhosePathIsAPlantedLinkIsRefusedInEveryMode) {
  ASSERT_EQ(::mkdir(dest().c_str(), 0755), 0);
  ASSERT_EQ(::symlink("../../outside/secret", in("f").c_str()), 0);
  ASSERT_EQ(::symlink("../../outside/nothing-yet", in("dangling").c_str()), 0);
  for (RestoreMode restore :
       {RestoreMode::RestoreNothing, RestoreMode::RestoreTimeAndPermissions}) {
    for (ReplaceMode replace :
         {ReplaceMode::ReplaceNever, ReplaceMode::ReplaceExisting, ReplaceMode::ReplaceAlways}) {
      fresh();
      addFile(u"/f", "overwritten?", perms(0777));
      expectRefusal<CouldNotCreateFile>("/f", linkOnTheWay(in("f")),
                                        boost::system::errc::too_many_symbolic_link_levels, restore,
                                        replace);
      fresh();
      addFile(u"/dangling", "made?", perms(0777));
      expectRefusal<CouldNotCreateFile>("/dangling", linkOnTheWay(in("dangling")),
                                        boost::system::errc::too_many_symbolic_link_levels, restore,
                                        replace);
    }
  }
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, FolderEntryNamedLikeAnExistingLinkChangesNothing) {
  ASSERT_EQ(::mkdir(dest().c_str(), 0755), 0);
  ASSERT_EQ(::symlink("../../outside", in("d").c_str()), 0);
  fresh();
  manager_->createFolder(u"/d");
  // Whatever is there counts as the folder: no error, and nothing made through it.
  extractAll();
  EXPECT_EQ(readLink(in("d")), "../../outside");
  fresh();
  manager_->createFolder(u"/d/sub/inner");
  expectRefusal<CouldNotCreateFolder>("/d/sub/inner", linkOnTheWay(in("d")),
                                      boost::system::errc::too_many_symbolic_link_levels);
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, HardLinkPlantedInTheDestinationIsNotWrittenThrough) {
  ASSERT_EQ(::mkdir(dest().c_str(), 0755), 0);
  ASSERT_EQ(::link((outside() + "/secret").c_str(), in("h").c_str()), 0);
  // The shared inode's link count is part of its status: take the snapshot again.
  before_.clear();
  snapshot(outside(), before_);
  fresh();
  addFile(u"/h", "overwritten?", perms(0777));
  expectRefusal<CouldNotCreateFile>(
      "/h", in("h") + " has other hard links, which may lie outside the destination",
      boost::system::errc::too_many_links, RestoreMode::RestoreTimeAndPermissions,
      ReplaceMode::ReplaceAlways);
  expectOutsideUntouched();
}

// --- Links made by an earlier extraction ---

TEST_F(ExtractionConfinementTest, LinkFromAFirstExtractionIsNotFollowedByASecond) {
  fresh();
  manager_->createLink(u"/x", u"../../outside");
  manager_->createLink(u"/root", u"/");
  extractAll();
  EXPECT_EQ(readLink(in("root")), dest());
  fresh();
  addFile(u"/x/secret", "overwritten?", perms(0777));
  expectRefusal<CouldNotCreateFile>(
      "/x/secret", linkOnTheWay(in("x")), boost::system::errc::too_many_symbolic_link_levels,
      RestoreMode::RestoreTimeAndPermissions, ReplaceMode::ReplaceAlways);
  fresh();
  addFile(u"/x/sub/deep", "overwritten?");
  expectRefusal<CouldNotCreateFile>("/x/sub/deep", linkOnTheWay(in("x")),
                                    boost::system::errc::too_many_symbolic_link_levels);
  // Even a link that leads back inside is not passed through.
  fresh();
  addFile(u"/root/f", "through the root link?");
  expectRefusal<CouldNotCreateFile>("/root/f", linkOnTheWay(in("root")),
                                    boost::system::errc::too_many_symbolic_link_levels);
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, LinkChainsAndLinksToDotAndDotDotAreRefused) {
  fresh();
  manager_->createLink(u"/a", u"b");
  manager_->createLink(u"/b", u"c");
  manager_->createLink(u"/c", u"../../outside");
  manager_->createLink(u"/dot", u".");
  manager_->createLink(u"/up", u"..");
  manager_->createLink(u"/upup", u"../..");
  extractAll();
  for (std::string const link : {"a", "dot", "up", "upup"}) {
    fresh();
    addFile(u16("/" + link + "/outside/secret"), "overwritten?");
    expectRefusal<CouldNotCreateFile>("/" + link + "/outside/secret", linkOnTheWay(in(link)),
                                      boost::system::errc::too_many_symbolic_link_levels);
  }
  expectOutsideUntouched();
}

TEST_F(ExtractionConfinementTest, CraftedEntriesGivenToExtractEntryAreRefused) {
  fresh();
  FileSystemEntry const climbing = FileSystemEntryAccess::make(FileSystemNode::makeFileNode(
      u"/../outside/secret", u16(kPayloadPart), perms(0777), noTime()));
  try {
    manager_->extractEntry(dest16(), climbing, RestoreMode::RestoreTimeAndPermissions,
                           TransformMode::NoTransforms, ReplaceMode::ReplaceAlways);
    ADD_FAILURE() << "no error";
  } catch (CouldNotCreateFile const& e) {
    EXPECT_EQ(std::string(e.what()), "Refused to extract /../outside/secret: " + leaves());
  }
  FileSystemEntry const withNul = FileSystemEntryAccess::make(
      FileSystemNode::makeLinkNode(std::u16string(u"/a\0b", 4), u"t", unknownPerms(), noTime()));
  try {
    manager_->extractEntry(dest16(), withNul, RestoreMode::RestoreNothing,
                           TransformMode::NoTransforms, ReplaceMode::ReplaceNever);
    ADD_FAILURE() << "no error";
  } catch (CouldNotCreateLink const& e) {
    EXPECT_EQ(std::string(e.what()), "Refused to extract /a?b: the path holds a NUL character");
    EXPECT_EQ(e.code(), boost::system::errc::invalid_argument);
  }
  expectOutsideUntouched();
}

// --- A disk that does not tell case apart ---

// The in-memory file system with every name folded to lower case, as a case-insensitive disk
// sees it (ASCII is enough for the test).
class CaseFoldingFileSystemOps : public InMemoryFileSystemOps {
 public:
  static std::u16string fold(std::u16string path) {
    for (char16_t& c : path) {
      if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
    }
    return path;
  }

 protected:
  bool doExists(std::u16string const& path, std::string& text,
                boost::system::error_code& code) const override {
    return InMemoryFileSystemOps::doExists(fold(path), text, code);
  }
  bool doIsFile(std::u16string const& path, std::string& text,
                boost::system::error_code& code) const override {
    return InMemoryFileSystemOps::doIsFile(fold(path), text, code);
  }
  bool doIsFolder(std::u16string const& path, std::string& text,
                  boost::system::error_code& code) const override {
    return InMemoryFileSystemOps::doIsFolder(fold(path), text, code);
  }
  bool doIsSymlink(std::u16string const& path, std::string& text,
                   boost::system::error_code& code) const override {
    return InMemoryFileSystemOps::doIsSymlink(fold(path), text, code);
  }
  void doSetPermissions(std::u16string const& path, opc::Perms::Perms_tag permissions,
                        std::string& text, boost::system::error_code& code) const override {
    InMemoryFileSystemOps::doSetPermissions(fold(path), permissions, text, code);
  }
  void doSetLastModifiedTime(std::u16string const& path, boost::posix_time::ptime time,
                             std::string& text, boost::system::error_code& code) const override {
    InMemoryFileSystemOps::doSetLastModifiedTime(fold(path), time, text, code);
  }
  std::shared_ptr<std::ostream> doCreateOutputStream(
      std::u16string const& path, int mode, std::string& text,
      boost::system::error_code& code) const override {
    return InMemoryFileSystemOps::doCreateOutputStream(fold(path), mode, text, code);
  }
  void doCreateFolder(std::u16string const& path, std::string& text,
                      boost::system::error_code& code) const override {
    InMemoryFileSystemOps::doCreateFolder(fold(path), text, code);
  }
  void doCreateFolders(std::u16string const& path, std::string& text,
                       boost::system::error_code& code) const override {
    InMemoryFileSystemOps::doCreateFolders(fold(path), text, code);
  }
  void doCreateSymlink(std::u16string const& target, std::u16string const& linkPath,
                       std::string& text, boost::system::error_code& code) const override {
    InMemoryFileSystemOps::doCreateSymlink(target, fold(linkPath), text, code);
  }
};

TEST(ExtractionConfinementCaseTest, NamesThatACaseInsensitiveDiskTakesAsOneAreRefused) {
  auto disk = std::make_shared<CaseFoldingFileSystemOps>();
  disk->addFile(u"/mem/outside/secret", "s3cret", perms(0640));
  std::vector<std::u16string> const before = disk->listAll();
  opc::FileSystemOpsSelector selector;
  selector.setForPrefix(u"/mem", disk);
  auto package = Package::openBuffer({}, PackageAccess::Create);
  FileSystemManager manager(*package, selector);
  manager.createLink(u"/A", u"../outside");
  FileSystemEntry const file = manager.createFile(u"/a/secret", textType(), perms(0777), noTime());
  opc::OutputStream& output = manager.getFileOutputStream(file);
  output.write(reinterpret_cast<unsigned char const*>("x"), 1);
  output.close();
  // "/A" sorts before "/a": the link is made first, and "/a" is that link on this disk.
  try {
    manager.extractAll(u"/mem/dest", RestoreMode::RestoreTimeAndPermissions,
                       TransformMode::NoTransforms, ReplaceMode::ReplaceAlways);
    ADD_FAILURE() << "no error";
  } catch (CouldNotCreateFile const& e) {
    EXPECT_EQ(std::string(e.what()),
              "Refused to extract /a/secret: " + linkOnTheWay("/mem/dest/a"));
  }
  EXPECT_EQ(disk->readContent(u"/mem/outside/secret"), "s3cret");
  boost::system::error_code code;
  EXPECT_EQ(disk->getPermissions(u"/mem/outside/secret", code), perms(0640));
  std::vector<std::u16string> after = disk->listAll();
  after.erase(std::remove_if(after.begin(), after.end(),
                             [](std::u16string const& p) { return p.rfind(u"/mem/dest", 0) == 0; }),
              after.end());
  EXPECT_EQ(after, before);
}

}  // namespace
