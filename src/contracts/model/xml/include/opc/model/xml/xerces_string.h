// XercesString: an owned, null-terminated string of the XML library's characters.
#ifndef OPC_MODEL_XML_XERCES_STRING_H_
#define OPC_MODEL_XML_XERCES_STRING_H_

#include <string>
#include <type_traits>

#include <xercesc/util/XercesDefs.hpp>

#include <opc/model/export.h>

namespace opc {
namespace model {

// The XML library's character type is UTF-16 in char16_t on this platform, so that a
// char16_t text is handed to it as it stands, without transcoding.
static_assert(std::is_same<XMLCh, char16_t>::value, "XMLCh must be char16_t");

// A UTF-16 text kept in the form the XML library takes: element, attribute and namespace
// names, and values.  Every code unit is kept as given, surrogate pairs and unpaired
// surrogates alike; no validation or normalisation takes place.
//
// The constructors are implicit on purpose: XercesHelper takes names as XercesString, and
// callers pass literals and std::u16string values.
//
// A value is independent of the XML library's initialisation, so constants of this type may
// outlive every XercesGuard.  Not synchronised: share a value between threads only for
// reading.
class OPC_MODEL_EXPORT XercesString {
 public:
  XercesString(std::u16string const& text);  // NOLINT(runtime/explicit)
  // Copies up to the terminating null.  A null pointer gives the empty string, as the XML
  // library uses null for "no text".
  XercesString(char16_t const* text);  // NOLINT(runtime/explicit)
  XercesString(XercesString const& other);
  XercesString(XercesString&& other) noexcept;
  XercesString& operator=(XercesString const& other);
  XercesString& operator=(XercesString&& other) noexcept;
  ~XercesString();

  // The null-terminated text, valid until this object is changed or destroyed.  A text built
  // from a std::u16string with a null code unit inside is seen by the XML library only up
  // to that null; the conversion to std::u16string gives all of it.
  operator char16_t*();              // NOLINT(runtime/explicit)
  operator char16_t const*() const;  // NOLINT(runtime/explicit)
  operator std::u16string() const;   // NOLINT(runtime/explicit)
  std::u16string const& str() const;

  // Code unit by code unit, over the whole text.
  bool operator==(XercesString const& other) const;
  bool operator!=(XercesString const& other) const;
  bool operator==(char16_t const* other) const;
  bool operator!=(char16_t const* other) const;
  bool operator==(std::u16string const& other) const;
  bool operator!=(std::u16string const& other) const;

 private:
  std::u16string text_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XERCES_STRING_H_
