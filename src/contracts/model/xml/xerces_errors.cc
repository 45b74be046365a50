#include "xerces_errors.h"

#include <new>

#include <xercesc/dom/DOMException.hpp>
#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLUni.hpp>

#include <opc/model/xml/xml_exceptions.h>

#include "xml_text.h"

namespace opc {
namespace model {
namespace detail {

void rethrowXercesError() {
  try {
    throw;
  } catch (xercesc::XMLException const& e) {
    throw InvalidXMLDocument("XML error: " + toMessageText(e.getMessage()));
  } catch (xercesc::DOMException const& e) {
    throw InvalidXMLDocument("XML error: " + toMessageText(e.getMessage()));
  } catch (xercesc::OutOfMemoryException const&) {
    throw std::bad_alloc();
  }
}

ErrorHandlerScope::ErrorHandlerScope(xercesc::DOMConfiguration* config,
                                     xercesc::DOMErrorHandler* handler)
    : config_(config), previous_(config->getParameter(xercesc::XMLUni::fgDOMErrorHandler)) {
  config_->setParameter(xercesc::XMLUni::fgDOMErrorHandler, handler);
}

ErrorHandlerScope::~ErrorHandlerScope() {
  config_->setParameter(xercesc::XMLUni::fgDOMErrorHandler, previous_);
}

}  // namespace detail
}  // namespace model
}  // namespace opc
