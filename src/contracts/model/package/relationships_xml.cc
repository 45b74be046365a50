#include "relationships_xml.h"

#include <memory>
#include <optional>
#include <set>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/model/xml/xml_stream_writer.h>

#include "../text_chars.h"
#include "../xml/plain_elements.h"
#include "../xml_engine/xml_engine.h"
#include "content_types.h"
#include "plain_part.h"

namespace opc {
namespace model {
namespace detail {

char16_t const kRelationshipsNamespace[] =
    u"http://schemas.openxmlformats.org/package/2006/relationships";

namespace {

// The one kind of element of the document, and the attributes read from it.
constexpr std::size_t kId = 0;
constexpr std::size_t kType = 1;
constexpr std::size_t kTarget = 2;
constexpr std::size_t kTargetMode = 3;
PlainElementKind const kKinds[] = {{u"Relationship", {u"Id", u"Type", u"Target", u"TargetMode"}}};
PlainDocumentShape const kShape{u"Relationships", kRelationshipsNamespace, kKinds, 1};

std::u16string requiredAttribute(PlainElement const& element, std::size_t at,
                                 std::string const& context) {
  std::optional<std::u16string> const& value = element.values[at];
  if (!value) {
    throw InvalidPackage(context + ": a Relationship element has no " +
                         toUDEString(std::u16string(kKinds[0].attributes[at])) + " attribute");
  }
  return *value;
}

TargetMode parseTargetMode(PlainElement const& element, std::string const& context) {
  std::optional<std::u16string> const& mode = element.values[kTargetMode];
  if (!mode || *mode == u"Internal") return TargetMode::Internal;
  if (*mode == u"External") return TargetMode::External;
  throw InvalidPackage(context + ": the target mode " + quoted(*mode) +
                       " is neither \"Internal\" nor \"External\"");
}

// The relationships of the elements that either road found.
std::vector<Relationship> relationshipsOf(std::vector<PlainElement> const& elements,
                                          URI const& sourceURI, std::string const& context) {
  std::vector<Relationship> relationships;
  std::set<std::u16string> ids;
  for (PlainElement const& element : elements) {
    std::u16string const id = requiredAttribute(element, kId, context);
    std::u16string const type = requiredAttribute(element, kType, context);
    std::u16string const target = requiredAttribute(element, kTarget, context);
    TargetMode const mode = parseTargetMode(element, context);
    if (!ids.insert(id).second) {
      throw InvalidPackage(context + ": the id " + quoted(id) +
                           " is given to more than one relationship");
    }
    try {
      relationships.emplace_back(id, type, URI(target), mode, sourceURI);
    } catch (InvalidRelationship const& e) {
      throw InvalidPackage(context + ": " + e.what());
    }
  }
  return relationships;
}

}  // namespace

std::vector<Relationship> readRelationships(opc::InputStream& stream, URI const& sourceURI,
                                            std::string const& context) {
  std::unique_ptr<XmlTreeReader> const reader = xmlEngine().makeTreeReader(XmlReaderSettings());
  XmlNode root;
  try {
    root = reader->read(stream, false, u"", kRelationshipsNamespace);
  } catch (InvalidXMLDocument const& e) {
    throw InvalidPackage(context + ": " + e.what());
  } catch (InvalidPartContent const& e) {
    throw InvalidPackage(context + ": " + e.what());
  }
  if (root.localName != u"Relationships") {
    throw InvalidPackage(context + ": the document element is not Relationships");
  }
  return relationshipsOf(plainElementsOf(root, kShape), sourceURI, context);
}

std::vector<Relationship> readRelationships(OpenStream const& open, std::size_t size,
                                            URI const& sourceURI, std::string const& context) {
  std::vector<PlainElement> elements;
  // Nearly every relationships part is plain: read without the parser, the XML library
  // is not even initialised for it.
  if (readPlainPart(open, size, kShape, elements, context)) {
    return relationshipsOf(elements, sourceURI, context);
  }
  std::shared_ptr<opc::InputStream> const again = open();
  return readRelationships(*again, sourceURI, context);
}

void writeRelationships(std::vector<Relationship> const& relationships, opc::OutputStream& stream) {
  // Elements with attributes only: the streaming writer gives the serializer's bytes without
  // the XML library, so that saving a package does not load it.
  XmlStreamWriter writer(stream);
  writer.startDocument();
  writer.startElement(kRelationshipsNamespace, u"Relationships");
  for (Relationship const& relationship : relationships) {
    writer.startElement(kRelationshipsNamespace, u"Relationship");
    writer.attribute(u"Id", relationship.getID());
    writer.attribute(u"Type", relationship.getType());
    writer.attribute(u"Target", asciiOnly(relationship.getTargetURI().toString()));
    if (relationship.getTargetMode() == TargetMode::External) {
      writer.attribute(u"TargetMode", u"External");
    }
    writer.endElement();
  }
  writer.endElement();
  writer.endDocument();
}

}  // namespace detail
}  // namespace model
}  // namespace opc
