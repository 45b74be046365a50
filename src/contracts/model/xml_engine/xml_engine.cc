// Loading the XML library.  libopcmodel does not link it: the first document that needs the
// parser loads it here, once for the process, and every later call finds it loaded.
#include "xml_engine.h"

#include <string>

#include <opc/core/exception.h>

#include "companion_library.h"

namespace opc {
namespace model {
namespace detail {
namespace {

// The library's file name and its entry, shared with the library's build (xerces_engine.cc).
constexpr char kXmlLibrary[] = OPCMODEL_XML_LIBRARY;
constexpr char kEntry[] = "opcmodel_xml_engine";

XmlEngine* loadEngine() {
  opcvk_companion::CompanionEntry const loaded =
      opcvk_companion::loadCompanion(kXmlLibrary, kXmlLibrary, kEntry);
  std::string const failure =
      opcvk_companion::failureMessage(loaded, "The XML library", kXmlLibrary, kEntry);
  if (!failure.empty()) throw opc::Exception(failure, boost::system::error_code());
  using Entry = XmlEngine* (*)();
  return reinterpret_cast<Entry>(loaded.entry)();
}

}  // namespace

XmlEngine& xmlEngine() {
  // A failed load leaves the static unset, so that a later call tries again.
  static XmlEngine* const engine = loadEngine();
  return *engine;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
