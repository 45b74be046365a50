// Loading a companion library on first need.
//
// Some dependencies cost a command a measurable part of its start (the loader maps them,
// relocates them and runs their initialisers) while most commands never call them.  A
// contract library that stands on one of them keeps the calls that need it in a companion
// library of its own, which it does not link but loads here the first time one of those
// calls comes, and keeps loaded to the end of the process.
//
// Header only, so that every contract library can use it without linking another.
#ifndef OPCVK_CONTRACTS_COMPANION_COMPANION_LIBRARY_H_
#define OPCVK_CONTRACTS_COMPANION_COMPANION_LIBRARY_H_

#include <dlfcn.h>
#include <string>

namespace opcvk_companion {

// What loading a companion gave: its entry point, or the loader's reason why not.
struct CompanionEntry {
  bool libraryLoaded = false;  // the file was found and loaded
  void* entry = nullptr;       // null if the library or its entry was not found
  std::string failure;         // set when entry is null: the loader's reason
};

namespace detail {

inline std::string loaderError() {
  char const* text = dlerror();
  return text == nullptr ? std::string("no reason given") : std::string(text);
}

// The file `fileName` in the folder of the loaded object that holds `anchor` (an address in
// the calling library); empty if that cannot be told.
inline std::string besideObjectOf(void const* anchor, char const* fileName) {
  Dl_info info;
  if (dladdr(anchor, &info) == 0 || info.dli_fname == nullptr) return std::string();
  std::string path(info.dli_fname);
  std::string::size_type const slash = path.rfind('/');
  if (slash == std::string::npos) return std::string();
  return path.substr(0, slash + 1) + fileName;
}

}  // namespace detail

// Loads `fileName` and looks up `entryName` in it.  The library is looked for first beside
// the object that holds `anchor`, so that a build tree or a moved installation uses its own
// companion, then by its plain name, where the loader searches as for any library.  A
// library once loaded stays loaded: callers keep what its entry gives them for the life of
// the process.  Callers turn a failure into their own error, naming the library.
inline CompanionEntry loadCompanion(void const* anchor, char const* fileName,
                                    char const* entryName) {
  CompanionEntry result;
  void* handle = nullptr;
  std::string const beside = detail::besideObjectOf(anchor, fileName);
  if (!beside.empty()) handle = dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) handle = dlopen(fileName, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    result.failure = detail::loaderError();
    return result;
  }
  result.libraryLoaded = true;
  dlerror();
  result.entry = dlsym(handle, entryName);
  if (result.entry == nullptr) result.failure = detail::loaderError();
  return result;
}

// What a caller tells when `loaded` gave no entry, of the library that `library` names (say,
// "The ICU library") and its file `fileName`: that it could not be loaded, or that it has no
// entry `entryName`, with the loader's reason.  Empty when the entry was found.
inline std::string failureMessage(CompanionEntry const& loaded, char const* library,
                                  char const* fileName, char const* entryName) {
  if (loaded.entry != nullptr) return std::string();
  std::string message = std::string(library) + " " + fileName;
  if (loaded.libraryLoaded) {
    message += std::string(" has no entry ") + entryName;
  } else {
    message += " could not be loaded";
  }
  return message + ": " + loaded.failure;
}

}  // namespace opcvk_companion

#endif  // OPCVK_CONTRACTS_COMPANION_COMPANION_LIBRARY_H_
