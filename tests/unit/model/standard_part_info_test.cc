#include <cstdint>
#include <limits>
#include <memory>
#include <type_traits>

#include <gtest/gtest.h>

#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/standard_part_info.h>

#include "support/expect_exception.h"

namespace {

using opc::interfaces::CompressionType;
using opc::interfaces::IPhysicalPartInfo;
using opc::interfaces::StandardPartInfo;

TEST(StandardPartInfoTest, HasFixedCompressionValues) {
  EXPECT_EQ(static_cast<std::int32_t>(CompressionType::Stored), 0);
  EXPECT_EQ(static_cast<std::int32_t>(CompressionType::DeflateMetadata), 1);
  EXPECT_EQ(static_cast<std::int32_t>(CompressionType::DeflateContent), 2);
  EXPECT_EQ(sizeof(CompressionType), 4u);
}

TEST(StandardPartInfoTest, GivesValuesThroughInterface) {
  std::unique_ptr<IPhysicalPartInfo> const info =
      std::make_unique<StandardPartInfo>(CompressionType::DeflateMetadata, 0);
  EXPECT_EQ(info->getCompressionType(), CompressionType::DeflateMetadata);
  EXPECT_EQ(info->getExpectedSize(), 0u);
}

TEST(StandardPartInfoTest, KeepsEveryCompressionTypeAndSize) {
  for (CompressionType type : {CompressionType::Stored, CompressionType::DeflateMetadata,
                               CompressionType::DeflateContent}) {
    StandardPartInfo const info(type, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(info.getCompressionType(), type);
    EXPECT_EQ(info.getExpectedSize(), std::numeric_limits<std::uint64_t>::max());
  }
}

TEST(StandardPartInfoTest, CopiesAndAssigns) {
  StandardPartInfo const original(CompressionType::Stored, 42);
  StandardPartInfo copy(original);
  EXPECT_EQ(copy.getCompressionType(), CompressionType::Stored);
  EXPECT_EQ(copy.getExpectedSize(), 42u);
  StandardPartInfo assigned(CompressionType::DeflateContent, 1);
  assigned = original;
  EXPECT_EQ(assigned.getCompressionType(), CompressionType::Stored);
  EXPECT_EQ(assigned.getExpectedSize(), 42u);
}

TEST(StandardPartInfoTest, RefusesUnknownCompressionType) {
  EXPECT_THROW_MESSAGE(StandardPartInfo(static_cast<CompressionType>(3), 0),
                       opc::model::InvalidPartInfo,
                       "Invalid compression type 3: it must be Stored (0), DeflateMetadata (1) or "
                       "DeflateContent (2)");
  EXPECT_THROW_MESSAGE(StandardPartInfo(static_cast<CompressionType>(-1), 0),
                       opc::model::InvalidPartInfo,
                       "Invalid compression type -1: it must be Stored (0), DeflateMetadata (1) "
                       "or DeflateContent (2)");
}

TEST(StandardPartInfoTest, IsKnownInTheModelsNamespaceAsTheSameClass) {
  static_assert(std::is_same<opc::model::StandardPartInfo, StandardPartInfo>::value,
                "one class under two names");
  std::unique_ptr<opc::model::Package> package =
      opc::model::Package::openBuffer({}, opc::model::PackageAccess::Create);
  opc::model::Part const part =
      package->createPart(opc::model::PartName(u"/a.xml"), opc::model::ContentType(u"text/xml"),
                          opc::model::StandardPartInfo(CompressionType::DeflateMetadata, 0));
  EXPECT_EQ(part.getName().toString(), u"/a.xml");
}

}  // namespace
