// The five components of a URI reference, split and joined as RFC 3986 does.
// Internal to libopcmodel.
#ifndef OPC_MODEL_URI_PARTS_H_
#define OPC_MODEL_URI_PARTS_H_

#include <optional>
#include <string>

namespace opc {
namespace model {
namespace detail {

struct UriParts {
  std::optional<std::u16string> scheme;
  std::optional<std::u16string> authority;
  std::u16string path;
  std::optional<std::u16string> query;
  std::optional<std::u16string> fragment;
};

// Splits any text by the grammar of RFC 3986 appendix B, which accepts every string.  A ":"
// counts as the end of a scheme only if what precedes it is a valid scheme; otherwise it
// stays in the path (and isValid then refuses it).
UriParts splitUri(std::u16string const& text);

// Joins the components again (RFC 3986 section 5.3).
std::u16string joinUri(UriParts const& parts);

// RFC 3986 section 5.2.4.
std::u16string removeDotSegments(std::u16string const& path);

// The reason why the text is not a URI reference, or nothing if it is one.
std::optional<std::string> findUriSyntaxError(std::u16string const& text);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_URI_PARTS_H_
