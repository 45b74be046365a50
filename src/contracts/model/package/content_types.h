// [Content_Types].xml: the content type of every part of a package, by extension (Default)
// or by part name (Override).  Internal to libopcmodel: nothing here is exported.
#ifndef OPC_MODEL_PACKAGE_CONTENT_TYPES_H_
#define OPC_MODEL_PACKAGE_CONTENT_TYPES_H_

#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <boost/optional.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/content_type.h>
#include <opc/model/part_name.h>

namespace opc {
namespace model {
namespace detail {

// The ZIP item that holds the content types, and the namespace of its XML.
extern char const kContentTypesItemName[];
extern char16_t const kContentTypesNamespace[];
// The content type of every relationships part.
extern char16_t const kRelationshipsContentType[];

// `text` with every character outside printable ASCII percent-encoded as UTF-8 bytes: how
// part names and relationship targets are written into XML, so that no reader meets a raw
// non-ASCII character where the conventions expect a URI.
std::u16string asciiOnly(std::u16string const& text);

// The extension of a part name as Default elements match it: what follows the last "." of
// the last segment, with ASCII letters in lower case; empty if there is no ".".
std::u16string partNameExtension(PartName const& name);

// The content types of a package as read from [Content_Types].xml.
class ContentTypeMap {
 public:
  // Parses the document from `stream` (opened, read and closed here).  Throws
  // InvalidPackage, its message starting with `context`, if the document is not
  // well-formed XML (a document type declaration included), is not a Types document of the
  // content types namespace, or holds an element whose attributes are missing or invalid,
  // or a second Default for one extension or a second Override for one part.
  static ContentTypeMap read(opc::InputStream& stream, std::string const& context);

  // The Override for the part if there is one, else the Default for its extension.
  boost::optional<ContentType> lookup(PartName const& name) const;
  // The same without a copy: the type held by this map, or null.  Equal types of one map
  // are one object only when they come from one element; callers that share types by
  // index key them by this address.
  ContentType const* find(PartName const& name) const;
  // find() for the part whose comparison key (see PartNameAccess::key) is `key` and whose
  // name is plain ASCII, so that the key holds the name's extension in lower case.
  ContentType const* findByAsciiKey(std::string const& key) const;

 private:
  ContentType const* findOverride(std::string_view key) const;

  std::map<std::u16string, ContentType> defaults_;
  // By the comparison key of the part, which equal part names share.
  std::unordered_map<std::string, ContentType> overrides_;
};

// Writes the document for these parts (relationships parts included): one Default for each
// extension, with the content type that most of its parts have, and an Override for every
// part that has no extension or another type than its extension's Default.  Content types
// are compared, and written, as the text of ContentType::toString.  The pairs point at names
// and types that the caller keeps (a package of many parts copies none of them); no pointer
// is null.
void writeContentTypes(std::vector<std::pair<PartName const*, ContentType const*>> const& parts,
                       opc::OutputStream& stream);

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_CONTENT_TYPES_H_
