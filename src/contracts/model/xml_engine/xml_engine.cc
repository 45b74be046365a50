// Loading the XML library.  libopcmodel does not link it: the first document that needs the
// parser loads it here, once for the process, and every later call finds it loaded.
#include "xml_engine.h"

#include <dlfcn.h>
#include <string>

#include <opc/core/exception.h>

namespace opc {
namespace model {
namespace detail {
namespace {

// The library's file name and its entry, shared with the library's build (xerces_engine.cc).
constexpr char kXmlLibrary[] = OPCMODEL_XML_LIBRARY;
constexpr char kEntry[] = "opcmodel_xml_engine";

std::string loaderError() {
  char const* text = dlerror();
  return text == nullptr ? std::string("no reason given") : std::string(text);
}

// The XML library installed or built beside this library, found from where the loader took
// libopcmodel; empty if that cannot be told.
std::string besideThisLibrary() {
  Dl_info info;
  if (dladdr(kXmlLibrary, &info) == 0 || info.dli_fname == nullptr) {
    return std::string();
  }
  std::string path(info.dli_fname);
  std::string::size_type const slash = path.rfind('/');
  if (slash == std::string::npos) return std::string();
  return path.substr(0, slash + 1) + kXmlLibrary;
}

XmlEngine* loadEngine() {
  // Beside libopcmodel first, so that a build tree or a moved installation uses its own
  // library; then by the plain name, where the loader searches as for any library.  The
  // library stays loaded to the end of the process: the engine and what it made live there.
  void* handle = nullptr;
  std::string const beside = besideThisLibrary();
  if (!beside.empty()) handle = dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) handle = dlopen(kXmlLibrary, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    throw opc::Exception(
        std::string("The XML library ") + kXmlLibrary + " could not be loaded: " + loaderError(),
        boost::system::error_code());
  }
  dlerror();
  void* const entry = dlsym(handle, kEntry);
  if (entry == nullptr) {
    throw opc::Exception(std::string("The XML library ") + kXmlLibrary + " has no entry " + kEntry +
                             ": " + loaderError(),
                         boost::system::error_code());
  }
  using Entry = XmlEngine* (*)();
  return reinterpret_cast<Entry>(entry)();
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
