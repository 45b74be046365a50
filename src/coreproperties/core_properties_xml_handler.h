// CorePropertiesXmlHandler: reads and writes the core part of the extended core properties.
#ifndef SRC_COREPROPERTIES_CORE_PROPERTIES_XML_HANDLER_H_
#define SRC_COREPROPERTIES_CORE_PROPERTIES_XML_HANDLER_H_

#include <memory>
#include <string>

#include <boost/core/noncopyable.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/vkservices/core_properties.h>

#include "contracts/model/xml_engine/xml_engine.h"

namespace opc {
namespace vkservices {

// The core part holds the content type, its friendly name and the release family:
//
//   <vkcoreProperties xmlns="<SchemaBase>/package/2012/coreProperties">
//     <contentType>...</contentType>
//     <contentTypeFriendlyName>...</contentTypeFriendlyName>
//     <orvaneRelease>R2026b</orvaneRelease>
//     [<orvaneVersion>...</orvaneVersion>]   read by older products: allowed, never used
//   </vkcoreProperties>
//
// Every document is validated against the schema compiled into the library, so that the
// elements must come in this order.  Documents of the common form are read and written
// without the XML parser, with the same outcome (see plain_xml.h); for any other, the object
// makes one reader with the schema compiled, on the first read that needs it, and keeps it.
// It is used by one thread at a time.  Constructing one loads nothing: the XML library is
// loaded only by a document that needs it.
class CorePropertiesXmlHandler : private boost::noncopyable {
 public:
  CorePropertiesXmlHandler();
  ~CorePropertiesXmlHandler();

  // Parses and validates the part from `stream` (opened, read to its end, closed), then sets
  // the three values on `properties` through setContentType, setContentTypeFriendlyName and
  // setORVANERelease, in this order, each only if its element has text.  Raises
  // opc::model::InvalidPartContent with the parser's text for a document that is not
  // well-formed or not valid (elements out of order included), with the setter's message for
  // a value the setter refuses, and as readPropertiesPart for a part beyond its size limit.
  // Values set before a refused one stay set.  The first read that needs the parser compiles
  // the schema, and raises opc::model::InvalidXMLSchema "Schema could not be loaded: <parser's
  // text>" if it does not load, leaving `stream` closed; the next such read tries again.
  void read(opc::InputStream& stream, CoreProperties& properties);

  // Writes the document of `properties` to `stream`, which is flushed, not closed.  Raises
  // opc::model::InvalidPartContent with the XML library's text if a value holds a character
  // that XML cannot carry; bytes written before stay written.
  void write(CoreProperties const& properties, opc::OutputStream& stream);

 private:
  std::unique_ptr<opc::model::detail::XmlTreeReader> reader_;
  std::u16string const namespace_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_COREPROPERTIES_CORE_PROPERTIES_XML_HANDLER_H_
