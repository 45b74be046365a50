#include <xercesc/dom/DOMLocator.hpp>

#include <opc/model/xml/xerces_error_handler.h>
#include <opc/model/xml/xml_exceptions.h>

#include "xml_text.h"

namespace opc {
namespace model {
namespace {

std::string describe(xercesc::DOMError const& error) {
  std::string text = "XML error";
  xercesc::DOMLocator const* location = error.getLocation();
  if (location != nullptr) {
    XMLCh const* systemId = location->getURI();
    if (systemId != nullptr && *systemId != 0) {
      text += " in " + detail::toMessageText(systemId);
    }
    if (location->getLineNumber() > 0) {
      text += " at line " + std::to_string(location->getLineNumber()) + ", column " +
              std::to_string(location->getColumnNumber());
    }
  }
  return text + ": " + detail::toMessageText(error.getMessage());
}

}  // namespace

XercesErrorHandler::XercesErrorHandler() : hasError_(false) {}

XercesErrorHandler::~XercesErrorHandler() = default;

bool XercesErrorHandler::handleError(xercesc::DOMError const& error) {
  if (error.getSeverity() == xercesc::DOMError::DOM_SEVERITY_WARNING) {
    return true;
  }
  // Only the first error is kept: later ones are often consequences of it.
  if (!hasError_) {
    hasError_ = true;
    message_ = describe(error);
  }
  return false;
}

bool XercesErrorHandler::hasError() const { return hasError_; }

std::string const& XercesErrorHandler::message() const { return message_; }

void XercesErrorHandler::throwIfError() const {
  if (hasError_) {
    throw InvalidXMLDocument(message_);
  }
}

void XercesErrorHandler::reset() {
  hasError_ = false;
  message_.clear();
}

}  // namespace model
}  // namespace opc
