// Exceptions of the XML support of the package model.
#ifndef OPC_MODEL_XML_XML_EXCEPTIONS_H_
#define OPC_MODEL_XML_XML_EXCEPTIONS_H_

#include <string>

#include <opc/core/exception.h>
#include <opc/model/export.h>

namespace opc {
namespace model {

// Each class names one kind of failure and adds no text of its own: the thrower composes the
// whole message.  The error code is always the default one, which holds no error.  All
// classes are exported whole so that `catch` works across library boundaries.

// A document cannot be parsed, breaks the grammar it is validated against, cannot be
// written, or lacks an element that a reader asked for.  Raised by XercesHelper and by the
// parser that XercesHelper::createParser makes.  Messages of the XML parser carry where the
// problem lies, for example
//   XML error at line 3, column 14: no declaration found for element 'x'
class OPC_MODEL_EXPORT InvalidXMLDocument : public opc::Exception {
 public:
  explicit InvalidXMLDocument(std::string const& message);
  InvalidXMLDocument(InvalidXMLDocument const& other);
  InvalidXMLDocument& operator=(InvalidXMLDocument const& other);
  ~InvalidXMLDocument() override;
};

// The content of a part is not what its reader accepts.  Readers of XML parts raise it with
// the text of the InvalidXMLDocument that they caught, or with their own text.
class OPC_MODEL_EXPORT InvalidPartContent : public opc::Exception {
 public:
  explicit InvalidPartContent(std::string const& message);
  InvalidPartContent(InvalidPartContent const& other);
  InvalidPartContent& operator=(InvalidPartContent const& other);
  ~InvalidPartContent() override;
};

// A grammar that the library carries could not be loaded into a parser.  By convention the
// text is "Schema could not be loaded: " followed by the text of the InvalidXMLDocument
// that the loading raised.
class OPC_MODEL_EXPORT InvalidXMLSchema : public opc::Exception {
 public:
  explicit InvalidXMLSchema(std::string const& message);
  InvalidXMLSchema(InvalidXMLSchema const& other);
  InvalidXMLSchema& operator=(InvalidXMLSchema const& other);
  ~InvalidXMLSchema() override;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XML_EXCEPTIONS_H_
