// The element and attribute names and the fixed values of the file-system manifest, shared by
// its reader and its writer.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_WORDS_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_WORDS_H_

#include <string_view>

namespace opc {
namespace vkservices {
namespace detail {

inline constexpr std::u16string_view kFileEntries = u"fileEntries";
inline constexpr std::u16string_view kFileEntry = u"fileEntry";
inline constexpr std::u16string_view kName = u"name";
inline constexpr std::u16string_view kContent = u"content";
inline constexpr std::u16string_view kType = u"type";
inline constexpr std::u16string_view kDate = u"date";
inline constexpr std::u16string_view kPermissions = u"permissions";
inline constexpr std::u16string_view kCreatedByPlatform = u"createdByPlatform";
inline constexpr std::u16string_view kCreatedByEncoding = u"createdByEncoding";
inline constexpr std::u16string_view kVersion = u"version";
inline constexpr std::u16string_view kPlatform = u"platform";
inline constexpr std::u16string_view kEncoding = u"encoding";
inline constexpr std::u16string_view kFile = u"File";
inline constexpr std::u16string_view kSymLink = u"SymLink";
inline constexpr std::u16string_view kFolder = u"Folder";
// The version of a document that has none: the older form.
inline constexpr std::u16string_view kVersionV1 = u"1.0";

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_WORDS_H_
