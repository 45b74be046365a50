// opcvk pack SRC PACKAGE: a folder into a package, at the same relative paths.
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <foundation/release_info/release_info.h>
#include <opc/model/package_options.h>
#include <opc/vkservices/core_properties.h>
#include <opc/vkservices/core_properties_manager.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "commands.h"
#include "file_feeder.h"
#include "open_package.h"
#include "package_key.h"
#include "package_password.h"
#include "paths.h"
#include "process_end.h"
#include "progress.h"
#include "property_fields.h"
#include "silenced_stdout.h"
#include "source_tree.h"
#include "tool_error.h"

namespace opcvk {
namespace {

namespace fs = std::filesystem;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::TransformMode;

using opc::vkservices::CoreProperties;
using opc::vkservices::CorePropertiesManager;

// What a packed folder is, unless the command line says otherwise.
constexpr char16_t kFolderContentType[] = u"application/vnd.veltrance.opcvk.folder";
constexpr char16_t kFolderFriendlyName[] = u"Packed folder";
// The ZIP item time of a reproducible package without SOURCE_DATE_EPOCH: 1980-01-01 00:00:00
// UTC, the earliest that ZIP headers carry.
constexpr std::int64_t kEarliestZipTime = 315532800;

struct PackOptions {
  std::string source;
  std::string package;
  bool noTransforms = false;
  bool update = false;
  bool quiet = false;
  bool v1Manifest = false;
  bool deterministic = false;
  unsigned jobs = 0;
  std::optional<std::string> contentType;
  std::optional<std::string> friendlyName;
  std::optional<std::string> title;
  std::optional<std::string> creator;
  std::vector<std::string> assignments;
  KeyOptions key;
  double wait = 0;
};

// SOURCE_DATE_EPOCH, as reproducible-build tools set it: seconds since 1970-01-01 UTC.
std::optional<std::int64_t> sourceDateEpoch() {
  char const* text = std::getenv("SOURCE_DATE_EPOCH");
  if (text == nullptr || *text == '\0') return std::nullopt;
  std::string const value(text);
  std::int64_t seconds = 0;
  auto const [end, error] = std::from_chars(value.data(), value.data() + value.size(), seconds);
  if (error != std::errc() || end != value.data() + value.size() || seconds < 0) {
    throw ToolError("SOURCE_DATE_EPOCH must be a number of seconds since 1970-01-01 UTC, not: " +
                    value);
  }
  return seconds;
}

// Whether the new package is to be encrypted, under a key file or a password.
bool encryptsNewPackage(PackOptions const& options) {
  return keyGiven(options.key) || wantsNewPassword(options.key);
}

// The one place where what cannot give a reproducible package is refused, before any work.
void refuseUnreproducible(PackOptions const& options) {
  if (options.update) {
    throw ToolError("--deterministic makes a new package and cannot be used with --update");
  }
  if (encryptsNewPackage(options)) {
    throw ToolError(
        "--deterministic cannot be used with encryption: a reproducible package would repeat "
        "the same key and IV sequence, which defeats AES-GCM");
  }
}

// The ZIP item time when the package is to be reproducible, or nothing.  --deterministic asks
// for it; so does SOURCE_DATE_EPOCH for a new package that is not encrypted.
std::optional<std::int64_t> reproducibleTime(PackOptions const& options) {
  std::optional<std::int64_t> const epoch = sourceDateEpoch();
  if (options.deterministic) {
    refuseUnreproducible(options);
    return epoch ? *epoch : kEarliestZipTime;
  }
  if (epoch && !options.update && !encryptsNewPackage(options)) return epoch;
  return std::nullopt;
}

bool hasOverrides(PackOptions const& options) {
  return options.contentType || options.friendlyName || options.title || options.creator ||
         !options.assignments.empty();
}

void applyOverrides(CoreProperties& properties, PackOptions const& options) {
  if (options.contentType) properties.setContentType(fromArgument(*options.contentType));
  if (options.friendlyName) {
    properties.setContentTypeFriendlyName(fromArgument(*options.friendlyName));
  }
  if (options.title) properties.setTitle(fromArgument(*options.title));
  if (options.creator) properties.setCreatedBy(fromArgument(*options.creator));
  for (std::string const& assignment : options.assignments) {
    applyPropertyAssignment(properties, assignment);
  }
}

// A new package gets the properties of a packed folder of this release, with what the
// command line overrides; the manager adds the UUID and the created time when it saves, unless
// it is deterministic.  With --update, a package that has properties keeps them, overrides
// applied; one without gets them as a new one.  Everything is checked here, before any file
// is added.
void prepareProperties(CorePropertiesManager& manager, PackOptions const& options) {
  if (options.update) {
    CoreProperties current = manager.getCoreProperties();
    if (current.isValid()) {
      if (!hasOverrides(options)) return;
      applyOverrides(current, options);
      manager.setCoreProperties(current);
      return;
    }
  }
  CoreProperties properties(kFolderContentType, kFolderFriendlyName,
                            foundation::release_info::ReleaseInfo());
  applyOverrides(properties, options);
  manager.setCoreProperties(properties);
}

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
              TransformMode mode, bool update, unsigned jobs, Progress& progress) {
  std::u16string const rootText = fromArgument(root.native());
  FileFeeder feeder(root, tree, mode, jobs);
  std::string scratch;
  for (std::size_t index = 0; index < tree.items.size(); ++index) {
    SourceItem const& item = tree.items[index];
    std::u16string const path = tree.packagePath(item, scratch);
    bool const free = update ? makeWay(files, path) : true;
    std::uint64_t bytes = item.size;
    if (item.kind == SourceItem::Kind::EmptyFolder) {
      // A folder already in the package stays as it is.
      if (free) files.createFolder(path);
    } else if (item.kind == SourceItem::Kind::File) {
      // Read ahead on the feeder's threads, added here in the order of the walk.
      bytes = feeder.add(files, index, path);
    } else {
      // The library's own add decides how a link is stored: the rule for its target.
      files.addList(rootText, {path}, mode);
      // The add passes over in silence what it cannot find; a link that went away
      // meanwhile is not to be lost without a word.
      if (!files.hasEntry(path))
        throw ToolError("Could not add: " + root.native() + displayText(path));
    }
    progress.advance(bytes);
  }
}

void runPack(PackOptions const& options) {
  std::error_code error;
  if (!fs::is_directory(options.source, error)) throw ToolError("Not a folder: " + options.source);
  if (!options.update && somethingAt(options.package)) {
    throw ToolError("Package already exists: " + options.package + " (use --update to add to it)");
  }
  std::optional<std::int64_t> const fixedTime = reproducibleTime(options);
  if (fixedTime) {
    // ZIP headers hold a local time; the package's must not depend on where it is made.
    ::setenv("TZ", "UTC0", 1);
    ::tzset();
  }
  fs::path const root = absolutePath(options.source);
  // A package written inside the folder (with --update, one that is already there) does not
  // go into itself.
  SourceTree tree = walkSourceFolder(root, absolutePath(options.package));
  TransformMode const mode =
      options.noTransforms ? TransformMode::NoTransforms : TransformMode::ApplyTransforms;

  SaveSettings settings;
  settings.compressionThreads = options.jobs;
  settings.reproducibleTime = fixedTime;
  settings.waitSeconds = options.wait;
  OpenPackage open(
      options.package,
      options.update ? opc::model::PackageAccess::Modify : opc::model::PackageAccess::Create,
      manifestForms(options.v1Manifest), settings);
  unlockPackage(open, options.package, options.key,
                options.update ? KeyUse::Modify : KeyUse::Create);
  prepareProperties(open.properties(fixedTime ? CorePropertiesManager::Deterministic
                                              : CorePropertiesManager::NotDeterministic),
                    options);
  {
    Progress progress(Progress::wanted(options.quiet), tree.fileCount, tree.byteCount);
    {
      SilencedStdout silenced;
      addItems(open.files(), root, tree, mode, options.update, options.jobs, progress);
    }
    // The walk's record of every item (megabytes for a tree of 100,000 files) goes before the
    // save, which is when memory peaks.
    tree = SourceTree();
    progress.phase("writing the package");
    open.save();
  }
  // The package is written, closed and in its place: what is left of the walk and of the
  // package in memory is only handed back to the system.
  endProcessWithoutTeardown();
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
  command->add_flag("--deterministic", options->deterministic,
                    "Write a reproducible package: the same folder gives the same bytes "
                    "wherever and whenever it is packed");
  command->add_option("-j,--jobs", options->jobs,
                      "Threads that read and threads that compress (default 0: one per processor)");
  command->add_option(
      "--content-type", options->contentType,
      "The package's content type (default application/vnd.veltrance.opcvk.folder)");
  command->add_option("--friendly-name", options->friendlyName,
                      "The display name of the content type (default \"Packed folder\")");
  command->add_option("--title", options->title, "The package's title");
  command->add_option("--creator", options->creator, "Who made the package");
  command
      ->add_option("--set", options->assignments,
                   "Set any other core property, NAME=VALUE (repeatable; see 'opcvk props')")
      ->type_name("NAME=VALUE")
      ->check(CLI::Validator(checkPropertyAssignment, "NAME=VALUE", "property assignment"));
  addKeyOptions(*command, options->key);
  addEncryptFlag(*command, options->key);
  addQuietFlag(*command, options->quiet);
  addV1ManifestFlag(*command, options->v1Manifest);
  addWaitOption(*command, options->wait);
  command->footer(
      "Text files are recoded to UTF-8 unless --no-transforms is given.  A symbolic link keeps\n"
      "a relative target as it is; an absolute target inside SRC is made a package path, one\n"
      "outside SRC is an error.  The package is written only when everything went in.\n"
      "With --v1-manifest the package also holds the older manifest, for readers of the\n"
      "older generation; --update without it upgrades a package of the older generation.\n"
      "\n"
      "A new package gets core properties: the content type\n"
      "application/vnd.veltrance.opcvk.folder (\"Packed folder\"), this release, a new UUID and\n"
      "the time it was created, with what --content-type, --friendly-name, --title, --creator\n"
      "and --set give.  With --update, a package that has core properties keeps them, with\n"
      "those options applied.\n"
      "\n"
      "--deterministic gives byte-identical packages for identical folders (the same names,\n"
      "bytes, modes and times, under the same locale encoding): entries in a fixed order, ZIP\n"
      "header times fixed at SOURCE_DATE_EPOCH (or 1980-01-01 without it), compression that does\n"
      "not depend on --jobs, and no UUID or created time.  File times stay exact in the package's\n"
      "manifest.  SOURCE_DATE_EPOCH in the environment asks for the same when a new package is\n"
      "made.  --deterministic cannot be used with --update.\n"

      "With --key-file the package is encrypted under AES-256-GCM: every file's content and\n"
      "the manifest, with the part names made from a keyed digest of the paths, so that the\n"
      "package gives away neither content nor names (only sizes).  Its parts are stored,\n"
      "not compressed.  Every message gets a fresh random IV: a tool that reused a fixed IV\n"
      "portion under one key in two packages would repeat IVs, which breaks GCM (it gives\n"
      "away the XOR of the contents and lets anyone forge them).  Keep the key file safe:\n"
      "without it the package cannot be read.  Make one with\n"
      "  head -c 32 /dev/urandom > photos.key\n"
      "\n"
      "With --encrypt or --password-file the package is encrypted the same way under a key\n"
      "derived from a password (PBKDF2-HMAC-SHA-256, a new random salt and IV, about a\n"
      "quarter of a second of work).  The package keeps the salt, the IV and a hash that\n"
      "names the work factor, all a reader needs but the password.  Without --password-file\n"
      "the password is asked for twice at the terminal.\n"
      "\n"
      "Examples:\n"
      "  opcvk pack photos photos.opc\n"
      "  opcvk pack --update photos photos.opc\n"
      "  opcvk pack --v1-manifest photos photos-for-older-readers.opc\n"
      "  opcvk pack --no-transforms legacy-texts texts.opc\n"
      "  opcvk pack --title 'Holiday 2024' --creator Ann photos photos.opc\n"
      "  SOURCE_DATE_EPOCH=1700000000 opcvk pack --deterministic site site.opc\n"
      "  opcvk pack --key-file photos.key photos secret-photos.opc\n"
      "  opcvk pack --encrypt photos secret-photos.opc\n"
      "  opcvk pack --password-file photos.pass photos secret-photos.opc");
  commands.push_back({command, [options] { runPack(*options); }});
}

}  // namespace opcvk
