#include "cipherdata/cipher_data_xml_handler.h"

#include <string>

#include <xercesc/dom/DOMDocument.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <foundation/crypto/encoding.h>
#include <opc/core/string_conversions.h>
#include <opc/model/uri.h>
#include <opc/model/xml/xerces_helper.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/errors.h>

#include "cipherdata/cipher_data_names.h"

namespace opc {
namespace vkservices {
namespace {

using opc::model::InvalidPartContent;
using opc::model::XercesHelper;

// Passes reading on to `source` and refuses to go past the size limit of the part, so that a
// hostile part costs at most that much of the parser's memory.
class BoundedInputStream : public opc::InputStream {
 public:
  explicit BoundedInputStream(opc::InputStream& source) : source_(source) {}
  ~BoundedInputStream() override = default;

  void open() override { source_.open(); }
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t const got = source_.read(buffer, count);
    total_ += got;
    if (total_ > detail::kMaxCipherDataPartSize) {
      throw InvalidPartContent("The cipher data part is larger than " +
                               std::to_string(detail::kMaxCipherDataPartSize) + " bytes");
    }
    return got;
  }
  bool isDone() const override { return source_.isDone(); }
  void close() override { source_.close(); }

 private:
  opc::InputStream& source_;
  std::size_t total_ = 0;
};

// The parser owns every document it made until resetDocumentPool; the handler holds none
// between reads, however a read ends.
class DocumentPoolReset {
 public:
  explicit DocumentPoolReset(xercesc::DOMLSParser& parser) : parser_(parser) {}
  DocumentPoolReset(DocumentPoolReset const&) = delete;
  DocumentPoolReset& operator=(DocumentPoolReset const&) = delete;
  ~DocumentPoolReset() {
    try {
      parser_.resetDocumentPool();
    } catch (...) {
      // Freeing the parser's documents does not fail in practice, and a destructor must not
      // throw.
    }
  }

 private:
  xercesc::DOMLSParser& parser_;
};

// The child of that name, which the reader requires: a missing one is told in the words of
// the format rather than the XML library's.
xercesc::DOMElement const* requireElement(xercesc::DOMElement const* parent, char16_t const* name) {
  xercesc::DOMElement const* found = XercesHelper::findElement(parent, name);
  if (found == nullptr) {
    throw InvalidPartContent("XML signature: " + opc::toASCIIString(name) + " is not present.");
  }
  return found;
}

// The text of the child of that name, which must have some.
std::u16string requireText(xercesc::DOMElement const* parent, char16_t const* name) {
  std::u16string text;
  if (!XercesHelper::getElementText(requireElement(parent, name), text)) {
    throw InvalidPartContent("XML signature: " + opc::toASCIIString(name) + " is empty.");
  }
  return text;
}

// The attribute of the selector, which the reader requires.  `messageName` is the name the
// message gives it, which for "Value" is another.
std::u16string requireAttribute(xercesc::DOMElement const* selector, char16_t const* name,
                                char const* messageName) {
  std::u16string value;
  if (!XercesHelper::getElementAttribute(selector, name, value)) {
    throw InvalidPartContent(std::string("RelationshipSelector xml element missing ") +
                             messageName + " attribute.");
  }
  return value;
}

}  // namespace

CipherDataXmlHandler::CipherDataXmlHandler()
    : guard_(), parser_(), writer_(), namespace_(detail::cipherDataNamespace()) {
  try {
    parser_ = XercesHelper::createParser();
    xercesc::DOMConfiguration* config = parser_->getDomConfig();
    config->setParameter(xercesc::XMLUni::fgXercesUseCachedGrammarInParse, true);
    config->setParameter(xercesc::XMLUni::fgXercesSchemaFullChecking, true);
    XercesHelper::loadGrammar(parser_.get(), detail::cipherDataSchemaText(),
                              detail::kCipherDataSchemaId);
    writer_ = XercesHelper::createPrettyPrintingWriter();
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidXMLSchema(std::string("Schema could not be loaded: ") + e.what());
  }
}

CipherDataXmlHandler::~CipherDataXmlHandler() {
  writer_.reset();
  parser_.reset();
}

void CipherDataXmlHandler::read(opc::InputStream& stream, std::vector<CipherEntry>& entries) {
  DocumentPoolReset const reset(*parser_);
  BoundedInputStream bounded(stream);
  xercesc::DOMDocument const* document = nullptr;
  try {
    document = XercesHelper::readDocumentFromStream(parser_.get(), bounded, true, std::u16string(),
                                                    std::u16string());
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw InvalidPartContent(e.what());
  }
  xercesc::DOMElement const* root = document->getDocumentElement();
  try {
    for (xercesc::DOMElement const* entry :
         XercesHelper::getElements(root, detail::kCipherEntryElement)) {
      entries.push_back(readEntry(entry));
    }
  } catch (InvalidCorePropertyValue const& e) {
    // No step of an entry's reading checks values this way; should one come to, its refusal
    // is reported as bad content like every other.
    throw InvalidPartContent(e.what());
  }
}

CipherEntry CipherDataXmlHandler::readEntry(xercesc::DOMElement const* entry) const {
  xercesc::DOMElement const* selector = requireElement(entry, detail::kSelectorElement);
  std::u16string const sourceURI =
      requireAttribute(selector, detail::kSourceURIAttribute, "SourceURI");
  std::u16string const selectorType =
      requireAttribute(selector, detail::kSelectorTypeAttribute, "SelectorType");
  std::u16string const value = requireAttribute(selector, detail::kValueAttribute, "SelectorValue");
  auto const hash =
      foundation::crypto::utils::base64Decode(requireText(entry, detail::kHashElement));
  std::u16string const salt = requireText(entry, detail::kSaltElement);
  auto const iv = foundation::crypto::utils::base64Decode(requireText(entry, detail::kIVElement));
  // Only the exact text selects by type; anything else, unknown words included, by id.
  auto const type = selectorType == detail::kByType ? opc::model::RelationshipSelectorType::ByType
                                                    : opc::model::RelationshipSelectorType::ByID;
  return CipherEntry(opc::model::RelationshipSelector(opc::model::URI(sourceURI), type, value),
                     hash, salt, iv);
}

void CipherDataXmlHandler::write(std::vector<CipherEntry> const& entries,
                                 opc::OutputStream& stream) {
  try {
    auto const document = XercesHelper::createDocument();
    document->setXmlStandalone(true);
    xercesc::DOMElement* root =
        XercesHelper::appendElementNS(document.get(), namespace_, detail::kCipherDataElement);
    for (CipherEntry const& entry : entries) {
      xercesc::DOMElement* element =
          XercesHelper::appendElementNS(root, namespace_, detail::kCipherEntryElement);
      xercesc::DOMElement* selector =
          XercesHelper::appendElementNS(element, namespace_, detail::kSelectorElement);
      opc::model::RelationshipSelector const relationshipSelector = entry.getRelationshipSelector();
      XercesHelper::setElementAttribute(selector, detail::kSourceURIAttribute,
                                        relationshipSelector.getSourceURI().toString());
      bool const byType =
          relationshipSelector.getSelectorType() == opc::model::RelationshipSelectorType::ByType;
      XercesHelper::setElementAttribute(selector, detail::kSelectorTypeAttribute,
                                        byType ? detail::kByType : detail::kByID);
      XercesHelper::setElementAttribute(selector, detail::kValueAttribute,
                                        relationshipSelector.getSelectionCriteria());
      XercesHelper::setElementText(
          XercesHelper::appendElementNS(element, namespace_, detail::kHashElement),
          foundation::crypto::utils::base64Encode(entry.getHash()));
      XercesHelper::setElementText(
          XercesHelper::appendElementNS(element, namespace_, detail::kSaltElement),
          entry.getSalt());
      XercesHelper::setElementText(
          XercesHelper::appendElementNS(element, namespace_, detail::kIVElement),
          foundation::crypto::utils::base64Encode(entry.getIV()));
    }
    XercesHelper::writeDocumentToStream(writer_.get(), document.get(), stream);
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw InvalidPartContent(e.what());
  }
}

}  // namespace vkservices
}  // namespace opc
