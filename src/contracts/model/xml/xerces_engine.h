// The XmlEngine that stands on the XML library: the tree reader over XercesHelper's parser,
// the event reader over XmlStreamReader, and the writer over XercesHelper's documents and
// pretty-printing serializer.  Internal to libopcmodel_xml: of this, only the entry is exported.
#ifndef OPC_MODEL_XML_XERCES_ENGINE_H_
#define OPC_MODEL_XML_XERCES_ENGINE_H_

#include "../xml_engine/xml_engine.h"

namespace opc {
namespace model {
namespace detail {

// The one engine of the process, made on first use (thread-safe) and never destroyed.
XmlEngine& xercesEngine();

}  // namespace detail
}  // namespace model
}  // namespace opc

// The entry that libopcmodel looks up by name when it loads the XML library: the engine.
extern "C" OPC_MODEL_EXPORT opc::model::detail::XmlEngine* opcmodel_xml_engine();

#endif  // OPC_MODEL_XML_XERCES_ENGINE_H_
