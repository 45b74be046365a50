// RegexMatcher: the one road from the core properties' value checks to the regular-expression
// library.
//
// The regular-expression library, and the Unicode libraries that it links, cost every process
// that maps them a fair part of a short command's start, while only a check of a core
// property's value needs it.  So the matching lives in a companion library,
// libopcvkservices_regex, which is loaded the first time a value is checked, and reached only
// through this plain interface.  Internal to libopcvkservices; not installed.
#ifndef OPC_VKSERVICES_COREPROPERTIES_REGEX_MATCHER_H_
#define OPC_VKSERVICES_COREPROPERTIES_REGEX_MATCHER_H_

#include <string>

namespace opc {
namespace vkservices {
namespace detail {

// Whole-string matching of wide text.  Thread-safe; lives to the end of the process.
class RegexMatcher {
 public:
  // Whether the whole of `subject` matches `expression`, compiled at each call with the
  // default (Perl) syntax of wide-string regular expressions.  An expression that does not
  // compile raises boost::regex_error from the regular-expression library as it stands: its
  // type information is that library's, so a caller that knows the type catches it.
  virtual bool matchesWhole(std::wstring const& subject, wchar_t const* expression) const = 0;

 protected:
  ~RegexMatcher() = default;
};

// The matcher, loading libopcvkservices_regex on the first call; later calls find it loaded.
// Raises opc::Exception naming the library and the loader's reason if it cannot be loaded
// (and tries again at the next call).
RegexMatcher const& regexMatcher();

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

// The entry that regexMatcher() looks up by name in the companion: the matcher.
extern "C" opc::vkservices::detail::RegexMatcher const* opcvkservices_regex_matcher();

#endif  // OPC_VKSERVICES_COREPROPERTIES_REGEX_MATCHER_H_
