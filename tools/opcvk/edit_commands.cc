// opcvk mkdir, ln and rm: folders, links and removals inside a package.
#include <memory>
#include <string>
#include <vector>

#include <opc/model/package_options.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "commands.h"
#include "open_package.h"
#include "package_key.h"
#include "paths.h"
#include "tool_error.h"

namespace opcvk {
namespace {

using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;

struct MkdirOptions {
  std::string package;
  std::vector<std::string> paths;
  bool v1Manifest = false;
  bool quiet = false;
  KeyOptions key;
  double wait = 0;
};

struct LnOptions {
  std::string package;
  std::string target;
  std::string path;
  bool v1Manifest = false;
  bool quiet = false;
  KeyOptions key;
  double wait = 0;
};

struct RmOptions {
  std::string package;
  std::vector<std::string> paths;
  bool v1Manifest = false;
  bool quiet = false;
  KeyOptions key;
  double wait = 0;
};

void runMkdir(MkdirOptions const& options) {
  OpenPackage open(options.package, opc::model::PackageAccess::Modify,
                   manifestForms(options.v1Manifest), waitingUpTo(options.wait));
  unlockPackage(open, options.package, options.key, KeyUse::Modify);
  for (std::string const& path : options.paths) {
    open.files().createFolder(packagePathArgument(path));
  }
  open.save();
}

void runLn(LnOptions const& options) {
  OpenPackage open(options.package, opc::model::PackageAccess::Modify,
                   manifestForms(options.v1Manifest), waitingUpTo(options.wait));
  unlockPackage(open, options.package, options.key, KeyUse::Modify);
  open.files().createLink(packagePathArgument(options.path), fromArgument(options.target));
  open.save();
}

void remove(FileSystemManager& files, std::u16string const& path) {
  FileSystemEntry const entry = files.getEntry(path);
  if (entry.getPathName() == FileSystemEntry::getRootName()) {
    throw ToolError("Cannot remove the root folder");
  }
  if (entry.isFile()) {
    files.deleteFile(entry);
  } else if (entry.isLink()) {
    files.deleteLink(entry);
  } else {
    files.deleteFolder(entry);
  }
}

void runRm(RmOptions const& options) {
  OpenPackage open(options.package, opc::model::PackageAccess::Modify,
                   manifestForms(options.v1Manifest), waitingUpTo(options.wait));
  unlockPackage(open, options.package, options.key, KeyUse::Modify);
  for (std::string const& path : options.paths) remove(open.files(), packagePathArgument(path));
  open.save();
}

}  // namespace

void addMkdirCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<MkdirOptions>();
  CLI::App* command =
      app.add_subcommand("mkdir", "Make folders in a package, with any missing parents.");
  command->add_option("PACKAGE", options->package, "The package to change")->required();
  command->add_option("PATH", options->paths, "The folders to make")->required();
  addKeyOptions(*command, options->key);
  addQuietFlag(*command, options->quiet);
  addV1ManifestFlag(*command, options->v1Manifest);
  addWaitOption(*command, options->wait);
  command->footer(
      "A path that is taken, by a folder or anything else, is an error.\n"
      "\n"
      "Examples:\n"
      "  opcvk mkdir notes.opc /archive/2026\n"
      "  opcvk mkdir notes.opc drafts inbox");
  commands.push_back({command, [options] { runMkdir(*options); }});
}

void addLnCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<LnOptions>();
  CLI::App* command = app.add_subcommand(
      "ln", "Make a symbolic link in a package, as 'ln -s TARGET PATH' does on disk.");
  command->add_option("PACKAGE", options->package, "The package to change")->required();
  command->add_option("TARGET", options->target, "The link's target text, kept as it is")
      ->required();
  command->add_option("PATH", options->path, "Where the link goes in the package")->required();
  addKeyOptions(*command, options->key);
  addQuietFlag(*command, options->quiet);
  addV1ManifestFlag(*command, options->v1Manifest);
  addWaitOption(*command, options->wait);
  command->footer(
      "The target is text: it is neither looked up nor required to exist.\n"
      "\n"
      "Examples:\n"
      "  opcvk ln notes.opc ../todo.txt /docs/current\n"
      "  opcvk ln notes.opc /archive/2026 /latest");
  commands.push_back({command, [options] { runLn(*options); }});
}

void addRmCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<RmOptions>();
  CLI::App* command = app.add_subcommand(
      "rm", "Remove files, links and folders (with everything in them) from a package.");
  command->add_option("PACKAGE", options->package, "The package to change")->required();
  command->add_option("PATH", options->paths, "The entries to remove")->required();
  addKeyOptions(*command, options->key);
  addQuietFlag(*command, options->quiet);
  addV1ManifestFlag(*command, options->v1Manifest);
  addWaitOption(*command, options->wait);
  command->footer(
      "Examples:\n"
      "  opcvk rm notes.opc /docs/old.txt\n"
      "  opcvk rm notes.opc /drafts /latest");
  commands.push_back({command, [options] { runRm(*options); }});
}

}  // namespace opcvk
