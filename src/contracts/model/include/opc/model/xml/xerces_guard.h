// XercesGuard: keeps the XML library initialised for as long as it lives.
#ifndef OPC_MODEL_XML_XERCES_GUARD_H_
#define OPC_MODEL_XML_XERCES_GUARD_H_

#include <opc/model/export.h>

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

// Keeps the XML library initialised from the first time a XercesGuard initialises it until
// this object goes, so that a program that needs the library several times initialises it
// once, and one that never needs it never pays for it.  While any such object lives, the
// first guard that initialises the library takes one more reference to it, which the last of
// these objects gives back.  Thread safety as for XercesGuard; not copyable.
class OPC_MODEL_EXPORT XercesRetainer {
 public:
  XercesRetainer();
  XercesRetainer(XercesRetainer const&) = delete;
  XercesRetainer& operator=(XercesRetainer const&) = delete;
  ~XercesRetainer();
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XERCES_GUARD_H_
