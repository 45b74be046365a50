#include <mutex>
#include <string>

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>

#include <opc/core/exception.h>
#include <opc/model/xml/xerces_guard.h>

#include "../xml_engine/xml_retention.h"
#include "xml_text.h"

namespace opc {
namespace model {
namespace {

// Gives back the initialisation taken for the retainers; called by the last of them, under
// the lock.
void releaseRetained() { xercesc::XMLPlatformUtils::Terminate(); }

void initialise() {
  detail::XmlRetention& retention = detail::xmlRetention();
  std::lock_guard<std::mutex> lock(retention.mutex);
  try {
    xercesc::XMLPlatformUtils::Initialize();
    if (retention.retainers > 0 && retention.release == nullptr) {
      // Cannot fail: the library is initialised already, and this only counts.
      xercesc::XMLPlatformUtils::Initialize();
      retention.release = &releaseRetained;
    }
  } catch (xercesc::XMLException const& e) {
    throw opc::Exception(
        "The XML library could not be initialised: " + detail::toMessageText(e.getMessage()),
        boost::system::error_code());
  }
}

}  // namespace

XercesGuard::XercesGuard() { initialise(); }

XercesGuard::XercesGuard(XercesGuard const&) { initialise(); }

XercesGuard& XercesGuard::operator=(XercesGuard const&) { return *this; }

XercesGuard::~XercesGuard() {
  std::lock_guard<std::mutex> lock(detail::xmlRetention().mutex);
  xercesc::XMLPlatformUtils::Terminate();
}

}  // namespace model
}  // namespace opc
