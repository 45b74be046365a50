// opcvk pack SRC PACKAGE: a folder into a package, at the same relative paths.
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <opc/model/package_options.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "commands.h"
#include "open_package.h"
#include "paths.h"
#include "progress.h"
#include "silenced_stdout.h"
#include "source_tree.h"
#include "tool_error.h"

namespace opcvk {
namespace {

namespace fs = std::filesystem;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::TransformMode;

struct PackOptions {
  std::string source;
  std::string package;
  bool noTransforms = false;
  bool update = false;
  bool quiet = false;
  bool v1Manifest = false;
};

// Whether anything, a dangling link included, stands at `path`.
bool somethingAt(std::string const& path) {
  std::error_code error;
  return fs::symlink_status(path, error).type() != fs::file_type::not_found;
}

// With --update, a file or link already at `path` makes way for what the folder has there;
// a folder stays.  Tells whether the path is free now.
bool makeWay(FileSystemManager& files, std::u16string const& path) {
  if (!files.hasEntry(path)) return true;
  FileSystemEntry const entry = files.getEntry(path);
  if (entry.isFile()) {
    files.deleteFile(entry);
  } else if (entry.isLink()) {
    files.deleteLink(entry);
  } else {
    return false;
  }
  return true;
}

void addItems(FileSystemManager& files, fs::path const& root, SourceTree const& tree,
              TransformMode mode, bool update, Progress& progress) {
  std::u16string const rootText = fromArgument(root.native());
  for (SourceItem const& item : tree.items) {
    std::u16string const path = u"/" + item.relative;
    bool const free = update ? makeWay(files, path) : true;
    if (item.kind == SourceItem::Kind::EmptyFolder) {
      // A folder already in the package stays as it is.
      if (free) files.createFolder(path);
    } else {
      // The library's own add decides how a file or a link is stored: content type, text
      // recoding, permissions and time, and the rule for link targets.
      files.addList(rootText, {path}, mode);
      // The add passes over in silence what it cannot find; a file that went away
      // meanwhile is not to be lost without a word.
      if (!files.hasEntry(path))
        throw ToolError("Could not add: " + root.native() + displayText(path));
    }
    progress.advance(item.size);
  }
}

void runPack(PackOptions const& options) {
  std::error_code error;
  if (!fs::is_directory(options.source, error)) throw ToolError("Not a folder: " + options.source);
  if (!options.update && somethingAt(options.package)) {
    throw ToolError("Package already exists: " + options.package + " (use --update to add to it)");
  }
  fs::path const root = absolutePath(options.source);
  // A package written inside the folder (with --update, one that is already there) does not
  // go into itself.
  SourceTree const tree = walkSourceFolder(root, absolutePath(options.package));
  TransformMode const mode =
      options.noTransforms ? TransformMode::NoTransforms : TransformMode::ApplyTransforms;

  OpenPackage open(
      options.package,
      options.update ? opc::model::PackageAccess::Modify : opc::model::PackageAccess::Create,
      manifestForms(options.v1Manifest));
  Progress progress(Progress::wanted(options.quiet), tree.fileCount, tree.byteCount);
  {
    SilencedStdout silenced;
    addItems(open.files(), root, tree, mode, options.update, progress);
  }
  progress.phase("writing the package");
  open.save();
}

}  // namespace

void addPackCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<PackOptions>();
  CLI::App* command = app.add_subcommand(
      "pack",
      "Pack a folder into a new package: files, symbolic links and empty folders, "
      "with permissions and times.");
  command->add_option("SRC", options->source, "The folder to pack")->required();
  command->add_option("PACKAGE", options->package, "The package to write")->required();
  command->add_flag("--no-transforms", options->noTransforms,
                    "Store text files as they are, without recoding them to UTF-8");
  command->add_flag("--update", options->update,
                    "Add to an existing package, replacing files and links at the same paths");
  addQuietFlag(*command, options->quiet);
  addV1ManifestFlag(*command, options->v1Manifest);
  command->footer(
      "Text files are recoded to UTF-8 unless --no-transforms is given.  A symbolic link keeps\n"
      "a relative target as it is; an absolute target inside SRC is made a package path, one\n"
      "outside SRC is an error.  The package is written only when everything went in.\n"
      "With --v1-manifest the package also holds the older manifest, for readers of the\n"
      "older generation; --update without it upgrades a package of the older generation.\n"
      "\n"
      "Examples:\n"
      "  opcvk pack photos photos.opc\n"
      "  opcvk pack --update photos photos.opc\n"
      "  opcvk pack --v1-manifest photos photos-for-older-readers.opc\n"
      "  opcvk pack --no-transforms legacy-texts texts.opc");
  commands.push_back({command, [options] { runPack(*options); }});
}

}  // namespace opcvk
