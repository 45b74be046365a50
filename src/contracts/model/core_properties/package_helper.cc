// PackageHelper: the standard core properties part, found and kept through its package
// relationship.
#include <vector>

#include <opc/core/string_conversions.h>
#include <opc/model/content_type.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/package_helper.h>
#include <opc/model/part.h>
#include <opc/model/part_name.h>
#include <opc/model/relationship.h>
#include <opc/model/standard_part_info.h>
#include <opc/model/xml/xml_exceptions.h>

namespace opc {
namespace model {

namespace {

char16_t const kRelationshipType[] =
    u"http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties";
// The type that writers used before the conventions were standardised; still met in old
// packages, so it is read, but never written.
char16_t const kOlderRelationshipType[] =
    u"http://schemas.openxmlformats.org/officedocument/2006/relationships/metadata/"
    u"core-properties";
char16_t const kContentType[] = u"application/vnd.openxmlformats-package.core-properties+xml";
char16_t const kPartName[] = u"/docProps/core.xml";

// The relationship through which the core properties are reached, if any.  When a package
// has several, which the conventions forbid, the first one wins, as for every metadata part.
boost::optional<Relationship> findRelationship(Package const& package) {
  for (char16_t const* type : {kRelationshipType, kOlderRelationshipType}) {
    Enumerator<std::vector<Relationship>> relationships = package.getRelationshipsByType(type);
    if (relationships.empty()) continue;
    Relationship const& relationship = *relationships.begin();
    if (relationship.getTargetMode() == TargetMode::External) {
      throw InvalidPackage(
          "The core properties relationship " + toUDEString(relationship.getID()) +
          " targets an external resource: " + toUDEString(relationship.getTargetURI().toString()));
    }
    return relationship;
  }
  return boost::none;
}

void ensureContentType(Part const& part) {
  if (part.getContentType() != ContentType(kContentType)) {
    throw InvalidPartContent("The core properties part " + toUDEString(part.getName().toString()) +
                             " has content type " +
                             toASCIIString(part.getContentType().toString()) + ", not " +
                             toASCIIString(kContentType));
  }
}

void ensureWritable(Package const& package, char const* operation) {
  if (package.isReadOnly()) {
    throw PackageNotWritable(std::string("Cannot ") + operation + ": the package is open for Read");
  }
}

}  // namespace

CoreProperties PackageHelper::getCoreProperties(Package const& package) {
  boost::optional<Relationship> relationship = findRelationship(package);
  if (!relationship) return CoreProperties();
  Part part = package.getPart(relationship->getTargetPartName());
  ensureContentType(part);
  return CorePropertiesXml::read(part.getInputStream());
}

void PackageHelper::createOrUpdateCoreProperties(Package& package,
                                                 CoreProperties const& properties) {
  ensureWritable(package, "write core properties");
  boost::optional<Relationship> relationship = findRelationship(package);
  PartName const name =
      relationship ? relationship->getTargetPartName() : PartName(std::u16string(kPartName));
  interfaces::StandardPartInfo const info(interfaces::CompressionType::DeflateMetadata, 0);
  // An existing part is checked before anything changes, so that a part of another kind is
  // never overwritten with core properties.
  boost::optional<Part> part;
  if (package.hasPart(name)) {
    part = package.getPart(name);
    ensureContentType(*part);
  }
  if (!part) part = package.createPart(name, ContentType(kContentType), info);
  if (!relationship) package.createInternalRelationship(kRelationshipType, name.getURI(), u"");

  opc::OutputStream& stream = part->getOutputStream();
  CorePropertiesXml::write(properties, stream);
  stream.close();
}

URI PackageHelper::getCorePropertiesURI() { return URI(kPartName); }

std::u16string PackageHelper::getCorePropertiesRelationshipType() { return kRelationshipType; }

void PackageHelper::deleteRelationshipsAndTargets(Package& package, std::u16string const& type) {
  ensureWritable(package, "delete relationships");
  for (Relationship const& relationship : package.getRelationshipsByType(type)) {
    if (relationship.getTargetMode() == TargetMode::Internal) {
      PartName const target = relationship.getTargetPartName();
      if (package.hasPart(target)) package.deletePart(target);
    }
    package.deleteRelationship(relationship.getID());
  }
}

}  // namespace model
}  // namespace opc
