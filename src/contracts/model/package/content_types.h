// [Content_Types].xml: the content type of every part of a package, by extension (Default)
// or by part name (Override).  Internal to libopcmodel: nothing here is exported.
#ifndef OPC_MODEL_PACKAGE_CONTENT_TYPES_H_
#define OPC_MODEL_PACKAGE_CONTENT_TYPES_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
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

#include "part_table.h"

namespace opc {
namespace model {
namespace detail {

struct PlainElement;

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
  ContentTypeMap() = default;
  // Moved, never copied: the map keeps pointers to its own types (see asciiDefaults_).
  ContentTypeMap(ContentTypeMap&&) = default;
  ContentTypeMap& operator=(ContentTypeMap&&) = default;
  ContentTypeMap(ContentTypeMap const&) = delete;
  ContentTypeMap& operator=(ContentTypeMap const&) = delete;

  // Parses the document from `stream` (opened, read and closed here).  Throws
  // InvalidPackage, its message starting with `context`, if the document is not
  // well-formed XML (a document type declaration included), is not a Types document of the
  // content types namespace, or holds an element whose attributes are missing or invalid,
  // or a second Default for one extension or a second Override for one part.
  static ContentTypeMap read(opc::InputStream& stream, std::string const& context);

  // Gives a new stream of the document, from its first byte, each time it is called.
  using OpenStream = std::function<std::shared_ptr<opc::InputStream>()>;

  // Reads the document as read() above does, with the same outcome on every input, from a
  // stream that `open` gives; `size` is the size the document is expected to have.  A
  // document of the plain form that writeContentTypes makes is read without the XML parser;
  // any other, or a stream that fails, is read again by the parser from a second stream.
  // What `open` raises passes through.
  static ContentTypeMap read(OpenStream const& open, std::size_t size, std::string const& context);

  // The Override for the part if there is one, else the Default for its extension.
  boost::optional<ContentType> lookup(PartName const& name) const;
  // The same without a copy: the type held by this map, or null.  Equal types of one map
  // are one object only when they come from one element; callers that share types by
  // index key them by this address.
  ContentType const* find(PartName const& name) const;
  // find() for the part whose comparison key (see PartNameAccess::key) is `key` and whose
  // name is plain ASCII, so that the key holds the name's extension in lower case; `hash` is
  // PartTable::hashOf(key), which the caller has made already.
  ContentType const* findByAsciiKey(std::string_view key, std::uint32_t hash) const;

 private:
  // The map of the elements that either road of read() found, kind by kind.
  static ContentTypeMap fromElements(std::vector<PlainElement> const& elements,
                                     std::string const& context);
  ContentType const* findOverride(std::string_view key) const;

  // Orders extensions as texts, and finds one of ASCII given as bytes without widening it.
  struct ExtensionOrder {
    using is_transparent = void;
    bool operator()(std::u16string const& a, std::u16string const& b) const { return a < b; }
    bool operator()(std::u16string const& a, std::string_view b) const;
    bool operator()(std::string_view a, std::u16string const& b) const;
  };

  std::map<std::u16string, ContentType, ExtensionOrder> defaults_;
  // By the comparison key of the part, which equal part names share.  The keys are the
  // package's to choose: they are filed under the part table's seeded hash rather than the
  // standard one, whose fixed constants let keys be chosen to share one bucket.
  std::unordered_map<std::string, ContentType, PartKeyHash> overrides_;
  // PartTable::hashOf of each key of overrides_, in order: a part's key, hashed already for
  // the part table, is looked up among the overrides only when its hash is among them.
  std::vector<std::uint32_t> overrideHashes_;
  // The Defaults of ASCII extensions as bytes, beside their types in defaults_, when there are
  // as few as packages have: looked through in order, they cost less than a search of the
  // tree, which compares texts of another width.
  static constexpr std::size_t kFewDefaults = 16;
  std::vector<std::pair<std::string, ContentType const*>> asciiDefaults_;
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
