#include <utility>

#include <opc/core/exception.h>
#include <opc/core/output_stream.h>
#include <opc/model/package_helper.h>
#include <opc/model/part.h>
#include <opc/model/part_name.h>
#include <opc/model/relationship.h>
#include <opc/model/standard_part_info.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/core_properties_manager.h>
#include <opc/vkservices/errors.h>

#include "coreproperties/core_properties_names.h"
#include "coreproperties/core_properties_xml_handler.h"
#include "coreproperties/extension_xml_handler.h"
#include "coreproperties/release_info_xml_handler.h"

namespace opc {
namespace vkservices {
namespace {

using opc::model::Package;
using opc::model::Part;
using opc::model::PartName;

// The part that the first package relationship of `type` targets, if there is one; later
// relationships of the same type are ignored.
boost::optional<Part> findPart(Package const& package, std::u16string const& type) {
  auto const relationships = package.getRelationshipsByType(type);
  if (relationships.begin() == relationships.end()) return boost::none;
  return package.getPart(PartName(relationships.begin()->getTargetURI()));
}

// The part of `type`, made with its fixed name and content type and a relationship with an
// id of the model's choosing when the package has none.  Tells whether it was made.
std::pair<Part, bool> findOrCreatePart(Package& package, std::u16string const& type,
                                       opc::model::URI const& uri,
                                       opc::model::ContentType const& contentType) {
  boost::optional<Part> existing = findPart(package, type);
  if (existing) return {*existing, false};
  // Metadata parts are compressed as metadata, and their size is not known in advance.
  Part created = package.createPart(
      PartName(uri), contentType,
      opc::interfaces::StandardPartInfo(opc::interfaces::CompressionType::DeflateMetadata, 0));
  package.createInternalRelationship(type, created.getName().getURI(), u"");
  return {created, true};
}

template <typename Handler>
void writePart(Handler& handler, CoreProperties const& properties, Part& part) {
  opc::OutputStream& output = part.getOutputStream();
  handler.write(properties, output);
  output.close();
}

}  // namespace

CorePropertiesManager::CorePropertiesManager(opc::model::Package& package, DeterministicMode mode)
    : DataManager(package, false),
      properties_(),
      coreHandler_(std::make_unique<CorePropertiesXmlHandler>()),
      extensionHandler_(std::make_unique<ExtensionXmlHandler>()),
      releaseInfoHandler_(std::make_unique<ReleaseInfoXmlHandler>()),
      mode_(mode) {}

CorePropertiesManager::~CorePropertiesManager() = default;

CoreProperties CorePropertiesManager::getCoreProperties() const {
  load();
  return properties_;
}

void CorePropertiesManager::setCoreProperties(CoreProperties const& properties) {
  boost::optional<std::u16string> const currentUUID = properties_.getUUID();
  boost::optional<std::u16string> const newUUID = properties.getUUID();
  if (mode_ == Deterministic) {
    if (properties.getCreatedTime()) {
      throw NondeterministicCoreProperties(
          "The createdTime core property should not be set while in deterministic mode.");
    }
    if (properties.getLastModifiedTime()) {
      throw NondeterministicCoreProperties(
          "The lastModfiedTime core property should not be set while in deterministic mode.");
    }
    if (newUUID) {
      throw NondeterministicCoreProperties(
          "The UUID core property should not be set while in deterministic mode.");
    }
  }
  // Assignment, not setUUID: a caller may give the package another identifier.
  properties_ = properties;
  // An identifier is never lost to a record that simply lacks one.
  if (currentUUID && !newUUID) properties_.setUUID(*currentUUID);
  markAsDirty();
}

void CorePropertiesManager::load() const {
  // Loading fills the record and is the one change a const operation makes.
  const_cast<CorePropertiesManager*>(this)->DataManager::load();
}

void CorePropertiesManager::doLoad() {
  Package& package = getPackage();
  try {
    if (boost::optional<Part> part = findPart(package, getRelationshipType())) {
      coreHandler_->read(part->getInputStream(), properties_);
    }
    if (boost::optional<Part> part = findPart(package, getExtensionRelationshipType())) {
      extensionHandler_->read(part->getInputStream(), properties_);
    }
    if (boost::optional<Part> part = findPart(package, getReleaseInfoRelationshipType())) {
      releaseInfoHandler_->read(part->getInputStream(), properties_);
    }
    properties_.opcProps() = opc::model::PackageHelper::getCoreProperties(package);
  } catch (opc::model::InvalidXMLSchema const&) {
    // A fault of the library's own schema, not of the package: it keeps the class under which
    // a manager raised it when the schema was compiled with the manager.
    throw;
  } catch (opc::Exception const& e) {
    throw InvalidCoreProperties(e.what());
  }
}

void CorePropertiesManager::doSave() {
  if (!properties_.isValid()) {
    throw InvalidCoreProperties("Not all required core properties are set");
  }
  // Made before any part is touched, and kept in the record, so that every later save
  // writes the same identifier.
  if (!properties_.getUUID() && mode_ == NotDeterministic) properties_.generateAndSetUUID();

  Package& package = getPackage();
  std::pair<Part, bool> core =
      findOrCreatePart(package, getRelationshipType(), getPartURI(), getPartContentType());
  // A package is created when its core part is: that is the time to stamp, and the standard
  // part, written last, receives it in the same save.
  if (core.second && !properties_.getCreatedTime() && mode_ == NotDeterministic) {
    properties_.setCreatedTime(CoreProperties::getCurrentTime());
  }
  writePart(*coreHandler_, properties_, core.first);

  std::pair<Part, bool> extension =
      findOrCreatePart(package, getExtensionRelationshipType(), getExtensionPartURI(),
                       getExtensionPartContentType());
  writePart(*extensionHandler_, properties_, extension.first);

  if (properties_.getORVANEReleaseInfo().isLegacy()) {
    // A legacy release is what a package without the release-info part reads as: an older
    // part would contradict the record.
    if (!package.isReadOnly()) {
      opc::model::PackageHelper::deleteRelationshipsAndTargets(package,
                                                               getReleaseInfoRelationshipType());
    }
  } else {
    std::pair<Part, bool> releaseInfo =
        findOrCreatePart(package, getReleaseInfoRelationshipType(), getReleaseInfoPartURI(),
                         getReleaseInfoPartContentType());
    writePart(*releaseInfoHandler_, properties_, releaseInfo.first);
  }

  opc::model::PackageHelper::createOrUpdateCoreProperties(package,
                                                          std::as_const(properties_).opcProps());
}

std::vector<std::u16string> CorePropertiesManager::doGetManagedPartNames() const {
  return {opc::model::PackageHelper::getCorePropertiesURI().toString(), getPartURI().toString(),
          getExtensionPartURI().toString(), getReleaseInfoPartURI().toString()};
}

std::vector<std::u16string> CorePropertiesManager::doGetManagedRelationshipTypes() const {
  return {opc::model::PackageHelper::getCorePropertiesRelationshipType(), getRelationshipType(),
          getExtensionRelationshipType(), getReleaseInfoRelationshipType()};
}

opc::model::URI CorePropertiesManager::getPartURI() {
  return opc::model::URI(detail::kCorePartName);
}

opc::model::ContentType CorePropertiesManager::getPartContentType() {
  return opc::model::ContentType(detail::kCorePartContentType);
}

std::u16string CorePropertiesManager::getRelationshipType() {
  return detail::coreRelationshipType();
}

opc::model::URI CorePropertiesManager::getExtensionPartURI() {
  return opc::model::URI(detail::kExtensionPartName);
}

opc::model::ContentType CorePropertiesManager::getExtensionPartContentType() {
  return opc::model::ContentType(detail::kExtensionPartContentType);
}

std::u16string CorePropertiesManager::getExtensionRelationshipType() {
  return detail::extensionRelationshipType();
}

opc::model::URI CorePropertiesManager::getReleaseInfoPartURI() {
  return opc::model::URI(detail::kReleaseInfoPartName);
}

opc::model::ContentType CorePropertiesManager::getReleaseInfoPartContentType() {
  return opc::model::ContentType(detail::kReleaseInfoPartContentType);
}

std::u16string CorePropertiesManager::getReleaseInfoRelationshipType() {
  return detail::releaseInfoRelationshipType();
}

}  // namespace vkservices
}  // namespace opc
