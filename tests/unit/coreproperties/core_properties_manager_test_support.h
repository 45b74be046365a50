// Shared by the CorePropertiesManager tests: the manager's private steps, packages in memory
// with metadata parts made by hand, and the names of the parts spelt out as the format has
// them.
#ifndef TESTS_UNIT_COREPROPERTIES_CORE_PROPERTIES_MANAGER_TEST_SUPPORT_H_
#define TESTS_UNIT_COREPROPERTIES_CORE_PROPERTIES_MANAGER_TEST_SUPPORT_H_

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <opc/core/stream_helper.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/model/package_options.h>
#include <opc/model/part.h>
#include <opc/model/part_name.h>
#include <opc/model/standard_part_info.h>
#include <opc/vkservices/core_properties_manager.h>

namespace opc {
namespace vkservices {
namespace detail {

// Reaches the manager's steps that the package normally runs.
class CorePropertiesManagerAccess {
 public:
  static void save(CorePropertiesManager& manager) { manager.doSave(); }
  static std::vector<std::u16string> managedPartNames(CorePropertiesManager const& manager) {
    return manager.doGetManagedPartNames();
  }
  static std::vector<std::u16string> managedRelationshipTypes(
      CorePropertiesManager const& manager) {
    return manager.doGetManagedRelationshipTypes();
  }
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

namespace opcvk_test {

inline constexpr char16_t kCorePart[] = u"/metadata/vkcoreProperties.xml";
inline constexpr char16_t kExtensionPart[] = u"/metadata/vkcorePropertiesExtension.xml";
inline constexpr char16_t kReleaseInfoPart[] = u"/metadata/vkcorePropertiesReleaseInfo.xml";
inline constexpr char16_t kStandardPart[] = u"/docProps/core.xml";

inline constexpr char16_t kCoreType[] = u"application/vnd.veltrance.package.coreProperties+xml";
inline constexpr char16_t kExtensionType[] =
    u"application/vnd.veltrance.package.corePropertiesExtension+xml";
inline constexpr char16_t kReleaseInfoType[] =
    u"application/vnd.veltrance.package.corePropertiesReleaseInfo+xml";

inline constexpr char16_t kCoreRelationship[] =
    u"http://schemas.opcvkservices.org/package/2012/relationships/coreProperties";
inline constexpr char16_t kExtensionRelationship[] =
    u"http://schemas.opcvkservices.org/package/2014/relationships/corePropertiesExtension";
inline constexpr char16_t kReleaseInfoRelationship[] =
    u"http://schemas.opcvkservices.org/package/2019/relationships/corePropertiesReleaseInfo";
inline constexpr char16_t kStandardRelationship[] =
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";

inline constexpr char kCoreNamespace[] =
    "http://schemas.opcvkservices.org/package/2012/coreProperties";
inline constexpr char kExtensionNamespace[] =
    "http://schemas.opcvkservices.org/package/2014/corePropertiesExtension";

inline std::string coreXml(std::string const& contentType, std::string const& friendlyName,
                           std::string const& release, std::string const& more = "") {
  return std::string("<vkcoreProperties xmlns='") + kCoreNamespace + "'><contentType>" +
         contentType + "</contentType><contentTypeFriendlyName>" + friendlyName +
         "</contentTypeFriendlyName><orvaneRelease>" + release + "</orvaneRelease>" + more +
         "</vkcoreProperties>";
}

inline std::string extensionXml(std::string const& body) {
  return std::string("<vkcoreProperties xmlns='") + kExtensionNamespace + "'>" + body +
         "</vkcoreProperties>";
}

inline std::string readAll(opc::model::Part part) {
  std::ostringstream out;
  opc::StreamHelper::copyStreamToStream(part.getInputStream(), out);
  return out.str();
}

// Adds a part of `type` holding `text`, reached from the package by a relationship of
// `relationship`.
inline void addMetadataPart(opc::model::Package& package, std::u16string const& name,
                            std::u16string const& type, std::u16string const& relationship,
                            std::string const& text) {
  opc::model::Part part = package.createPart(
      opc::model::PartName(name), opc::model::ContentType(type),
      opc::interfaces::StandardPartInfo(opc::interfaces::CompressionType::DeflateMetadata, 0));
  opc::OutputStream& out = part.getOutputStream();
  out.write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
  out.close();
  package.createInternalRelationship(relationship, part.getName().getURI(), u"");
}

// A package in memory and a manager over it, the package declared first so that it outlives
// the manager.
struct PropertiesPackage {
  explicit PropertiesPackage(std::vector<unsigned char> bytes = {},
                             opc::model::PackageAccess access = opc::model::PackageAccess::Create,
                             opc::vkservices::CorePropertiesManager::DeterministicMode mode =
                                 opc::vkservices::CorePropertiesManager::NotDeterministic,
                             opc::model::PackageOptions const& options = {})
      : package(opc::model::Package::openBuffer(std::move(bytes), access, options)),
        manager(std::make_unique<opc::vkservices::CorePropertiesManager>(*package, mode)) {}

  std::vector<unsigned char> save() {
    package->save();
    return package->getBuffer();
  }

  std::unique_ptr<opc::model::Package> package;
  std::unique_ptr<opc::vkservices::CorePropertiesManager> manager;
};

}  // namespace opcvk_test

#endif  // TESTS_UNIT_COREPROPERTIES_CORE_PROPERTIES_MANAGER_TEST_SUPPORT_H_
