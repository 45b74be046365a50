// Loading the regular-expression companion.  libopcvkservices does not link the
// regular-expression library: the first value check loads the companion here, once for the
// process, and every later check finds it loaded.
#include "coreproperties/regex_matcher.h"

#include <string>

#include <boost/system/error_code.hpp>

#include <opc/core/exception.h>

#include "companion_library.h"

namespace opc {
namespace vkservices {
namespace detail {
namespace {

// The companion's file name, set by the build, and its entry.
constexpr char kRegexLibrary[] = OPCVK_REGEX_LIBRARY;
constexpr char kEntry[] = "opcvkservices_regex_matcher";

RegexMatcher const* loadMatcher() {
  opcvk_companion::CompanionEntry const loaded =
      opcvk_companion::loadCompanion(kRegexLibrary, kRegexLibrary, kEntry);
  std::string const failure = opcvk_companion::failureMessage(
      loaded, "The regular expression library", kRegexLibrary, kEntry);
  if (!failure.empty()) throw opc::Exception(failure, boost::system::error_code());
  using Entry = RegexMatcher const* (*)();
  return reinterpret_cast<Entry>(loaded.entry)();
}

}  // namespace

RegexMatcher const& regexMatcher() {
  // A failed load leaves the static unset, so that a later call tries again.
  static RegexMatcher const* const matcher = loadMatcher();
  return *matcher;
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
