// XmlEngine: the one road from the library's XML readers and writers to the XML parser.
//
// The parser and everything it needs (a network client among its dependencies) cost a few
// milliseconds to load into a process, more than a small command spends on its own work.  Most
// commands never parse anything: the package documents and the file-system manifest this library
// writes are read by the strict readers, which need no parser.  So the parser lives in a library
// of its own, loaded the first time a document needs it, and the layers reach it only through
// these plain interfaces: nothing here names a type of the XML library, and no layer links it.
//
// Internal to this project's libraries; not installed.
#ifndef OPC_MODEL_XML_ENGINE_XML_ENGINE_H_
#define OPC_MODEL_XML_ENGINE_XML_ENGINE_H_

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/model/export.h>
#include <opc/model/xml/xml_stream_handler.h>

namespace opc {
namespace model {
namespace detail {

// One element of a document in plain values, as read, or as it is to be written.
struct XmlNode {
  std::u16string namespaceURI;  // empty: no namespace
  std::u16string name;          // qualified name as written, prefix included
  std::u16string localName;     // without prefix; filled by the reader, ignored by the writer
  // Attributes as (qualified name, value).  The reader gives them in the order of their
  // qualified names (by UTF-16 code unit), the order in which the parser keeps them, and
  // leaves the namespace declarations out.  The writer sets them in the order given; the
  // serializer writes them in the order of their names.
  std::vector<std::pair<std::u16string, std::u16string>> attributes;
  // The namespace of each attribute, by its index in `attributes`: either empty, when no
  // attribute has one, or exactly as long.  The reader fills it only for elements that have a
  // namespaced attribute.  The writer sets an attribute with a non-empty namespace as a
  // namespaced one, so that "xmlns:p" in the namespace "http://www.w3.org/2000/xmlns/"
  // declares the prefix p once, where it is set.
  std::vector<std::u16string> attributeNamespaces;
  // The namespace declarations written on this element as (prefix, URI), the default
  // namespace with an empty prefix, in the order of their attributes' names.  Filled by the reader,
  // ignored by the writer (which declares what `attributes` and the names need).
  std::vector<std::pair<std::u16string, std::u16string>> namespaceDeclarations;
  // The text directly inside the element: its text and CDATA children joined, not the text of
  // child elements.  The writer puts it before the children; empty means no text.
  std::u16string text;
  // The text and CDATA that follow this element inside its parent, up to the parent's next
  // child element, joined; it is part of the parent's `text` as well.  Filled by the reader,
  // ignored by the writer.  A reader that needs mixed content takes the runs from here.
  std::u16string tail;
  std::vector<XmlNode> children;  // child elements in document order
};

// The namespace of the attribute at `index` of `node` (empty: none).
inline std::u16string const& attributeNamespace(XmlNode const& node, std::size_t index) {
  static std::u16string const kNone;
  return node.attributeNamespaces.empty() ? kNone : node.attributeNamespaces[index];
}

// The element operations that the readers use, with the meaning and the messages that the
// same operations of XercesHelper give on a DOM element.  Names match local names.
//
// The first child element of that local name; raises InvalidXMLDocument "XML error: element
// '<name>' is missing in element '<parent's name>'" if there is none (without the "in element"
// part when `parent` is null).
OPC_MODEL_EXPORT XmlNode const& getElement(XmlNode const* parent, std::u16string const& name);
// The same, or null if there is none or `parent` is null.  Never raises.
OPC_MODEL_EXPORT XmlNode const* findElement(XmlNode const* parent, std::u16string const& name);
// All child elements of that local name in document order; empty if none or `parent` is null.
OPC_MODEL_EXPORT std::vector<XmlNode const*> getElements(XmlNode const* parent,
                                                         std::u16string const& name);
// The element's own text; false, leaving `text` alone, if it is empty or `element` is null.
OPC_MODEL_EXPORT bool getElementText(XmlNode const* element, std::u16string& text);
// The value of the attribute of that qualified name; false, leaving `value` alone, if the
// element has none or is null.
OPC_MODEL_EXPORT bool getElementAttribute(XmlNode const* element, std::u16string const& name,
                                          std::u16string& value);

// An XML schema given as text (UTF-8, or as its declaration says); `systemId` names it in
// messages and is never used to load anything.
struct XmlGrammar {
  std::string text;
  std::u16string systemId;
};

// How a reader validates.  The grammars are compiled when the reader is made; a grammar that
// does not compile raises InvalidXMLDocument with the parser's text, which the caller that
// carries the schema turns into InvalidXMLSchema.
struct XmlReaderSettings {
  std::vector<XmlGrammar> grammars;
};

// Reads whole documents into XmlNode trees.  Same protections as XercesHelper::createParser
// (no document type declaration, no external resource, no grammar from the document, depth
// at most 256); same meaning of the arguments and same failures as
// XercesHelper::readDocumentFromStream: InvalidXMLDocument with the parser's text, exceptions
// of the stream unchanged, the stream closed either way.  The tree is the caller's.  One
// reader serves one thread at a time.
class XmlTreeReader {
 public:
  virtual ~XmlTreeReader() = default;
  virtual XmlNode read(opc::InputStream& stream, bool validate, std::u16string const& systemId,
                       std::u16string const& documentNamespace) = 0;
};

// Reads documents element by element into a handler, validated against the grammars, with
// the contract of XmlStreamReader::read.  One reader serves one thread at a time.
class XmlEventReader {
 public:
  virtual ~XmlEventReader() = default;
  virtual void read(opc::InputStream& stream, XmlStreamHandler& handler) = 0;
};

// What the XML library offers the layers.  Thread-safe; lives to the end of the process.
class XmlEngine {
 public:
  virtual std::unique_ptr<XmlTreeReader> makeTreeReader(XmlReaderSettings const& settings) = 0;
  virtual std::unique_ptr<XmlEventReader> makeEventReader(XmlReaderSettings const& settings) = 0;

  // Writes `root` as the document element of a new document through the pretty-printing
  // writer (UTF-8, XML declaration, standalone="yes" if `standalone`), as XercesHelper's
  // createDocument, appendElementNS, setElementText, setElementAttribute and
  // writeDocumentToStream would; `stream` is flushed, neither opened nor closed.  Raises
  // InvalidXMLDocument as they do; exceptions of the stream pass through.
  virtual void write(XmlNode const& root, bool standalone, opc::OutputStream& stream) = 0;

 protected:
  ~XmlEngine() = default;
};

// The engine, loading the XML library on the first call.  Raises opc::Exception naming the
// library and the loader's reason if it cannot be loaded.
OPC_MODEL_EXPORT XmlEngine& xmlEngine();

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_ENGINE_XML_ENGINE_H_
