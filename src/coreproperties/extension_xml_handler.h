// ExtensionXmlHandler: reads and writes the extension part of the extended core properties.
#ifndef SRC_COREPROPERTIES_EXTENSION_XML_HANDLER_H_
#define SRC_COREPROPERTIES_EXTENSION_XML_HANDLER_H_

#include <memory>
#include <string>

#include <boost/core/noncopyable.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/vkservices/core_properties.h>

#include "contracts/model/xml_engine/xml_engine.h"

namespace opc {
namespace vkservices {

// The extension part holds the UUID, when the record has one:
//
//   <vkcoreProperties xmlns="<SchemaBase>/package/2014/corePropertiesExtension">
//     <uuid>8e4b6a8c-0d21-4f7e-9a55-2c6d1f0b3e97</uuid>
//   </vkcoreProperties>
//
// The part has no schema, so that later products can add to it: anything beside "uuid" is
// tolerated and dropped, the namespace is not checked, and "orvaneVersion", which older
// products wrote, is neither read nor written.  Documents of the common form are read and
// written without the XML parser, with the same outcome (see plain_xml.h); for any other, the
// object makes one reader without grammar, on the first read that needs it, and keeps it.  It
// is used by one thread at a time.  Constructing one loads nothing: the XML library is loaded
// only by a document that needs it.
class ExtensionXmlHandler : private boost::noncopyable {
 public:
  ExtensionXmlHandler();
  ~ExtensionXmlHandler();

  // Parses the part from `stream` (opened, read to its end, closed), checking only that it
  // is well-formed.  If the document element has a child "uuid", its text (empty if it has
  // none) goes to setUUID.  Raises opc::model::InvalidPartContent with the parser's text for
  // a document that is not well-formed, "The expected extended core properties root element
  // is not present" if the document element is not exactly "vkcoreProperties" (a prefixed
  // name is another name), the setter's message for a UUID it refuses (an empty "uuid"
  // included), and as readPropertiesPart for a part beyond its size limit.
  void read(opc::InputStream& stream, CoreProperties& properties);

  // Writes the document of `properties` to `stream`, which is flushed, not closed: the
  // document element, and "uuid" only if the record has a UUID.  Raises
  // opc::model::InvalidPartContent with the XML library's text if the document cannot be
  // written.
  void write(CoreProperties const& properties, opc::OutputStream& stream);

 private:
  std::unique_ptr<opc::model::detail::XmlTreeReader> reader_;
  std::u16string const namespace_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_COREPROPERTIES_EXTENSION_XML_HANDLER_H_
