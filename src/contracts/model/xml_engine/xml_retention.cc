#include "xml_retention.h"

#include <opc/model/xml/xerces_retainer.h>

namespace opc {
namespace model {
namespace detail {

XmlRetention& xmlRetention() {
  // Never destroyed: guards may still go during the process's exit.
  static XmlRetention* const retention = new XmlRetention();
  return *retention;
}

}  // namespace detail

XercesRetainer::XercesRetainer() {
  detail::XmlRetention& retention = detail::xmlRetention();
  std::lock_guard<std::mutex> lock(retention.mutex);
  ++retention.retainers;
}

XercesRetainer::~XercesRetainer() {
  detail::XmlRetention& retention = detail::xmlRetention();
  std::lock_guard<std::mutex> lock(retention.mutex);
  if (--retention.retainers == 0 && retention.release != nullptr) {
    void (*const release)() = retention.release;
    retention.release = nullptr;
    release();
  }
}

}  // namespace model
}  // namespace opc
