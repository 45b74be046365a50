// The names by which the cipher data part is found and recognised, and its schema.  Internal
// to the cipher data subsystem.
#ifndef SRC_CIPHERDATA_CIPHER_DATA_NAMES_H_
#define SRC_CIPHERDATA_CIPHER_DATA_NAMES_H_

#include <cstddef>
#include <string>

namespace opc {
namespace vkservices {
namespace detail {

// The name of a new part.  An existing part is found by its relationship, whatever its name.
inline constexpr char16_t kCipherDataPartName[] = u"/metadata/vkCipherData.xml";
inline constexpr char16_t kCipherDataContentType[] =
    u"application/vnd.veltrance.package.cipherData+xml";

// SchemaBase followed by the path of the relationship type and of the namespace.
std::u16string cipherDataRelationshipType();
std::u16string cipherDataNamespace();

// The elements and attributes of the document.
inline constexpr char16_t kCipherDataElement[] = u"CipherData";
inline constexpr char16_t kCipherEntryElement[] = u"CipherEntry";
inline constexpr char16_t kSelectorElement[] = u"RelationshipSelector";
inline constexpr char16_t kHashElement[] = u"Hash";
inline constexpr char16_t kSaltElement[] = u"Salt";
inline constexpr char16_t kIVElement[] = u"IV";
inline constexpr char16_t kSourceURIAttribute[] = u"SourceURI";
inline constexpr char16_t kSelectorTypeAttribute[] = u"SelectorType";
inline constexpr char16_t kValueAttribute[] = u"Value";
// The texts of the two selector types.
inline constexpr char16_t kByType[] = u"ByType";
inline constexpr char16_t kByID[] = u"ByID";

// The system identifier of the schema, which names it in the parser's messages.
inline constexpr char16_t kCipherDataSchemaId[] = u"vkCipherData.xsd";

// The largest cipher data part that is read.  An entry takes about 300 bytes, so this admits
// some ten thousand of them; a larger part is hostile and would only cost memory in the
// parser's tree.
inline constexpr std::size_t kMaxCipherDataPartSize = std::size_t{4} << 20;

// The schema: UTF-8 text with an XML declaration, never read from a file.
std::string cipherDataSchemaText();

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_CIPHERDATA_CIPHER_DATA_NAMES_H_
