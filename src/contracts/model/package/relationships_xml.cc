#include "relationships_xml.h"

#include <set>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/xml/xerces_guard.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>

#include "../text_chars.h"
#include "content_types.h"

namespace opc {
namespace model {
namespace detail {

char16_t const kRelationshipsNamespace[] =
    u"http://schemas.openxmlformats.org/package/2006/relationships";

namespace {

std::u16string requiredAttribute(xercesc::DOMElement const* element, char16_t const* attribute,
                                 std::string const& context) {
  std::u16string value;
  if (!XercesHelper::getElementAttribute(element, attribute, value)) {
    throw InvalidPackage(context + ": a Relationship element has no " + toUDEString(attribute) +
                         " attribute");
  }
  return value;
}

TargetMode parseTargetMode(xercesc::DOMElement const* element, std::string const& context) {
  std::u16string mode;
  if (!XercesHelper::getElementAttribute(element, u"TargetMode", mode) || mode == u"Internal") {
    return TargetMode::Internal;
  }
  if (mode == u"External") return TargetMode::External;
  throw InvalidPackage(context + ": the target mode " + quoted(mode) +
                       " is neither \"Internal\" nor \"External\"");
}

}  // namespace

std::vector<Relationship> readRelationships(opc::InputStream& stream, URI const& sourceURI,
                                            std::string const& context) {
  XercesGuard guard;
  auto parser = XercesHelper::createParser();
  xercesc::DOMDocument* document = nullptr;
  try {
    document = XercesHelper::readDocumentFromStream(parser.get(), stream, false, u"",
                                                    kRelationshipsNamespace);
  } catch (InvalidXMLDocument const& e) {
    throw InvalidPackage(context + ": " + e.what());
  } catch (InvalidPartContent const& e) {
    throw InvalidPackage(context + ": " + e.what());
  }
  xercesc::DOMElement const* root = document->getDocumentElement();
  if (std::u16string(root->getLocalName()) != u"Relationships") {
    throw InvalidPackage(context + ": the document element is not Relationships");
  }
  std::vector<Relationship> relationships;
  std::set<std::u16string> ids;
  for (xercesc::DOMElement const* element : XercesHelper::getElements(root, u"Relationship")) {
    std::u16string const id = requiredAttribute(element, u"Id", context);
    std::u16string const type = requiredAttribute(element, u"Type", context);
    std::u16string const target = requiredAttribute(element, u"Target", context);
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

void writeRelationships(std::vector<Relationship> const& relationships, opc::OutputStream& stream) {
  XercesGuard guard;
  auto document = XercesHelper::createDocument();
  document->setXmlStandalone(true);
  xercesc::DOMElement* root =
      XercesHelper::appendElementNS(document.get(), kRelationshipsNamespace, u"Relationships");
  for (Relationship const& relationship : relationships) {
    xercesc::DOMElement* element =
        XercesHelper::appendElementNS(root, kRelationshipsNamespace, u"Relationship");
    XercesHelper::setElementAttribute(element, u"Id", relationship.getID());
    XercesHelper::setElementAttribute(element, u"Type", relationship.getType());
    XercesHelper::setElementAttribute(element, u"Target",
                                      asciiOnly(relationship.getTargetURI().toString()));
    if (relationship.getTargetMode() == TargetMode::External) {
      XercesHelper::setElementAttribute(element, u"TargetMode", u"External");
    }
  }
  auto writer = XercesHelper::createPrettyPrintingWriter();
  XercesHelper::writeDocumentToStream(writer.get(), document.get(), stream);
}

}  // namespace detail
}  // namespace model
}  // namespace opc
