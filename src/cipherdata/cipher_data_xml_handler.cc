#include "cipherdata/cipher_data_xml_handler.h"

#include <string>
#include <utility>

#include <foundation/crypto/encoding.h>
#include <opc/core/string_conversions.h>
#include <opc/model/uri.h>
#include <opc/model/xml/xml_exceptions.h>
#include <opc/vkservices/errors.h>

#include "cipherdata/cipher_data_names.h"

namespace opc {
namespace vkservices {
namespace {

using opc::model::InvalidPartContent;
using opc::model::detail::XmlNode;

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

// The child of that name, which the reader requires: a missing one is told in the words of
// the format rather than the XML library's.
XmlNode const& requireElement(XmlNode const& parent, char16_t const* name) {
  XmlNode const* found = opc::model::detail::findElement(&parent, name);
  if (found == nullptr) {
    throw InvalidPartContent("XML signature: " + opc::toASCIIString(name) + " is not present.");
  }
  return *found;
}

// The text of the child of that name, which must have some.
std::u16string requireText(XmlNode const& parent, char16_t const* name) {
  std::u16string text;
  if (!opc::model::detail::getElementText(&requireElement(parent, name), text)) {
    throw InvalidPartContent("XML signature: " + opc::toASCIIString(name) + " is empty.");
  }
  return text;
}

// The attribute of the selector, which the reader requires.  `messageName` is the name the
// message gives it, which for "Value" is another.
std::u16string requireAttribute(XmlNode const& selector, char16_t const* name,
                                char const* messageName) {
  std::u16string value;
  if (!opc::model::detail::getElementAttribute(&selector, name, value)) {
    throw InvalidPartContent(std::string("RelationshipSelector xml element missing ") +
                             messageName + " attribute.");
  }
  return value;
}

CipherEntry readEntry(XmlNode const& entry) {
  XmlNode const& selector = requireElement(entry, detail::kSelectorElement);
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

// An element of the document's namespace, with `text` if it is not empty.
XmlNode element(std::u16string const& ns, char16_t const* name, std::u16string text = {}) {
  XmlNode node;
  node.namespaceURI = ns;
  node.name = name;
  node.text = std::move(text);
  return node;
}

// A reader with the schema compiled, which the first read makes.
std::unique_ptr<opc::model::detail::XmlTreeReader> makeReader() {
  opc::model::detail::XmlReaderSettings settings;
  settings.grammars.push_back({detail::cipherDataSchemaText(), detail::kCipherDataSchemaId});
  try {
    return opc::model::detail::xmlEngine().makeTreeReader(settings);
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw opc::model::InvalidXMLSchema(std::string("Schema could not be loaded: ") + e.what());
  }
}

}  // namespace

CipherDataXmlHandler::CipherDataXmlHandler()
    : reader_(), namespace_(detail::cipherDataNamespace()) {}

CipherDataXmlHandler::~CipherDataXmlHandler() = default;

void CipherDataXmlHandler::read(opc::InputStream& stream, std::vector<CipherEntry>& entries) {
  // Compiled by the first read, not by the constructor: a manager over a package without
  // the part, or one that only writes it, has no use for the schema.
  if (!reader_) reader_ = makeReader();
  BoundedInputStream bounded(stream);
  XmlNode root;
  try {
    root = reader_->read(bounded, true, std::u16string(), std::u16string());
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw InvalidPartContent(e.what());
  }
  try {
    for (XmlNode const* entry :
         opc::model::detail::getElements(&root, detail::kCipherEntryElement)) {
      entries.push_back(readEntry(*entry));
    }
  } catch (InvalidCorePropertyValue const& e) {
    // No step of an entry's reading checks values this way; should one come to, its refusal
    // is reported as bad content like every other.
    throw InvalidPartContent(e.what());
  }
}

void CipherDataXmlHandler::write(std::vector<CipherEntry> const& entries,
                                 opc::OutputStream& stream) {
  XmlNode root = element(namespace_, detail::kCipherDataElement);
  root.children.reserve(entries.size());
  for (CipherEntry const& entry : entries) {
    XmlNode node = element(namespace_, detail::kCipherEntryElement);
    XmlNode selector = element(namespace_, detail::kSelectorElement);
    opc::model::RelationshipSelector const relationshipSelector = entry.getRelationshipSelector();
    bool const byType =
        relationshipSelector.getSelectorType() == opc::model::RelationshipSelectorType::ByType;
    selector.attributes = {
        {detail::kSourceURIAttribute, relationshipSelector.getSourceURI().toString()},
        {detail::kSelectorTypeAttribute, byType ? detail::kByType : detail::kByID},
        {detail::kValueAttribute, relationshipSelector.getSelectionCriteria()}};
    node.children.push_back(std::move(selector));
    node.children.push_back(element(namespace_, detail::kHashElement,
                                    foundation::crypto::utils::base64Encode(entry.getHash())));
    node.children.push_back(element(namespace_, detail::kSaltElement, entry.getSalt()));
    node.children.push_back(element(namespace_, detail::kIVElement,
                                    foundation::crypto::utils::base64Encode(entry.getIV())));
    root.children.push_back(std::move(node));
  }
  try {
    opc::model::detail::xmlEngine().write(root, true, stream);
  } catch (opc::model::InvalidXMLDocument const& e) {
    throw InvalidPartContent(e.what());
  }
}

}  // namespace vkservices
}  // namespace opc
