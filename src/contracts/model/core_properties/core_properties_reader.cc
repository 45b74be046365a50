// Reading core properties.  The document is checked by hand rather than against a schema:
// the rules that matter (no duplicates, no foreign or markup-compatibility elements, typed
// dates) are few, and a hand check names the offending element in its message.
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <opc/model/core_properties.h>
#include <opc/model/xml/xml_exceptions.h>

#include "../xml/xml_text.h"
#include "../xml_engine/plain_xml.h"
#include "../xml_engine/xml_engine.h"
#include "core_properties_schema.h"
#include "w3cdtf.h"

namespace opc {
namespace model {

namespace {

using detail::attributeNamespace;
using detail::displayName;
using detail::kProperties;
using detail::kPropertyCount;
using detail::PropertyInfo;
using detail::PropertyKind;
using detail::XmlNode;

[[noreturn]] void fail(std::string const& message) { throw InvalidPartContent(message); }

std::string nameOf(std::u16string const& namespaceURI, std::u16string const& localName) {
  return detail::toMessageText(displayName(namespaceURI.c_str(), localName.c_str()));
}

std::string nameOf(XmlNode const& element) {
  return nameOf(element.namespaceURI, element.localName);
}

// An attribute's local name: what follows the prefix of its qualified name.
std::u16string localNameOf(std::u16string const& qualifiedName) {
  std::size_t const colon = qualifiedName.find(u':');
  return colon == std::u16string::npos ? qualifiedName : qualifiedName.substr(colon + 1);
}

bool isXmlSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r'; }

bool isBlank(std::u16string const& text) {
  for (char16_t c : text) {
    if (!isXmlSpace(c)) return false;
  }
  return true;
}

std::u16string trimmed(std::u16string const& text) {
  std::size_t first = 0;
  std::size_t last = text.size();
  while (first < last && isXmlSpace(text[first])) ++first;
  while (last > first && isXmlSpace(text[last - 1])) --last;
  return text.substr(first, last - first);
}

// The text of an element before its first child element: what its text holds beyond the
// runs that follow its children.
std::u16string leadingText(XmlNode const& element) {
  std::size_t after = 0;
  for (XmlNode const& child : element.children) after += child.tail.size();
  return element.text.substr(0, element.text.size() - after);
}

// An element with the elements around it, innermost first, for what is inherited: namespace
// prefixes and xml:lang.
struct Scope {
  XmlNode const& element;
  Scope const* parent;
};

// The namespace bound to `prefix` (empty: the default one) where the scope stands, or null.
std::u16string const* lookupNamespace(Scope const& scope, std::u16string const& prefix) {
  for (Scope const* at = &scope; at != nullptr; at = at->parent) {
    for (auto const& declaration : at->element.namespaceDeclarations) {
      if (declaration.first == prefix) return &declaration.second;
    }
  }
  return nullptr;
}

// Counts the bytes a reader takes, so that a hostile part cannot make the parser build an
// arbitrarily large tree.
class BoundedInputStream : public opc::InputStream {
 public:
  BoundedInputStream(opc::InputStream& inner, std::size_t limit) : inner_(inner), limit_(limit) {}
  ~BoundedInputStream() override = default;

  void open() override { inner_.open(); }
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t n = inner_.read(buffer, count);
    total_ += n;
    if (total_ > limit_) {
      fail("The core properties part is larger than " + std::to_string(limit_ >> 20) + " MiB");
    }
    return n;
  }
  bool isDone() const override { return inner_.isDone(); }
  void close() override { inner_.close(); }

 private:
  opc::InputStream& inner_;
  std::size_t limit_;
  std::size_t total_ = 0;
};

// The attributes of any element: markup compatibility is refused everywhere, and xsi:type
// is allowed only where the property says so, with the one value the format defines.
void checkAttributes(Scope const& scope, PropertyInfo const* info) {
  XmlNode const& element = scope.element;
  for (std::size_t i = 0; i < element.attributes.size(); ++i) {
    std::u16string const& ns = attributeNamespace(element, i);
    std::u16string const local = localNameOf(element.attributes[i].first);
    if (ns == detail::kMarkupCompatibilityNamespace) {
      fail("Markup compatibility attribute " + nameOf(ns, local) +
           " is not allowed in core properties");
    }
    if (ns != detail::kSchemaInstanceNamespace || local != u"type") {
      continue;
    }
    if (info == nullptr || !info->typedAsW3cdtf) {
      fail("Attribute xsi:type is not allowed on " + nameOf(element));
    }
    // The value is a QName: its prefix must stand for the terms namespace, whatever it is.
    std::u16string const value = trimmed(element.attributes[i].second);
    std::size_t const colon = value.find(u':');
    std::u16string const prefix = colon == std::u16string::npos ? u"" : value.substr(0, colon);
    std::u16string const localValue =
        colon == std::u16string::npos ? value : value.substr(colon + 1);
    std::u16string const* bound = lookupNamespace(scope, prefix);
    if (localValue != u"W3CDTF" || bound == nullptr ||
        *bound != detail::kDublinCoreTermsNamespace) {
      fail("Core property " + nameOf(element) + " must have xsi:type dcterms:W3CDTF, not " +
           detail::quotedName(value.c_str()));
    }
  }
}

// The text inside a property that may hold nothing else.
std::u16string textOf(XmlNode const& element) {
  if (!element.children.empty()) {
    fail("Core property " + nameOf(element) + " must hold text only, not element " +
         nameOf(element.children.front()));
  }
  return element.text;
}

// xml:lang is inherited: the nearest element that says it decides.
std::u16string languageOf(Scope const& scope) {
  for (Scope const* at = &scope; at != nullptr; at = at->parent) {
    XmlNode const& element = at->element;
    for (std::size_t i = 0; i < element.attributes.size(); ++i) {
      if (attributeNamespace(element, i) == detail::kXmlNamespace &&
          localNameOf(element.attributes[i].first) == u"lang") {
        return element.attributes[i].second;
      }
    }
  }
  return u"";
}

CoreProperties::Keywords keywordsOf(Scope const& scope) {
  XmlNode const& element = scope.element;
  CoreProperties::Keywords keywords;
  std::u16string const language = languageOf(scope);
  for (XmlNode const& child : element.children) {
    if (child.namespaceURI != detail::kCorePropertiesNamespace || child.localName != u"value") {
      fail("Core property cp:keywords may hold only cp:value elements, not " + nameOf(child));
    }
  }
  if (element.children.empty()) {
    // Plain text is one keyword list as its writer spelt it; see the header.
    std::u16string text = textOf(element);
    if (!text.empty()) keywords.emplace_back(text, language);
    return keywords;
  }
  // Mixed content: runs of text between the entries are keywords of the element's own
  // language, with the indentation that writers put between entries dropped.
  auto addRun = [&](std::u16string const& run) {
    if (!isBlank(run)) keywords.emplace_back(trimmed(run), language);
  };
  addRun(leadingText(element));
  for (XmlNode const& child : element.children) {
    Scope const value{child, &scope};
    checkAttributes(value, nullptr);
    keywords.emplace_back(textOf(child), languageOf(value));
    addRun(child.tail);
  }
  return keywords;
}

PropertyInfo const* findProperty(XmlNode const& element) {
  for (std::size_t i = 0; i < kPropertyCount; ++i) {
    if (element.namespaceURI == kProperties[i].namespaceURI &&
        element.localName == kProperties[i].localName) {
      return &kProperties[i];
    }
  }
  return nullptr;
}

void readProperty(Scope const& scope, PropertyInfo const& info, CoreProperties& properties) {
  XmlNode const& element = scope.element;
  checkAttributes(scope, &info);
  switch (info.kind) {
    case PropertyKind::Text:
      (properties.*info.setText)(textOf(element));
      return;
    case PropertyKind::Time: {
      std::u16string const text = textOf(element);
      boost::optional<boost::posix_time::ptime> time = detail::parseW3cdtf(text);
      if (!time) {
        fail("Core property " + nameOf(element) +
             " is not a W3CDTF date: " + detail::quotedName(text.c_str()));
      }
      (properties.*info.setTime)(*time);
      return;
    }
    case PropertyKind::Keywords:
      properties.setKeywords(keywordsOf(scope));
      return;
  }
}

CoreProperties readDocument(XmlNode const& root) {
  if (root.namespaceURI != detail::kCorePropertiesNamespace ||
      root.localName != u"coreProperties") {
    fail("The document element of core properties must be cp:coreProperties, not " + nameOf(root));
  }
  Scope const rootScope{root, nullptr};
  checkAttributes(rootScope, nullptr);
  CoreProperties properties;
  std::vector<bool> seen(kPropertyCount, false);
  auto checkText = [](std::u16string const& text) {
    if (!isBlank(text)) fail("Core properties hold text outside any property");
  };
  checkText(leadingText(root));
  for (XmlNode const& element : root.children) {
    if (element.namespaceURI == detail::kMarkupCompatibilityNamespace) {
      fail("Markup compatibility element " + nameOf(element) +
           " is not allowed in core properties");
    }
    PropertyInfo const* info = findProperty(element);
    if (info == nullptr) fail("Unexpected element " + nameOf(element) + " in core properties");
    std::size_t const index = static_cast<std::size_t>(info - kProperties);
    if (seen[index]) fail("Core property " + nameOf(element) + " is given more than once");
    seen[index] = true;
    readProperty(Scope{element, &rootScope}, *info, properties);
    checkText(element.tail);
  }
  return properties;
}

}  // namespace

CoreProperties CorePropertiesXml::read(opc::InputStream& stream) {
  // The plain reader gives the parser's tree for the documents it vouches for, and the
  // checks below judge that tree as they judge the parser's.
  detail::ReadAhead ahead(stream, kMaxPartSize);
  detail::XmlNode root;
  if (ahead.complete() && detail::readPlainXml(ahead.bytes().data(), ahead.bytes().size(), root)) {
    ahead.close();
    return readDocument(root);
  }
  std::unique_ptr<detail::XmlTreeReader> reader;
  try {
    reader = detail::xmlEngine().makeTreeReader(detail::XmlReaderSettings());
  } catch (...) {
    // Without the parser the part cannot be read: the stream is left closed, as a read
    // leaves it.
    try {
      ahead.close();
    } catch (...) {
      // The failure to load the parser is the one to tell.
    }
    throw;
  }
  BoundedInputStream bounded(ahead.replay(), kMaxPartSize);
  try {
    root = reader->read(bounded, false, u"", u"");
  } catch (InvalidXMLDocument const& e) {
    throw InvalidPartContent(e.what());
  }
  return readDocument(root);
}

}  // namespace model
}  // namespace opc
