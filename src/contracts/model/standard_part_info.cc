#include <string>

#include <opc/model/exceptions.h>
#include <opc/model/standard_part_info.h>

namespace opc {
namespace interfaces {

IPhysicalPartInfo::~IPhysicalPartInfo() = default;

StandardPartInfo::StandardPartInfo(CompressionType compressionType, std::uint64_t expectedSize)
    : compressionType_(compressionType), expectedSize_(expectedSize) {
  switch (compressionType) {
    case CompressionType::Stored:
    case CompressionType::DeflateMetadata:
    case CompressionType::DeflateContent:
      return;
  }
  throw opc::model::InvalidPartInfo(
      "Invalid compression type " + std::to_string(static_cast<std::int32_t>(compressionType)) +
      ": it must be Stored (0), DeflateMetadata (1) or DeflateContent (2)");
}

StandardPartInfo::StandardPartInfo(StandardPartInfo const& other) = default;
StandardPartInfo& StandardPartInfo::operator=(StandardPartInfo const& other) = default;
StandardPartInfo::~StandardPartInfo() = default;

CompressionType StandardPartInfo::getCompressionType() const { return compressionType_; }

std::uint64_t StandardPartInfo::getExpectedSize() const { return expectedSize_; }

}  // namespace interfaces
}  // namespace opc
