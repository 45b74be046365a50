// FileSystemManifestXml: the XML document that lists the entries of a package file system.
#ifndef SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_H_
#define SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <boost/core/noncopyable.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>

#include "contracts/model/xml_engine/xml_engine.h"
#include "filesystem/file_system_tree.h"

namespace opc {
namespace vkservices {
namespace detail {
class ManifestBytes;
}

// Reads and writes the manifest of a package file system.
//
// The document has the root element `fileEntries` (attributes createdByPlatform,
// createdByEncoding, version) with one `fileEntry` (name, content, type, and optionally
// permissions and date) per leaf of the tree: files, links and folders without children.
// The root "/" and folders with children are not written; reading makes them again, without
// permissions or date.  The older form of the document (no version, attributes platform and
// encoding, decimal file modes) is read as version "1.0" and written by writeV1.
//
// Both schemas are compiled into the library and compiled by the parser once, by the first
// read that needs it; every document that the parser reads is validated against the grammar
// of its namespace.  The parser refuses document type declarations and external resources.
//
// Documents are streamed both ways: reading fills the tree entry by entry as they are read, and
// writing prints each leaf as the tree is walked, so that neither holds a large document in
// memory.  A reader without the parser tries each document first; when it cannot tell that the
// parser accepts it, the parser reads it from its first byte, from the source again when the
// caller can give it again, or else from the first 4 MiB held in memory.
//
// The object owns one parser, made at its first use, and is used by one thread at a time.
// That first use loads the XML library into the process, if nothing did before: a package
// whose manifests the reader without the parser reads never loads it.
class FileSystemManifestXml : private boost::noncopyable {
 public:
  // Gives the stream of a document anew, from its first byte, for a second reading: a stream
  // of its own, which the reader opens, reads and closes, valid until the read that asked for
  // it returns.
  using Reopen = std::function<opc::InputStream&()>;

  // Makes neither the parser nor its grammars: the plain documents that the writer makes are
  // read without them.  `window` is the buffer of the reader without the parser on a stream
  // (detail::ManifestFastReader): smaller ones than the default are for tests.
  explicit FileSystemManifestXml(std::size_t window = std::size_t{1} << 20);
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
  // The first read that needs the parser makes it and caches both grammars, and raises
  // opc::model::InvalidXMLSchema "Schema could not be loaded: <parser's text>" if a schema
  // does not load.
  //
  // Raises opc::model::InvalidPartContent with the parser's text if the document is not
  // well-formed or not valid, and with the texts of readPermissions and readDate
  // (file_system_manifest_xml_values.h) for bad values; raises what FileSystemTree::addNode
  // raises for a path that exists already or does not begin with "/".  An exception of
  // `source` passes through.  The document is checked whole before a bad value is reported,
  // so an error of the document or of `source` wins over it, and then the tree is as it was
  // before the call, its three strings included.  After a bad value nothing is rolled back:
  // the entries before the bad one stay in the tree.
  //
  // Documents of the plain form that the writer makes, up to 4 MiB, are read without the
  // parser when a strict reader can tell that the parser would accept them; anything else goes
  // through the parser from its first byte, with the same outcome in every case.
  void read(opc::InputStream& source, FileSystemTree& tree);

  // Reads as read() above, with a source that can be read again: documents of the plain form of
  // any size are read without the parser, as a stream, in a window of bounded size.  When the
  // reader gives up on a document, `source` is closed and the parser reads the stream that
  // `reopen` gives.  `source` is read at least as far as read() above would hold (4 MiB), so
  // that a source that fails there reports its failure as it does there, without a second
  // reading; a failure further on leaves the verdict to the parser on the second reading.  What
  // `reopen` and the second stream raise passes through, with the tree as it was.
  //
  // `size` is the size that the document is expected to have, 0 if it is not known.  A document
  // of up to 4 MiB is then read in one window of its size instead: no more memory than the
  // stream of an item inflated whole holds, which inflates straight into it.
  void read(opc::InputStream& source, FileSystemTree& tree, Reopen const& reopen,
            std::uint64_t size = 0);

  // Reads as read() does, always through the validating parser: the reference that the
  // reader without it is held to.
  void readValidating(opc::InputStream& source, FileSystemTree& tree);

  // How many reads of either read() went through the validating parser so far.
  std::size_t parserReads() const { return parserReads_; }

  // Writes the current form of the document for `tree` to `target`: UTF-8, standalone,
  // indented, the leaves in the tree's key order, attributes by name (the bytes of the XML
  // library's pretty-printing writer).  The version is printed as the tree
  // holds it.  `target` is flushed, not closed.  Raises opc::model::InvalidPartContent
  // "XML error: invalid or illegal XML character" if a text holds a character that XML does
  // not allow (a NUL included); bytes written before stay written.  An exception of `target`
  // passes through.
  void write(FileSystemTree const& tree, opc::OutputStream& target);

  // Writes the older form: no version, platform and encoding, every entry's content name as
  // its content (a folder's own path, a link's target), and permissions as the decimal
  // digits of the value plus 32768.  Failures as for write.  The older grammar types the
  // content as a URI: a folder path or link target that is none ("/a]b", "/c%zz") makes a
  // document that read, like the readers of the older generation, refuses.
  void writeV1(FileSystemTree const& tree, opc::OutputStream& target);

 private:
  void writeForm(FileSystemTree const& tree, opc::OutputStream& target, bool isV1);
  // Tries the reader without the parser; false, with `tree` as it was, if it gave up.
  bool readFast(detail::ManifestBytes& bytes, FileSystemTree& tree);
  // The parser, with both grammars compiled, made at the first call.
  opc::model::detail::XmlEventReader& parser();

  // Null until a document needs the parser: compiling the grammars costs more than reading a
  // manifest of thousands of entries without it.
  std::unique_ptr<opc::model::detail::XmlEventReader> reader_;
  std::size_t window_;
  std::size_t parserReads_ = 0;
};

}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_FILE_SYSTEM_MANIFEST_XML_H_
