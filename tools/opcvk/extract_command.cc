// opcvk extract PACKAGE DEST [PATH...]: entries of a package back to disk.
#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <opc/model/package_options.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "commands.h"
#include "file_parts.h"
#include "open_package.h"
#include "package_key.h"
#include "parallel_extract.h"
#include "paths.h"
#include "progress.h"

namespace opcvk {
namespace {

using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::ReplaceMode;
using opc::vkservices::RestoreMode;
using opc::vkservices::TransformMode;

struct ExtractOptions {
  std::string package;
  std::string destination;
  std::vector<std::string> paths;
  bool restore = true;
  std::string replace = "never";
  bool noTransforms = false;
  bool quiet = false;
  unsigned jobs = 0;
  KeyOptions key;
};

ReplaceMode replaceMode(std::string const& word) {
  if (word == "existing") return ReplaceMode::ReplaceExisting;
  if (word == "always") return ReplaceMode::ReplaceAlways;
  return ReplaceMode::ReplaceNever;
}

// Whether `path` lies below the folder `folder` ("/" holds everything).
bool isBelow(std::u16string const& path, std::u16string const& folder) {
  if (folder == FileSystemEntry::getRootName()) return true;
  return path.size() > folder.size() && path.compare(0, folder.size(), folder) == 0 &&
         path[folder.size()] == u'/';
}

// The entries to extract, by path, in ascending path order: every leaf (files, links, empty
// folders), or those named and the leaves below the named folders.
std::map<std::u16string, FileSystemEntry> chooseEntries(FileSystemManager& files,
                                                        std::vector<std::string> const& paths) {
  std::map<std::u16string, FileSystemEntry> chosen;
  auto const leaves = files.getAllLeafs();
  if (paths.empty()) {
    for (FileSystemEntry const& leaf : leaves) chosen.emplace(leaf.getPathName(), leaf);
    return chosen;
  }
  for (std::string const& argument : paths) {
    FileSystemEntry const entry = files.getEntry(packagePathArgument(argument));
    std::u16string const path = entry.getPathName();
    // A folder stands for what lies below it; anything else, a link included, for itself.
    if (!entry.isFolder() || !files.hasChildren(entry)) {
      chosen.emplace(path, entry);
      continue;
    }
    for (FileSystemEntry const& leaf : leaves) {
      std::u16string leafPath = leaf.getPathName();
      if (isBelow(leafPath, path)) chosen.emplace(std::move(leafPath), leaf);
    }
  }
  return chosen;
}

void runExtract(ExtractOptions const& options) {
  OpenPackage open(options.package, opc::model::PackageAccess::Read);
  unlockPackage(open, options.package, options.key, KeyUse::Read);
  FileSystemManager& files = open.files();
  std::u16string const destination = fromArgument(options.destination);
  RestoreMode const restore =
      options.restore ? RestoreMode::RestoreTimeAndPermissions : RestoreMode::RestoreNothing;
  TransformMode const transform =
      options.noTransforms ? TransformMode::NoTransforms : TransformMode::ApplyTransforms;
  ReplaceMode const replace = replaceMode(options.replace);

  bool const showProgress = Progress::wanted(options.quiet);
  if (options.paths.empty() && !showProgress) {
    // Everything, with nothing to show between entries: the library's own walk over all the
    // leaves, in the same order and with the same errors as entry by entry, without the look
    // at the destination that each call of its own makes.  An empty file system still makes
    // the destination.  With --jobs the leaves are shared out among threads that all read the
    // one open package (encrypted files are decrypted one at a time).
    extractInParallel(files, destination, ExtractModes{restore, transform, replace}, options.jobs);
    return;
  }
  std::map<std::u16string, FileSystemEntry> const chosen = chooseEntries(files, options.paths);
  if (chosen.empty()) {
    // Nothing to write, but the destination is made all the same.
    files.extractAll(destination, restore, transform, replace);
    return;
  }
  // One entry at a time through the library's extraction, which makes the destination and the
  // parents of each entry, so that progress can be shown between entries; the library keeps
  // the folders it opened from one call to the next.
  std::uint64_t totalBytes = 0;
  std::vector<std::uint64_t> sizes(chosen.size(), 0);
  if (showProgress) {
    FileParts parts(open.package(), files);
    std::size_t at = 0;
    for (auto const& [path, entry] : chosen) {
      if (entry.isFile()) sizes[at] = parts.size(entry);
      totalBytes += sizes[at++];
    }
  }
  Progress progress(showProgress, chosen.size(), totalBytes);
  std::size_t index = 0;
  for (auto const& [path, entry] : chosen) {
    files.extractEntry(destination, entry, restore, transform, replace);
    progress.advance(sizes[index++]);
  }
}

}  // namespace

void addExtractCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<ExtractOptions>();
  CLI::App* command = app.add_subcommand(
      "extract", "Extract a package's file system, or the entries named, below a folder.");
  command->add_option("PACKAGE", options->package, "The package to read")->required();
  command->add_option("DEST", options->destination, "The folder to extract into (made if missing)")
      ->required();
  command->add_option("PATH", options->paths,
                      "Entries to extract (a folder with everything below it); all by default");
  command->add_flag("--restore,!--no-restore", options->restore,
                    "Give files the permissions and times kept in the package (the default; "
                    "--no-restore leaves them as the file system makes them)");
  command
      ->add_option("--replace", options->replace,
                   "What to do with an existing file that cannot be opened for writing: "
                   "never (fail), existing (force it), always (force any file)")
      ->check(CLI::IsMember({"never", "existing", "always"}));
  command
      ->add_option("-j,--jobs", options->jobs,
                   "Threads that extract a whole package, all reading the one open package "
                   "(default 0: one per 2000 entries, at most one per processor and 4)")
      ->check(CLI::Range(0u, 64u));
  command->add_flag("--no-transforms", options->noTransforms,
                    "Write the bytes as they are stored, without decoding them");
  addKeyOptions(*command, options->key);
  addQuietFlag(*command, options->quiet);
  command->footer(
      "Files get back their permissions and times, as archivers do, unless --no-restore is\n"
      "given.  A writable existing file is overwritten in every --replace mode.  Nothing is\n"
      "written outside DEST: entries that would leave it are refused.  A link with an absolute\n"
      "target in the package points to the same place below DEST.\n"
      "From an encrypted package, each file is written to a temporary file beside its place\n"
      "and takes that place only once its content is authenticated: a file altered in the\n"
      "package gives an error and leaves nothing behind.\n"
      "\n"
      "Examples:\n"
      "  opcvk extract photos.opc restored\n"
      "  opcvk extract photos.opc restored /2026 /index.html\n"
      "  opcvk extract --no-restore photos.opc restored\n"
      "  opcvk extract --replace existing photos.opc restored\n"
      "  opcvk extract --key-file photos.key secret-photos.opc restored");
  commands.push_back({command, [options] { runExtract(*options); }});
}

}  // namespace opcvk
