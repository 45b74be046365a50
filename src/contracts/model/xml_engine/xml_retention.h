// What libopcmodel and the XML library share about the XML library's initialisation: the
// lock under which it is initialised and terminated, and the count of XercesRetainer objects,
// which live in libopcmodel so that a program can keep one without loading the XML library.
// Internal to the project's libraries; not installed.
#ifndef OPC_MODEL_XML_ENGINE_XML_RETENTION_H_
#define OPC_MODEL_XML_ENGINE_XML_RETENTION_H_

#include <mutex>

#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

// Every field is used under `mutex` only.
struct XmlRetention {
  // Every initialisation and termination of the XML library goes through this lock as well,
  // since neither of its calls guards its own count against concurrent callers.
  std::mutex mutex;
  // How many XercesRetainer objects live.
  int retainers = 0;
  // Set by the XML library's guard when it takes the extra initialisation for the retainers
  // (it does so when it initialises the library while `retainers` is not 0 and this is
  // null); called by the last retainer, under the lock, to give that initialisation back,
  // after which it is null again.
  void (*release)() = nullptr;
};

// The one record of the process, made on first use.
OPC_MODEL_EXPORT XmlRetention& xmlRetention();

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_ENGINE_XML_RETENTION_H_
