// CorePropertiesXmlHandler: reads and writes the core part of the extended core properties.
#ifndef SRC_COREPROPERTIES_CORE_PROPERTIES_XML_HANDLER_H_
#define SRC_COREPROPERTIES_CORE_PROPERTIES_XML_HANDLER_H_

#include <memory>

#include <boost/core/noncopyable.hpp>
#include <xercesc/dom/DOMLSParser.hpp>
#include <xercesc/dom/DOMLSSerializer.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/xml/xerces_deleter.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_string.h>
#include <opc/vkservices/core_properties.h>

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
// elements must come in this order.  The object owns one parser (with the schema cached) and
// one serializer, keeps the XML library initialised while it lives, and is used by one
// thread at a time.
class CorePropertiesXmlHandler : private boost::noncopyable {
 public:
  // Raises opc::model::InvalidXMLSchema "Schema could not be loaded: <parser's text>" if the
  // schema does not load.
  CorePropertiesXmlHandler();
  ~CorePropertiesXmlHandler();

  // Parses and validates the part from `stream` (opened, read to its end, closed), then sets
  // the three values on `properties` through setContentType, setContentTypeFriendlyName and
  // setORVANERelease, in this order, each only if its element has text.  Raises
  // opc::model::InvalidPartContent with the parser's text for a document that is not
  // well-formed or not valid (elements out of order included), with the setter's message for
  // a value the setter refuses, and as ParsedPart for a part beyond its size limit.  Values
  // set before a refused one stay set.
  void read(opc::InputStream& stream, CoreProperties& properties);

  // Writes the document of `properties` to `stream`, which is flushed, not closed.  Raises
  // opc::model::InvalidPartContent with the XML library's text if a value holds a character
  // that XML cannot carry; bytes written before stay written.
  void write(CoreProperties const& properties, opc::OutputStream& stream);

 private:
  opc::model::XercesGuard guard_;
  std::unique_ptr<xercesc::DOMLSParser, opc::model::XercesDeleter> parser_;
  std::unique_ptr<xercesc::DOMLSSerializer, opc::model::XercesDeleter> writer_;
  opc::model::XercesString const namespace_;
  opc::model::XercesString const rootElement_;
  opc::model::XercesString const contentTypeElement_;
  opc::model::XercesString const friendlyNameElement_;
  opc::model::XercesString const releaseElement_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_COREPROPERTIES_CORE_PROPERTIES_XML_HANDLER_H_
