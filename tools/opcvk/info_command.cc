// opcvk info PACKAGE: what a package holds, in numbers.
#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <nlohmann/json.hpp>

#include <opc/core/exception.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/model/package_options.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "commands.h"
#include "entry_walk.h"
#include "file_parts.h"
#include "manifests.h"
#include "open_package.h"
#include "output.h"
#include "package_key.h"
#include "password_key.h"
#include "paths.h"
#include "property_fields.h"

namespace opcvk {
namespace {

struct InfoOptions {
  std::string package;
  bool json = false;
  bool quiet = false;
  KeyOptions key;
};

struct Facts {
  // Whether the file system is encrypted, and whether it could be read (not when it is
  // encrypted and no key was given): the facts of the tree and its manifest are known only
  // then.
  bool encrypted = false;
  // What opens an encrypted file system, "key" or "password", so that a user who has neither
  // at hand knows which option to reach for; empty when it is not encrypted.
  std::string encryptedUnder;
  bool readable = true;
  std::u16string version;
  std::u16string platform;
  std::u16string encoding;
  // The manifests the package holds: "current", "v1" (the older one), both or neither.
  std::vector<std::string> manifests;
  std::uint64_t files = 0;
  std::uint64_t folders = 0;
  std::uint64_t links = 0;
  std::uint64_t contentBytes = 0;
  std::uint64_t packageBytes = 0;
  std::uint64_t parts = 0;
  // Parts by content type, in the order of the type's text.
  std::map<std::string, std::uint64_t> contentTypes;
  // The core properties, unless the package has none; or why they could not be read.
  std::optional<opc::vkservices::CoreProperties> properties;
  std::string propertiesError;
};

// The core properties are shown whatever else the package holds: a package whose properties
// cannot be read still has its file system counted.
void gatherProperties(OpenPackage& open, Facts& facts) {
  try {
    opc::vkservices::CoreProperties const properties = open.properties().getCoreProperties();
    if (properties.isValid() || properties.getUUID() || !properties.opcProps().isEmpty()) {
      facts.properties = properties;
    }
  } catch (opc::Exception const& e) {
    facts.propertiesError = e.what();
  }
}

// What the package tells without its file system: manifests, core properties, size and
// parts.
void gatherPackage(OpenPackage& open, std::string const& packagePath, Facts& facts) {
  // From the relationships: a package open for reading keeps them whatever loading does.
  facts.manifests = heldManifests(open.package()).names();
  // Core properties are never encrypted.
  gatherProperties(open, facts);
  facts.packageBytes = std::filesystem::file_size(packagePath);
  // Parts of one type share one object, so that they are counted by its address and its text
  // is made once per type rather than once per part.
  std::unordered_map<opc::model::ContentType const*, std::uint64_t> byType;
  open.package().visitParts(
      [&facts, &byType](std::u16string const&, std::uint64_t, opc::model::ContentType const& type) {
        ++facts.parts;
        ++byType[&type];
      });
  for (auto const& [type, count] : byType) facts.contentTypes[utf8Text(type->toString())] += count;
}

Facts gather(OpenPackage& open, std::string const& packagePath, bool readable) {
  opc::vkservices::FileSystemManager& files = open.files();
  Facts facts;
  facts.encrypted = files.isEncrypted();
  if (facts.encrypted)
    facts.encryptedUnder = hasFileSystemEntry(open.cipherData()) ? "password" : "key";
  facts.readable = readable;
  gatherPackage(open, packagePath, facts);
  if (!readable) return facts;
  facts.version = files.getVersion();
  facts.platform = files.getCreatedByPlatform();
  facts.encoding = files.getCreatedByEncoding();
  FileParts parts(open.package(), files);
  walkEntries(files, u"/", WalkOrder::kByPath, [&](WalkedEntry const& walked) {
    if (walked.entry.isFolder()) {
      ++facts.folders;
    } else if (walked.entry.isLink()) {
      ++facts.links;
    } else {
      ++facts.files;
      facts.contentBytes += parts.size(walked.entry);
    }
  });
  return facts;
}

void printText(Facts const& facts, Output& out) {
  if (facts.readable) {
    out.line("version: " + displayText(facts.version));
    out.line("created-by platform: " + displayText(facts.platform));
    out.line("created-by encoding: " + displayText(facts.encoding));
  }
  std::string manifests;
  for (std::string const& name : facts.manifests) {
    manifests += (manifests.empty() ? "" : ", ") + name;
  }
  out.line("manifests: " + (manifests.empty() ? std::string("none") : manifests));
  out.line(std::string("encrypted: ") + (facts.encrypted ? "yes" : "no"));
  if (facts.encrypted) out.line("encrypted under: " + facts.encryptedUnder);
  if (facts.readable) {
    out.line("files: " + std::to_string(facts.files));
    out.line("folders: " + std::to_string(facts.folders));
    out.line("links: " + std::to_string(facts.links));
    out.line("content bytes: " + std::to_string(facts.contentBytes));
  }
  out.line("package bytes: " + std::to_string(facts.packageBytes));
  out.line("parts: " + std::to_string(facts.parts));
  out.line("content types:");
  std::size_t width = 1;
  for (auto const& [type, count] : facts.contentTypes) {
    width = std::max(width, std::to_string(count).size());
  }
  for (auto const& [type, count] : facts.contentTypes) {
    std::string const number = std::to_string(count);
    out.line("  " + std::string(width - number.size(), ' ') + number + "  " + type);
  }
  if (!facts.propertiesError.empty()) {
    out.line("core properties: unreadable: " + facts.propertiesError);
  } else if (!facts.properties) {
    out.line("core properties: none");
  } else {
    out.line("core properties:");
    for (std::string const& line : propertyLines(*facts.properties)) out.line("  " + line);
  }
}

void printJson(Facts const& facts, Output& out) {
  // What cannot be known without the key is null.
  auto const known = [&facts](auto const& value) {
    return facts.readable ? nlohmann::ordered_json(value) : nlohmann::ordered_json();
  };
  nlohmann::ordered_json object;
  object["version"] = known(utf8Text(facts.version));
  object["created-by platform"] = known(utf8Text(facts.platform));
  object["created-by encoding"] = known(utf8Text(facts.encoding));
  object["manifests"] = facts.manifests;
  object["encrypted"] = facts.encrypted;
  object["encrypted under"] =
      facts.encrypted ? nlohmann::ordered_json(facts.encryptedUnder) : nlohmann::ordered_json();
  object["files"] = known(facts.files);
  object["folders"] = known(facts.folders);
  object["links"] = known(facts.links);
  object["content bytes"] = known(facts.contentBytes);
  object["package bytes"] = facts.packageBytes;
  object["parts"] = facts.parts;
  nlohmann::ordered_json types = nlohmann::ordered_json::object();
  for (auto const& [type, count] : facts.contentTypes) types[type] = count;
  object["content types"] = types;
  if (!facts.propertiesError.empty()) {
    object["core properties"] = {{"error", facts.propertiesError}};
  } else if (facts.properties) {
    object["core properties"] = propertyJson(*facts.properties);
  } else {
    object["core properties"] = nullptr;
  }
  out.line(object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

void runInfo(InfoOptions const& options) {
  OpenPackage open(options.package, opc::model::PackageAccess::Read);
  bool const readable = unlockPackage(open, options.package, options.key, KeyUse::ReadIfKeyGiven);
  Facts const facts = gather(open, options.package, readable);
  Output out;
  if (options.json) {
    printJson(facts, out);
  } else {
    printText(facts, out);
  }
}

}  // namespace

void addInfoCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<InfoOptions>();
  CLI::App* command = app.add_subcommand(
      "info",
      "Show the version and origin of a package's file system, counts and sizes, and its "
      "core properties.");
  command->add_option("PACKAGE", options->package, "The package to read")->required();
  command->add_flag("--json", options->json, "Print one JSON object");
  addKeyOptions(*command, options->key);
  addQuietFlag(*command, options->quiet);
  command->footer(
      "Counts leave out the root folder.  Content bytes are the stored bytes of the files;\n"
      "content types count every part of the package.  Manifests: \"current\", \"v1\" (the\n"
      "older one, alone in a package of the older generation, which is read as a current\n"
      "one), both, or none for a package without a file system.  An encrypted package is\n"
      "encrypted under a key or under a password, and says which.  Without it (--key-file,\n"
      "--password-file), it shows only what its parts tell: its file system's version, origin\n"
      "and counts need the key.\n"
      "\n"
      "Examples:\n"
      "  opcvk info photos.opc\n"
      "  opcvk info --json photos.opc\n"
      "  opcvk info --key-file photos.key secret-photos.opc");
  commands.push_back({command, [options] { runInfo(*options); }});
}

}  // namespace opcvk
