#include <mutex>
#include <string>

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>

#include <opc/core/exception.h>
#include <opc/model/xml/xerces_guard.h>

#include "xml_text.h"

namespace opc {
namespace model {
namespace {

// Initialize and Terminate keep a reference count of their own, but neither guards it
// against concurrent callers: every call of either goes through this lock.
std::mutex& initialisationMutex() {
  static std::mutex mutex;
  return mutex;
}

// How many XercesRetainer objects live, and whether one more initialisation is held for them.
// Both under the lock.
int retainers = 0;
bool retained = false;

void initialise() {
  std::lock_guard<std::mutex> lock(initialisationMutex());
  try {
    xercesc::XMLPlatformUtils::Initialize();
    if (retainers > 0 && !retained) {
      // Cannot fail: the library is initialised already, and this only counts.
      xercesc::XMLPlatformUtils::Initialize();
      retained = true;
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
  std::lock_guard<std::mutex> lock(initialisationMutex());
  xercesc::XMLPlatformUtils::Terminate();
}

XercesRetainer::XercesRetainer() {
  std::lock_guard<std::mutex> lock(initialisationMutex());
  ++retainers;
}

XercesRetainer::~XercesRetainer() {
  std::lock_guard<std::mutex> lock(initialisationMutex());
  if (--retainers == 0 && retained) {
    retained = false;
    xercesc::XMLPlatformUtils::Terminate();
  }
}

}  // namespace model
}  // namespace opc
