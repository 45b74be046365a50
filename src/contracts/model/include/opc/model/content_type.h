// ContentType: a media type with parameters, the type of the content of a part.
#ifndef OPC_MODEL_CONTENT_TYPE_H_
#define OPC_MODEL_CONTENT_TYPE_H_

#include <string>
#include <utility>
#include <vector>

#include <opc/model/export.h>

namespace opc {
namespace model {

// A media type by RFC 7231 section 3.1.1.1:
//   type "/" subtype *( OWS ";" OWS name "=" value )
// where type, subtype and name are tokens, a value is a token or a quoted-string (in
// double quotes, "\" escaping the next character), and OWS is optional blanks or tabs.
// No white space is allowed anywhere else: not at the start or end, not around "/" or "=".
// A quoted value may hold tabs, blanks, visible ASCII and the characters U+0080 to U+00FF
// (the "obs-text" bytes); no other characters are allowed.  A parameter name may appear
// once only, "a/b;" (a ";" with no parameter) is refused, and so is every other departure
// from the grammar, with InvalidContentType.
//
// Case: type, subtype and parameter names are compared without regard to ASCII case;
// parameter values are compared exactly, except the value of "charset", which RFC 7231
// defines as case-insensitive.  Getters return the text as it was given.
//
// Parameters keep the order in which they were parsed or added, and toString() writes them
// in that order.  Equality ignores the order: two values are equal when type and subtype
// match and they have the same parameter names with equal values.
//
// A value class: copies are independent; const operations are safe from several threads.
class OPC_MODEL_EXPORT ContentType {
 public:
  // Parses `text`.  Throws InvalidContentType naming the text and what is wrong, for
  // example: Invalid content type "text/plain;": a parameter must follow ";"
  explicit ContentType(std::u16string const& text);
  // `text` must be null-terminated; a null pointer is parsed as the empty text (invalid).
  explicit ContentType(char16_t const* text);
  ContentType(ContentType const& other);
  ContentType(ContentType&& other) noexcept;
  ContentType& operator=(ContentType const& other);
  ContentType& operator=(ContentType&& other) noexcept;
  ~ContentType();

  bool operator==(ContentType const& other) const;
  bool operator!=(ContentType const& other) const;
  // Whether the two are written alike, character for character: the same type, subtype and
  // parameters, in the same order and the same case, so that both give the same toString.
  // Stricter than ==, which ignores case where the type's rules do; and cheaper than
  // comparing the two texts, which makes neither.
  bool isWrittenAs(ContentType const& other) const;

  // The full text: "type/subtype;name=value;name2=value2", with no blanks, parameters in
  // their order, and a value in double quotes (with "\" before each '"' and "\") only when
  // it is not a token.  Parses back to an equal ContentType.
  std::u16string toString() const;

  std::u16string getType() const;
  std::u16string getSubType() const;

  // The parameters as (name, unquoted value) pairs, in their order.
  std::vector<std::pair<std::u16string, std::u16string>> getParameters() const;

  // True if a parameter of that name exists (name compared without regard to ASCII case).
  bool hasParameter(std::u16string const& name) const;

  // The value of the parameter, without quotes or escapes; the empty string if there is no
  // such parameter (callers test hasParameter first when that matters).
  std::u16string getParameterValue(std::u16string const& name) const;

  // Sets a parameter.  If one of that name exists (without regard to ASCII case), it is
  // replaced where it stands, name spelling included; otherwise the parameter is appended.
  // Throws InvalidContentType, and changes nothing, if `name` is not a token or `value`
  // holds a character that cannot be written (see the class comment).
  void addParameter(std::u16string const& name, std::u16string const& value);

  // Removes the parameter of that name, if there is one; otherwise does nothing.
  void removeParameter(std::u16string const& name);

 private:
  std::u16string type_;
  std::u16string subType_;
  std::vector<std::pair<std::u16string, std::u16string>> parameters_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_CONTENT_TYPE_H_
