#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "support/expect_exception.h"
#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;
using opcvk_test::readAll;
using opcvk_test::writeAll;

StandardPartInfo const kInfo(CompressionType::DeflateContent, 0);

TEST(PartTest, NameTextIsKeptUnchanged) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  Part part = package->createPart(PartName(u"/fsroot/a"), ContentType(u"a/b"), kInfo);
  EXPECT_EQ(part.getName().toString(), u"/fsroot/a");
  EXPECT_EQ(PartName(u"/fsroot/a").toString(), u"/fsroot/a");
}

TEST(PartTest, TwoHandlesGiveOneContentAndStreamsOutliveTheHandles) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  opc::OutputStream* out = nullptr;
  {
    Part first = package->createPart(PartName(u"/a.txt"), ContentType(u"text/plain"), kInfo);
    out = &first.getOutputStream();
  }
  writeAll(*out, "shared");
  opc::InputStream* in = nullptr;
  {
    Part second = package->getPart(PartName(u"/a.txt"));
    Part copy = second;
    copy = package->getPart(PartName(u"/a.txt"));
    EXPECT_EQ(copy.getSize(), 6u);
    in = &copy.getInputStream();
  }
  EXPECT_EQ(readAll(*in), "shared");
}

TEST(PartTest, ContentIsCommittedWhenTheStreamIsClosed) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  Part part = package->createPart(PartName(u"/a.txt"), ContentType(u"text/plain"), kInfo);
  EXPECT_EQ(part.getSize(), 0u);
  opc::OutputStream& out = part.getOutputStream();
  out.write(reinterpret_cast<unsigned char const*>("abc"), 3);
  EXPECT_EQ(readAll(part.getInputStream()), "");
  out.close();
  EXPECT_EQ(readAll(part.getInputStream()), "abc");
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPackageState>(
      [&] { out.write(reinterpret_cast<unsigned char const*>("d"), 1); },
      "The stream of the part \"/a.txt\" was closed; ask the part for a new stream"));
}

TEST(PartTest, StreamLeftOpenIsCommittedBySave) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  Part part = package->createPart(PartName(u"/a.txt"), ContentType(u"text/plain"), kInfo);
  part.getOutputStream().write(reinterpret_cast<unsigned char const*>("open"), 4);
  package->save();
  auto reread = Package::openBuffer(package->getBuffer(), PackageAccess::Read);
  EXPECT_EQ(readAll(reread->getPart(PartName(u"/a.txt")).getInputStream()), "open");
}

TEST(PartTest, OpenInputStreamKeepsReadingTheContentItBeganWith) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  Part part = package->createPart(PartName(u"/a.txt"), ContentType(u"text/plain"), kInfo);
  writeAll(part.getOutputStream(), "old");
  opc::InputStream& in = part.getInputStream();
  writeAll(part.getOutputStream(), "new content");
  EXPECT_EQ(readAll(in), "old");
  EXPECT_EQ(readAll(part.getInputStream()), "new content");
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPackageState>(
      [&] { in.open(); },
      "The stream of the part \"/a.txt\" was closed; ask the part for a new stream"));
}

std::uint64_t nextValue(std::uint64_t& state) {
  state = state * 6364136223846793005ULL + 1442695040888963407ULL;
  return state >> 33;
}

TEST(PartTest, LargeContentGoesThroughTheSpoolAndSavesIntact) {
  opcvk_test::TempDir dir;
  PackageOptions options;
  options.spoolThreshold = std::uint64_t{1} << 20;
  std::uint64_t const total = std::uint64_t{64} << 20;
  std::u16string const path = opcvk_test::u16(dir / "big.zip");
  std::vector<unsigned char> block(100003);
  {
    auto package = Package::open(path, PackageAccess::Create, options);
    Part part = package->createPart(PartName(u"/big.bin"), ContentType(u"application/x-big"),
                                    StandardPartInfo(CompressionType::Stored, 0));
    opc::OutputStream& out = part.getOutputStream();
    std::uint64_t state = 7;
    for (std::uint64_t written = 0; written < total;) {
      std::size_t const n =
          static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), total - written));
      for (std::size_t i = 0; i < n; ++i) block[i] = static_cast<unsigned char>(nextValue(state));
      out.write(block.data(), n);
      written += n;
    }
    out.close();
    EXPECT_EQ(part.getSize(), total);
    package->save();
  }
  auto package = Package::open(path, PackageAccess::Read, options);
  Part part = package->getPart(PartName(u"/big.bin"));
  EXPECT_EQ(part.getSize(), total);
  opc::InputStream& in = part.getInputStream();
  in.open();
  std::uint64_t state = 7;
  std::uint64_t read = 0;
  bool same = true;
  while (std::size_t n = in.read(block.data(), block.size())) {
    for (std::size_t i = 0; i < n && same; ++i) {
      same = block[i] == static_cast<unsigned char>(nextValue(state));
    }
    read += n;
  }
  in.close();
  EXPECT_TRUE(same);
  EXPECT_EQ(read, total);
}

TEST(PartTest, HandleOfADeletedPartIsInvalid) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  Part part = package->createPart(PartName(u"/a.txt"), ContentType(u"text/plain"), kInfo);
  EXPECT_TRUE(part.isValid());
  EXPECT_EQ(&part.getPackage(), package.get());
  package->deletePart(PartName(u"/a.txt"));
  EXPECT_FALSE(part.isValid());
  EXPECT_TRUE(part.isOpen());
  std::string const message = "The part \"/a.txt\" no longer exists";
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPackageState>([&] { part.getName(); }, message));
  EXPECT_TRUE(
      opcvk_test::throwsWithMessage<InvalidPackageState>([&] { part.getInputStream(); }, message));
  EXPECT_TRUE(
      opcvk_test::throwsWithMessage<InvalidPackageState>([&] { part.getOutputStream(); }, message));
}

TEST(PartTest, HandleOutlivingItsPackageIsInvalid) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  Part part = package->createPart(PartName(u"/a.txt"), ContentType(u"text/plain"), kInfo);
  package.reset();
  EXPECT_FALSE(part.isValid());
  EXPECT_FALSE(part.isOpen());
  EXPECT_TRUE(opcvk_test::throwsWithMessage<InvalidPackageState>([&] { part.getContentType(); },
                                                                 "The package is closed"));
}

TEST(PartTest, RelationshipsFromAPart) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  Part part = package->createPart(PartName(u"/a/b.xml"), ContentType(u"a/b"), kInfo);
  EXPECT_EQ(part.getSourceURI(), URI(u"/a/b.xml"));
  Relationship const r = part.createInternalRelationship(u"http://t", URI(u"c.xml"), u"");
  EXPECT_EQ(r.getTargetPartName(), PartName(u"/a/c.xml"));
  EXPECT_EQ(package->getPart(PartName(u"/a/b.xml")).getRelationships().size(), 1u);
}

}  // namespace
}  // namespace model
}  // namespace opc
