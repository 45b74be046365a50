#include <opc/model/exceptions.h>
#include <opc/model/package.h>
#include <opc/model/part.h>

#include "../text_chars.h"
#include "package_state.h"
#include "part_streams.h"

namespace opc {
namespace model {

Part::Part(std::shared_ptr<detail::PackageState> state, PartName name)
    : RelationshipSource(std::move(state), name.getURI()), name_(std::move(name)) {}

Part::Part(Part const& other) = default;
Part& Part::operator=(Part const& other) = default;
Part::~Part() = default;

bool Part::isValid() const { return state().isOpen() && state().findPart(name_) != nullptr; }
bool Part::isOpen() const { return state().isOpen(); }

bool Part::isReadOnly() const {
  state().partForHandle(name_);
  return state().access() == PackageAccess::Read;
}

bool Part::isCreateOnly() const {
  state().partForHandle(name_);
  return state().access() == PackageAccess::Create;
}

Package& Part::getPackage() const {
  state().partForHandle(name_);
  return state().package();
}

PartName Part::getName() const { return state().partForHandle(name_)->name; }

ContentType Part::getContentType() const { return *state().partForHandle(name_)->contentType; }

interfaces::CompressionType Part::getCompressionType() const {
  return state().partForHandle(name_)->compression;
}

std::uint64_t Part::getSize() const {
  return state().contentOf(*state().partForHandle(name_))->size();
}

opc::InputStream& Part::getInputStream() {
  std::shared_ptr<detail::PartRecord> record = state().partForHandle(name_);
  return state().newInputStream(state().contentOf(*record), record->name);
}

opc::OutputStream& Part::getOutputStream() {
  std::shared_ptr<detail::PartRecord> record = state().partForHandle(name_);
  // The message is made only when it is needed: a package of many parts writes one a call.
  if (state().access() == PackageAccess::Read) {
    state().ensureWritable("write the part " + detail::quoted(record->name.toString()));
  }
  return state().newOutputStream(record);
}

void Part::doVerifyRelationship(Relationship const&) const {
  state().partForHandle(name_);
  if (name_.isRelationshipName()) {
    throw InvalidRelationship("The relationships part " + detail::quoted(name_.toString()) +
                              " cannot have relationships");
  }
}

}  // namespace model
}  // namespace opc
