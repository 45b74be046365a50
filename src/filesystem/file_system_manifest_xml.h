// FileSystemManifestXml: the XML document that lists the entries of a package file system.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_H_

#include <memory>
#include <string>

#include <boost/core/noncopyable.hpp>
#include <xercesc/dom/DOMLSParser.hpp>
#include <xercesc/dom/DOMLSSerializer.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/xml/xerces_deleter.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_string.h>

#include "filesystem/file_system_tree.h"

namespace opc {
namespace vkservices {

// Reads and writes the manifest of a package file system.
//
// The document has the root element `fileEntries` (attributes createdByPlatform,
// createdByEncoding, version) with one `fileEntry` (name, content, type, and optionally
// permissions and date) per leaf of the tree: files, links and folders without children.
// The root "/" and folders with children are not written; reading makes them again, without
// permissions or date.  The older form of the document (no version, attributes platform and
// encoding, decimal file modes) is read as version "1.0" and written by writeV1.
//
// Both schemas are compiled into the library and loaded once, at construction, into the
// grammar cache of the object's parser; every document read is validated against the grammar
// of its namespace.  The parser refuses document type declarations and external resources.
//
// The object owns one parser and one serializer and is used by one thread at a time.  It
// keeps the XML library initialised for as long as it lives.
class FileSystemManifestXml : private boost::noncopyable {
 public:
  // Makes the parser and the serializer and caches both grammars.  Raises
  // opc::model::InvalidXMLSchema "Schema could not be loaded: <parser's text>" if a schema
  // does not load.
  FileSystemManifestXml();
  // Releases the serializer, then the parser.
  ~FileSystemManifestXml();

  // Parses and validates the document in `source` (opened, read to its end and closed) and
  // fills `tree`, which must be a new tree holding only its root.  The tree's version becomes
  // the document's version, or "1.0" if it has none; the version decides how the rest is
  // read: for "1.0" the attributes platform and encoding, decimal permissions, and a "/" put
  // in front of names that lack it (an empty name raises std::out_of_range); for any other
  // version createdByPlatform, createdByEncoding and octal permissions, and names as they
  // stand.  Entries are added in document order; parents that do not exist are made as
  // folders without permissions or date.
  //
  // Raises opc::model::InvalidPartContent with the parser's text if the document is not
  // well-formed or not valid, and with the texts of readPermissions and readDate
  // (file_system_manifest_xml_values.h) for bad values; raises what FileSystemTree::addNode
  // raises for a path that exists already or does not begin with "/".  An exception of
  // `source` passes through.  Nothing is rolled back: the entries before a bad one stay in
  // the tree.
  void read(opc::InputStream& source, FileSystemTree& tree);

  // Writes the current form of the document for `tree` to `target`: UTF-8, standalone,
  // indented, the leaves in the tree's key order.  The version is printed as the tree holds
  // it.  `target` is flushed, not closed.  Raises opc::model::InvalidPartContent with the
  // XML library's text if the document cannot be written (a name with a character that XML
  // does not allow); bytes written before stay written.  An exception of `target` passes
  // through.
  void write(FileSystemTree const& tree, opc::OutputStream& target);

  // Writes the older form: no version, platform and encoding, every entry's content name as
  // its content (a folder's own path, a link's target), and permissions as the decimal
  // digits of the value plus 32768.  Failures as for write.  The older grammar types the
  // content as a URI: a folder path or link target that is none ("/a]b", "/c%zz") makes a
  // document that read, like the readers of the older generation, refuses.
  void writeV1(FileSystemTree const& tree, opc::OutputStream& target);

 private:
  void writeForm(FileSystemTree const& tree, opc::OutputStream& target, bool isV1);

  opc::model::XercesGuard guard_;
  std::unique_ptr<xercesc::DOMLSParser, opc::model::XercesDeleter> parser_;
  std::unique_ptr<xercesc::DOMLSSerializer, opc::model::XercesDeleter> serializer_;

  opc::model::XercesString const namespace_;
  opc::model::XercesString const fileEntriesElement_;
  opc::model::XercesString const fileEntryElement_;
  opc::model::XercesString const nameAttribute_;
  opc::model::XercesString const contentAttribute_;
  opc::model::XercesString const typeAttribute_;
  opc::model::XercesString const dateAttribute_;
  opc::model::XercesString const permissionsAttribute_;
  opc::model::XercesString const createdByPlatformAttribute_;
  opc::model::XercesString const createdByEncodingAttribute_;
  opc::model::XercesString const versionAttribute_;
  opc::model::XercesString const namespaceV1_;
  opc::model::XercesString const platformAttribute_;
  opc::model::XercesString const encodingAttribute_;

  std::u16string const fileType_;
  std::u16string const symLinkType_;
  std::u16string const folderType_;
  // The version of a document that has none: the older form.
  std::u16string const versionV1_;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_H_
