// opcvk test PACKAGE: reads everything in a package and checks it, as `unzip -t` does for a
// ZIP archive, and the file system's manifest against the parts.
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include <opc/model/exceptions.h>
#include <opc/model/package_options.h>
#include <opc/model/part.h>

#include "commands.h"
#include "open_package.h"
#include "output.h"
#include "package_checks.h"
#include "package_key.h"
#include "progress.h"
#include "tool_error.h"

namespace opcvk {
namespace {

struct TestOptions {
  std::string package;
  bool json = false;
  bool quiet = false;
  KeyOptions key;
};

std::string plural(std::uint64_t count, char const* one, char const* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string findingLine(Finding const& finding) {
  std::string line = finding.kind;
  if (!finding.name.empty()) line += " " + finding.name;
  return line + ": " + finding.text;
}

std::string summary(CheckReport const& report) {
  std::string text = plural(report.parts, "part", "parts") + " (" +
                     plural(report.partBytes, "byte", "bytes") + ") read, " +
                     plural(report.files, "file", "files") + ", " +
                     plural(report.folders, "folder", "folders") + ", " +
                     plural(report.links, "link", "links") + ": ";
  if (report.allWell()) return text + "no problems";
  text += report.problems().empty() ? "no problems"
                                    : plural(report.problems().size(), "problem", "problems");
  if (!report.uncheckedItems().empty()) {
    text += ", " + plural(report.uncheckedItems().size(), "thing", "things") + " not checked";
  }
  return text;
}

nlohmann::ordered_json findingsJson(std::vector<Finding> const& findings) {
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (Finding const& finding : findings) {
    list.push_back({{"kind", finding.kind}, {"name", finding.name}, {"problem", finding.text}});
  }
  return list;
}

void print(TestOptions const& options, CheckReport const& report) {
  Output out;
  if (options.json) {
    nlohmann::ordered_json object;
    object["package"] = options.package;
    object["ok"] = report.allWell();
    object["parts"] = report.parts;
    object["part bytes"] = report.partBytes;
    object["files"] = report.files;
    object["folders"] = report.folders;
    object["links"] = report.links;
    object["problems"] = findingsJson(report.problems());
    object["not checked"] = findingsJson(report.uncheckedItems());
    out.line(object.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    return;
  }
  for (Finding const& finding : report.problems()) out.line(findingLine(finding));
  for (Finding const& finding : report.uncheckedItems()) out.line(findingLine(finding));
  out.line(summary(report));
}

void runChecks(OpenPackage& open, bool quiet, CheckReport& report) {
  std::uint64_t totalBytes = 0;
  std::uint64_t totalParts = 0;
  for (opc::model::Part const& part : open.package().getParts()) {
    totalBytes += part.getSize();
    ++totalParts;
  }
  if (open.files().isEncrypted()) {
    // The files are read a second time, through their decryption.
    totalBytes *= 2;
    totalParts *= 2;
  }
  Progress progress(Progress::wanted(quiet), totalParts, totalBytes);
  CheckTarget target{open.package(), open.files(),
                     [&progress](std::uint64_t bytes) { progress.advance(bytes); }};
  for (PackageCheck const& check : packageChecks()) check(target, report);
}

void runTest(TestOptions const& options) {
  CheckReport report;
  try {
    OpenPackage open(options.package, opc::model::PackageAccess::Read);
    // With its key, an encrypted package is checked as a plain one is, and every file is
    // decrypted; a key that does not open it is a failure to test, told as every command
    // tells it.  Without a key, what needs none is checked.
    unlockPackage(open, options.package, options.key, KeyUse::ReadIfKeyGiven);
    runChecks(open, options.quiet, report);
  } catch (opc::model::InvalidPackage const& e) {
    // A package that cannot even be opened is what the test found, not a failure to test.
    report.problem("package", options.package, e.what());
  }
  print(options, report);
  if (!report.allWell()) throw ResultIsFailure();
}

}  // namespace

void addTestCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<TestOptions>();
  CLI::App* command = app.add_subcommand(
      "test", "Read everything in a package and check it: parts, sizes and CRCs, the manifest.");
  command->add_option("PACKAGE", options->package, "The package to check")->required();
  command->add_flag("--json", options->json, "Print one JSON object");
  addKeyOptions(*command, options->key);
  addQuietFlag(*command, options->quiet);
  command->footer(
      "Every part is read to its end, so that its size and CRC-32 are checked against what the\n"
      "archive declares, and every relationship is read.  Every file of the manifest must have\n"
      "its part, of its own, and every part under /fsroot must belong to a file; only a\n"
      "folder may have entries below it.  One line per problem, then a summary; the exit\n"
      "code is 0 only when all is well, 1 otherwise.\n"
      "\n"
      "An encrypted package is checked with its key (--key-file, --password-file, or the\n"
      "password typed at the terminal): its manifest as a plain one is, and every file is\n"
      "decrypted to its end, so that content altered since it was encrypted is found, one\n"
      "line per file.  A key that does not open the package fails the command.  Without a\n"
      "key, the manifest cannot be checked, and the test does not pass.\n"
      "\n"
      "Examples:\n"
      "  opcvk test photos.opc\n"
      "  opcvk test --json photos.opc\n"
      "  opcvk test --key-file photos.key secret-photos.opc");
  commands.push_back({command, [options] { runTest(*options); }});
}

}  // namespace opcvk
