#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string_view>
#include <utility>

#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <opc/core/string_conversions.h>
#include <opc/model/uri.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/model/xml/xml_stream_handler.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_manifest_xml_names.h"
#include "filesystem/file_system_manifest_xml_values.h"
#include "filesystem/file_system_manifest_xml_words.h"
#include "filesystem/file_system_node.h"
#include "filesystem/manifest_bytes.h"
#include "filesystem/manifest_fast_reader.h"
#include "filesystem/manifest_schemas.h"

namespace opc {
namespace vkservices {
namespace {

using detail::kContent;
using detail::kCreatedByEncoding;
using detail::kCreatedByPlatform;
using detail::kDate;
using detail::kEncoding;
using detail::kFile;
using detail::kFileEntry;
using detail::kFolder;
using detail::kName;
using detail::kPermissions;
using detail::kPlatform;
using detail::kSymLink;
using detail::kType;
using detail::kVersion;
using detail::kVersionV1;
using opc::model::XmlStreamElement;

// The value of an attribute, or "" if it is missing: an optional attribute that is missing
// and one that is empty mean the same here.
std::u16string_view attribute(XmlStreamElement const& element, std::u16string_view name) {
  std::u16string_view const* value = element.findAttribute(name);
  return value == nullptr ? std::u16string_view() : *value;
}

// The attributes of one entry, found in one pass over the element's attributes; each is ""
// when missing, as in attribute().
struct EntryAttributes {
  std::u16string_view name;
  std::u16string_view content;
  std::u16string_view type;
  std::u16string_view permissions;
  std::u16string_view date;

  explicit EntryAttributes(XmlStreamElement const& element) {
    if (element.attributes == nullptr) return;
    for (opc::model::XmlStreamAttribute const& attribute : *element.attributes) {
      if (attribute.name == kName) {
        name = attribute.value;
      } else if (attribute.name == kContent) {
        content = attribute.value;
      } else if (attribute.name == kType) {
        type = attribute.value;
      } else if (attribute.name == kPermissions) {
        permissions = attribute.value;
      } else if (attribute.name == kDate) {
        date = attribute.value;
      }
    }
  }
};

// Fills a tree from the elements of a manifest as the parser validates them.
class ManifestFiller : public opc::model::XmlStreamHandler {
 public:
  explicit ManifestFiller(FileSystemTree& tree) : tree_(tree), isV1_(false) {}

  void startElement(XmlStreamElement const& element) override {
    try {
      if (element.depth == 0) {
        readRoot(element);
      } else if (element.depth == 1 && element.localName == kFileEntry) {
        // Entries are found by local name, as children of the root: the grammar has made
        // sure that nothing else stands there.
        readEntry(element);
      }
    } catch (...) {
      refusal_ = std::current_exception();
      throw;
    }
  }

  // The exception with which an entry was refused, if one was.
  std::exception_ptr const& refusal() const { return refusal_; }

 private:
  void readRoot(XmlStreamElement const& element) {
    std::u16string_view const* version = element.findAttribute(kVersion);
    tree_.setVersion(std::u16string(version == nullptr ? kVersionV1 : *version));
    // The version alone tells the two forms apart, not the namespace: a reader of the
    // current form then also reads later versions.
    isV1_ = tree_.getVersion() == kVersionV1;
    tree_.setPlatform(std::u16string(attribute(element, isV1_ ? kPlatform : kCreatedByPlatform)));
    tree_.setEncoding(std::u16string(attribute(element, isV1_ ? kEncoding : kCreatedByEncoding)));
  }

  void readEntry(XmlStreamElement const& element) {
    EntryAttributes const found(element);
    std::u16string_view name = found.name;
    // The older form wrote names relative to the root at times.  Its schema allows an empty
    // name, which has no first character: at() raises std::out_of_range for it.
    char16_t const slash = opc::model::URI::getSlash();
    if (isV1_ && name.at(0) != slash) {
      rooted_.assign(1, slash);
      rooted_.append(name);
      name = rooted_;
    }
    std::u16string_view const content = found.content;
    std::u16string_view const type = found.type;
    opc::Perms::Perms_tag const permissions = detail::readPermissions(found.permissions, isV1_);
    boost::posix_time::ptime const date = detail::readDate(found.date, dateText_);

    if (type == kFile) {
      tree_.addEntry(FileSystemNodeType::File, name, content, permissions, date);
    } else if (type == kSymLink) {
      tree_.addEntry(FileSystemNodeType::SymLink, name, content, permissions, date);
    } else if (type == kFolder) {
      // A folder's content name is its own path; what the document says is not used.
      tree_.addEntry(FileSystemNodeType::Folder, name, content, permissions, date);
    } else {
      // Both schemas restrict the type to the three words; this guards a schema change.
      throw opc::model::InvalidPartContent("Unknown type of file system entry: " +
                                           opc::toASCIIString(std::u16string(type)));
    }
  }

  FileSystemTree& tree_;
  bool isV1_;
  // A name of the older form with the "/" it lacked.
  std::u16string rooted_;
  // The room for the copy of each date that the conversion takes.
  std::u16string dateText_;
  std::exception_ptr refusal_;
};

// Puts `tree` back as a read found it, when the document could not be read whole.
void restore(FileSystemTree& tree, std::u16string const& platform, std::u16string const& encoding,
             std::u16string const& version) {
  tree = FileSystemTree();
  tree.setPlatform(platform);
  tree.setEncoding(encoding);
  tree.setVersion(version);
}

// Runs `read` with a filler of `tree`, and puts the tree back as it was if the document or its
// source failed; after a bad value the entries before it stay.
template <typename Read>
void fill(FileSystemTree& tree, Read&& read) {
  std::u16string const platform = tree.getPlatform();
  std::u16string const encoding = tree.getEncoding();
  std::u16string const version = tree.getVersion();
  ManifestFiller filler(tree);
  try {
    read(filler);
  } catch (opc::model::InvalidXMLDocument const& e) {
    // Entries that came before the fault are taken back: a document is read whole or not
    // at all, as when it was parsed before it was read.
    restore(tree, platform, encoding, version);
    throw opc::model::InvalidPartContent(e.what());
  } catch (...) {
    // A bad value leaves the entries before it; a failure of the source takes them back.
    if (std::current_exception() != filler.refusal()) restore(tree, platform, encoding, version);
    throw;
  }
}

// Manifests up to this size are held whole and tried with the fast reader first; larger ones
// stream through the parser, so that memory does not grow by the size of the document.
constexpr std::size_t kFastReadLimit = 4u << 20;

// The most text that a read makes room for in the tree before it has read any: 64 MiB.
constexpr std::uint64_t kReservedTextLimit = 32u << 20;

// Closes a stream whose reading is abandoned, when another failure or reading is the one that
// tells the outcome.
void closeQuietly(opc::InputStream& stream) {
  try {
    stream.close();
  } catch (...) {
    // What comes next matters more.
  }
}

// The second reading of a document, read by the parser as it reads the first bytes held in
// memory on the road without a second reading: each read up to the held size is filled whole,
// whatever the source gives per read, and further reads are the source's own.  The parser's
// positions in some of its messages depend on how much each read gives.
class HeldLikeStream : public opc::InputStream {
 public:
  HeldLikeStream(opc::InputStream& source, std::size_t held) : source_(source), held_(held) {}

  void open() override { source_.open(); }
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    if (given_ >= held_) return source_.read(buffer, count);
    std::size_t const want = std::min(count, held_ - given_);
    std::size_t got = 0;
    while (got < want && !source_.isDone()) got += source_.read(buffer + got, want - got);
    given_ += got;
    return got;
  }
  bool isDone() const override { return source_.isDone(); }
  void close() override { source_.close(); }

 private:
  opc::InputStream& source_;
  std::size_t const held_;
  std::size_t given_ = 0;
};

// Reads `stream`, of which `consumed` bytes were read, on to `until` bytes or its end, and
// drops what it reads.
void readOn(opc::InputStream& stream, std::size_t consumed, std::size_t until) {
  constexpr std::size_t kChunk = 64 * 1024;
  if (consumed >= until || stream.isDone()) return;
  std::unique_ptr<unsigned char[]> chunk(new unsigned char[kChunk]);
  while (consumed < until && !stream.isDone()) {
    consumed += stream.read(chunk.get(), std::min(kChunk, until - consumed));
  }
}

}  // namespace

FileSystemManifestXml::FileSystemManifestXml(std::size_t window) : window_(window) {}

FileSystemManifestXml::~FileSystemManifestXml() = default;

void FileSystemManifestXml::read(opc::InputStream& source, FileSystemTree& tree) {
  detail::ManifestBytes bytes(source, kFastReadLimit);
  if (bytes.whole() && readFast(bytes, tree)) return;
  ++parserReads_;
  readValidating(bytes, tree);
}

void FileSystemManifestXml::read(opc::InputStream& source, FileSystemTree& tree,
                                 Reopen const& reopen, std::uint64_t size) {
  if (!reopen) {
    read(source, tree);
    return;
  }
  std::u16string const platform = tree.getPlatform();
  std::u16string const encoding = tree.getEncoding();
  std::u16string const version = tree.getVersion();
  // A document that fits is read in one window: the stream of an item inflated whole then
  // inflates it straight into the window, instead of into a buffer of its own from which the
  // window is filled piece by piece.
  // Every name and content that the document gives the tree is written in it, in at least as
  // many bytes as the text has UTF-16 units: its size bounds the text the tree takes, which
  // then grows its pool once (up to a bound, for a size that only a crafted package declares).
  tree.reserveText(static_cast<std::size_t>(std::min<std::uint64_t>(size, kReservedTextLimit)));
  bool const fits = size > window_ && size <= kFastReadLimit;
  detail::ManifestFastReader fast(fits ? static_cast<std::size_t>(size) : window_);
  bool accepted = false;
  source.open();
  try {
    fill(tree, [&](ManifestFiller& filler) {
      accepted = fast.read(source, filler);
      if (!accepted) return;
      // As the parser does: the stream is closed before a refusal of a value is told.
      source.close();
      if (fast.refusal()) std::rethrow_exception(fast.refusal());
    });
    if (accepted) return;
    // What the fast reader filled in before it gave up goes: the parser starts from the root.
    restore(tree, platform, encoding, version);
    // The road without a second reading holds the first bytes before anything reads them, so
    // a source that fails among them reports just that: it is read as far here.
    readOn(source, fast.consumed(), kFastReadLimit + 1);
    closeQuietly(source);
  } catch (...) {
    // A bad value, or a failure to close the stream of a document read whole: told as it is.
    if (accepted) throw;
    // The source failed, and fill() put the tree back.  Among the bytes that the other road
    // holds, the failure is told as it is there; further on, the parser's reading is the one
    // that decides whether a fault of the document comes first.
    closeQuietly(source);
    if (fast.consumed() <= kFastReadLimit) throw;
  }
  ++parserReads_;
  HeldLikeStream again(reopen(), kFastReadLimit + 1);
  readValidating(again, tree);
}

void FileSystemManifestXml::readValidating(opc::InputStream& source, FileSystemTree& tree) {
  opc::model::detail::XmlEventReader& reader = parser();
  fill(tree, [&](ManifestFiller& filler) { reader.read(source, filler); });
}

opc::model::detail::XmlEventReader& FileSystemManifestXml::parser() {
  // Grammars are compiled here, once, and chosen by namespace at every read.  A reader whose
  // grammar failed to compile is not kept: the next read tries again.
  if (!reader_) reader_ = detail::makeManifestReader(detail::manifestGrammars());
  return *reader_;
}

bool FileSystemManifestXml::readFast(detail::ManifestBytes& bytes, FileSystemTree& tree) {
  std::u16string const platform = tree.getPlatform();
  std::u16string const encoding = tree.getEncoding();
  std::u16string const version = tree.getVersion();
  bool accepted = false;
  fill(tree, [&](ManifestFiller& filler) {
    detail::ManifestFastReader fast;
    accepted = fast.read(bytes.data(), bytes.size(), filler);
    if (!accepted) return;
    // As the parser does: the stream is closed before a refusal of a value is told.
    bytes.close();
    if (fast.refusal()) std::rethrow_exception(fast.refusal());
  });
  // What the fast reader filled in before it gave up goes: the parser starts from the root.
  if (!accepted) restore(tree, platform, encoding, version);
  return accepted;
}

}  // namespace vkservices
}  // namespace opc
