// XercesRetainer: keeps the XML library initialised, once it is, for the retainer's lifetime.
#ifndef OPC_MODEL_XML_XERCES_RETAINER_H_
#define OPC_MODEL_XML_XERCES_RETAINER_H_

#include <opc/model/export.h>

namespace opc {
namespace model {

// Keeps the XML library initialised from the first time a XercesGuard initialises it until
// this object goes, so that a program that needs the library several times initialises it
// once, and one that never needs it never pays for it.  While any such object lives, the
// first guard that initialises the library takes one more reference to it, which the last of
// these objects gives back.  Thread safety as for XercesGuard; not copyable.
//
// A retainer neither loads nor initialises the XML library: it is part of libopcmodel, which
// does not link it, and only counts.  Never raises.
class OPC_MODEL_EXPORT XercesRetainer {
 public:
  XercesRetainer();
  XercesRetainer(XercesRetainer const&) = delete;
  XercesRetainer& operator=(XercesRetainer const&) = delete;
  ~XercesRetainer();
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XERCES_RETAINER_H_
