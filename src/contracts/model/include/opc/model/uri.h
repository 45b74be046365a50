// URI: a URI reference (RFC 3986), or an IRI reference (RFC 3987) with non-ASCII characters,
// as the package model keeps relationship targets and sources.
#ifndef OPC_MODEL_URI_H_
#define OPC_MODEL_URI_H_

#include <string>

#include <opc/model/export.h>

namespace opc {
namespace model {

// A URI reference, kept as the text it was made from.
//
// Construction never fails and never changes the text: relationship targets in real
// packages are not always well-formed (an external target may be a Windows path with
// blanks), and a package must stay readable with them.  The syntax is checked where it
// matters: by isValid() and ensureValid(), by resolve(), and by the PartName made from a
// URI.  Equality and ordering compare the text code unit by code unit, with no
// normalisation, so that two URIs are equal exactly when they print the same.
//
// A value class: copies are independent; distinct objects may be used from distinct
// threads, and const operations of one object from several threads at once.
class OPC_MODEL_EXPORT URI {
 public:
  explicit URI(std::u16string const& text);
  // `text` must be null-terminated; a null pointer makes the empty reference.
  explicit URI(char16_t const* text);
  URI(URI const& other);
  URI(URI&& other) noexcept;
  URI& operator=(URI const& other);
  URI& operator=(URI&& other) noexcept;
  ~URI();

  // The text as given to the constructor.
  std::u16string toString() const;

  // The path separator "/" and the character ".", as callers that cut names use them.
  static char16_t getSlash();
  static char16_t getDot();

  // Percent-encodes `text` for use in a URI: every character that is not an RFC 3986
  // unreserved character (ASCII letters and digits, "-", ".", "_", "~") and not one of the
  // ASCII characters of `keep` becomes the "%XX" escapes of its UTF-8 bytes, with upper-case
  // hexadecimal digits.  So encodeComponent(u"a b/é", "/") gives u"a%20b/%C3%A9".  Bytes of
  // `keep` above 0x7F are ignored; an unpaired surrogate is encoded as U+FFFD.  A "%" that
  // is not in `keep` is encoded too, so that the result decodes back to `text`.
  static std::u16string encodeComponent(std::u16string const& text, std::string const& keep);

  // True if the reference has a scheme ("http:", "file:"), that is, it is not relative.
  bool isAbsolute() const;

  // True if the text is a URI reference by RFC 3986, extended to IRIs by RFC 3987: only
  // allowed characters, "%" always followed by two hexadecimal digits, a valid scheme if
  // there is a ":" before the first "/", "?" or "#", at most one "#".  The empty reference
  // is valid.
  bool isValid() const;

  // Throws InvalidURI, with the reason, if isValid() is false.
  void ensureValid() const;

  // Resolves `reference` against this URI as base, by RFC 3986 section 5.2 (strict: a
  // reference with a scheme is taken as it is, dot segments removed).  The base may be an
  // absolute URI or an absolute path such as a part name: URI(u"/a/c.xml").resolve(
  // URI(u"../b.xml")) gives "/b.xml", and "../../../x" stops at the root: "/x".  The
  // base's fragment is ignored.  Throws InvalidURI if either text is not valid, or if the
  // base is neither absolute nor starts with "/".
  URI resolve(URI const& reference) const;

  // Compare the text exactly (see the class comment).
  bool operator==(URI const& other) const;
  bool operator!=(URI const& other) const;
  bool operator<(URI const& other) const;

 private:
  std::u16string text_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_URI_H_
