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

InvalidPackage::InvalidPackage(std::string const& message, boost::system::error_code code)
    : opc::Exception(message, code) {}
InvalidPackage::InvalidPackage(InvalidPackage const& other) = default;
InvalidPackage& InvalidPackage::operator=(InvalidPackage const& other) = default;
InvalidPackage::~InvalidPackage() = default;

CouldNotOpenPackage::CouldNotOpenPackage(std::string const& message, boost::system::error_code code)
    : opc::Exception(message, code) {}
CouldNotOpenPackage::CouldNotOpenPackage(CouldNotOpenPackage const& other) = default;
CouldNotOpenPackage& CouldNotOpenPackage::operator=(CouldNotOpenPackage const& other) = default;
CouldNotOpenPackage::~CouldNotOpenPackage() = default;

CouldNotSavePackage::CouldNotSavePackage(std::string const& message, boost::system::error_code code)
    : opc::Exception(message, code) {}
CouldNotSavePackage::CouldNotSavePackage(CouldNotSavePackage const& other) = default;
CouldNotSavePackage& CouldNotSavePackage::operator=(CouldNotSavePackage const& other) = default;
CouldNotSavePackage::~CouldNotSavePackage() = default;

PackageLocked::PackageLocked(std::string const& message)
    : opc::Exception(message, boost::system::error_code()) {}
PackageLocked::PackageLocked(PackageLocked const& other) = default;
PackageLocked& PackageLocked::operator=(PackageLocked const& other) = default;
PackageLocked::~PackageLocked() = default;

PackageNotWritable::PackageNotWritable(std::string const& message, boost::system::error_code code)
    : opc::Exception(message, code) {}
PackageNotWritable::PackageNotWritable(PackageNotWritable const& other) = default;
PackageNotWritable& PackageNotWritable::operator=(PackageNotWritable const& other) = default;
PackageNotWritable::~PackageNotWritable() = default;

PartNotFound::PartNotFound(std::string const& message, boost::system::error_code code)
    : opc::Exception(message, code) {}
PartNotFound::PartNotFound(PartNotFound const& other) = default;
PartNotFound& PartNotFound::operator=(PartNotFound const& other) = default;
PartNotFound::~PartNotFound() = default;

InvalidPackageState::InvalidPackageState(std::string const& message, boost::system::error_code code)
    : opc::Exception(message, code) {}
InvalidPackageState::InvalidPackageState(InvalidPackageState const& other) = default;
InvalidPackageState& InvalidPackageState::operator=(InvalidPackageState const& other) = default;
InvalidPackageState::~InvalidPackageState() = default;

}  // namespace model
}  // namespace opc
