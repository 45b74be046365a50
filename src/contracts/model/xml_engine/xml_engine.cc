#include "xml_engine.h"

#include "../xml/xerces_engine.h"

namespace opc {
namespace model {
namespace detail {

XmlEngine& xmlEngine() { return xercesEngine(); }

}  // namespace detail
}  // namespace model
}  // namespace opc
