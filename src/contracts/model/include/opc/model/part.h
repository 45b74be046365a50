// opc::model::Part: a handle to one part of a package.
#ifndef OPC_MODEL_PART_H_
#define OPC_MODEL_PART_H_

#include <cstdint>
#include <memory>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/content_type.h>
#include <opc/model/export.h>
#include <opc/model/part_name.h>
#include <opc/model/relationship_source.h>
#include <opc/model/standard_part_info.h>

namespace opc {
namespace model {

// A copyable handle to a part.  Copies refer to the same part: content written through one
// is read through another.  A handle stays safe to hold after its part is deleted or its
// package is destroyed; it is then no longer valid (isValid() is false) and every operation
// but isValid/isOpen throws InvalidPackageState.  A handle names its part by name: if a
// part of the same name is made again, the handle refers to the new part.
class OPC_MODEL_EXPORT Part : public RelationshipSource {
 public:
  Part(Part const& other);
  Part& operator=(Part const& other);
  ~Part() override;

  bool isValid() const override;
  bool isOpen() const override;
  bool isReadOnly() const override;
  bool isCreateOnly() const override;
  Package& getPackage() const override;

  PartName getName() const;
  // The content type given at creation, or read from [Content_Types].xml.
  ContentType getContentType() const;
  // How the part is (or will be) stored in the archive.
  interfaces::CompressionType getCompressionType() const;
  // The size of the content in bytes: as declared by the archive for a part not yet
  // changed, else the size of what was written.
  std::uint64_t getSize() const;

  // A new stream over the part's content, from the start.  The content is streamed from the
  // archive as it is read, never held whole in memory; its CRC and size are checked at the
  // end (InvalidPartContent on a mismatch).  The stream belongs to the package: the
  // reference stays valid, after this handle is gone, for as long as the package lives.
  // It reads the content as it was when the stream was made, even if the part is written or
  // deleted meanwhile.  read() before open() opens.  close() releases everything the stream
  // holds; a closed stream cannot be opened again (InvalidPackageState): ask for a new one.
  opc::InputStream& getInputStream();

  // A new stream that replaces the part's content with what is written to it, committed
  // when the stream is closed (or when the package is saved, for a stream left open).
  // Content is kept in memory up to PackageOptions::spoolThreshold, then spooled to a
  // temporary file, which is removed from its folder as soon as it is made (nothing is left
  // behind).  The same rule of life as getInputStream holds.  Writing to a closed stream
  // throws InvalidPackageState; a stream whose part was deleted commits nothing.  Throws
  // PackageNotWritable for a package open for Read.
  opc::OutputStream& getOutputStream();

 protected:
  void doVerifyRelationship(Relationship const& relationship) const override;

 private:
  friend class Package;
  Part(std::shared_ptr<detail::PackageState> state, PartName name);

  PartName name_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PART_H_
