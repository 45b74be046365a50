#include <utility>

#include <opc/model/exceptions.h>
#include <opc/model/relationship.h>
#include <opc/model/relationship_id.h>

#include "part_name_rules.h"
#include "text_chars.h"
#include "uri_parts.h"

namespace opc {
namespace model {
namespace {

std::string describeValue(char const* what, std::u16string const& value, std::u16string const& id) {
  return std::string("Invalid ") + what + " " + detail::quoted(value) + " of relationship " +
         detail::quoted(id) + ": ";
}

void checkType(std::u16string const& type, std::u16string const& id) {
  if (type.empty()) {
    throw InvalidRelationship("Invalid relationship " + detail::quoted(id) +
                              ": its type must not be empty");
  }
  if (auto error = detail::findUriSyntaxError(type)) {
    throw InvalidRelationship(describeValue("type", type, id) + *error);
  }
}

void checkSource(URI const& sourceURI, std::u16string const& id) {
  std::u16string const source = sourceURI.toString();
  if (source == u"/") return;
  if (auto error = detail::findPartNameError(source)) {
    throw InvalidRelationship(describeValue("source", source, id) + *error);
  }
  if (PartName(source).isRelationshipName()) {
    throw InvalidRelationship(describeValue("source", source, id) +
                              "a relationships part cannot have relationships");
  }
}

PartName resolveInternalTarget(URI const& targetURI, URI const& sourceURI,
                               std::u16string const& id) {
  std::u16string const target = targetURI.toString();
  std::string const prefix = describeValue("internal target", target, id);
  if (target.empty()) throw InvalidRelationship(prefix + "the target must not be empty");
  if (auto error = detail::findUriSyntaxError(target)) throw InvalidRelationship(prefix + *error);
  detail::UriParts const parts = detail::splitUri(target);
  if (parts.scheme) {
    throw InvalidRelationship(prefix + "an internal target must not have a scheme");
  }
  if (parts.authority) {
    throw InvalidRelationship(prefix + "an internal target must not have an authority");
  }
  if (parts.query) throw InvalidRelationship(prefix + "an internal target must not have a query");
  if (parts.fragment) {
    throw InvalidRelationship(prefix + "an internal target must not have a fragment");
  }
  // Both texts are valid and the source is "/" or a part name, so resolution cannot fail.
  std::u16string const resolved = sourceURI.resolve(targetURI).toString();
  if (auto error = detail::findPartNameError(resolved)) {
    throw InvalidRelationship(prefix + "it resolves to " + detail::quoted(resolved) +
                              ", which is not a valid part name: " + *error);
  }
  return PartName(resolved);
}

void checkExternalTarget(URI const& targetURI, std::u16string const& id) {
  std::u16string const target = targetURI.toString();
  std::string const prefix = describeValue("external target", target, id);
  if (target.empty()) throw InvalidRelationship(prefix + "the target must not be empty");
  for (char16_t c : target) {
    if (c < 0x20 || c == 0x7F || (c >= 0x80 && c <= 0x9F)) {
      throw InvalidRelationship(prefix + "character " + detail::describeCharacter(c) +
                                " is not allowed");
    }
  }
}

}  // namespace

Relationship::Relationship(std::u16string const& id, std::u16string const& type,
                           URI const& targetURI, TargetMode targetMode, URI const& sourceURI)
    : id_(id), type_(type), targetURI_(targetURI), targetMode_(targetMode), sourceURI_(sourceURI) {
  ensureValidRelationshipId(id_);
  checkType(type_, id_);
  checkSource(sourceURI_, id_);
  switch (targetMode_) {
    case TargetMode::Internal:
      targetPartName_ = resolveInternalTarget(targetURI_, sourceURI_, id_);
      break;
    case TargetMode::External:
      checkExternalTarget(targetURI_, id_);
      break;
    default:
      throw InvalidRelationship(
          "Invalid target mode " + std::to_string(static_cast<std::int32_t>(targetMode_)) +
          " of relationship " + detail::quoted(id_) + ": it must be Internal (0) or External (1)");
  }
}

Relationship::Relationship(Relationship const& other) = default;
Relationship::Relationship(Relationship&& other) noexcept = default;
Relationship& Relationship::operator=(Relationship const& other) = default;
Relationship& Relationship::operator=(Relationship&& other) noexcept = default;
Relationship::~Relationship() = default;

std::u16string Relationship::getID() const { return id_; }

std::u16string Relationship::getType() const { return type_; }

URI Relationship::getTargetURI() const { return targetURI_; }

TargetMode Relationship::getTargetMode() const { return targetMode_; }

URI Relationship::getSourceURI() const { return sourceURI_; }

PartName Relationship::getTargetPartName() const {
  if (!targetPartName_) {
    throw InvalidRelationship("Relationship " + detail::quoted(id_) +
                              " has an external target, which names no part");
  }
  return *targetPartName_;
}

bool Relationship::operator==(Relationship const& other) const {
  return id_ == other.id_ && type_ == other.type_ && targetURI_ == other.targetURI_ &&
         targetMode_ == other.targetMode_ && sourceURI_ == other.sourceURI_;
}

bool Relationship::operator!=(Relationship const& other) const { return !(*this == other); }

}  // namespace model
}  // namespace opc
