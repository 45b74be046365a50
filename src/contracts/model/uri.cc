#include <utility>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/uri.h>

#include "text_chars.h"
#include "uri_parts.h"

namespace opc {
namespace model {
namespace {

// RFC 3986 section 5.2.3.
std::u16string mergePaths(detail::UriParts const& base, std::u16string const& referencePath) {
  if (base.authority && base.path.empty()) return u"/" + referencePath;
  std::size_t const slash = base.path.rfind(u'/');
  if (slash == std::u16string::npos) return referencePath;
  return base.path.substr(0, slash + 1) + referencePath;
}

}  // namespace

URI::URI(std::u16string const& text) : text_(text) {}

URI::URI(char16_t const* text) : text_(text == nullptr ? std::u16string() : text) {}

URI::URI(URI const& other) = default;
URI::URI(URI&& other) noexcept = default;
URI& URI::operator=(URI const& other) = default;
URI& URI::operator=(URI&& other) noexcept = default;
URI::~URI() = default;

std::u16string URI::toString() const { return text_; }

char16_t URI::getSlash() { return u'/'; }

char16_t URI::getDot() { return u'.'; }

std::u16string URI::encodeComponent(std::u16string const& text, std::string const& keep) {
  // Working on the UTF-8 bytes makes every non-ASCII character come out as the escapes of
  // its bytes, which is how RFC 3987 maps an IRI to a URI.
  std::string const bytes = opc::detail::toUTF8String(text);
  std::u16string result;
  result.reserve(bytes.size());
  for (char byte : bytes) {
    unsigned char const value = static_cast<unsigned char>(byte);
    if (value < 0x80 && (detail::isUnreserved(value) || keep.find(byte) != std::string::npos)) {
      result += static_cast<char16_t>(value);
    } else {
      detail::appendPercentEscape(result, value);
    }
  }
  return result;
}

bool URI::isAbsolute() const { return detail::splitUri(text_).scheme.has_value(); }

bool URI::isValid() const { return !detail::findUriSyntaxError(text_).has_value(); }

void URI::ensureValid() const {
  if (auto error = detail::findUriSyntaxError(text_)) {
    throw InvalidURI("Invalid URI " + detail::quoted(text_) + ": " + *error);
  }
}

URI URI::resolve(URI const& reference) const {
  if (auto error = detail::findUriSyntaxError(text_)) {
    throw InvalidURI("Invalid base URI " + detail::quoted(text_) + ": " + *error);
  }
  reference.ensureValid();
  detail::UriParts const base = detail::splitUri(text_);
  if (!base.scheme && (text_.empty() || text_[0] != u'/')) {
    throw InvalidURI("Invalid base URI " + detail::quoted(text_) +
                     ": a base must have a scheme or start with \"/\"");
  }
  detail::UriParts const relative = detail::splitUri(reference.text_);
  detail::UriParts target;
  if (relative.scheme) {
    target = relative;
    target.path = detail::removeDotSegments(relative.path);
  } else {
    if (relative.authority) {
      target.authority = relative.authority;
      target.path = detail::removeDotSegments(relative.path);
      target.query = relative.query;
    } else {
      if (relative.path.empty()) {
        target.path = base.path;
        target.query = relative.query ? relative.query : base.query;
      } else {
        if (relative.path[0] == u'/') {
          target.path = detail::removeDotSegments(relative.path);
        } else {
          target.path = detail::removeDotSegments(mergePaths(base, relative.path));
        }
        target.query = relative.query;
      }
      target.authority = base.authority;
    }
    target.scheme = base.scheme;
  }
  target.fragment = relative.fragment;
  return URI(detail::joinUri(target));
}

bool URI::operator==(URI const& other) const { return text_ == other.text_; }

bool URI::operator!=(URI const& other) const { return text_ != other.text_; }

bool URI::operator<(URI const& other) const { return text_ < other.text_; }

}  // namespace model
}  // namespace opc
