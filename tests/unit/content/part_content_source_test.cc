#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include <opc/core/output_stream.h>
#include <opc/core/stream_helper.h>
#include <opc/model/content_type.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/part.h>
#include <opc/model/part_name.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/content_sources.h>

#include "support/byte_streams.h"

namespace opc {
namespace vkservices {
namespace {

using opc::interfaces::CompressionType;
using opc::interfaces::StandardPartInfo;
using opc::model::ContentType;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::Part;
using opc::model::PartName;

static_assert(!std::is_copy_constructible<PartContentSource>::value, "not copyable");
static_assert(!std::is_copy_assignable<PartContentSource>::value, "not copyable");

std::string drain(IContentSource& source) {
  opcvk_test::MemoryOutputStream out;
  opc::StreamHelper::copyStreamToStream(source.getInputStream(), out);
  return out.bytes;
}

void write(Part part, std::string const& content) {
  opc::OutputStream& out = part.getOutputStream();
  out.write(reinterpret_cast<unsigned char const*>(content.data()), content.size());
  out.close();
}

// A package in memory holding one part "/data/a.bin" of the given type and content.
std::unique_ptr<Package> packageWith(std::u16string const& type, std::string const& content,
                                     CompressionType compression = CompressionType::Stored) {
  std::unique_ptr<Package> package = Package::openBuffer({}, PackageAccess::Create);
  Part part = package->createPart(PartName(u"/data/a.bin"), ContentType(type),
                                  StandardPartInfo(compression, 0));
  write(part, content);
  return package;
}

// The same, saved and opened again for Read, so that the content comes from the archive.
std::unique_ptr<Package> savedPackageWith(std::u16string const& type, std::string const& content,
                                          CompressionType compression) {
  std::unique_ptr<Package> created = packageWith(type, content, compression);
  created->save();
  return Package::openBuffer(created->getBuffer(), PackageAccess::Read);
}

Part theOnlyPart(Package& package) { return package.getPart(PartName(u"/data/a.bin")); }

TEST(PartContentSourceTest, HasThePartsTypeWithItsParameters) {
  auto package = packageWith(u"application/octet-stream;encryption=aes;iv=inline", "x");
  PartContentSource source(theOnlyPart(*package));
  EXPECT_EQ(source.getContentType().toString(),
            u"application/octet-stream;encryption=aes;iv=inline");
}

TEST(PartContentSourceTest, TypeIsACopy) {
  auto package = packageWith(u"text/plain", "x");
  PartContentSource source(theOnlyPart(*package));
  ContentType type = source.getContentType();
  type.addParameter(u"charset", u"utf-8");
  EXPECT_FALSE(source.getContentType().hasParameter(u"charset"));
  EXPECT_FALSE(theOnlyPart(*package).getContentType().hasParameter(u"charset"));
}

TEST(PartContentSourceTest, DeliversTheWholeContent) {
  std::string const content("part\0content\xff", 13);
  auto package = packageWith(u"application/octet-stream", content);
  PartContentSource source(theOnlyPart(*package));
  EXPECT_EQ(drain(source), content);
}

TEST(PartContentSourceTest, GivesTheSameStreamEveryTime) {
  auto package = packageWith(u"text/plain", "abc");
  PartContentSource source(theOnlyPart(*package));
  EXPECT_EQ(&source.getInputStream(), &source.getInputStream());
}

TEST(PartContentSourceTest, SecondSourceOnAReadPartDeliversTheWholeContentAgain) {
  auto package = packageWith(u"text/plain", "read me twice");
  Part part = theOnlyPart(*package);
  PartContentSource first(part);
  EXPECT_EQ(drain(first), "read me twice");
  PartContentSource second(part);
  EXPECT_EQ(drain(second), "read me twice");
}

TEST(PartContentSourceTest, EmptyPartDeliversNothing) {
  auto package = packageWith(u"text/plain", "");
  PartContentSource source(theOnlyPart(*package));
  EXPECT_EQ(drain(source), "");
  PartContentSource again(theOnlyPart(*package));
  EXPECT_EQ(drain(again), "");
}

TEST(PartContentSourceTest, ReadsAPartOfASavedPackage) {
  std::string content(1 << 20, '\0');
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i % 251);
  for (CompressionType compression : {CompressionType::Stored, CompressionType::DeflateMetadata,
                                      CompressionType::DeflateContent}) {
    SCOPED_TRACE(static_cast<int>(compression));
    auto package = savedPackageWith(u"application/vnd.veltrance.orvane.app", content, compression);
    PartContentSource source(theOnlyPart(*package));
    EXPECT_EQ(source.getContentType().toString(), u"application/vnd.veltrance.orvane.app");
    EXPECT_EQ(drain(source), content);
    PartContentSource again(theOnlyPart(*package));
    EXPECT_EQ(drain(again), content);
  }
}

TEST(PartContentSourceTest, DoesNotNeedTheHandleItWasBuiltFrom) {
  auto package = packageWith(u"text/plain", "outlives the handle");
  std::unique_ptr<PartContentSource> source;
  {
    Part handle = theOnlyPart(*package);
    source = std::make_unique<PartContentSource>(handle);
  }
  EXPECT_EQ(drain(*source), "outlives the handle");
}

TEST(PartContentSourceTest, DeletedPartRaisesTheModelsError) {
  auto package = packageWith(u"text/plain", "gone");
  Part part = theOnlyPart(*package);
  package->deletePart(PartName(u"/data/a.bin"));
  EXPECT_THROW(PartContentSource source(part), opc::model::InvalidPackageState);
}

}  // namespace
}  // namespace vkservices
}  // namespace opc
