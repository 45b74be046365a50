// opcvk add PACKAGE SRC --as PATH: one file, link or folder from disk into a package.
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include <opc/model/package_options.h>
#include <opc/vkservices/errors.h>
#include <opc/vkservices/file_system_manager.h>

#include "commands.h"
#include "open_package.h"
#include "package_key.h"
#include "paths.h"
#include "progress.h"
#include "silenced_stdout.h"
#include "source_tree.h"
#include "tool_error.h"

namespace opcvk {
namespace {

namespace fs = std::filesystem;
using opc::vkservices::FileSystemManager;
using opc::vkservices::TransformMode;

struct AddOptions {
  std::string package;
  std::string source;
  std::string as;
  bool noTransforms = false;
  bool quiet = false;
  bool v1Manifest = false;
  KeyOptions key;
  double wait = 0;
};

std::string readLink(fs::path const& link) {
  std::error_code error;
  fs::path const target = fs::read_symlink(link, error);
  if (error) throw ToolError("Could not read link: " + link.native() + ": " + error.message());
  return target.native();
}

// The package text of the target of a link found below the folder `root`, which is added at
// `packageRoot`: a relative target stays as it is; an absolute one inside the folder points
// to the same place below `packageRoot`, as pack does it for the package root; one outside
// cannot be kept.
std::u16string linkTarget(fs::path const& root, std::u16string const& packageRoot,
                          std::string const& target) {
  fs::path const targetPath(target);
  if (!targetPath.is_absolute()) return fromArgument(target);
  fs::path const relative = targetPath.lexically_normal().lexically_relative(root);
  if (relative.empty() || *relative.begin() == "..") {
    throw opc::vkservices::CouldNotMakeRelativeToSourceRoot(
        "Could not make source file name relative to source root");
  }
  if (relative == ".") return packageRoot;
  return joinPackagePath(packageRoot, fromArgument(relative.generic_string()));
}

// The content of the folder `root` below `path`, as pack stores a folder at the root.
void addFolder(FileSystemManager& files, fs::path const& root, std::u16string const& path,
               TransformMode mode, Progress& progress) {
  // The folder itself first, so that a taken path is refused before anything is added.
  files.createFolder(path);
  SourceTree const tree = walkSourceFolder(root);
  std::u16string const rootText = fromArgument(root.native());
  progress.expect(tree.fileCount, tree.byteCount);
  SilencedStdout silenced;
  for (SourceItem const& item : tree.items) {
    std::u16string const relative = tree.relative(item);
    std::u16string const itemPath = joinPackagePath(path, relative);
    switch (item.kind) {
      case SourceItem::Kind::File:
        files.addFile(rootText + u"/" + relative, itemPath, mode);
        break;
      case SourceItem::Kind::Link: {
        std::string const target = readLink(root / displayText(relative));
        files.createLink(itemPath, linkTarget(root, path, target));
        break;
      }
      case SourceItem::Kind::EmptyFolder:
        files.createFolder(itemPath);
        break;
    }
    progress.advance(item.size);
  }
}

void runAdd(AddOptions const& options) {
  TransformMode const mode =
      options.noTransforms ? TransformMode::NoTransforms : TransformMode::ApplyTransforms;
  std::u16string const path = packagePathArgument(options.as);
  OpenPackage open(options.package, opc::model::PackageAccess::Modify,
                   manifestForms(options.v1Manifest), waitingUpTo(options.wait));
  unlockPackage(open, options.package, options.key, KeyUse::Modify);
  FileSystemManager& files = open.files();

  Progress progress(Progress::wanted(options.quiet), 1, 0);
  std::error_code error;
  fs::file_type const type = fs::symlink_status(options.source, error).type();
  if (type == fs::file_type::directory) {
    addFolder(files, absolutePath(options.source), path, mode, progress);
  } else if (type == fs::file_type::symlink) {
    files.createLink(path, fromArgument(readLink(options.source)));
  } else {
    // A missing or unreadable source is the library's to report, after its test of the path.
    SilencedStdout silenced;
    files.addFile(fromArgument(options.source), path, mode);
  }
  progress.phase("writing the package");
  open.save();
}

}  // namespace

void addAddCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<AddOptions>();
  CLI::App* command = app.add_subcommand(
      "add", "Add a file, a symbolic link or a folder's content to a package at a given path.");
  command->add_option("PACKAGE", options->package, "The package to change")->required();
  command->add_option("SRC", options->source, "The file, link or folder on disk")->required();
  command->add_option("--as", options->as, "The path in the package")->required();
  command->add_flag("--no-transforms", options->noTransforms,
                    "Store text files as they are, without recoding them to UTF-8");
  addKeyOptions(*command, options->key);
  addQuietFlag(*command, options->quiet);
  addV1ManifestFlag(*command, options->v1Manifest);
  addWaitOption(*command, options->wait);
  command->footer(
      "A file becomes a file at PATH, a link a link with the same target text, and a folder\n"
      "a folder at PATH holding its content (as pack stores it).  PATH must be free.\n"
      "\n"
      "Examples:\n"
      "  opcvk add notes.opc todo.txt --as /docs/todo.txt\n"
      "  opcvk add notes.opc drafts --as /drafts");
  commands.push_back({command, [options] { runAdd(*options); }});
}

}  // namespace opcvk
