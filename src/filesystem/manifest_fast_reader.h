// ManifestFastReader: reads the plain form of a manifest without the validating parser.
#ifndef SRC_FILESYSTEM_MANIFEST_FAST_READER_H_
#define SRC_FILESYSTEM_MANIFEST_FAST_READER_H_

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/model/xml/xml_stream_handler.h>

namespace opc {
namespace vkservices {
namespace detail {

// A strict reader of the manifest documents that the writer makes, which accepts a document
// only when it can tell that the validating parser accepts it too, and then reports the same
// elements with the same attribute values, in the same order.  Everything else it leaves to the
// parser: it gives up, and the caller reads the same bytes again through the parser, whose
// verdict and words stay the only ones a bad document ever gets.
//
// What it accepts: UTF-8 with only characters that XML allows, without a byte order mark; an
// optional XML declaration of version "1.0", encoding "UTF-8", standalone "yes" or "no";
// whitespace between the markup; the root `fileEntries` in the current namespace declared as
// the default one, with exactly its three required attributes, a version that is a plain
// decimal ("2.0"); then `fileEntry` elements, empty or holding whitespace only, with name,
// content and type ("File", "SymLink" or "Folder") and optionally permissions and a date that
// is empty or a dateTime of the form "2021-03-04T05:06:07.123Z" (fraction and "Z" optional).
// Attribute values may hold the five predefined entities and character references.  Any other
// construct (comments, processing instructions, a document type declaration, CDATA, other
// encodings, prefixes, other attributes, a raw tab, line feed or carriage return inside a
// value, the older form) makes it give up.
//
// A document is read either from memory or from a stream through a window of a fixed size.  An
// element that meets the end of the window is read again from its start once the window holds
// it and what follows: an element of up to a window is read whole, with only its own bytes
// moved, and one that does not fit makes the reader give up.  Whitespace between elements may
// run to any length.
//
// Not thread-safe; one object may read any number of documents in turn.
class ManifestFastReader {
 public:
  // The window of stream reads, large enough for any path that a file system takes.
  static constexpr std::size_t kDefaultWindow = std::size_t{1} << 20;
  // The smallest window: the declaration and the root's start tag fit into it.
  static constexpr std::size_t kMinimumWindow = 256;

  // `window` is the size of the buffer of stream reads, at least kMinimumWindow.
  explicit ManifestFastReader(std::size_t window = kDefaultWindow);
  ManifestFastReader(ManifestFastReader const&) = delete;
  ManifestFastReader& operator=(ManifestFastReader const&) = delete;
  ~ManifestFastReader();

  // Reads the document in `data` (`size` bytes), passing its elements to `handler` as
  // opc::model::XmlStreamReader::read would.  A handler that throws is called no more, and the
  // scan goes on to the end of the document; refusal() then holds the exception.
  //
  // Returns true if the document is one that the validating parser accepts.  Returns false if
  // the reader gave up on it: `handler` may have been given a part of the document by then,
  // and the caller undoes what it did before the document is read again.  Never throws itself.
  bool read(unsigned char const* data, std::size_t size, opc::model::XmlStreamHandler& handler);

  // Reads the document in `source`, which is open, as read() above does, taking its bytes as
  // the window needs them.  Returns true with `source` read to its end (not closed), false
  // when the reader gave up, with `source` part way through.  An exception of `source` passes
  // through; consumed() then tells how far the source got.
  bool read(opc::InputStream& source, opc::model::XmlStreamHandler& handler);

  // How many bytes the last read from a stream took from it.
  std::size_t consumed() const { return consumed_; }

  // The first exception that the handler threw in the last read, or null.
  std::exception_ptr const& refusal() const { return refusal_; }

 private:
  class Scan;

  // Both forms of read() once the scan is set up.
  bool readDocument(Scan& scan, opc::model::XmlStreamHandler& handler);
  // The root's end tag, then `last` is set, or one `fileEntry`, read whole before the handler is
  // given it.  False to give up, or to read it again after a refill.
  bool element(Scan& scan, opc::model::XmlStreamHandler& handler, bool& last);
  // The attributes of a start tag, from behind its name to its ">" or "/>" (`empty` tells
  // which), each one of the `count` known `names` at most once; `present` gets a bit per name
  // found, in the order of `names`.  `order` holds the indices of the names in the order in
  // which they mostly come, each tried first at its place.  False to give up.
  bool startTag(Scan& scan, std::u16string_view const* names, std::uint8_t const* order,
                std::size_t count, unsigned& present, bool& empty);
  // One `fileEntry`, from behind its name to its end.  False to give up.
  bool entry(Scan& scan, opc::model::XmlStreamHandler& handler);
  void emitStart(std::u16string_view localName, std::size_t depth,
                 opc::model::XmlStreamHandler& handler);
  void emitEnd(std::size_t depth, opc::model::XmlStreamHandler& handler);

  // The decoded values of the attributes of the element at hand, one room per known name: views
  // into buffers that only grow, and that the handler is given.
  std::u16string buffers_[5];
  std::u16string_view values_[5];
  std::vector<opc::model::XmlStreamAttribute> attributes_;
  std::exception_ptr refusal_;
  std::size_t window_;
  // The window of stream reads, made at the first one.
  std::unique_ptr<unsigned char[]> buffer_;
  std::size_t consumed_ = 0;
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

#endif  // SRC_FILESYSTEM_MANIFEST_FAST_READER_H_
