// XercesGuard: keeps the XML library initialised for as long as it lives.  Part of
// libopcmodel_xml; XercesRetainer, declared with it, is libopcmodel's.
#ifndef OPC_MODEL_XML_XERCES_GUARD_H_
#define OPC_MODEL_XML_XERCES_GUARD_H_

#include <opc/model/export.h>
#include <opc/model/xml/xerces_retainer.h>

namespace opc {
namespace model {

// The XML library must be initialised before any of its objects is made and stays so until
// the last guard goes.  Objects that hold parsers, documents or serializers keep a guard as
// their first member, so that it is constructed before them and destroyed after them.
//
// Guards nest: the library counts initialisations and shuts down only when the last guard is
// destroyed.  Guards may be constructed and destroyed on several threads at once; the count
// is kept under a lock.  A copy is one more guard.
//
// The constructor raises opc::Exception if the XML library cannot be initialised.
class OPC_MODEL_EXPORT XercesGuard {
 public:
  XercesGuard();
  XercesGuard(XercesGuard const& other);
  // Both guards already keep the library initialised: assignment changes nothing.
  XercesGuard& operator=(XercesGuard const& other);
  ~XercesGuard();
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XERCES_GUARD_H_
