// Shared by the cipher data tests: packages in memory with a cipher data part of any text,
// selectors and entries, and the manager's private steps.
#ifndef TESTS_UNIT_CIPHERDATA_CIPHER_DATA_TEST_SUPPORT_H_
#define TESTS_UNIT_CIPHERDATA_CIPHER_DATA_TEST_SUPPORT_H_

#include <memory>
#include <string>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/core/stream_adaptors.h>
#include <opc/core/stream_helper.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/model/part_name.h>
#include <opc/model/relationship_selector.h>
#include <opc/model/standard_part_info.h>
#include <opc/model/uri.h>
#include <opc/vkservices/cipher_data_manager.h>

#include "cipherdata/cipher_data_names.h"

namespace opc {
namespace vkservices {
namespace detail {

// Reaches the manager's private steps that a test checks on their own.
class CipherDataManagerAccess {
 public:
  static std::vector<std::u16string> managedPartNames(CipherDataManager const& manager) {
    return manager.doGetManagedPartNames();
  }
  static std::vector<std::u16string> managedRelationshipTypes(CipherDataManager const& manager) {
    return manager.doGetManagedRelationshipTypes();
  }
  static void load(CipherDataManager& manager) { manager.doLoad(); }
  static std::size_t bucketCount(CipherDataManager const& manager) {
    return manager.entries_.bucket_count();
  }
  static float maxLoadFactor(CipherDataManager const& manager) {
    return manager.entries_.max_load_factor();
  }
};

}  // namespace detail
}  // namespace vkservices
}  // namespace opc

namespace opcvk_test {

using Bytes = std::vector<unsigned char>;
using opc::model::RelationshipSelector;
using opc::model::RelationshipSelectorType;
using Access = opc::vkservices::detail::CipherDataManagerAccess;

inline std::u16string cipherPartName() { return opc::vkservices::detail::kCipherDataPartName; }
inline std::u16string cipherRelationshipType() {
  return opc::vkservices::detail::cipherDataRelationshipType();
}
inline std::u16string cipherContentType() {
  return opc::vkservices::detail::kCipherDataContentType;
}
inline std::string cipherNamespace() {
  return "http://schemas.opcvkservices.org/package/2018/cipherData";
}

inline RelationshipSelector byType(std::u16string const& criteria,
                                   std::u16string const& source = u"/") {
  return RelationshipSelector(opc::model::URI(source), RelationshipSelectorType::ByType, criteria);
}
inline RelationshipSelector byID(std::u16string const& criteria,
                                 std::u16string const& source = u"/") {
  return RelationshipSelector(opc::model::URI(source), RelationshipSelectorType::ByID, criteria);
}

inline Bytes bytesOf(std::string const& text) { return Bytes(text.begin(), text.end()); }

// A cipher data document with the given entries' XML inside its root.
inline std::string cipherDocument(std::string const& entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"yes\"?>\n<CipherData xmlns=\"" +
         cipherNamespace() + "\">" + entries + "</CipherData>";
}

// One entry's XML: a selector (omitted if empty) and the three values, and `extra` at its end.
inline std::string cipherEntryXml(std::string const& selector, std::string const& hash = "AQID",
                                  std::string const& salt = "00ff", std::string const& iv = "BAUG",
                                  std::string const& extra = "") {
  return "<CipherEntry>" + selector + "<Hash>" + hash + "</Hash><Salt>" + salt + "</Salt><IV>" +
         iv + "</IV>" + extra + "</CipherEntry>";
}

inline std::string selectorXml(std::string const& source = "/", std::string const& type = "ByType",
                               std::string const& value = "urn:x") {
  return "<RelationshipSelector SourceURI=\"" + source + "\" SelectorType=\"" + type +
         "\" Value=\"" + value + "\"/>";
}

// The archive of a package that holds `text` as its cipher data part, reached by the
// relationship of its type, under `partName`.
inline Bytes packageWithCipherPart(std::string const& text,
                                   std::u16string const& partName = cipherPartName()) {
  auto package = opc::model::Package::openBuffer({}, opc::model::PackageAccess::Create);
  opc::model::Part part = package->createPart(
      opc::model::PartName(partName), opc::model::ContentType(cipherContentType()),
      opc::interfaces::StandardPartInfo(opc::interfaces::CompressionType::DeflateMetadata, 0));
  opc::OutputStream& out = part.getOutputStream();
  out.write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
  out.close();
  package->createInternalRelationship(cipherRelationshipType(), part.getName().getURI(), u"");
  package->save();
  return package->getBuffer();
}

// The content of the part of that name.
inline std::string partText(opc::model::Package& package, std::u16string const& name) {
  opc::model::Part part = package.getPart(opc::model::PartName(name));
  std::vector<unsigned char> content;
  opc::ByteArrayOutAdaptor out(content);
  opc::StreamHelper::copyStreamToStream(part.getInputStream(), out);
  return std::string(content.begin(), content.end());
}

// A package in memory and a manager over it; the package is declared first so that it
// outlives the manager.
struct CipherPackage {
  explicit CipherPackage(Bytes bytes = {},
                         opc::model::PackageAccess access = opc::model::PackageAccess::Create)
      : package(opc::model::Package::openBuffer(std::move(bytes), access)),
        manager(std::make_unique<opc::vkservices::CipherDataManager>(*package)) {}

  Bytes save() {
    package->save();
    return package->getBuffer();
  }

  std::unique_ptr<opc::model::Package> package;
  std::unique_ptr<opc::vkservices::CipherDataManager> manager;
};

}  // namespace opcvk_test

#endif  // TESTS_UNIT_CIPHERDATA_CIPHER_DATA_TEST_SUPPORT_H_
