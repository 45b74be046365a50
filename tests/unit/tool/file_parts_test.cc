#include "file_parts.h"

#include <memory>
#include <string>
#include <vector>

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <gtest/gtest.h>

#include <opc/core/file_system_ops_selector.h>
#include <opc/core/output_stream.h>
#include <opc/core/perms.h>
#include <opc/core/string_conversions.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/model/uri.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;

// A package in memory with a manager over it; the package outlives the manager.
struct Files {
  Files()
      : package(Package::openBuffer({}, PackageAccess::Create)),
        manager(std::make_unique<FileSystemManager>(*package, opc::FileSystemOpsSelector())) {}

  FileSystemEntry add(std::u16string const& path, std::string const& content) {
    FileSystemEntry const entry =
        manager->createFile(path, opc::model::ContentType(u"text/plain"), opc::Perms::unknown,
                            boost::posix_time::ptime(boost::posix_time::not_a_date_time));
    opc::OutputStream& out = manager->getFileOutputStream(entry);
    out.write(reinterpret_cast<unsigned char const*>(content.data()), content.size());
    out.close();
    return entry;
  }

  std::unique_ptr<Package> package;
  std::unique_ptr<FileSystemManager> manager;
};

struct Expected {
  std::u16string path;
  std::uint64_t size;
  std::u16string part;
};

void expectParts(Files& files, std::vector<Expected> const& expected) {
  opcvk::FileParts parts(*files.package, *files.manager);
  for (Expected const& e : expected) {
    SCOPED_TRACE(opc::toUDEString(e.path));
    FileSystemEntry const entry = files.manager->getEntry(e.path);
    EXPECT_EQ(parts.size(entry), e.size);
    EXPECT_EQ(opc::toUDEString(parts.partName(entry)), opc::toUDEString(e.part));
  }
}

TEST(FilePartsTest, BaseNameFollowsTheNamingRule) {
  EXPECT_EQ(opcvk::basePartName(u"/a/b.txt"), u"/fsroot/a/b.txt");
  EXPECT_EQ(opcvk::basePartName(u"/my dir/a+b@c.txt"), u"/fsroot/my%20dir/a+b@c.txt");
  EXPECT_EQ(opcvk::basePartName(u"/\u00e9t\u00e9"), u"/fsroot/%C3%A9t%C3%A9");
}

// The base name is written by the tool itself, character by character: it must agree with the
// library's encoding on every kind of character, lone surrogates and "%" included.
TEST(FilePartsTest, BaseNameEncodesAsTheLibraryDoes) {
  std::vector<std::u16string> const paths = {
      u"/a/b.txt",
      u"/~x-y_z.0123456789/ABCxyz",
      u"/ !\"#$%&'()*,:;<=>?[\\]^`{|}",
      u"/+@/%41",
      std::u16string(u"/nul\0x", 6),
      u"/\u007f\u0080\u07ff\u0800\uffff",
      u"/\U0001F600 smile",
      u"/lone\xD800high",
      u"/lone\xDC00low",
      u"/end\xD83D",
      u"/twice\xD83D\xD83D\xDE00",
  };
  for (std::u16string const& path : paths) {
    SCOPED_TRACE(opc::toUDEString(path));
    EXPECT_EQ(opcvk::basePartName(path),
              u"/fsroot" + opc::model::URI::encodeComponent(path, "/+@"));
  }
}

TEST(FilePartsTest, KeyDropsNumberedInsertionsAndCase) {
  EXPECT_EQ(opcvk::partKey(u"/fsroot/A_1_2.TXT"), u"/fsroot/a.txt");
  EXPECT_EQ(opcvk::partKey(u"/fsroot/x_1.y/a"), u"/fsroot/x.y/a");
  EXPECT_EQ(opcvk::partKey(u"/fsroot/a_b"), u"/fsroot/a_b");
}

TEST(FilePartsTest, NumberedNamesAreRecognised) {
  EXPECT_TRUE(opcvk::isNumberedFrom(u"/fsroot/a.txt", u"/fsroot/a.txt"));
  EXPECT_TRUE(opcvk::isNumberedFrom(u"/fsroot/a_1_2.txt", u"/fsroot/a.txt"));
  EXPECT_TRUE(opcvk::isNumberedFrom(u"/fsroot/A_1.txt", u"/fsroot/a.txt"));
  EXPECT_TRUE(opcvk::isNumberedFrom(u"/fsroot/x_1.y/a", u"/fsroot/x.y/a"));
  EXPECT_TRUE(opcvk::isNumberedFrom(u"/fsroot/_rels_1/x.rels", u"/fsroot/_rels/x.rels"));
  EXPECT_FALSE(opcvk::isNumberedFrom(u"/fsroot/a_2.txt", u"/fsroot/a_1.txt"));
  EXPECT_FALSE(opcvk::isNumberedFrom(u"/fsroot/img_0002.jpg", u"/fsroot/img_0001.jpg"));
  EXPECT_FALSE(opcvk::isNumberedFrom(u"/fsroot/a.txt", u"/fsroot/a_1.txt"));
  EXPECT_FALSE(opcvk::isNumberedFrom(u"/fsroot/a_x.txt", u"/fsroot/a.txt"));
}

TEST(FilePartsTest, PlainFilesTakeTheirSizesAndNamesFromTheirParts) {
  Files files;
  files.add(u"/a.txt", "alpha\n");
  files.add(u"/d/b c.bin", "bc");
  files.add(u"/img_0001.jpg", "1");
  files.add(u"/img_0002.jpg", "22");
  expectParts(files, {{u"/a.txt", 6, u"/fsroot/a.txt"},
                      {u"/d/b c.bin", 2, u"/fsroot/d/b%20c.bin"},
                      {u"/img_0001.jpg", 1, u"/fsroot/img_0001.jpg"},
                      {u"/img_0002.jpg", 2, u"/fsroot/img_0002.jpg"}});
}

TEST(FilePartsTest, NamesThatDifferInCaseOnlyAreTold) {
  Files files;
  files.add(u"/Index.html", "12345");
  files.add(u"/index.html", "123");
  expectParts(files, {{u"/Index.html", 5, u"/fsroot/Index.html"},
                      {u"/index.html", 3, u"/fsroot/index_1.html"}});
}

// "/a.txt" was made while "/A.txt" held "/fsroot/a.txt", and "/a_1.txt" while "/a.txt" held
// "/fsroot/a_1.txt".  Once "/A.txt" is gone, the name of "/a_1.txt" is a part, but not its own.
TEST(FilePartsTest, AFileWhoseNameIsAnotherFilesPartIsNotTakenForIt) {
  Files files;
  FileSystemEntry const gone = files.add(u"/A.txt", "1");
  files.add(u"/a.txt", "22");
  files.add(u"/a_1.txt", "333");
  files.manager->deleteFile(gone);
  expectParts(files, {{u"/a.txt", 2, u"/fsroot/a_1.txt"}, {u"/a_1.txt", 3, u"/fsroot/a_1_1.txt"}});
}

TEST(FilePartsTest, DisplacedFilesOfEqualSizeKeepTheirSizesButNoName) {
  Files files;
  files.add(u"/X.txt", "same");
  files.add(u"/x.txt", "same");
  expectParts(files, {{u"/X.txt", 4, u""}, {u"/x.txt", 4, u""}});
}

TEST(FilePartsTest, AFileInARelationshipsFolderIsFoundOutsideIt) {
  Files files;
  files.add(u"/_rels/x.rels", "xyz");
  expectParts(files, {{u"/_rels/x.rels", 3, u"/fsroot/_rels_1/x.rels"}});
}

// A folder is looked at once for all its files: what it holds ("_rels" in another case, which
// makes a file's part a candidate for another name, names beyond ASCII) must tell each file
// as the file's whole path would.
TEST(FilePartsTest, FilesOfOneFolderAreEachToldWhateverTheFolderHolds) {
  Files files;
  files.add(u"/\u00e9t\u00e9/_RELS/a.txt", "1");
  files.add(u"/\u00e9t\u00e9/_RELS/b \u00e9.txt", "22");
  files.add(u"/\u00e9t\u00e9/c.txt", "333");
  files.add(u"/\u00e9t\u00e9/d_rels", "4444");
  files.add(u"/plain/e\u00e9.txt", "55555");
  files.add(u"/plain/f.txt", "666666");
  expectParts(files, {{u"/\u00e9t\u00e9/_RELS/a.txt", 1, u"/fsroot/%C3%A9t%C3%A9/_RELS/a.txt"},
                      {u"/\u00e9t\u00e9/_RELS/b \u00e9.txt", 2,
                       u"/fsroot/%C3%A9t%C3%A9/_RELS/b%20%C3%A9.txt"},
                      {u"/\u00e9t\u00e9/c.txt", 3, u"/fsroot/%C3%A9t%C3%A9/c.txt"},
                      {u"/\u00e9t\u00e9/d_rels", 4, u"/fsroot/%C3%A9t%C3%A9/d_rels"},
                      {u"/plain/e\u00e9.txt", 5, u"/fsroot/plain/e%C3%A9.txt"},
                      {u"/plain/f.txt", 6, u"/fsroot/plain/f.txt"}});
}

TEST(FilePartsTest, AFileBelowAFolderNamedLikeAPartIsFound) {
  Files files;
  // "/fsroot/A.b" stands where the folder "/fsroot/a.b" would go, so the folder segment of
  // the new part takes the number.
  FileSystemEntry const gone = files.add(u"/A.b", "1");
  files.add(u"/a.b/c", "cc");
  files.manager->deleteFile(gone);
  expectParts(files, {{u"/a.b/c", 2, u"/fsroot/a.b_1/c"}});
}

TEST(FilePartsTest, SizesOfASavedPackageComeFromItsArchive) {
  std::vector<unsigned char> saved;
  {
    Files files;
    files.add(u"/Index.html", "12345");
    files.add(u"/index.html", "123");
    files.add(u"/big.bin", std::string(100000, 'z'));
    files.package->save();
    saved = files.package->getBuffer();
  }
  Files reopened;
  reopened.manager.reset();
  reopened.package = Package::openBuffer(saved, PackageAccess::Read);
  reopened.manager =
      std::make_unique<FileSystemManager>(*reopened.package, opc::FileSystemOpsSelector());
  expectParts(reopened, {{u"/Index.html", 5, u"/fsroot/Index.html"},
                         {u"/index.html", 3, u"/fsroot/index_1.html"},
                         {u"/big.bin", 100000, u"/fsroot/big.bin"}});
}

TEST(FilePartsTest, EveryFileOfANameSharedButForCaseIsDisplaced) {
  Files files;
  files.add(u"/A.txt", "1");
  files.add(u"/a.txt", "22");
  files.add(u"/a.TXT", "333");
  files.add(u"/b.txt", "4444");
  expectParts(files, {{u"/A.txt", 1, u"/fsroot/A.txt"},
                      {u"/a.txt", 2, u"/fsroot/a_1.txt"},
                      {u"/a.TXT", 3, u"/fsroot/a_1_2.TXT"},
                      {u"/b.txt", 4, u"/fsroot/b.txt"}});
}

TEST(FilePartsTest, AFileMadeAfterwardsIsCountedFromItsBytes) {
  Files files;
  files.add(u"/a.txt", "1");
  opcvk::FileParts parts(*files.package, *files.manager);
  FileSystemEntry const later = files.add(u"/b.txt", "22");
  EXPECT_EQ(parts.size(later), 2u);
  EXPECT_EQ(opc::toUDEString(parts.partName(later)), "");
  EXPECT_EQ(parts.size(files.manager->getEntry(u"/a.txt")), 1u);
}

// A package of 10,000 files in 100 folders, saved and read back as the tool reads one: each
// file is told by its own part, names beyond ASCII included.
TEST(FilePartsTest, TenThousandFilesOfASavedPackageAreEachToldByTheirPart) {
  std::vector<unsigned char> saved;
  std::vector<Expected> expected;
  {
    Files files;
    for (int folder = 0; folder < 100; ++folder) {
      for (int file = 0; file < 100; ++file) {
        std::string const number = std::to_string(folder) + "/" + std::to_string(file);
        std::u16string const path =
            u"/\u00e9t\u00e9 " + std::u16string(number.begin(), number.end());
        std::string const content(static_cast<std::size_t>(file % 7), 'x');
        files.add(path, content);
        expected.push_back({path, content.size(), opcvk::basePartName(path)});
      }
    }
    files.package->save();
    saved = files.package->getBuffer();
  }
  EXPECT_EQ(expected[1].part, u"/fsroot/%C3%A9t%C3%A9%200/1");
  Files reopened;
  reopened.manager.reset();
  reopened.package = Package::openBuffer(saved, PackageAccess::Read);
  reopened.manager =
      std::make_unique<FileSystemManager>(*reopened.package, opc::FileSystemOpsSelector());
  expectParts(reopened, expected);
}

}  // namespace
