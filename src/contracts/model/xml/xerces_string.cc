#include <utility>

#include <opc/model/xml/xerces_string.h>

namespace opc {
namespace model {

XercesString::XercesString(std::u16string const& text) : text_(text) {}

XercesString::XercesString(char16_t const* text)
    : text_(text == nullptr ? std::u16string() : std::u16string(text)) {}

XercesString::XercesString(XercesString const& other) = default;
XercesString::XercesString(XercesString&& other) noexcept = default;
XercesString& XercesString::operator=(XercesString const& other) = default;
XercesString& XercesString::operator=(XercesString&& other) noexcept = default;
XercesString::~XercesString() = default;

// std::u16string keeps a terminating null behind its data, so its buffer is the
// null-terminated string that the XML library expects.
XercesString::operator char16_t*() { return text_.data(); }

XercesString::operator char16_t const*() const { return text_.c_str(); }

XercesString::operator std::u16string() const { return text_; }

std::u16string const& XercesString::str() const { return text_; }

bool XercesString::operator==(XercesString const& other) const { return text_ == other.text_; }
bool XercesString::operator!=(XercesString const& other) const { return text_ != other.text_; }
bool XercesString::operator==(char16_t const* other) const { return *this == XercesString(other); }
bool XercesString::operator!=(char16_t const* other) const { return !(*this == other); }
bool XercesString::operator==(std::u16string const& other) const { return text_ == other; }
bool XercesString::operator!=(std::u16string const& other) const { return text_ != other; }

}  // namespace model
}  // namespace opc
