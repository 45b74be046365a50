// The value of the standard core properties: plain members, no rules beyond the one for
// special times.
#include <opc/model/core_properties.h>

namespace opc {
namespace model {

namespace {

// A special ptime has no text form in a part, so setting one removes the property rather
// than keeping a value that could not be written.
boost::optional<boost::posix_time::ptime> timeOrNothing(boost::posix_time::ptime value) {
  if (value.is_special()) return boost::none;
  return value;
}

}  // namespace

CoreProperties::CoreProperties() = default;
CoreProperties::CoreProperties(CoreProperties const& other) = default;
CoreProperties& CoreProperties::operator=(CoreProperties const& other) = default;
CoreProperties::~CoreProperties() = default;

boost::optional<std::u16string> CoreProperties::getCategory() const { return category_; }
void CoreProperties::setCategory(std::u16string const& value) { category_ = value; }
boost::optional<std::u16string> CoreProperties::getContentStatus() const { return contentStatus_; }
void CoreProperties::setContentStatus(std::u16string const& value) { contentStatus_ = value; }
boost::optional<std::u16string> CoreProperties::getContentType() const { return contentType_; }
void CoreProperties::setContentType(std::u16string const& value) { contentType_ = value; }
boost::optional<std::u16string> CoreProperties::getCreator() const { return creator_; }
void CoreProperties::setCreator(std::u16string const& value) { creator_ = value; }
boost::optional<std::u16string> CoreProperties::getDescription() const { return description_; }
void CoreProperties::setDescription(std::u16string const& value) { description_ = value; }
boost::optional<std::u16string> CoreProperties::getIdentifier() const { return identifier_; }
void CoreProperties::setIdentifier(std::u16string const& value) { identifier_ = value; }
boost::optional<std::u16string> CoreProperties::getLanguage() const { return language_; }
void CoreProperties::setLanguage(std::u16string const& value) { language_ = value; }
boost::optional<std::u16string> CoreProperties::getLastModifiedBy() const {
  return lastModifiedBy_;
}
void CoreProperties::setLastModifiedBy(std::u16string const& value) { lastModifiedBy_ = value; }
boost::optional<std::u16string> CoreProperties::getRevision() const { return revision_; }
void CoreProperties::setRevision(std::u16string const& value) { revision_ = value; }
boost::optional<std::u16string> CoreProperties::getSubject() const { return subject_; }
void CoreProperties::setSubject(std::u16string const& value) { subject_ = value; }
boost::optional<std::u16string> CoreProperties::getTitle() const { return title_; }
void CoreProperties::setTitle(std::u16string const& value) { title_ = value; }
boost::optional<std::u16string> CoreProperties::getVersion() const { return version_; }
void CoreProperties::setVersion(std::u16string const& value) { version_ = value; }

boost::optional<CoreProperties::Keywords> CoreProperties::getKeywords() const { return keywords_; }
void CoreProperties::setKeywords(Keywords const& value) { keywords_ = value; }

boost::optional<boost::posix_time::ptime> CoreProperties::getCreated() const { return created_; }
void CoreProperties::setCreated(boost::posix_time::ptime value) { created_ = timeOrNothing(value); }
boost::optional<boost::posix_time::ptime> CoreProperties::getModified() const { return modified_; }
void CoreProperties::setModified(boost::posix_time::ptime value) {
  modified_ = timeOrNothing(value);
}
boost::optional<boost::posix_time::ptime> CoreProperties::getLastPrinted() const {
  return lastPrinted_;
}
void CoreProperties::setLastPrinted(boost::posix_time::ptime value) {
  lastPrinted_ = timeOrNothing(value);
}

bool CoreProperties::isEmpty() const { return *this == CoreProperties(); }

bool CoreProperties::operator==(CoreProperties const& other) const {
  return category_ == other.category_ && contentStatus_ == other.contentStatus_ &&
         contentType_ == other.contentType_ && creator_ == other.creator_ &&
         description_ == other.description_ && identifier_ == other.identifier_ &&
         language_ == other.language_ && lastModifiedBy_ == other.lastModifiedBy_ &&
         revision_ == other.revision_ && subject_ == other.subject_ && title_ == other.title_ &&
         version_ == other.version_ && keywords_ == other.keywords_ && created_ == other.created_ &&
         modified_ == other.modified_ && lastPrinted_ == other.lastPrinted_;
}

bool CoreProperties::operator!=(CoreProperties const& other) const { return !(*this == other); }

}  // namespace model
}  // namespace opc
