#include <opc/model/exceptions.h>

namespace opc {
namespace model {

// Destructors live here, out of line, so that each class's vtable and type information are
// emitted once, in this library, and `catch` matches them in every caller.

InvalidPartName::InvalidPartName(std::string const& message)
    : opc::Exception(message, boost::system::error_code()) {}
InvalidPartName::InvalidPartName(InvalidPartName const& other) = default;
InvalidPartName& InvalidPartName::operator=(InvalidPartName const& other) = default;
InvalidPartName::~InvalidPartName() = default;

InvalidURI::InvalidURI(std::string const& message)
    : opc::Exception(message, boost::system::error_code()) {}
InvalidURI::InvalidURI(InvalidURI const& other) = default;
InvalidURI& InvalidURI::operator=(InvalidURI const& other) = default;
InvalidURI::~InvalidURI() = default;

InvalidContentType::InvalidContentType(std::string const& message)
    : opc::Exception(message, boost::system::error_code()) {}
InvalidContentType::InvalidContentType(InvalidContentType const& other) = default;
InvalidContentType& InvalidContentType::operator=(InvalidContentType const& other) = default;
InvalidContentType::~InvalidContentType() = default;

InvalidRelationship::InvalidRelationship(std::string const& message)
    : opc::Exception(message, boost::system::error_code()) {}
InvalidRelationship::InvalidRelationship(InvalidRelationship const& other) = default;
InvalidRelationship& InvalidRelationship::operator=(InvalidRelationship const& other) = default;
InvalidRelationship::~InvalidRelationship() = default;

InvalidPartInfo::InvalidPartInfo(std::string const& message)
    : opc::Exception(message, boost::system::error_code()) {}
InvalidPartInfo::InvalidPartInfo(InvalidPartInfo const& other) = default;
InvalidPartInfo& InvalidPartInfo::operator=(InvalidPartInfo const& other) = default;
InvalidPartInfo::~InvalidPartInfo() = default;

}  // namespace model
}  // namespace opc
