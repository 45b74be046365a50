#include <foundation/release_info/release_info.h>

#include "build_values.h"
#include "release_info_xml.h"

namespace foundation {
namespace release_info {

ReleaseInfo::ReleaseInfo()
    : releaseFamily_(detail::kBuildReleaseFamily),
      version_(detail::kBuildVersion),
      buildDate_(detail::kBuildDate),
      legacy_(false) {}

ReleaseInfo::ReleaseInfo(std::string const& releaseFamily)
    : releaseFamily_(releaseFamily), version_(), buildDate_(), legacy_(true) {}

ReleaseInfo::ReleaseInfo(std::istream& versionInfo) : legacy_(true) {
  detail::ReleaseFields const fields = detail::readReleaseXml(versionInfo);
  releaseFamily_ = fields.releaseFamily;
  legacy_ = !fields.hasVersion;
  version_ = fields.version;
  buildDate_ = fields.buildDate;
}

ReleaseInfo::ReleaseInfo(ReleaseInfo const& other) = default;

ReleaseInfo& ReleaseInfo::operator=(ReleaseInfo const& other) = default;

ReleaseInfo::~ReleaseInfo() = default;

std::string ReleaseInfo::getReleaseFamily() const { return releaseFamily_; }

std::string ReleaseInfo::getORVANEVersion() const { return version_; }

std::string ReleaseInfo::getBuildDate() const { return buildDate_; }

std::string ReleaseInfo::getVersionInfo() const {
  detail::ReleaseFields fields;
  fields.releaseFamily = releaseFamily_;
  fields.hasVersion = !legacy_;
  fields.version = version_;
  fields.buildDate = buildDate_;
  return detail::writeReleaseXml(fields);
}

bool ReleaseInfo::isLegacy() const { return legacy_; }

bool ReleaseInfo::operator==(ReleaseInfo const& other) const {
  return releaseFamily_ == other.releaseFamily_ && version_ == other.version_ &&
         buildDate_ == other.buildDate_ && legacy_ == other.legacy_;
}

bool ReleaseInfo::operator!=(ReleaseInfo const& other) const { return !(*this == other); }

}  // namespace release_info
}  // namespace foundation
