// XercesErrorHandler: turns the errors that the XML library reports into InvalidXMLDocument.
#ifndef OPC_MODEL_XML_XERCES_ERROR_HANDLER_H_
#define OPC_MODEL_XML_XERCES_ERROR_HANDLER_H_

#include <string>

#include <xercesc/dom/DOMError.hpp>
#include <xercesc/dom/DOMErrorHandler.hpp>

#include <opc/model/export.h>

namespace opc {
namespace model {

// The error handler given to a parser or a serializer (its fgDOMErrorHandler parameter).
//
// The parser of the XML library catches and drops any exception that an error handler
// throws, so the handler cannot raise the error itself.  Instead it keeps the first error or
// fatal error and tells the library to stop; whoever ran the operation then calls
// throwIfError().  XercesHelper does this for every operation that parses or writes, and
// the parser made by XercesHelper::createParser does it for loadGrammar, so that with them
// an error comes out as InvalidXMLDocument from the call that met it.  Warnings are ignored.
//
// The message is "XML error at line L, column C: " followed by the library's text, with
// " in <system id>" after "XML error" when the input has a system id, and without the
// position when the library gives none.
//
// One handler serves one operation at a time on one thread.
class OPC_MODEL_EXPORT XercesErrorHandler : public xercesc_3_2::DOMErrorHandler {
 public:
  XercesErrorHandler();
  XercesErrorHandler(XercesErrorHandler const&) = delete;
  XercesErrorHandler& operator=(XercesErrorHandler const&) = delete;
  ~XercesErrorHandler() override;

  // Called by the XML library.  Returns true (go on) for a warning; keeps the first error
  // and returns false (stop) for an error or a fatal error.
  bool handleError(xercesc_3_2::DOMError const& error) override;

  // True once an error or fatal error has been reported since construction or reset().
  bool hasError() const;
  // The message of the first error, or "" if there was none.
  std::string const& message() const;
  // Raises InvalidXMLDocument with the message of the first error, if there was one.
  void throwIfError() const;
  // Forgets the error, so that the handler can serve the next operation.
  void reset();

 private:
  bool hasError_;
  std::string message_;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XERCES_ERROR_HANDLER_H_
