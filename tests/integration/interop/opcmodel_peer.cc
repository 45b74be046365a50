// opcmodel_peer: the package model driven from the command line, so that an independent OPC
// implementation can check what it writes and write what it reads.
//
//   opcmodel_peer dump PACKAGE          prints the package as canonical JSON
//   opcmodel_peer write PLAN PACKAGE    creates PACKAGE from a JSON description
//   opcmodel_peer modify PLAN PACKAGE   opens PACKAGE for Modify, applies PLAN, saves
//
// PLAN: {"parts": [{"name", "contentType", "text" | "file"}], "relationships": [{"source",
// "id", "type", "target", "mode"}], "coreProperties": {...}}.  "file" is relative to the
// PLAN's folder.  For modify, a part that exists gets the new content (its content type must
// stay), others are created.  The dump has "parts" (name -> contentType, size, sha256),
// "relationships" (source, id, type, target as written, targetPart resolved, mode) and
// "coreProperties" (null when the package has none).  Exit code 0 on success, 1 with the
// message on standard error otherwise.
#include <cstddef>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/optional.hpp>
#include <nlohmann/json.hpp>

#include <opc/core/string_conversions.h>
#include <opc/core/time_conversions.h>
#include <opc/model/core_properties.h>
#include <opc/model/package.h>
#include <opc/model/package_helper.h>

#include "sha256.h"

namespace {

using nlohmann::json;
using opc::model::CoreProperties;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PackageHelper;
using opc::model::Part;
using opc::model::PartName;
using opc::model::Relationship;
using opc::model::TargetMode;
using opc::model::URI;

std::string utf8(std::u16string const& text) { return opc::detail::toUTF8String(text); }
std::u16string utf16(std::string const& text) { return opc::detail::toStringFromUTF8String(text); }

struct TextProperty {
  char const* key;
  boost::optional<std::u16string> (CoreProperties::*get)() const;
  void (CoreProperties::*set)(std::u16string const&);
};

TextProperty const kTextProperties[] = {
    {"category", &CoreProperties::getCategory, &CoreProperties::setCategory},
    {"contentStatus", &CoreProperties::getContentStatus, &CoreProperties::setContentStatus},
    {"contentType", &CoreProperties::getContentType, &CoreProperties::setContentType},
    {"creator", &CoreProperties::getCreator, &CoreProperties::setCreator},
    {"description", &CoreProperties::getDescription, &CoreProperties::setDescription},
    {"identifier", &CoreProperties::getIdentifier, &CoreProperties::setIdentifier},
    {"language", &CoreProperties::getLanguage, &CoreProperties::setLanguage},
    {"lastModifiedBy", &CoreProperties::getLastModifiedBy, &CoreProperties::setLastModifiedBy},
    {"revision", &CoreProperties::getRevision, &CoreProperties::setRevision},
    {"subject", &CoreProperties::getSubject, &CoreProperties::setSubject},
    {"title", &CoreProperties::getTitle, &CoreProperties::setTitle},
    {"version", &CoreProperties::getVersion, &CoreProperties::setVersion},
};

struct TimeProperty {
  char const* key;
  boost::optional<boost::posix_time::ptime> (CoreProperties::*get)() const;
  void (CoreProperties::*set)(boost::posix_time::ptime);
};

TimeProperty const kTimeProperties[] = {
    {"created", &CoreProperties::getCreated, &CoreProperties::setCreated},
    {"modified", &CoreProperties::getModified, &CoreProperties::setModified},
    {"lastPrinted", &CoreProperties::getLastPrinted, &CoreProperties::setLastPrinted},
};

json dumpCoreProperties(CoreProperties const& properties) {
  json out = json::object();
  for (auto const& property : kTextProperties) {
    if (auto value = (properties.*property.get)()) out[property.key] = utf8(*value);
  }
  for (auto const& property : kTimeProperties) {
    if (auto value = (properties.*property.get)()) {
      out[property.key] = utf8(opc::convertTimeToString(*value));
    }
  }
  if (auto keywords = properties.getKeywords()) {
    // One keyword without language is the plain-text form that every writer knows.
    if (keywords->size() == 1 && keywords->front().second.empty()) {
      out["keywords"] = utf8(keywords->front().first);
    } else {
      json list = json::array();
      for (auto const& keyword : *keywords) {
        list.push_back(json::array({utf8(keyword.first), utf8(keyword.second)}));
      }
      out["keywords"] = list;
    }
  }
  return out;
}

CoreProperties parseCoreProperties(json const& plan) {
  CoreProperties properties;
  for (auto const& property : kTextProperties) {
    if (plan.contains(property.key)) {
      (properties.*property.set)(utf16(plan[property.key].get<std::string>()));
    }
  }
  for (auto const& property : kTimeProperties) {
    if (!plan.contains(property.key)) continue;
    boost::posix_time::ptime time =
        opc::convertStringToTime(utf16(plan[property.key].get<std::string>()));
    if (time.is_special()) throw std::runtime_error(std::string("bad time in ") + property.key);
    (properties.*property.set)(time);
  }
  if (plan.contains("keywords")) {
    CoreProperties::Keywords keywords;
    if (plan["keywords"].is_string()) {
      keywords.emplace_back(utf16(plan["keywords"].get<std::string>()), u"");
    } else {
      for (auto const& pair : plan["keywords"]) {
        keywords.emplace_back(utf16(pair[0].get<std::string>()), utf16(pair[1].get<std::string>()));
      }
    }
    properties.setKeywords(keywords);
  }
  return properties;
}

json dumpRelationships(std::vector<Relationship> const& relationships) {
  json out = json::array();
  for (auto const& relationship : relationships) {
    bool const internal = relationship.getTargetMode() == TargetMode::Internal;
    out.push_back({{"source", utf8(relationship.getSourceURI().toString())},
                   {"id", utf8(relationship.getID())},
                   {"type", utf8(relationship.getType())},
                   {"target", utf8(relationship.getTargetURI().toString())},
                   {"targetPart", internal ? json(utf8(relationship.getTargetPartName().toString()))
                                           : json(nullptr)},
                   {"mode", internal ? "Internal" : "External"}});
  }
  return out;
}

std::string digestOf(Part& part, std::size_t& size) {
  opc::InputStream& in = part.getInputStream();
  in.open();
  opcvk_interop::Sha256 sha;
  std::vector<unsigned char> buffer(1 << 16);
  size = 0;
  while (!in.isDone()) {
    std::size_t const n = in.read(buffer.data(), buffer.size());
    sha.update(buffer.data(), n);
    size += n;
  }
  in.close();
  return sha.hexDigest();
}

int dump(std::string const& path) {
  auto package = Package::open(utf16(path), PackageAccess::Read);
  json parts = json::object();
  json relationships = dumpRelationships(package->getRelationships().getEntries());
  for (Part part : package->getParts()) {
    std::size_t size = 0;
    std::string const digest = digestOf(part, size);
    parts[utf8(part.getName().toString())] = {
        {"contentType", utf8(part.getContentType().toString())},
        {"size", size},
        {"sha256", digest}};
    for (auto const& entry : dumpRelationships(part.getRelationships().getEntries())) {
      relationships.push_back(entry);
    }
  }
  json core = nullptr;
  CoreProperties properties = PackageHelper::getCoreProperties(*package);
  if (!package->getRelationshipsByType(PackageHelper::getCorePropertiesRelationshipType())
           .empty()) {
    core = dumpCoreProperties(properties);
  }
  std::cout << json({{"parts", parts}, {"relationships", relationships}, {"coreProperties", core}})
                   .dump(1)
            << "\n";
  return 0;
}

std::string folderOf(std::string const& path) {
  std::size_t const slash = path.rfind('/');
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

void writeContent(Part& part, json const& plan, std::string const& folder) {
  opc::OutputStream& out = part.getOutputStream();
  if (plan.contains("text")) {
    std::string const text = plan["text"].get<std::string>();
    out.write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
  } else {
    std::string const file = folder + "/" + plan["file"].get<std::string>();
    std::ifstream in(file, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + file);
    std::vector<char> buffer(1 << 16);
    while (in) {
      in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
      out.write(reinterpret_cast<unsigned char const*>(buffer.data()),
                static_cast<std::size_t>(in.gcount()));
    }
  }
  out.close();
}

void apply(Package& package, json const& plan, std::string const& folder) {
  opc::interfaces::StandardPartInfo const info(opc::interfaces::CompressionType::DeflateContent, 0);
  for (auto const& partPlan : plan.value("parts", json::array())) {
    PartName const name(utf16(partPlan["name"].get<std::string>()));
    opc::model::ContentType const contentType(utf16(partPlan["contentType"].get<std::string>()));
    if (package.hasPart(name)) {
      Part part = package.getPart(name);
      if (part.getContentType() != contentType) {
        throw std::runtime_error("content type of " + partPlan["name"].get<std::string>() +
                                 " cannot change");
      }
      writeContent(part, partPlan, folder);
    } else {
      Part part = package.createPart(name, contentType, info);
      writeContent(part, partPlan, folder);
    }
  }
  for (auto const& relPlan : plan.value("relationships", json::array())) {
    std::u16string const source = utf16(relPlan["source"].get<std::string>());
    std::u16string const type = utf16(relPlan["type"].get<std::string>());
    URI const target(utf16(relPlan["target"].get<std::string>()));
    std::u16string const id = utf16(relPlan.value("id", std::string()));
    bool const external = relPlan.value("mode", std::string("Internal")) == "External";
    if (source == u"/") {
      external ? package.createExternalRelationship(type, target, id)
               : package.createInternalRelationship(type, target, id);
    } else {
      Part part = package.getPart(PartName(source));
      external ? part.createExternalRelationship(type, target, id)
               : part.createInternalRelationship(type, target, id);
    }
  }
  if (plan.contains("coreProperties")) {
    PackageHelper::createOrUpdateCoreProperties(package,
                                                parseCoreProperties(plan["coreProperties"]));
  }
}

int write(std::string const& planPath, std::string const& path, PackageAccess access) {
  std::ifstream in(planPath);
  if (!in) throw std::runtime_error("cannot read " + planPath);
  json const plan = json::parse(in);
  auto package = Package::open(utf16(path), access);
  apply(*package, plan, folderOf(planPath));
  package->save();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> const args(argv + 1, argv + argc);
  try {
    if (args.size() == 2 && args[0] == "dump") return dump(args[1]);
    if (args.size() == 3 && args[0] == "write") {
      return write(args[1], args[2], PackageAccess::Create);
    }
    if (args.size() == 3 && args[0] == "modify") {
      return write(args[1], args[2], PackageAccess::Modify);
    }
  } catch (std::exception const& e) {
    std::cerr << "opcmodel_peer: " << e.what() << "\n";
    return 1;
  }
  std::cerr << "usage: opcmodel_peer dump PACKAGE | write PLAN PACKAGE | modify PLAN PACKAGE\n";
  return 2;
}
