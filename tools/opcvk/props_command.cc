// opcvk props PACKAGE: the extended and standard core properties of a package, shown or
// changed in place.
#include <memory>
#include <string>
#include <vector>

#include <opc/model/package_options.h>
#include <opc/vkservices/core_properties.h>

#include "commands.h"
#include "open_package.h"
#include "output.h"
#include "property_fields.h"

namespace opcvk {
namespace {

struct PropsOptions {
  std::string package;
  std::vector<std::string> assignments;
  bool json = false;
  bool quiet = false;
  bool v1Manifest = false;
  double wait = 0;
};

void show(opc::vkservices::CoreProperties const& properties, bool json) {
  Output out;
  if (json) {
    out.line(propertyJson(properties)
                 .dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    return;
  }
  for (std::string const& line : propertyLines(properties)) out.line(line);
}

void runProps(PropsOptions const& options) {
  if (options.assignments.empty()) {
    OpenPackage open(options.package, opc::model::PackageAccess::Read);
    show(open.properties().getCoreProperties(), options.json);
    return;
  }
  OpenPackage open(options.package, opc::model::PackageAccess::Modify,
                   manifestForms(options.v1Manifest), waitingUpTo(options.wait));
  opc::vkservices::CorePropertiesManager& manager = open.properties();
  // Every value goes through its setter before anything is saved, so that a refused one
  // leaves the package as it was; the save itself writes beside the package and renames.
  opc::vkservices::CoreProperties properties = manager.getCoreProperties();
  for (std::string const& assignment : options.assignments) {
    applyPropertyAssignment(properties, assignment);
  }
  manager.setCoreProperties(properties);
  open.save();
  show(manager.getCoreProperties(), options.json);
}

}  // namespace

void addPropsCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<PropsOptions>();
  CLI::App* command = app.add_subcommand(
      "props",
      "Show or change a package's core properties: its content type, release and UUID, "
      "title, creator, dates and the rest.");
  command->add_option("PACKAGE", options->package, "The package")->required();
  std::string names;
  for (std::string const& name : settablePropertyNames())
    names += (names.empty() ? "" : ", ") + name;
  command
      ->add_option("--set", options->assignments,
                   "Set a property, NAME=VALUE (repeatable); NAME is one of: " + names)
      ->type_name("NAME=VALUE")
      ->check(CLI::Validator(checkPropertyAssignment, "NAME=VALUE", "property assignment"));
  command->add_flag("--json", options->json, "Print one JSON object");
  addQuietFlag(*command, options->quiet);
  addV1ManifestFlag(*command, options->v1Manifest);
  addWaitOption(*command, options->wait);
  command->footer(
      "Without --set, prints the properties, the extended ones first (content-type,\n"
      "friendly-name, release, release-version, uuid), then the standard ones that are set.\n"
      "With --set, each value is checked as the library checks it (a content type of the form\n"
      "application/vnd.veltrance.<product>.<package-type>, a release R<year>a or R<year>b, a\n"
      "UUID that is not already set, times as 2024-05-17T10:20:30Z) and the package is saved in\n"
      "place, then the properties are printed.  A refused value changes nothing.  A package\n"
      "without a UUID (one packed with --deterministic) gets one when it is changed.\n"
      "\n"
      "Examples:\n"
      "  opcvk props photos.opc\n"
      "  opcvk props --json photos.opc\n"
      "  opcvk props photos.opc --set title='Holiday 2024' --set creator=Ann");
  commands.push_back({command, [options] { runProps(*options); }});
}

}  // namespace opcvk
