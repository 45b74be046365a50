// opcvk list PACKAGE [PATH]: the entries of a package file system, as names, long lines, a
// tree or JSON.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <nlohmann/json.hpp>

#include <opc/model/package_options.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "commands.h"
#include "entry_walk.h"
#include "file_parts.h"
#include "format.h"
#include "open_package.h"
#include "output.h"
#include "package_key.h"
#include "paths.h"
#include "text_pool.h"

namespace opcvk {
namespace {

using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;

struct ListOptions {
  std::string package;
  std::string path = "/";
  bool longFormat = false;
  bool parts = false;
  bool tree = false;
  bool json = false;
  bool quiet = false;
  KeyOptions key;
};

char kindLetter(FileSystemEntry const& entry) {
  if (entry.isFolder()) return 'd';
  if (entry.isLink()) return 'l';
  return '-';
}

char const* kindWord(char kind) {
  if (kind == 'd') return "folder";
  if (kind == 'l') return "link";
  return "file";
}

// What a long line or a JSON object shows of an entry.
struct Shown {
  // As kindLetter gives it.
  char kind;
  opc::Perms::Perms_tag permissions;
  boost::posix_time::ptime time;
  std::u16string_view path;
  // The entry of a link, whose target is read when the line is written; null for others.
  FileSystemEntry const* link;
};

Shown shownOf(WalkedEntry const& walked) {
  FileSystemEntry const& entry = walked.entry;
  return {kindLetter(entry), entry.getPermissions(), entry.getLastModifiedTime(), walked.path,
          entry.isLink() ? &entry : nullptr};
}

// The entries below the root in the order of a walk by path, with what their long lines and
// JSON objects show, and the paths of the files among them: taken in one walk, so that the
// parts of the files are told without a second one.
struct Listing {
  struct Entry {
    boost::posix_time::ptime time;
    opc::Perms::Perms_tag permissions;
    char kind;
    // The number of a file in filePaths, of a folder or link in otherPaths.
    std::uint32_t path;
    // Index in links, for a link.
    std::uint32_t link;
  };

  std::vector<Entry> entries;
  // The files' paths, which go on to tell their parts, and the paths of all other entries.
  PathPool filePaths;
  PathPool otherPaths;
  std::vector<FileSystemEntry> links;
};

Listing listAll(FileSystemManager& files) {
  Listing listing;
  walkEntries(files, FileSystemEntry::getRootName(), WalkOrder::kByPath,
              [&listing](WalkedEntry const& walked) {
                FileSystemEntry const& entry = walked.entry;
                char const kind = kindLetter(entry);
                std::uint32_t link = 0;
                if (kind == 'l') {
                  link = static_cast<std::uint32_t>(listing.links.size());
                  listing.links.push_back(entry);
                }
                PathPool& paths = kind == '-' ? listing.filePaths : listing.otherPaths;
                auto const path = static_cast<std::uint32_t>(paths.add(walked.path));
                listing.entries.push_back(
                    {entry.getLastModifiedTime(), entry.getPermissions(), kind, path, link});
              });
  listing.entries.shrink_to_fit();
  listing.otherPaths.shrink();
  listing.filePaths.shrink();
  return listing;
}

// Whether displayText writes UTF-8, told once by what it makes of a character outside ASCII:
// the codeset of nearly every terminal, in which a plain listing writes its lines itself.
bool displaysUtf8() { return displayText(u"\u00e9") == "\xC3\xA9"; }

// How many units of `units` from the first are ASCII, each of them narrowed into `bytes`;
// nothing is written past them.  Sixteen units a step where the processor has the
// instructions: the paths of a deep tree run to hundreds of units, nearly all of them ASCII.
inline std::size_t narrowAscii(char16_t const* units, std::size_t count, char* bytes) {
  std::size_t i = 0;
#if defined(__SSE2__)
  __m128i const notAscii = _mm_set1_epi16(static_cast<short>(0xFF80));
  for (; i + 16 <= count; i += 16) {
    __m128i const low = _mm_loadu_si128(reinterpret_cast<__m128i const*>(units + i));
    __m128i const high = _mm_loadu_si128(reinterpret_cast<__m128i const*>(units + i + 8));
    __m128i const outside = _mm_and_si128(_mm_or_si128(low, high), notAscii);
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(outside, _mm_setzero_si128())) != 0xFFFF) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes + i), _mm_packus_epi16(low, high));
  }
#endif
  for (; i < count && units[i] < 0x80; ++i) bytes[i] = static_cast<char>(units[i]);
  return i;
}

// Appends `text` to `out` as displayText writes it in a UTF-8 codeset, an unpaired surrogate
// as "?": a listing of names of another script otherwise makes a string for every one of them.
void appendUtf8(std::u16string_view text, std::string& out) {
  std::size_t const at = out.size();
  // No unit takes more than three bytes; a surrogate pair takes four for its two units.
  out.resize(at + 3 * text.size());
  char16_t const* const units = text.data();
  std::size_t const count = text.size();
  char* const first = out.data() + at;
  char* to = first;
  for (std::size_t i = 0; i < count;) {
    char32_t c = units[i];
    if (c < 0x80) {
      // A run of ASCII at once: names of other scripts mix words of both.
      std::size_t const run = narrowAscii(units + i, count - i, to);
      i += run;
      to += run;
      continue;
    }
    ++i;
    if (c < 0x800) {
      *to++ = static_cast<char>(0xC0 | (c >> 6));
      *to++ = static_cast<char>(0x80 | (c & 0x3F));
    } else if (c >= 0xD800 && c < 0xDC00 && i < count && units[i] >= 0xDC00 && units[i] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (units[i++] - 0xDC00);
      *to++ = static_cast<char>(0xF0 | (c >> 18));
      *to++ = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      *to++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      *to++ = static_cast<char>(0x80 | (c & 0x3F));
    } else if (c >= 0xD800 && c < 0xE000) {
      *to++ = '?';
    } else {
      *to++ = static_cast<char>(0xE0 | (c >> 12));
      *to++ = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      *to++ = static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  out.resize(at + static_cast<std::size_t>(to - first));
}

// Appends `text` to `out` as displayText shows it.  Text of ASCII alone, nearly every path,
// reads the same in every codeset; any other goes through displayText, or is written here when
// `utf8` says that displayText writes UTF-8, from its first unit outside ASCII on: what comes
// before it is written already.
void appendShown(std::u16string_view text, bool utf8, std::string& out) {
  std::size_t const at = out.size();
  out.resize(at + text.size());
  std::size_t const ascii = narrowAscii(text.data(), text.size(), out.data() + at);
  if (ascii == text.size()) return;
  if (utf8) {
    out.resize(at + ascii);
    appendUtf8(text.substr(ascii), out);
  } else {
    out.resize(at);
    out += displayText(std::u16string(text));
  }
}

// Appends `text`, the path or name of an entry of kind `kind` (as kindLetter gives it), as the
// long listing and the tree show it: folders end in "/", and `link`, the entry of a link (null
// for others), shows its target.
void appendShownPath(FileSystemManager& files, std::u16string_view text, char kind,
                     FileSystemEntry const* link, bool utf8, std::string& out) {
  appendShown(text, utf8, out);
  if (kind == 'd') out += '/';
  if (link != nullptr) {
    out += " -> ";
    appendShown(files.getLinkTarget(*link), utf8, out);
  }
}

// The line of a path in a plain listing, in `line`, kept by the caller from line to line so
// that a listing does not allocate a text per entry.
void nameLine(WalkedEntry const& walked, bool utf8, std::string& line, Output& out) {
  line.clear();
  appendShown(walked.path, utf8, line);
  if (walked.entry.isFolder()) line += '/';
  out.line(line);
}

// The line of an entry in a tree, indented by its depth, in `line`, kept by the caller.
void treeLine(FileSystemManager& files, WalkedEntry const& walked, bool utf8, std::string& line,
              Output& out) {
  FileSystemEntry const& entry = walked.entry;
  line.assign(2 * static_cast<std::size_t>(walked.depth), ' ');
  appendShownPath(files, walked.name, kindLetter(entry), entry.isLink() ? &entry : nullptr, utf8,
                  line);
  out.line(line);
}

// The line of an entry in a long listing, in `line`, kept by the caller from line to line.
void longLine(FileSystemManager& files, FileParts& parts, bool showParts, bool utf8,
              Shown const& entry, std::string& line, Output& out) {
  bool const isFile = entry.kind == '-';
  line.clear();
  appendLongColumns(line, entry.kind, entry.permissions, isFile ? parts.size(entry.path) : 0,
                    entry.time);
  appendShownPath(files, entry.path, entry.kind, entry.link, utf8, line);
  if (showParts && isFile) {
    std::u16string_view const part = parts.partName(entry.path);
    line += " [";
    if (part.empty()) {
      line += '?';
    } else {
      appendShown(part, utf8, line);
    }
    line += ']';
  }
  out.line(line);
}

nlohmann::ordered_json textOrNull(std::string const& text) {
  if (text.empty()) return nullptr;
  return text;
}

std::string jsonObject(FileSystemManager& files, FileParts& parts, bool showParts,
                       Shown const& entry) {
  bool const isFile = entry.kind == '-';
  nlohmann::ordered_json object;
  object["path"] = utf8Text(std::u16string(entry.path));
  object["kind"] = kindWord(entry.kind);
  object["permissions"] = textOrNull(permissionsOctal(entry.permissions));
  object["modified"] = textOrNull(timeIso(entry.time));
  if (isFile) object["size"] = parts.size(entry.path);
  if (entry.link != nullptr) object["target"] = utf8Text(files.getLinkTarget(*entry.link));
  if (showParts && isFile) {
    object["part"] = textOrNull(utf8Text(std::u16string(parts.partName(entry.path))));
  }
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

// Writes the long lines or the JSON array of the entries that `forEach` hands to its visitor.
template <typename ForEach>
void writeLong(ListOptions const& options, FileSystemManager& files, FileParts& parts,
               ForEach const& forEach, Output& out) {
  if (!options.json) {
    std::string line;
    bool const utf8 = displaysUtf8();
    forEach(
        [&](Shown const& entry) { longLine(files, parts, options.parts, utf8, entry, line, out); });
    return;
  }
  // Each object goes out when the next one comes, so that the last one is known to need no
  // comma.
  std::string pending;
  bool any = false;
  forEach([&](Shown const& entry) {
    out.line(any ? "  " + pending + ',' : std::string("["));
    pending = jsonObject(files, parts, options.parts, entry);
    any = true;
  });
  if (!any) {
    out.line("[]");
    return;
  }
  out.line("  " + pending);
  out.line("]");
}

void runList(ListOptions const& options) {
  OpenPackage open(options.package, opc::model::PackageAccess::Read);
  unlockPackage(open, options.package, options.key, KeyUse::Read);
  FileSystemManager& files = open.files();
  std::u16string const path = packagePathArgument(options.path);
  Output out;
  if (options.tree && !options.json) {
    std::string line;
    bool const utf8 = displaysUtf8();
    walkEntries(files, path, WalkOrder::kAsTree,
                [&](WalkedEntry const& walked) { treeLine(files, walked, utf8, line, out); });
    return;
  }
  if (!options.json && !options.longFormat) {
    std::string line;
    bool const utf8 = displaysUtf8();
    walkEntries(files, path, WalkOrder::kByPath,
                [&](WalkedEntry const& walked) { nameLine(walked, utf8, line, out); });
    return;
  }
  std::optional<Listing> listing;
  if (path == FileSystemEntry::getRootName()) listing = listAll(files);
  // The whole tree, walked in the order of its paths, as every package made by the library
  // is: one walk gives both the entries and the paths of the files, which the parts keep in
  // the same order.
  if (listing && isAscending(listing->filePaths)) {
    FileParts parts(open.package(), files, std::move(listing->filePaths));
    std::u16string text;
    auto const forEach = [&listing, &parts, &text](auto const& visit) {
      for (Listing::Entry const& entry : listing->entries) {
        if (entry.kind == '-') {
          parts.assignPath(entry.path, text);
        } else {
          listing->otherPaths.assign(entry.path, text);
        }
        visit(Shown{entry.kind, entry.permissions, entry.time, text,
                    entry.kind == 'l' ? &listing->links[entry.link] : nullptr});
      }
    };
    writeLong(options, files, parts, forEach, out);
    return;
  }
  listing.reset();
  FileParts parts(open.package(), files);
  auto const forEach = [&files, &path](auto const& visit) {
    walkEntries(files, path, WalkOrder::kByPath,
                [&visit](WalkedEntry const& walked) { visit(shownOf(walked)); });
  };
  writeLong(options, files, parts, forEach, out);
}

}  // namespace

void addListCommand(CLI::App& app, Commands& commands) {
  auto options = std::make_shared<ListOptions>();
  CLI::App* command = app.add_subcommand(
      "list", "List the entries of a package's file system, in the order of their paths.");
  command->add_option("PACKAGE", options->package, "The package to read")->required();
  command->add_option("PATH", options->path, "List what lies below this path (default \"/\")");
  CLI::Option* longFormat = command->add_flag(
      "-l,--long", options->longFormat, "Show kind, permissions, size, time and link targets");
  command->add_flag("--parts", options->parts, "With -l or --json, show the part of each file");
  CLI::Option* tree =
      command->add_flag("--tree", options->tree, "Show names indented by depth, as a tree");
  CLI::Option* json = command->add_flag("--json", options->json, "Print one JSON array");
  tree->excludes(longFormat)->excludes(json);
  addKeyOptions(*command, options->key);
  addQuietFlag(*command, options->quiet);
  command->footer(
      "Folders end in \"/\".  Times are UTC; \"?????????\" and \"-\" stand for permissions and\n"
      "times that the package does not know.  The size of a file in an encrypted package is\n"
      "that of its stored part: 32 bytes (IV and tag) more than its content.\n"
      "\n"
      "Examples:\n"
      "  opcvk list photos.opc\n"
      "  opcvk list -l --parts photos.opc /2026\n"
      "  opcvk list --tree photos.opc\n"
      "  opcvk list --json photos.opc > photos.json\n"
      "  opcvk list --key-file photos.key secret-photos.opc");
  commands.push_back({command, [options] { runList(*options); }});
}

}  // namespace opcvk
