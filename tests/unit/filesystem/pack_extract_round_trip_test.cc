// A generated tree of thousands of files, folders and links goes into a package from disk,
// through a save and a reopen, and back out to disk; the tree that comes out must be the tree
// that went in, byte for byte, bit for bit and microsecond for microsecond.
#include <cstdint>
#include <dirent.h>
#include <map>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <opc/model/package.h>
#include <opc/vkservices/file_system_manager.h>

#include "support/temp_dir.h"
#include "unit/filesystem/disk_tree_test_util.h"
#include "unit/filesystem/file_system_manager_test_support.h"

namespace {

namespace disk = opcvk_test::disk;

using opc::vkservices::ReplaceMode;
using opc::vkservices::RestoreMode;
using opc::vkservices::TransformMode;

// One generated tree on disk, and what the generator knows of it.
struct GeneratedTree {
  std::size_t files = 0;
  std::size_t folders = 0;
  std::size_t links = 0;
  std::size_t readOnlyFiles = 0;
  std::size_t noBitFiles = 0;
  std::size_t emptyFiles = 0;
  std::size_t absoluteLinks = 0;
  // Relative paths ("a/b") of the folders that hold nothing.
  std::vector<std::string> emptyFolders;
};

// Makes names, contents, modes and times from one seeded engine, so that every run builds
// the same tree.  Only the engine's raw output is used, never a standard distribution,
// whose results differ between standard libraries.
class TreeGenerator {
 public:
  TreeGenerator(std::string root, std::uint64_t seed, bool privileged)
      : root_(std::move(root)), engine_(seed), privileged_(privileged) {}

  GeneratedTree generate(std::size_t folderCount, std::size_t fileCount, std::size_t linkCount) {
    GeneratedTree tree;
    std::vector<std::string> folders{""};
    std::vector<int> depth{0};
    for (std::size_t i = 0; i < folderCount; ++i) {
      std::size_t parent;
      do {
        parent = pick(folders.size());
      } while (depth[parent] >= 6);
      std::string const path = join(folders[parent], name(i, "d"));
      disk::makeFolder(full(path));
      folders.push_back(path);
      depth.push_back(depth[parent] + 1);
    }
    tree.folders = folderCount;

    // Some folders without subfolders stay empty: addAll passes over them, and they must
    // still come out.
    std::vector<bool> hasSubfolder(folders.size(), false);
    for (std::size_t i = 1; i < folders.size(); ++i) {
      std::size_t const slash = folders[i].rfind('/');
      std::string const parent = slash == std::string::npos ? "" : folders[i].substr(0, slash);
      for (std::size_t j = 0; j < folders.size(); ++j) {
        if (folders[j] == parent) hasSubfolder[j] = true;
      }
    }
    std::vector<bool> keepEmpty(folders.size(), false);
    for (std::size_t i = 1; i < folders.size(); ++i) {
      if (!hasSubfolder[i] && pick(4) == 0) {
        keepEmpty[i] = true;
        tree.emptyFolders.push_back(folders[i]);
      }
    }
    auto pickFilledFolder = [&] {
      std::size_t index;
      do {
        index = pick(folders.size());
      } while (keepEmpty[index]);
      return index;
    };

    std::vector<std::string> files;
    std::string folder;
    for (std::size_t i = 0; i < fileCount; ++i) {
      // Every so often two names in one folder that differ only in case, which part names
      // cannot tell apart.
      if (i % 97 != 1) folder = folders[pickFilledFolder()];
      std::string const path = join(folder, i % 97 == 0   ? "Case Twin " + std::to_string(i)
                                            : i % 97 == 1 ? "CASE TWIN " + std::to_string(i - 1)
                                                          : name(i, "f"));
      std::string const bytes = content();
      disk::writeFile(full(path), bytes);
      unsigned const mode = fileMode();
      disk::setMode(full(path), mode);
      disk::setTime(full(path), fileTime());
      files.push_back(path);
      ++tree.files;
      if (bytes.empty()) ++tree.emptyFiles;
      if ((mode & 0222) == 0) ++tree.readOnlyFiles;
      if (mode == 0) ++tree.noBitFiles;
    }

    for (std::size_t i = 0; i < linkCount; ++i) {
      std::string const linkFolder = folders[pickFilledFolder()];
      std::string const path = join(linkFolder, name(i, "l"));
      std::string target;
      switch (pick(5)) {
        case 0:  // relative, to a file that exists
          target = relative(linkFolder, files[pick(files.size())]);
          break;
        case 1:  // relative, to a folder that exists
          target = relative(linkFolder, folders[1 + pick(folders.size() - 1)]);
          break;
        case 2:  // absolute, under the root
          target = full(pick(2) == 0 ? files[pick(files.size())]
                                     : folders[1 + pick(folders.size() - 1)]);
          ++tree.absoluteLinks;
          break;
        case 3:  // absolute, under the root, to nothing
          target = full("no such " + name(i, "x"));
          ++tree.absoluteLinks;
          break;
        default:  // relative, to nothing, and out of the root
          target = "../" + name(i, "gone") + "/../" + name(i + 1, "x");
          break;
      }
      disk::makeSymlink(target, full(path));
      ++tree.links;
    }
    return tree;
  }

 private:
  std::size_t pick(std::size_t count) { return static_cast<std::size_t>(engine_() % count); }

  std::string full(std::string const& relativePath) const {
    return relativePath.empty() ? root_ : root_ + "/" + relativePath;
  }
  static std::string join(std::string const& folder, std::string const& base) {
    return folder.empty() ? base : folder + "/" + base;
  }

  // Names with blanks, non-ASCII letters and dots; the number keeps them apart.  No name
  // ends with a dot or a blank, which part names do not allow.
  std::string name(std::size_t number, char const* kind) {
    static char const* const kPieces[] = {"alpha",
                                          "Bericht 2020",
                                          "\xC3\xBC"
                                          "ber",
                                          "\xE6\x97\xA5\xE6\x9C\xAC",
                                          "r\xC3\xA9sum\xC3\xA9",
                                          "data.v2",
                                          "x y z",
                                          "\xCE\xA9mega",
                                          "notes",
                                          "a+b@c",
                                          "(draft)",
                                          "\xD0\x94\xD0\xB0",
                                          "tab-less",
                                          "UPPER",
                                          "m\xC3\xB8"
                                          "de",
                                          "emoji \xF0\x9F\x99\x82"};
    std::string result = kPieces[pick(sizeof kPieces / sizeof kPieces[0])];
    result += ' ';
    result += kind;
    result += std::to_string(number);
    static char const* const kExtensions[] = {"", ".txt", ".bin", ".json", ".tar.gz", ".html"};
    result += kExtensions[pick(sizeof kExtensions / sizeof kExtensions[0])];
    return result;
  }

  std::string content() {
    std::size_t const kind = pick(100);
    std::size_t size;
    if (kind < 8) {
      size = 0;
    } else if (kind < 80) {
      size = 1 + pick(2000);
    } else if (kind < 98) {
      size = 2000 + pick(18000);
    } else {
      size = 20000 + pick(180000);
    }
    std::string bytes(size, '\0');
    if (pick(2) == 0) {
      for (auto& byte : bytes) byte = static_cast<char>(engine_() & 0xFF);
    } else {
      // Text-like bytes, which compress.
      static char const kText[] = "the quick brown fox jumps over the lazy dog\n";
      std::size_t const start = pick(sizeof kText - 1);
      for (std::size_t i = 0; i < size; ++i) bytes[i] = kText[(start + i) % (sizeof kText - 1)];
    }
    return bytes;
  }

  unsigned fileMode() {
    static unsigned const kModes[] = {0644, 0600, 0755, 0444, 0400, 0777, 0640, 0700,
                                      0,    0111, 0001, 0421, 0750, 0664, 0555, 0200};
    unsigned mode = pick(4) == 0 ? static_cast<unsigned>(pick(01000))
                                 : kModes[pick(sizeof kModes / sizeof kModes[0])];
    // Without root's rights a file must be readable by its owner to be packed at all.
    if (!privileged_) mode |= 0400;
    return mode;
  }

  boost::posix_time::ptime fileTime() {
    // 1980 to 2037, with a microsecond part that is never rounded away.
    std::int64_t const seconds = 315532800 + static_cast<std::int64_t>(pick(1830297600));
    std::int64_t const micros = static_cast<std::int64_t>(pick(1000000));
    return disk::timeFromMicros(seconds * 1000000 + micros);
  }

  // The relative text that leads from the folder `from` to `to` (both relative to the root).
  static std::string relative(std::string const& from, std::string const& to) {
    auto split = [](std::string const& path) {
      std::vector<std::string> parts;
      std::size_t start = 0;
      while (!path.empty()) {
        std::size_t const slash = path.find('/', start);
        parts.push_back(path.substr(start, slash - start));
        if (slash == std::string::npos) break;
        start = slash + 1;
      }
      return parts;
    };
    std::vector<std::string> const a = split(from);
    std::vector<std::string> const b = split(to);
    std::size_t common = 0;
    while (common < a.size() && common < b.size() && a[common] == b[common]) ++common;
    std::string result;
    for (std::size_t i = common; i < a.size(); ++i) result += "../";
    for (std::size_t i = common; i < b.size(); ++i) {
      result += b[i];
      if (i + 1 < b.size()) result += '/';
    }
    return result.empty() ? "." : result;
  }

  std::string root_;
  std::mt19937_64 engine_;
  bool privileged_;
};

// What a tree on disk holds at one path, as far as a round trip must keep it.
struct Record {
  disk::Kind kind = disk::Kind::Missing;
  std::string bytes;        // files
  unsigned mode = 0;        // files
  std::int64_t micros = 0;  // files
  std::string target;       // links; a target under the root begins with "<root>"

  bool operator==(Record const& other) const {
    return kind == other.kind && bytes == other.bytes && mode == other.mode &&
           micros == other.micros && target == other.target;
  }
};

void snapshot(std::string const& root, std::string const& relativePath,
              std::map<std::string, Record>& out) {
  std::string const folder = relativePath.empty() ? root : root + "/" + relativePath;
  DIR* dir = ::opendir(folder.c_str());
  ASSERT_NE(dir, nullptr) << folder;
  std::vector<std::string> names;
  while (dirent* item = ::readdir(dir)) {
    std::string const base = item->d_name;
    if (base != "." && base != "..") names.push_back(base);
  }
  ::closedir(dir);
  for (auto const& base : names) {
    std::string const path = relativePath.empty() ? base : relativePath + "/" + base;
    std::string const real = root + "/" + path;
    Record record;
    record.kind = disk::kindOf(real);
    switch (record.kind) {
      case disk::Kind::File:
        record.bytes = disk::readFile(real);
        record.mode = disk::modeOf(real);
        record.micros = disk::microsOf(disk::timeOf(real));
        break;
      case disk::Kind::Link: {
        record.target = disk::readLink(real);
        std::string const under = root + "/";
        if (record.target.compare(0, under.size(), under) == 0)
          record.target = "<root>/" + record.target.substr(under.size());
        break;
      }
      case disk::Kind::Folder:
        snapshot(root, path, out);
        break;
      default:
        break;
    }
    out.emplace(path, std::move(record));
  }
}

std::map<std::string, Record> snapshot(std::string const& root) {
  std::map<std::string, Record> out;
  snapshot(root, "", out);
  return out;
}

char const* kindName(disk::Kind kind) {
  switch (kind) {
    case disk::Kind::File:
      return "file";
    case disk::Kind::Folder:
      return "folder";
    case disk::Kind::Link:
      return "link";
    case disk::Kind::Missing:
      return "missing";
    default:
      return "other";
  }
}

TEST(PackExtractRoundTripTest, GeneratedTreeComesBackIdenticalAfterSaveAndReopen) {
  opcvk_test::TempDir tmp;
  std::string const source = tmp / "source";
  std::string const destination = tmp / "destination";
  disk::makeFolder(source);

  GeneratedTree const tree =
      TreeGenerator(source, 0x5EED2024u, ::geteuid() == 0).generate(450, 4300, 650);
  ASSERT_GE(tree.files + tree.folders + tree.links, 5000u);
  // The generator must have made each kind of case it is there for.
  EXPECT_GT(tree.emptyFolders.size(), 10u);
  EXPECT_GT(tree.readOnlyFiles, 100u);
  EXPECT_GT(tree.emptyFiles, 100u);
  EXPECT_GT(tree.absoluteLinks, 100u);
  if (::geteuid() == 0) {
    EXPECT_GT(tree.noBitFiles, 50u);
  }
  std::map<std::string, Record> const before = snapshot(source);

  std::vector<unsigned char> archive;
  {
    opcvk_test::ManagedPackage packing;
    packing.manager->addAll(disk::u16(source), TransformMode::NoTransforms);
    for (auto const& folder : tree.emptyFolders) packing.manager->createFolder(disk::u16(folder));
    archive = packing.save();
  }
  {
    opcvk_test::ManagedPackage reading(std::move(archive), opc::model::PackageAccess::Read);
    reading.manager->extractAll(disk::u16(destination), RestoreMode::RestoreTimeAndPermissions,
                                TransformMode::NoTransforms, ReplaceMode::ReplaceNever);
  }
  std::map<std::string, Record> const after = snapshot(destination);

  EXPECT_EQ(after.size(), before.size());
  std::size_t mismatches = 0;
  for (auto const& [path, record] : before) {
    auto const found = after.find(path);
    if (found == after.end()) {
      ADD_FAILURE() << "missing after the round trip: " << path;
    } else if (!(found->second == record)) {
      Record const& other = found->second;
      ADD_FAILURE() << "differs: " << path << " (" << kindName(record.kind) << " vs "
                    << kindName(other.kind) << ", " << record.bytes.size() << " vs "
                    << other.bytes.size() << " bytes, mode " << std::oct << record.mode << " vs "
                    << other.mode << std::dec << ", time " << record.micros << " vs "
                    << other.micros << ", target \"" << record.target << "\" vs \"" << other.target
                    << "\")";
    } else {
      continue;
    }
    if (++mismatches == 20) break;
  }
  for (auto const& [path, record] : after) {
    if (before.count(path) == 0) ADD_FAILURE() << "new after the round trip: " << path;
  }
}

}  // namespace
