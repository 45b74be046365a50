// The matcher of libopcvkservices_regex over Boost.Regex, which libopcvkservices loads by name
// on the first check of a core property's value.
#include <string>

#include <boost/regex.hpp>

#include <opc/vkservices/export.h>

#include "coreproperties/regex_matcher.h"

namespace opc {
namespace vkservices {
namespace detail {
namespace {

class BoostRegexMatcher final : public RegexMatcher {
 public:
  // Each call builds its expression anew: a record is validated a handful of times per
  // package, and a shared compiled expression would be shared state.
  bool matchesWhole(std::wstring const& subject, wchar_t const* expression) const override {
    return boost::regex_match(subject, boost::wregex(expression));
  }
};

}  // namespace
}  // namespace detail
}  // namespace vkservices
}  // namespace opc

extern "C" OPCVK_EXPORT opc::vkservices::detail::RegexMatcher const* opcvkservices_regex_matcher() {
  // Never destroyed: a check may still run while the process exits.
  static opc::vkservices::detail::BoostRegexMatcher const* const matcher =
      new opc::vkservices::detail::BoostRegexMatcher();
  return matcher;
}
