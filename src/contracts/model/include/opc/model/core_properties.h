// opc::model::CoreProperties: the standard core properties of a package (title, creator,
// dates, keywords, ...), and CorePropertiesXml, which reads and writes the XML of the part
// that holds them.
#ifndef OPC_MODEL_CORE_PROPERTIES_H_
#define OPC_MODEL_CORE_PROPERTIES_H_

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <boost/date_time/posix_time/ptime.hpp>
#include <boost/optional.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/export.h>

namespace opc {
namespace model {

// The core properties of a package, every one optional.  A property that was never set (or
// was absent from the part it was read from) gives an empty boost::optional; a property set
// to the empty string is present and empty, and is written as an empty element, so that
// reading and writing never turn one into the other.
//
// Text properties are kept exactly as given: no trimming, no normalisation.  Times are UTC.
//
// Keywords are a list of pairs (keyword, language).  The language is an xml:lang tag such as
// "en-GB", or empty when the keyword has none.  A part may hold keywords as plain text
// ("alpha, beta") or as <cp:value xml:lang="..."> entries; plain text is not split, since
// the separator is the writer's choice: it becomes one pair (the whole text, "").  Such a
// single pair without language is written back as plain text, and any other list as one
// entry per pair, so that a list survives writing and reading unchanged.
//
// A value class: copies are independent; const operations are safe from several threads.
class OPC_MODEL_EXPORT CoreProperties {
 public:
  using Keywords = std::vector<std::pair<std::u16string, std::u16string>>;

  // No property set.
  CoreProperties();
  CoreProperties(CoreProperties const& other);
  CoreProperties& operator=(CoreProperties const& other);
  ~CoreProperties();

  // The category of the content (cp:category).
  boost::optional<std::u16string> getCategory() const;
  void setCategory(std::u16string const& value);
  // The status of the content, such as "Draft" (cp:contentStatus).
  boost::optional<std::u16string> getContentStatus() const;
  void setContentStatus(std::u16string const& value);
  // The type of the content, such as "Whitepaper"; not the media type of a part
  // (cp:contentType).
  boost::optional<std::u16string> getContentType() const;
  void setContentType(std::u16string const& value);
  // Who made the content (dc:creator).
  boost::optional<std::u16string> getCreator() const;
  void setCreator(std::u16string const& value);
  // A description of the content (dc:description).
  boost::optional<std::u16string> getDescription() const;
  void setDescription(std::u16string const& value);
  // An identifier of the content (dc:identifier).
  boost::optional<std::u16string> getIdentifier() const;
  void setIdentifier(std::u16string const& value);
  // The language of the content, an xml:lang tag (dc:language).
  boost::optional<std::u16string> getLanguage() const;
  void setLanguage(std::u16string const& value);
  // Who saved the content last (cp:lastModifiedBy).
  boost::optional<std::u16string> getLastModifiedBy() const;
  void setLastModifiedBy(std::u16string const& value);
  // The revision number, as text (cp:revision).
  boost::optional<std::u16string> getRevision() const;
  void setRevision(std::u16string const& value);
  // The topic of the content (dc:subject).
  boost::optional<std::u16string> getSubject() const;
  void setSubject(std::u16string const& value);
  // The name of the content (dc:title).
  boost::optional<std::u16string> getTitle() const;
  void setTitle(std::u16string const& value);
  // The version of the content, as text (cp:version).
  boost::optional<std::u16string> getVersion() const;
  void setVersion(std::u16string const& value);

  // Keywords (cp:keywords), see the class comment.  An empty list is present and empty.
  boost::optional<Keywords> getKeywords() const;
  void setKeywords(Keywords const& value);

  // When the content was created (dcterms:created), last saved (dcterms:modified) and last
  // printed (cp:lastPrinted), in UTC.  Setting a special value (not_a_date_time or an
  // infinity), which no part can hold, removes the property.
  boost::optional<boost::posix_time::ptime> getCreated() const;
  void setCreated(boost::posix_time::ptime value);
  boost::optional<boost::posix_time::ptime> getModified() const;
  void setModified(boost::posix_time::ptime value);
  boost::optional<boost::posix_time::ptime> getLastPrinted() const;
  void setLastPrinted(boost::posix_time::ptime value);

  // True if no property is set.
  bool isEmpty() const;

  // Property by property, texts compared exactly.
  bool operator==(CoreProperties const& other) const;
  bool operator!=(CoreProperties const& other) const;

 private:
  boost::optional<std::u16string> category_;
  boost::optional<std::u16string> contentStatus_;
  boost::optional<std::u16string> contentType_;
  boost::optional<std::u16string> creator_;
  boost::optional<std::u16string> description_;
  boost::optional<std::u16string> identifier_;
  boost::optional<std::u16string> language_;
  boost::optional<std::u16string> lastModifiedBy_;
  boost::optional<std::u16string> revision_;
  boost::optional<std::u16string> subject_;
  boost::optional<std::u16string> title_;
  boost::optional<std::u16string> version_;
  boost::optional<Keywords> keywords_;
  boost::optional<boost::posix_time::ptime> created_;
  boost::optional<boost::posix_time::ptime> modified_;
  boost::optional<boost::posix_time::ptime> lastPrinted_;
};

// The XML of a core properties part:
//   <cp:coreProperties xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/
//   core-properties" xmlns:dc="http://purl.org/dc/elements/1.1/"
//   xmlns:dcterms="http://purl.org/dc/terms/" ...> with one child element per property.
// Both operations make their own parser or serializer and keep the XML library initialised
// while they run, so they need nothing from the caller and are safe from several threads on
// different streams.
class OPC_MODEL_EXPORT CorePropertiesXml {
 public:
  CorePropertiesXml() = delete;

  // The largest part read: a real one is a few KiB, and a larger one is hostile.
  static constexpr std::size_t kMaxPartSize = std::size_t{4} << 20;

  // Opens `stream`, reads the whole part, closes it, and returns its properties.
  //
  // Dates are read in every W3CDTF form ("2024", "2024-05", "2024-05-17",
  // "2024-05-17T10:20+02:00", "2024-05-17T10:20:30Z", "2024-05-17T10:20:30.25-05:00"; a time
  // without zone is taken as UTC) and converted to UTC; a date alone is its first instant.
  // dcterms:created and dcterms:modified may carry xsi:type, and then it must be
  // dcterms:W3CDTF.
  //
  // Throws InvalidPartContent naming the problem for a document that is not well-formed
  // (the parser's text), has a document type declaration, is larger than kMaxPartSize, or
  // breaks the rules of core properties: another document element, an element that is not
  // one of the properties (also one in the wrong namespace, such as dc:created), a property
  // given twice, a property holding elements (other than cp:value inside cp:keywords),
  // markup-compatibility elements or attributes, xsi:type anywhere else, or a date that is
  // not W3CDTF.  An exception of the stream passes through unchanged.
  static CoreProperties read(opc::InputStream& stream);

  // Writes the properties as a standalone UTF-8 document to `stream`, which is flushed but
  // not closed.  Dates are written in UTC as "YYYY-MM-DDThh:mm:ss[.ffffff]Z".  An empty record
  // gives a document element without children.  Throws InvalidPartContent if a text holds a
  // character that XML cannot carry (such as U+0001); an exception of the stream passes
  // through unchanged.  Bytes written before a failure stay written.
  static void write(CoreProperties const& properties, opc::OutputStream& stream);
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_CORE_PROPERTIES_H_
