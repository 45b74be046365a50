#include <algorithm>
#include <string_view>
#include <utility>

#include <opc/core/string_conversions.h>
#include <opc/model/data_manager.h>
#include <opc/model/exceptions.h>
#include <opc/model/package.h>

#include "../part_name_rules.h"
#include "../text_chars.h"
#include "package_state.h"

namespace opc {
namespace model {
namespace {

void loadArchive(detail::PackageState& state, std::shared_ptr<detail::ZipByteSource> source) {
  std::shared_ptr<detail::ZipArchive const> archive =
      detail::ZipArchive::open(std::move(source), state.options().limits);
  state.load(std::move(archive));
}

// Both look at the key, which holds ASCII letters in lower case and every other character as
// "%" escapes (hex digits): "/_rels" in any case in the name is "/_rels" in the key, and no
// escape makes one.
bool endsWithRelsSegment(PartName const& name) {
  static constexpr std::string_view kSegment = "/_rels";
  std::string_view const key = detail::PartNameAccess::key(name);
  return key.size() >= kSegment.size() && key.substr(key.size() - kSegment.size()) == kSegment;
}

// Whether a "_rels" folder (in any case) lies somewhere on the way to the part: only then can
// a leading run of its segments be a relationships part name, so that the parts of an
// ordinary folder tree are not taken apart into such runs one by one.
bool hasRelsFolder(PartName const& name) {
  return detail::PartNameAccess::key(name).find("/_rels/") != std::string_view::npos;
}

}  // namespace

std::unique_ptr<Package> Package::open(std::u16string const& path, PackageAccess access,
                                       PackageOptions const& options) {
  auto state = std::make_shared<detail::PackageState>(access, options, path, false);
  // A writer locks the file before it reads it, so that what it reads is what it replaces.
  if (access != PackageAccess::Read) {
    state->lockFile("Could not open package " + state->label() + " for writing");
  }
  if (access != PackageAccess::Create) {
    loadArchive(*state, detail::openFileSource(opc::detail::toUTF8String(path)));
  }
  return std::unique_ptr<Package>(new Package(std::move(state)));
}

std::unique_ptr<Package> Package::openBuffer(std::vector<unsigned char> bytes, PackageAccess access,
                                             PackageOptions const& options) {
  auto state = std::make_shared<detail::PackageState>(access, options, std::u16string(), true);
  if (access != PackageAccess::Create) {
    loadArchive(*state, detail::openBufferSource(
                            std::make_shared<std::vector<unsigned char> const>(std::move(bytes))));
  }
  return std::unique_ptr<Package>(new Package(std::move(state)));
}

Package::Package(std::shared_ptr<detail::PackageState> state)
    : RelationshipSource(std::move(state), URI(u"/")) {
  this->state().attach(this);
}

Package::~Package() { state().close(); }

bool Package::isValid() const { return state().isOpen(); }
bool Package::isOpen() const { return state().isOpen(); }
bool Package::isReadOnly() const { return state().access() == PackageAccess::Read; }
bool Package::isCreateOnly() const { return state().access() == PackageAccess::Create; }
Package& Package::getPackage() const { return const_cast<Package&>(*this); }

bool Package::hasPart(PartName const& name) const {
  state().ensureOpen();
  return state().findPart(name) != nullptr;
}

bool Package::isPartDerivedFromExistingPartName(PartName const& name,
                                                std::u16string& existing) const {
  state().ensureOpen();
  boost::optional<PartName> conflict = state().findDerivationConflict(name);
  if (!conflict) return false;
  existing = conflict->toString();
  return true;
}

Part Package::getPart(PartName const& name) const {
  state().ensureOpen();
  std::shared_ptr<detail::PartRecord> record = state().findPart(name);
  if (!record) {
    throw PartNotFound("No part " + detail::quoted(name.toString()) + " in the package " +
                       state().label());
  }
  return Part(sharedState(), record->name);
}

std::unique_ptr<PartReader> Package::openPartReader(std::u16string const& name) const {
  state().ensureOpen();
  // The key of a text that names a part equals the key of a name that was checked when the
  // archive was read, so only a text that names nothing is checked (and then told as such).
  ContentType const* type = nullptr;
  std::shared_ptr<detail::PartContent const> content =
      state().findContent(detail::makePartNameKey(name), type);
  if (!content) {
    PartName const checked(name);
    throw PartNotFound("No part " + detail::quoted(checked.toString()) + " in the package " +
                       state().label());
  }
  return std::unique_ptr<PartReader>(new PartReader(*type, content));
}

Enumerator<std::vector<Part>> Package::getParts() const {
  state().ensureOpen();
  std::vector<Part> parts;
  parts.reserve(state().parts().size());
  for (auto const& record : state().parts()) parts.push_back(Part(sharedState(), record->name));
  return Enumerator<std::vector<Part>>(std::move(parts));
}

Part Package::createPart(PartName const& name, ContentType const& contentType,
                         interfaces::IPhysicalPartInfo const& info) {
  // The text is made only for a message: a package of many parts is made at one part a call.
  auto const what = [&name] { return "create the part " + detail::quoted(name.toString()); };
  state().ensureOpen();
  if (state().access() == PackageAccess::Read) state().ensureWritable(what());
  if (name.isRelationshipName()) {
    throw InvalidPartName("Could not " + what() +
                          ": relationships parts are written by the package itself");
  }
  if (auto record = state().findPart(name)) {
    throw InvalidPartName("Could not " + what() + ": the package already has the part " +
                          detail::quoted(record->name.toString()));
  }
  if (auto conflict = state().findDerivationConflict(name)) {
    throw InvalidPartName("Could not " + what() + ": it cannot exist beside the part " +
                          detail::quoted(conflict->toString()));
  }
  // The relationships parts that the package writes must not collide with a part either:
  // no part may sit inside one ("/_rels/.rels/x") or take the name of a "_rels" folder.
  for (PartName const& prefix :
       hasRelsFolder(name) ? detail::properPrefixes(name) : std::vector<PartName>()) {
    if (prefix.isRelationshipName()) {
      throw InvalidPartName("Could not " + what() +
                            ": it would lie inside the relationships part " +
                            detail::quoted(prefix.toString()));
    }
  }
  if (endsWithRelsSegment(name)) {
    throw InvalidPartName("Could not " + what() +
                          ": \"_rels\" is the name of the folders of relationships parts");
  }
  interfaces::CompressionType const compression = info.getCompressionType();
  if (compression != interfaces::CompressionType::Stored &&
      compression != interfaces::CompressionType::DeflateMetadata &&
      compression != interfaces::CompressionType::DeflateContent) {
    throw InvalidPartInfo("Could not " + what() + ": unknown compression type " +
                          std::to_string(static_cast<std::int32_t>(compression)));
  }
  auto record =
      std::make_shared<detail::PartRecord>(name, state().sharedType(contentType), compression);
  record->content = state().emptyContent();
  state().addPart(record);
  return Part(sharedState(), name);
}

void Package::deletePart(PartName const& name) {
  std::string const what = "delete the part " + detail::quoted(name.toString());
  state().ensureWritable(what);
  if (!state().findPart(name)) {
    throw PartNotFound("Could not " + what + ": there is no such part in the package " +
                       state().label());
  }
  state().removePart(name);
}

void Package::save() {
  state().ensureWritable("save the package " + state().label());
  // The list may change while managers save (one may be destroyed by another), so each is
  // looked for again before it runs.  A manager's exception passes unchanged, before
  // anything was written: the file on disk stays as it was, and every manager stays dirty.
  std::vector<DataManager*> const managers = state().managers();
  std::vector<DataManager*> saved;
  for (DataManager* manager : managers) {
    if (!state().isRegistered(manager)) continue;
    if (!manager->dirty_) continue;
    if (manager->autoLoad_) manager->load();
    manager->doSave();
    saved.push_back(manager);
  }
  state().writeArchive();
  for (DataManager* manager : saved) {
    if (state().isRegistered(manager)) manager->dirty_ = false;
  }
}

std::vector<unsigned char> const& Package::getBuffer() const {
  static std::vector<unsigned char> const kEmpty;
  auto const& saved = state().savedBuffer();
  return saved ? *saved : kEmpty;
}

void Package::doVerifyRelationship(Relationship const&) const {}

}  // namespace model
}  // namespace opc
