// The storage options of a new part: how its content is compressed in the ZIP archive, and
// how large it is expected to be.
#ifndef OPC_MODEL_STANDARD_PART_INFO_H_
#define OPC_MODEL_STANDARD_PART_INFO_H_

#include <cstdint>

#include <opc/model/export.h>

namespace opc {
namespace interfaces {

// How the content of a new part is stored.  The three values stay distinct; which
// compression level a Deflate value selects is the ZIP layer's choice.  The intent:
// - Stored: no compression.  For content that does not shrink, above all ciphertext,
//   which must always be written with this value.
// - DeflateMetadata: Deflate for the small XML parts of the package (manifests,
//   properties, cipher data); favours a small result over speed.
// - DeflateContent: Deflate for file content, which may be large; favours speed.
enum class CompressionType : std::int32_t { Stored = 0, DeflateMetadata = 1, DeflateContent = 2 };

// The storage options that a package asks for when it creates a part.
class OPC_MODEL_EXPORT IPhysicalPartInfo {
 public:
  virtual ~IPhysicalPartInfo();

  virtual CompressionType getCompressionType() const = 0;

  // The size the content is expected to reach, in bytes, as a hint for buffering; 0 means
  // unknown.  The content may end up of any size.
  virtual std::uint64_t getExpectedSize() const = 0;

 protected:
  IPhysicalPartInfo() = default;
  IPhysicalPartInfo(IPhysicalPartInfo const&) = default;
  IPhysicalPartInfo& operator=(IPhysicalPartInfo const&) = default;
};

// The plain implementation: the two values as given.  A value class.
class OPC_MODEL_EXPORT StandardPartInfo : public IPhysicalPartInfo {
 public:
  // Throws opc::model::InvalidPartInfo if `compressionType` is not one of the three
  // enumerators (a value cast from a wider number).
  StandardPartInfo(CompressionType compressionType, std::uint64_t expectedSize);
  StandardPartInfo(StandardPartInfo const& other);
  StandardPartInfo& operator=(StandardPartInfo const& other);
  ~StandardPartInfo() override;

  CompressionType getCompressionType() const override;
  std::uint64_t getExpectedSize() const override;

 private:
  CompressionType compressionType_;
  std::uint64_t expectedSize_;
};

}  // namespace interfaces

namespace model {

// Callers of the package model name the storage options of a new part from here: the same
// class as opc::interfaces::StandardPartInfo, not a second one.
using interfaces::StandardPartInfo;

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_STANDARD_PART_INFO_H_
