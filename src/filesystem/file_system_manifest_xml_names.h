// The names by which the file-system manifest is found and recognised: its XML namespaces,
// relationship types and schema identifiers, each built once from SchemaBase.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_NAMES_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_NAMES_H_

#include <cstddef>
#include <string>
#include <type_traits>

#include <opc/vkservices/schema_base.h>

namespace opc {
namespace vkservices {
namespace detail {

// A zero-terminated text of N - 1 characters made at compile time, so that a namespace and
// the schema that declares it can both be constants and still come from one SchemaBase.
template <typename Char, std::size_t N>
struct FixedText {
  Char text[N];

  constexpr Char const* c_str() const { return text; }
  static constexpr std::size_t size() { return N - 1; }
  std::basic_string<Char> str() const { return std::basic_string<Char>(text, N - 1); }
};

template <typename Out, typename In>
constexpr std::size_t appendASCII(Out* out, std::size_t at, In const* part, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) {
    auto const unit = static_cast<std::make_unsigned_t<In>>(part[i]);
    // Only ASCII is the same character in every width; anything else stops compilation.
    if (unit > 0x7F) throw "joinASCII: only ASCII text can be joined";
    out[at++] = static_cast<Out>(unit);
  }
  return at;
}

// The concatenation of zero-terminated ASCII literals of any character width, as a text of
// `Out` characters: joinASCII<char>(u"ab", "cd") holds "abcd".
template <typename Out, typename... In, std::size_t... N>
constexpr FixedText<Out, (N + ... + 1) - sizeof...(N)> joinASCII(In const (&... parts)[N]) {
  FixedText<Out, (N + ... + 1) - sizeof...(N)> result{};
  std::size_t at = 0;
  ((at = appendASCII(result.text, at, parts, N - 1)), ...);
  result.text[at] = Out(0);
  return result;
}

// Paths behind SchemaBase.  The current form of the manifest:
inline constexpr char16_t kManifestNamespacePath[] = u"/package/2013/filesystemManifest";
inline constexpr char16_t kManifestRelationshipPath[] =
    u"/package/2013/relationships/filesystemManifest";
// The older form, which has no version attribute and is read as version "1.0":
inline constexpr char16_t kManifestNamespacePathV1[] = u"/orvane/compiler/2011/fileManifest";
inline constexpr char16_t kManifestRelationshipPathV1[] =
    u"/orvane/compiler/2011/relationships/fileManifest";

// The one place where the manifest's namespaces and relationship types are built.
inline constexpr auto kManifestNamespace = joinASCII<char16_t>(SchemaBase, kManifestNamespacePath);
inline constexpr auto kManifestRelationshipType =
    joinASCII<char16_t>(SchemaBase, kManifestRelationshipPath);
inline constexpr auto kManifestNamespaceV1 =
    joinASCII<char16_t>(SchemaBase, kManifestNamespacePathV1);
inline constexpr auto kManifestRelationshipTypeV1 =
    joinASCII<char16_t>(SchemaBase, kManifestRelationshipPathV1);

// The names that the two schemas go by in the parser's messages.
inline constexpr char16_t kManifestSchemaId[] = u"filesystemManifest.xsd";
inline constexpr char16_t kManifestSchemaIdV1[] = u"fileManifest.xsd";

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_NAMES_H_
