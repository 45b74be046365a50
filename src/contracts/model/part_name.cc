#include <utility>

#include <opc/model/exceptions.h>
#include <opc/model/part_name.h>

#include "part_name_rules.h"
#include "text_chars.h"
#include "uri_parts.h"

namespace opc {
namespace model {
namespace {

constexpr char16_t kRelationshipsFolder[] = u"_rels";
constexpr char16_t kRelationshipsExtension[] = u".rels";
constexpr std::size_t kRelationshipsExtensionLength = 5;
constexpr std::size_t kRelationshipsFolderLength = 5;

// Whether text[at, at + length) equals the lower-case ASCII `lower` without regard to ASCII
// case; in place, since every new part asks it of its name.
bool caselessEqualAt(std::u16string const& text, std::size_t at, char16_t const* lower,
                     std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    if (detail::asciiLower(text[at + i]) != lower[i]) return false;
  }
  return true;
}

[[noreturn]] void throwInvalidPartName(std::u16string const& text, std::string const& reason) {
  throw InvalidPartName("Invalid part name " + detail::quoted(text) + ": " + reason);
}

std::u16string validated(std::u16string const& name) {
  if (auto error = detail::findPartNameError(name)) throwInvalidPartName(name, *error);
  return name;
}

// The path of a relationship target, made absolute against the package root.
std::u16string pathOfTarget(URI const& uri) {
  std::u16string const text = uri.toString();
  if (text.empty()) throwInvalidPartName(text, "a part name must not be empty");
  detail::UriParts const parts = detail::splitUri(text);
  if (parts.scheme) throwInvalidPartName(text, "a part name must not have a scheme");
  if (parts.authority) throwInvalidPartName(text, "a part name must not have an authority");
  if (parts.query) throwInvalidPartName(text, "a part name must not have a query");
  if (parts.fragment) throwInvalidPartName(text, "a part name must not have a fragment");
  std::u16string const path = detail::removeDotSegments(
      !parts.path.empty() && parts.path[0] == u'/' ? parts.path : u"/" + parts.path);
  if (auto error = detail::findPartNameError(path)) throwInvalidPartName(text, *error);
  return path;
}

// Where the last two segments of a name start: the index after the second-to-last "/"
// and after the last "/".  A name of one segment has no second-to-last segment.
struct LastSegments {
  std::size_t folderStart;
  std::size_t lastStart;
  bool hasFolder;
};

LastSegments findLastSegments(std::u16string const& name) {
  std::size_t const lastSlash = name.rfind(u'/');
  LastSegments result{0, lastSlash + 1, lastSlash > 0};
  if (result.hasFolder) result.folderStart = name.rfind(u'/', lastSlash - 1) + 1;
  return result;
}

}  // namespace

PartName::PartName(std::u16string const& name)
    : name_(validated(name)), key_(detail::makePartNameKey(name_)) {}

PartName::PartName(URI const& uri)
    : name_(pathOfTarget(uri)), key_(detail::makePartNameKey(name_)) {}

PartName::PartName(std::u16string const& name, std::string const& key) : name_(name), key_(key) {}

PartName::PartName(PartName const& other) = default;
PartName::PartName(PartName&& other) noexcept = default;
PartName& PartName::operator=(PartName const& other) = default;
PartName& PartName::operator=(PartName&& other) noexcept = default;
PartName::~PartName() = default;

bool PartName::isValid(std::u16string const& name) {
  return !detail::findPartNameError(name).has_value();
}

std::u16string PartName::toString() const { return name_; }

URI PartName::getURI() const { return URI(name_); }

bool PartName::isRelationshipName() const {
  LastSegments const segments = findLastSegments(name_);
  if (!segments.hasFolder) return false;
  std::size_t const folderLength = segments.lastStart - 1 - segments.folderStart;
  std::size_t const lastLength = name_.size() - segments.lastStart;
  return folderLength == kRelationshipsFolderLength &&
         caselessEqualAt(name_, segments.folderStart, kRelationshipsFolder,
                         kRelationshipsFolderLength) &&
         lastLength >= kRelationshipsExtensionLength &&
         caselessEqualAt(name_, name_.size() - kRelationshipsExtensionLength,
                         kRelationshipsExtension, kRelationshipsExtensionLength);
}

PartName PartName::getRelationshipsPartName() const {
  if (isRelationshipName()) {
    throw InvalidPartName("Invalid source part name " + detail::quoted(name_) +
                          ": a relationships part cannot have relationships");
  }
  LastSegments const segments = findLastSegments(name_);
  // Adding a "_rels" segment and the ".rels" extension keeps every rule of the grammar, so
  // the result needs no second validation.
  std::u16string const name = name_.substr(0, segments.lastStart) + kRelationshipsFolder + u"/" +
                              name_.substr(segments.lastStart) + kRelationshipsExtension;
  return PartName(name, detail::makePartNameKey(name));
}

PartName PartName::getPackageRelationshipsPartName() { return PartName(u"/_rels/.rels"); }

boost::optional<PartName> PartName::getRelationshipsSourceName() const {
  if (!isRelationshipName()) {
    throw InvalidPartName("Invalid relationships part name " + detail::quoted(name_) +
                          ": it must lie in a \"_rels\" folder and end with \".rels\"");
  }
  LastSegments const segments = findLastSegments(name_);
  std::u16string const source = name_.substr(0, segments.folderStart) +
                                name_.substr(segments.lastStart, name_.size() - segments.lastStart -
                                                                     kRelationshipsExtensionLength);
  if (source == u"/") return boost::none;
  if (!isValid(source)) {
    throw InvalidPartName("Invalid relationships part name " + detail::quoted(name_) +
                          ": its source " + detail::quoted(source) + " is not a valid part name");
  }
  return PartName(source, detail::makePartNameKey(source));
}

bool PartName::isDerivedFrom(PartName const& other) const {
  std::size_t const length = other.key_.size();
  return key_.size() > length && key_.compare(0, length, other.key_) == 0 && key_[length] == '/';
}

bool PartName::operator==(PartName const& other) const { return key_ == other.key_; }

bool PartName::operator!=(PartName const& other) const { return key_ != other.key_; }

bool PartName::operator<(PartName const& other) const { return key_ < other.key_; }

std::size_t PartName::hash() const { return std::hash<std::string>()(key_); }

}  // namespace model
}  // namespace opc
