// SchemaBase: the common beginning of every relationship type and XML namespace of the library.
#ifndef OPC_VKSERVICES_SCHEMA_BASE_H_
#define OPC_VKSERVICES_SCHEMA_BASE_H_

namespace opc {
namespace vkservices {

// The URI prefix, scheme and host without a trailing "/", of all relationship types and XML
// namespaces that this library defines.  Each of them is SchemaBase followed by a path that
// begins with "/"; the relationship type of the file-system manifest, for example, is
// SchemaBase + "/package/2013/relationships/filesystemManifest".  Callers that look for the
// library's parts by relationship type build the type the same way.
//
// The value is ASCII and is part of the persisted format: packages written with it are
// found only through it, so it never changes.  A compile-time constant in every module that
// includes this header (no symbol of the library is involved); thread-safe.
inline constexpr char16_t SchemaBase[] = u"http://schemas.opcvkservices.org";

}  // namespace vkservices
}  // namespace opc

#endif  // OPC_VKSERVICES_SCHEMA_BASE_H_
