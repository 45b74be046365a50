#include <string>

#include <opc/core/string_conversions.h>
#include <opc/core/time_conversions.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/errors.h>

#include "coreproperties/regex_matcher.h"
#include "coreproperties/uuid_recipe.h"

namespace opc {
namespace vkservices {
namespace {

using foundation::release_info::ReleaseInfo;

constexpr char kContentTypeMessage[] =
    "Content type must have the format: application/vnd.veltrance.<product>.<package-type>";
constexpr char kFriendlyNameMessage[] = "Content type friendly name must be a non-empty string";
constexpr char kReleaseMessage[] = "ORVANE release must have the format: R<four-digit-year>(a|b)";
constexpr char kCreatedTimeMessage[] = "Created time is not a valid value";
constexpr char kModifiedTimeMessage[] = "Modified time is not a valid value";

// The whole text must match; the expression is built anew at each call.  The matcher is in a
// companion library, loaded on the first check.
bool matchesWhole(std::u16string const& value, wchar_t const* expression) {
  return detail::regexMatcher().matchesWhole(opc::toWideString(value), expression);
}

bool isWhitespaceAt(std::u16string const& value, std::size_t index) {
  return opc::hasWhitespace(value.substr(index, 1));
}

}  // namespace

CoreProperties::CoreProperties()
    : contentType_(),
      contentTypeFriendlyName_(),
      releaseInfo_(std::string()),
      uuid_(),
      opcProps_() {}

CoreProperties::CoreProperties(std::u16string const& contentType,
                               std::u16string const& contentTypeFriendlyName,
                               std::u16string const& release)
    : contentType_(), contentTypeFriendlyName_(), releaseInfo_(), uuid_(), opcProps_() {
  setContentType(contentType);
  setContentTypeFriendlyName(contentTypeFriendlyName);
  setORVANERelease(release);
}

CoreProperties::CoreProperties(std::u16string const& contentType,
                               std::u16string const& contentTypeFriendlyName,
                               ReleaseInfo const& release)
    : contentType_(), contentTypeFriendlyName_(), releaseInfo_(), uuid_(), opcProps_() {
  setContentType(contentType);
  setContentTypeFriendlyName(contentTypeFriendlyName);
  setORVANEReleaseInfo(release);
}

CoreProperties::CoreProperties(CoreProperties const& other) = default;

CoreProperties& CoreProperties::operator=(CoreProperties const& other) = default;

CoreProperties::~CoreProperties() = default;

std::u16string CoreProperties::getContentType() const { return contentType_; }

void CoreProperties::setContentType(std::u16string const& value) {
  if (!isValidContentType(value)) throw InvalidCorePropertyValue(kContentTypeMessage);
  contentType_ = value;
}

std::u16string CoreProperties::getContentTypeFriendlyName() const {
  return contentTypeFriendlyName_;
}

void CoreProperties::setContentTypeFriendlyName(std::u16string const& value) {
  if (!isValidContentTypeFriendlyName(value)) throw InvalidCorePropertyValue(kFriendlyNameMessage);
  contentTypeFriendlyName_ = value;
}

std::u16string CoreProperties::getORVANERelease() const {
  return opc::toString(releaseInfo_.getReleaseFamily(), true);
}

void CoreProperties::setORVANERelease(std::u16string const& value) {
  ReleaseInfo const running;
  // The running product's family keeps its complete record, whatever case it comes in: the
  // core part holds the family alone, and a package of this release should not read back as
  // a legacy one.
  if (opc::caselessCompare(value, opc::toString(running.getReleaseFamily(), true)) == 0) {
    setORVANEReleaseInfo(running);
  } else {
    setORVANEReleaseInfo(ReleaseInfo(opc::toASCIIString(value)));
  }
}

ReleaseInfo CoreProperties::getORVANEReleaseInfo() const { return releaseInfo_; }

void CoreProperties::setORVANEReleaseInfo(ReleaseInfo const& value) {
  if (!isValidORVANEReleaseInfo(value)) throw InvalidCorePropertyValue(kReleaseMessage);
  releaseInfo_ = value;
}

boost::optional<std::u16string> CoreProperties::getUUID() const { return uuid_; }

void CoreProperties::setUUID(std::u16string const& value) {
  if (!isValidUUID(value)) {
    throw InvalidCorePropertyValue(
        "UUID must have the format: hhhhhhhh-hhhh-hhhh-hhhh-hhhhhhhhhhhh where h is a "
        "hexidecimal digit");
  }
  if (uuid_ && *uuid_ != value) {
    throw InvalidCorePropertyValue("UUID is already set. It can not be overwritten");
  }
  uuid_ = value;
}

boost::optional<boost::posix_time::ptime> CoreProperties::getCreatedTime() const {
  return opcProps_.getCreated();
}

void CoreProperties::setCreatedTime(boost::posix_time::ptime value) {
  if (!isValidTime(value)) throw InvalidCorePropertyValue(kCreatedTimeMessage);
  opcProps_.setCreated(value);
}

boost::optional<boost::posix_time::ptime> CoreProperties::getLastModifiedTime() const {
  return opcProps_.getModified();
}

void CoreProperties::setLastModifiedTime(boost::posix_time::ptime value) {
  if (!isValidTime(value)) throw InvalidCorePropertyValue(kModifiedTimeMessage);
  opcProps_.setModified(value);
}

bool CoreProperties::isValid() const {
  return !contentType_.empty() && !contentTypeFriendlyName_.empty() &&
         !releaseInfo_.getReleaseFamily().empty();
}

opc::model::CoreProperties const& CoreProperties::opcProps() const { return opcProps_; }

opc::model::CoreProperties& CoreProperties::opcProps() { return opcProps_; }

boost::optional<std::u16string> CoreProperties::getCategory() const {
  return opcProps_.getCategory();
}
void CoreProperties::setCategory(std::u16string const& value) { opcProps_.setCategory(value); }

boost::optional<std::u16string> CoreProperties::getCreatedBy() const {
  return opcProps_.getCreator();
}
void CoreProperties::setCreatedBy(std::u16string const& value) { opcProps_.setCreator(value); }

boost::optional<std::u16string> CoreProperties::getDescription() const {
  return opcProps_.getDescription();
}
void CoreProperties::setDescription(std::u16string const& value) {
  opcProps_.setDescription(value);
}

boost::optional<CoreProperties::Keywords> CoreProperties::getKeywords() const {
  return opcProps_.getKeywords();
}
void CoreProperties::setKeywords(Keywords const& value) { opcProps_.setKeywords(value); }

boost::optional<std::u16string> CoreProperties::getLastModifiedBy() const {
  return opcProps_.getLastModifiedBy();
}
void CoreProperties::setLastModifiedBy(std::u16string const& value) {
  opcProps_.setLastModifiedBy(value);
}

boost::optional<std::u16string> CoreProperties::getRevision() const {
  return opcProps_.getRevision();
}
void CoreProperties::setRevision(std::u16string const& value) { opcProps_.setRevision(value); }

boost::optional<std::u16string> CoreProperties::getTitle() const { return opcProps_.getTitle(); }
void CoreProperties::setTitle(std::u16string const& value) { opcProps_.setTitle(value); }

boost::optional<std::u16string> CoreProperties::getVersion() const {
  return opcProps_.getVersion();
}
void CoreProperties::setVersion(std::u16string const& value) { opcProps_.setVersion(value); }

bool CoreProperties::isValidContentType(std::u16string const& value) {
  std::u16string subType;
  try {
    opc::model::ContentType const type(value);
    if (type.getType() != u"application") return false;
    subType = type.getSubType();
  } catch (...) {
    // Text that is no content type at all is simply not a valid one.
    return false;
  }
  return matchesWhole(subType, L"^vnd\\.veltrance\\.[\\w-]+\\.[\\w-]+$");
}

bool CoreProperties::isValidContentTypeFriendlyName(std::u16string const& value) {
  if (value.empty()) return false;
  if (isWhitespaceAt(value, 0)) return false;
  return value.size() == 1 || !isWhitespaceAt(value, value.size() - 1);
}

bool CoreProperties::isValidORVANERelease(std::u16string const& value) {
  return matchesWhole(value, L"^R\\d{4}(a|b)$");
}

bool CoreProperties::isValidORVANEReleaseInfo(ReleaseInfo const& value) {
  return isValidORVANERelease(opc::toString(value.getReleaseFamily(), true));
}

bool CoreProperties::isValidTime(boost::posix_time::ptime value) { return !value.is_special(); }

bool CoreProperties::isValidUUID(std::u16string const& value) {
  return matchesWhole(value,
                      L"[[:xdigit:]]{8}-[[:xdigit:]]{4}-[[:xdigit:]]{4}-[[:xdigit:]]{4}-"
                      L"[[:xdigit:]]{12}");
}

std::u16string CoreProperties::getNilUUID() {
  return opc::toString(detail::formatUUID(detail::UUIDBytes{}), true);
}

std::u16string CoreProperties::getCurrentORVANERelease() {
  return opc::toString(ReleaseInfo().getReleaseFamily(), true);
}

ReleaseInfo CoreProperties::getCurrentORVANEReleaseInfo() { return ReleaseInfo(); }

boost::posix_time::ptime CoreProperties::getCurrentTime() { return opc::getCurrentTime(); }

ReleaseInfo CoreProperties::makeLegacyORVANEReleaseInfo(std::u16string const& value) {
  return ReleaseInfo(opc::toASCIIString(value));
}

}  // namespace vkservices
}  // namespace opc
