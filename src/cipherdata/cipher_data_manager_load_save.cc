// CipherDataManager: reading the table from its part and writing it back.
#include <string>
#include <vector>

#include <boost/optional.hpp>

#include <opc/core/exception.h>
#include <opc/core/stream_adaptors.h>
#include <opc/core/stream_helper.h>
#include <opc/model/part.h>
#include <opc/model/part_name.h>
#include <opc/model/standard_part_info.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/cipher_data_manager.h>
#include <opc/vkservices/errors.h>

#include "cipherdata/cipher_data_xml_handler.h"

namespace opc {
namespace vkservices {

void CipherDataManager::doLoad() {
  try {
    auto& package = getPackage();
    auto const relationships = package.getRelationshipsByType(getRelationshipType());
    // Without a part the table stays as it is: entries added before the first load (there
    // are none, as every operation loads first) are not thrown away.
    if (relationships.begin() == relationships.end()) return;
    opc::model::Part part =
        package.getPart(opc::model::PartName(relationships.begin()->getTargetURI()));
    std::vector<CipherEntry> entries;
    xmlHandler_->read(part.getInputStream(), entries);

    // The new table is filled on the side, so that a part that fails leaves the table as it
    // was rather than half replaced.
    Table table(entries_.bucket_count());
    table.max_load_factor(entries_.max_load_factor());
    for (CipherEntry const& entry : entries) {
      if (!table.emplace(entry.getRelationshipSelector(), entry).second) {
        throw InvalidCipherData(
            "Cipher data in the package has multiple entries with the same values.");
      }
    }
    entries_.swap(table);
  } catch (opc::model::InvalidXMLSchema const&) {
    // A fault of the library's own schema, not of the package: it keeps the class under which
    // a manager raised it when the schema was compiled with the manager.
    throw;
  } catch (opc::Exception const& e) {
    throw InvalidCipherData(e.what());
  }
}

void CipherDataManager::doSave() {
  try {
    // An empty table writes nothing: a part already there keeps its content.
    if (entries_.empty()) return;

    std::vector<CipherEntry> entries;
    entries.reserve(entries_.size());
    for (auto const& keyAndEntry : entries_) entries.push_back(keyAndEntry.second);
    // The document is made before the package is touched, so that one that cannot be written
    // leaves the package as it was.
    std::vector<unsigned char> document;
    {
      opc::ByteArrayOutAdaptor target(document);
      xmlHandler_->write(entries, target);
    }

    auto& package = getPackage();
    auto const relationships = package.getRelationshipsByType(getRelationshipType());
    boost::optional<opc::model::Part> part;
    if (relationships.begin() != relationships.end()) {
      part = package.getPart(opc::model::PartName(relationships.begin()->getTargetURI()));
    } else {
      part = package.createPart(
          opc::model::PartName(getPartURI()), getPartContentType(),
          opc::interfaces::StandardPartInfo(opc::interfaces::CompressionType::DeflateMetadata, 0));
      package.createInternalRelationship(getRelationshipType(), part->getName().getURI(), u"");
    }
    opc::ByteArrayInAdaptor source(document);
    opc::OutputStream& output = part->getOutputStream();
    opc::StreamHelper::copyStreamToStream(source, output);
    output.close();
  } catch (opc::Exception const& e) {
    throw InvalidCipherData(e.what());
  }
}

}  // namespace vkservices
}  // namespace opc
