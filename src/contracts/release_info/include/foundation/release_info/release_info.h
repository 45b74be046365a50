// foundation::release_info::ReleaseInfo: which release of the product a package was written
// for, and the XML text that records it.
#ifndef FOUNDATION_RELEASE_INFO_RELEASE_INFO_H_
#define FOUNDATION_RELEASE_INFO_RELEASE_INFO_H_

#include <cstddef>
#include <istream>
#include <string>

#include <foundation/release_info/export.h>

namespace foundation {
namespace release_info {

// A release of the product: its release family, such as "R2026b", and its dotted version,
// such as "1.0.0.0".  Three kinds of record exist:
//
//  - the running product's own (default constructor), from values fixed when the library
//    was configured: the family is "R", the four-digit year of the configure date and "a"
//    for January to June or "b" for July to December; the version is the project's
//    four-part version.  The configure date is the date of the SOURCE_DATE_EPOCH time when
//    that variable was set at configure time, so that a reproducible build gives the same
//    release whenever it is built;
//  - a legacy record, which knows a release family alone and nothing else (what packages
//    written before the full record existed carry): isLegacy() is true, the version empty;
//  - a record read back from its XML text (the stream constructor).
//
// The XML text, getVersionInfo(), is a standalone UTF-8 document:
//
//   <?xml version="1.0" encoding="UTF-8" standalone="yes"?>
//   <releaseInfo xmlns="http://schemas.opcvkservices.org/release/2026/releaseInfo">
//     <releaseFamily>R2026b</releaseFamily>
//     <version>1.0.0.0</version>
//     <buildDate>2026-11-23</buildDate>
//   </releaseInfo>
//
// "releaseFamily" is required and may be empty; "version" (digits and dots, beginning and
// ending with a digit) and "buildDate" (an xsd:date) are optional and come in this order.
// A document without "version" is a legacy record, and a legacy record is written without
// "version" and "buildDate", so that every record survives writing and reading unchanged.
//
// A value class: copies are independent, const operations are safe from several threads.
class VKRELEASE_INFO_EXPORT ReleaseInfo {
 public:
  // The largest XML text that the stream constructor reads; a real one is a few hundred
  // bytes, and a larger one is hostile.
  static constexpr std::size_t kMaxVersionInfoSize = 64 * 1024;

  // The running product's release, as the class comment says.  Never raises.
  ReleaseInfo();

  // A legacy record of the release family `releaseFamily`, taken as it is: no check of its
  // form (any text, the empty one included, which makes a record whose family is empty).
  // Never raises.
  explicit ReleaseInfo(std::string const& releaseFamily);

  // Reads the XML text of getVersionInfo() from `versionInfo`, from where it stands to its
  // end.  The text goes through a parser that refuses a document type declaration, resolves
  // nothing external and limits nesting, and must be valid against the format above: the
  // namespace, the elements in their order, each at most once, nothing else.  Raises
  // InvalidReleaseInfo naming the problem (the parser's line and column where it gives
  // them) for a text that is not such a document, that is larger than kMaxVersionInfoSize,
  // or a stream that fails.
  explicit ReleaseInfo(std::istream& versionInfo);

  ReleaseInfo(ReleaseInfo const& other);
  ReleaseInfo& operator=(ReleaseInfo const& other);
  virtual ~ReleaseInfo();

  // The release family: "R", four digits of a year, "a" or "b" for the running product;
  // any text for a legacy record or one read from XML (the empty one included).
  std::string getReleaseFamily() const;

  // The dotted version ("1.0.0.0" and the like); empty for a legacy record.
  std::string getORVANEVersion() const;

  // The date of the build as "YYYY-MM-DD"; empty for a legacy record and for XML that has
  // none.
  std::string getBuildDate() const;

  // The complete XML text of the record, as the class comment shows; the stream constructor
  // reads it back into an equal record.  Raises InvalidReleaseInfo if a value holds a
  // character that XML cannot carry (only possible for a legacy family given as such).
  std::string getVersionInfo() const;

  // True for a record made from a release family alone, or read from XML without "version".
  bool isLegacy() const;

  // Every field compared exactly.
  bool operator==(ReleaseInfo const& other) const;
  bool operator!=(ReleaseInfo const& other) const;

 private:
  std::string releaseFamily_;
  std::string version_;
  std::string buildDate_;
  bool legacy_;
};

}  // namespace release_info
}  // namespace foundation

#endif  // FOUNDATION_RELEASE_INFO_RELEASE_INFO_H_
