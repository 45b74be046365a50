// ReleaseInfoXmlHandler: reads and writes the release-info part of the extended core
// properties.
#ifndef SRC_COREPROPERTIES_RELEASE_INFO_XML_HANDLER_H_
#define SRC_COREPROPERTIES_RELEASE_INFO_XML_HANDLER_H_

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/vkservices/core_properties.h>

namespace opc {
namespace vkservices {

// The release-info part holds the complete release record: the text of
// foundation::release_info::ReleaseInfo::getVersionInfo(), byte for byte, which this library
// treats as opaque and hands back to ReleaseInfo to read.  The handler has no state.
class ReleaseInfoXmlHandler {
 public:
  // Reads the part from `stream` (opened, read to its end, closed), builds a ReleaseInfo of
  // it and sets it by setORVANEReleaseInfo.  Raises opc::model::InvalidPartContent "Could not
  // construct a ReleaseInfo from the given XML" if ReleaseInfo refuses the text (also when
  // the part is larger than ReleaseInfo reads, which is not read further), "ReleaseInfo is
  // invalid" if its version is empty or has fewer than three dots; an opc::Exception (of the
  // stream, or InvalidCorePropertyValue for a release family of the wrong form) passes
  // through unchanged.
  void read(opc::InputStream& stream, CoreProperties& properties);

  // Writes the text of the record's release to `stream`, which is flushed, not closed.  An
  // exception of ReleaseInfo or of the stream passes through.
  void write(CoreProperties const& properties, opc::OutputStream& stream);
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_COREPROPERTIES_RELEASE_INFO_XML_HANDLER_H_
