// Metadata (compression type 1) and content (type 2) deflate differently at every size, on
// the road of a package made in a file and on that of a package in memory, and every part
// reads back its bytes.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/package.h>

#include "support/temp_dir.h"
#include "unit/model/package_test_support.h"
#include "zip/zip_archive.h"

namespace opc {
namespace model {
namespace {

using interfaces::CompressionType;
using interfaces::StandardPartInfo;

// XML-like text that deflates well, of `size` bytes.
std::string xmlText(std::size_t size) {
  std::string out;
  std::uint64_t state = 7;
  while (out.size() < size) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    out += "<entry name=\"file" + std::to_string(state >> 50) + ".txt\" mode=\"" +
           std::to_string((state >> 20) % 512) + "\"/>\n";
  }
  out.resize(size);
  return out;
}

std::vector<std::size_t> const kSizes{1000, 4096, 4097, 30000};

std::u16string nameOf(char const* kind, std::size_t size) {
  return u"/" + opcvk_test::u16(kind) + u"/" + opcvk_test::u16(std::to_string(size)) + u".xml";
}

void writeParts(Package& package) {
  for (std::size_t size : kSizes) {
    for (CompressionType type :
         {CompressionType::DeflateMetadata, CompressionType::DeflateContent}) {
      Part part = package.createPart(
          PartName(nameOf(type == CompressionType::DeflateMetadata ? "meta" : "content", size)),
          ContentType(u"application/xml"), StandardPartInfo(type, 0));
      opcvk_test::writeAll(part.getOutputStream(), xmlText(size));
    }
  }
}

// In the archive read from `source`, each metadata item and the content item of the same
// bytes are both deflated, and not to the same bytes.
void expectDistinctAndWhole(std::shared_ptr<detail::ZipByteSource> source) {
  auto archive = detail::ZipArchive::open(source, PackageLimits());
  auto const itemOf = [&](std::u16string const& name) {
    std::string const item = opc::toUDEString(name).substr(1);
    for (detail::ZipEntry const& entry : archive->entries()) {
      if (entry.name == item) return entry;
    }
    ADD_FAILURE() << "no item " << item;
    return detail::ZipEntry();
  };
  for (std::size_t size : kSizes) {
    detail::ZipEntry const meta = itemOf(nameOf("meta", size));
    detail::ZipEntry const content = itemOf(nameOf("content", size));
    EXPECT_EQ(meta.method, 8) << size;
    EXPECT_EQ(content.method, 8) << size;
    EXPECT_EQ(meta.crc32, content.crc32) << size;
    // Metadata is never deflated less than content of the same bytes.
    EXPECT_LE(meta.compressedSize, content.compressedSize) << size;
    std::vector<unsigned char> metaBytes(meta.compressedSize);
    std::vector<unsigned char> contentBytes(content.compressedSize);
    source->readAt(archive->locate(meta).dataOffset, metaBytes.data(), metaBytes.size());
    source->readAt(archive->locate(content).dataOffset, contentBytes.data(), contentBytes.size());
    EXPECT_NE(metaBytes, contentBytes) << size;
  }
}

void expectContents(Package const& package) {
  for (std::size_t size : kSizes) {
    for (char const* kind : {"meta", "content"}) {
      EXPECT_EQ(opcvk_test::readAll(package.getPart(PartName(nameOf(kind, size))).getInputStream()),
                xmlText(size))
          << kind << size;
    }
  }
}

TEST(PartCompressionTypesTest, MetadataAndContentDeflateDifferentlyInAPackageMadeInAFile) {
  opcvk_test::TempDir dir;
  std::string const path = dir / "p.zip";
  {
    auto package = Package::open(opcvk_test::u16(path), PackageAccess::Create);
    writeParts(*package);
    package->save();
  }
  expectDistinctAndWhole(detail::openFileSource(path));
  expectContents(*Package::open(opcvk_test::u16(path), PackageAccess::Read));
}

TEST(PartCompressionTypesTest, MetadataAndContentDeflateDifferentlyInAPackageInMemory) {
  auto package = Package::openBuffer({}, PackageAccess::Create);
  writeParts(*package);
  package->save();
  std::vector<unsigned char> const bytes = package->getBuffer();
  expectDistinctAndWhole(
      detail::openBufferSource(std::make_shared<std::vector<unsigned char> const>(bytes)));
  expectContents(*Package::openBuffer(bytes, PackageAccess::Read));
}

}  // namespace
}  // namespace model
}  // namespace opc
