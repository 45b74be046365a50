// The package model loads its writer over libzip only when an archive is written through it,
// writes through it the bytes it always wrote, and tells a failure to load it.  The cases run
// in the order written when the program runs them together: those that must not load it come
// first.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/process_maps.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"
#include "zip/zip_archive.h"

namespace opc {
namespace model {
namespace {

using detail::ZipContentReader;
using detail::ZipWriter;
using opcvk_test::isMapped;
using opcvk_test::rerunWithLibraryCopies;

bool zipWriterLoaded() { return isMapped("libopcmodel_zip") || isMapped("/libzip.so"); }

ZipContentReader readerOf(std::string const& text) {
  auto const position = std::make_shared<std::size_t>(0);
  return [text, position](unsigned char* buffer, std::size_t size) {
    std::size_t const count = std::min(size, text.size() - *position);
    std::memcpy(buffer, text.data() + *position, count);
    *position += count;
    return count;
  };
}

std::string hexOf(std::vector<unsigned char> const& bytes) {
  static char const digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char byte : bytes) {
    out += digits[byte >> 4];
    out += digits[byte & 0x0F];
  }
  return out;
}

// The child of LoadFailureNamesTheLibraryAndTheLoadersReason, started as this program with
// the variable set to a folder, runs before any test: where the writer cannot be found, it
// asks for a writer into memory and one into a file of that folder, writes each failure's
// message as a line of messages.txt there, and ends.
constexpr char kChildVariable[] = "OPCVK_TEST_ZIP_LOAD_FAILURE_FOLDER";

int runAsChild() {
  char const* folder = std::getenv(kChildVariable);
  if (folder == nullptr) return 0;
  std::ofstream text(std::string(folder) + "/messages.txt");
  std::vector<unsigned char> out;
  for (bool const toMemory : {true, false}) {
    try {
      if (toMemory) {
        ZipWriter::toBuffer(out, 1);
      } else {
        ZipWriter::toFile(std::string(folder) + "/new.zip", 1);
      }
      text << "no failure\n";
    } catch (CouldNotSavePackage const& e) {
      text << e.what() << "\n";
    }
  }
  text.close();
  std::_Exit(0);
}

int const kRunAsChild = runAsChild();

TEST(ZipWriterLoadingTest, ReadingAPackageLoadsNoZipWriter) {
  ASSERT_FALSE(zipWriterLoaded());
  auto const bytes = opcvk_test::makeZip(
      {{"[Content_Types].xml", opcvk_test::minimalTypes()}, {"docs/a.txt", "alpha"}});
  auto const package = Package::openBuffer(bytes, PackageAccess::Read);
  EXPECT_EQ("alpha",
            opcvk_test::readAll(package->getPart(PartName(u"/docs/a.txt")).getInputStream()));
  EXPECT_FALSE(zipWriterLoaded());
}

TEST(ZipWriterLoadingTest, LoadFailureNamesTheLibraryAndTheLoadersReason) {
  // libopcmodel copied alone (with the library it links) into a folder that the loader
  // searches first: the writer is neither beside it nor anywhere the loader looks.
  opcvk_test::TempDir folder;
  std::filesystem::path const where(folder.path());
  ASSERT_EQ("", rerunWithLibraryCopies(where.string(), {"libopcmodel.so.", "libopccore.so."},
                                       kChildVariable, where.string()));
  std::ifstream text(where / "messages.txt");
  std::stringstream messages;
  messages << text.rdbuf();
  std::string const reason =
      "the ZIP writer library libopcmodel_zip.so.1 could not be loaded: libopcmodel_zip.so.1: "
      "cannot open shared object file: No such file or directory\n";
  EXPECT_EQ("Could not save package to memory: " + reason + "Could not save package \"" +
                where.string() + "/new.zip\": " + reason,
            messages.str());
  // Nothing was begun in the folder: neither the archive nor a temporary file.
  std::vector<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(where)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ((std::vector<std::string>{"libopccore.so.1", "libopcmodel.so.1", "messages.txt"}),
            names);
  EXPECT_FALSE(zipWriterLoaded());
}

TEST(ZipWriterLoadingTest, WritingLoadsItAndWritesTheBytesItAlwaysWrote) {
  ASSERT_FALSE(zipWriterLoaded());
  std::vector<unsigned char> out;
  auto writer = ZipWriter::toBuffer(out, 1);
  EXPECT_TRUE(isMapped("libopcmodel_zip"));
  EXPECT_TRUE(isMapped("/libzip.so"));
  // A reproducible archive of a stored item, a deflated one, one that deflate does not shrink
  // and an empty one with a name that is not ASCII.
  writer->makeReproducible(1700000000);
  std::string xml;
  for (int i = 0; i < 40; ++i) xml += "<item n=\"" + std::to_string(i) + "\">value</item>\n";
  writer->add("a.txt", interfaces::CompressionType::Stored, 5, readerOf("hello"));
  writer->add("b/c.xml", interfaces::CompressionType::DeflateMetadata, xml.size(), readerOf(xml));
  writer->add("d.bin", interfaces::CompressionType::DeflateContent, 3, readerOf("xyz"));
  writer->add("\xc3\xa9.txt", interfaces::CompressionType::DeflateContent, 0, readerOf(""));
  writer->commit();
  // As the writer wrote them when libopcmodel linked libzip.
  EXPECT_EQ(
      "504b03040a0000000000aab16e5786a61036050000000500000005000000612e74787468656c6c6f504b0304"
      "140000000800aab16e57327706d5780000000604000007000000622f632e786d6c75d3bb0dc2401045d19c2a"
      "901bc0de3fd2e25e0836b084890cf51391583af189de1d4ddf8eb15fdf8f699ed6eff3f519fdb61d635f2ffd"
      "0f8b2008a22009b2a008aaa009ee1ce8e90b255022255132a5502aa551d820cc14df3f5022255132a5502aa5"
      "51d820ce9485e227889444c99442a994463937f801504b03040a0000000000aab16e5767ba8eeb0300000003"
      "00000005000000642e62696e78797a504b03040a0000080000aab16e57000000000000000000000000060000"
      "00c3a92e747874504b01023f030a0000000000aab16e5786a610360500000005000000050000000000000000"
      "000000b68100000000612e747874504b01023f03140000000800aab16e57327706d578000000060400000700"
      "00000000000000000000b68128000000622f632e786d6c504b01023f030a0000000000aab16e5767ba8eeb03"
      "00000003000000050000000000000000000000b681c5000000642e62696e504b01023f030a0000080000aab1"
      "6e57000000000000000000000000060000000000000000000000b681eb000000c3a92e747874504b05060000"
      "000004000400cf0000000f0100000000",
      hexOf(out));
}

}  // namespace
}  // namespace model
}  // namespace opc
