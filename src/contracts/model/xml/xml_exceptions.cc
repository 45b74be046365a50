#include <opc/model/xml/xml_exceptions.h>

namespace opc {
namespace model {

// Destructors live here, out of line, so that each class's vtable and type information are
// emitted once, in this library, and `catch` matches them in every caller.

InvalidXMLDocument::InvalidXMLDocument(std::string const& message)
    : opc::Exception(message, boost::system::error_code()) {}
InvalidXMLDocument::InvalidXMLDocument(InvalidXMLDocument const& other) = default;
InvalidXMLDocument& InvalidXMLDocument::operator=(InvalidXMLDocument const& other) = default;
InvalidXMLDocument::~InvalidXMLDocument() = default;

InvalidPartContent::InvalidPartContent(std::string const& message)
    : opc::Exception(message, boost::system::error_code()) {}
InvalidPartContent::InvalidPartContent(InvalidPartContent const& other) = default;
InvalidPartContent& InvalidPartContent::operator=(InvalidPartContent const& other) = default;
InvalidPartContent::~InvalidPartContent() = default;

InvalidXMLSchema::InvalidXMLSchema(std::string const& message)
    : opc::Exception(message, boost::system::error_code()) {}
InvalidXMLSchema::InvalidXMLSchema(InvalidXMLSchema const& other) = default;
InvalidXMLSchema& InvalidXMLSchema::operator=(InvalidXMLSchema const& other) = default;
InvalidXMLSchema::~InvalidXMLSchema() = default;

}  // namespace model
}  // namespace opc
