// The one place where failures of the XML library become exceptions of the model.
// Internal to libopcmodel_xml: nothing here is exported.
#ifndef OPC_MODEL_XML_XERCES_ERRORS_H_
#define OPC_MODEL_XML_XERCES_ERRORS_H_

#include <xercesc/dom/DOMConfiguration.hpp>
#include <xercesc/dom/DOMErrorHandler.hpp>
#include <xercesc/dom/DOMException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>

namespace opc {
namespace model {
namespace detail {

// Runs `action` and turns the exceptions of the XML library (XMLException, DOMException and
// its DOMLSException, OutOfMemoryException) into InvalidXMLDocument or std::bad_alloc.
// Everything else passes unchanged.
template <typename Action>
auto translateXercesErrors(Action&& action) -> decltype(action());

// Throws the InvalidXMLDocument for the exception being handled; call only inside a catch
// block for one of the XML library's exception types.
[[noreturn]] void rethrowXercesError();

// Sets an error handler on a parser's or serializer's configuration for the lifetime of the
// scope and puts the previous one back at its end, however the scope ends.
class ErrorHandlerScope {
 public:
  ErrorHandlerScope(xercesc::DOMConfiguration* config, xercesc::DOMErrorHandler* handler);
  ErrorHandlerScope(ErrorHandlerScope const&) = delete;
  ErrorHandlerScope& operator=(ErrorHandlerScope const&) = delete;
  ~ErrorHandlerScope();

 private:
  xercesc::DOMConfiguration* config_;
  void const* previous_;
};

template <typename Action>
auto translateXercesErrors(Action&& action) -> decltype(action()) {
  try {
    return action();
  } catch (xercesc::XMLException const&) {
    rethrowXercesError();
  } catch (xercesc::DOMException const&) {
    rethrowXercesError();
  } catch (xercesc::OutOfMemoryException const&) {
    rethrowXercesError();
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_XERCES_ERRORS_H_
