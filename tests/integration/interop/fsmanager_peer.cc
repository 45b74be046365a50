// fsmanager_peer: a package file system made and read through FileSystemManager, so that an
// independent OPC implementation can check the package that the manager writes.
//
//   fsmanager_peer make PACKAGE   creates PACKAGE holding a file system of about 200 files of
//                                 several kinds in nested folders, a few links and an empty
//                                 folder, saves it, and prints what it made
//   fsmanager_peer list PACKAGE   opens PACKAGE for Read and prints its file system, with the
//                                 bytes of every file read back through the manager
//
// Both print {"files": [{"path", "size", "sha256", "contentType"}], "folders": [path],
// "links": [{"path", "target"}]}, sorted by path.  For make, "contentType" is what the content
// type catalogue gives for the file's extension (the type the file was created with); for
// list, it is the type the content source reports.  Part names are the manager's own
// business and are not printed.  Exit code 0 on success, 1 with the message on standard error.
#include <algorithm>
#include <cstdint>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <opc/core/file_system_ops_selector.h>
#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/core/perms.h>
#include <opc/core/string_conversions.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/vkservices/content_types.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "sha256.h"

namespace {

using nlohmann::json;
using opc::model::ContentType;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::TransformMode;

std::string utf8(std::u16string const& text) { return opc::detail::toUTF8String(text); }
std::u16string utf16(std::string const& text) { return opc::detail::toStringFromUTF8String(text); }

// The extensions of the files, with the kind of content each gets.  "" is a file without an
// extension; "bin" and "TXT" are not in the catalogue (keys are matched case and all), so
// they take the default type.
struct Kind {
  char const* extension;
  char const* opening;
};

Kind const kKinds[] = {
    {"txt", "plain text "},
    {"xml", "<?xml version=\"1.0\" encoding=\"UTF-8\"?><doc n=\""},
    {"png", "\x89PNG\r\n\x1a\n"},
    {"json", "{\"value\": \""},
    {"", "#!/bin/sh\n"},
    {"bin", ""},
    {"TXT", "upper-case extension "},
};

ContentType defaultType() { return ContentType(u"application/octet-stream"); }

// Deterministic bytes so that a failure can be reproduced: xorshift over the file's number.
std::string content(int index, Kind const& kind) {
  std::uint64_t state = 0x9E3779B97F4A7C15ull * static_cast<std::uint64_t>(index + 1);
  std::size_t const size = static_cast<std::size_t>(index % 13 == 0 ? 0 : 37 * index % 5000);
  std::string bytes;
  if (size == 0) return bytes;
  bytes = kind.opening + std::to_string(index);
  while (bytes.size() < size) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    bytes.push_back(static_cast<char>(state & 0xFF));
  }
  return bytes;
}

std::string digest(std::string const& bytes) {
  opcvk_interop::Sha256 sha;
  sha.update(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
  return sha.hexDigest();
}

json fileJson(std::u16string const& path, std::string const& bytes, ContentType const& type) {
  return json{{"path", utf8(path)},
              {"size", bytes.size()},
              {"sha256", digest(bytes)},
              {"contentType", opc::toASCIIString(type.toString())}};
}

void sortByPath(json& list) {
  std::sort(list.begin(), list.end(), [](json const& a, json const& b) {
    auto const key = [](json const& item) {
      return item.is_string() ? item.get<std::string>() : item["path"].get<std::string>();
    };
    return key(a) < key(b);
  });
}

void print(json files, json folders, json links) {
  sortByPath(files);
  sortByPath(folders);
  sortByPath(links);
  std::cout << json{{"files", files}, {"folders", folders}, {"links", links}}.dump(1) << "\n";
}

// The folder of the file numbered `index`: up to four levels, names with a blank, a
// non-ASCII letter and a dot, so that part naming has something to do.
std::u16string folderOf(int index) {
  static char const* const kFolders[] = {
      "",
      "/docs",
      "/docs/2024",
      "/docs/2024/notes",
      "/media",
      "/media/images",
      "/a b/c d",
      "/données/été",
      "/deep/x/y/z",
      "/version.1/v.2",
      "/docs/2024/old",
      "/média",
  };
  return utf16(kFolders[index % (sizeof(kFolders) / sizeof(kFolders[0]))]);
}

int make(std::string const& packagePath) {
  auto package = Package::open(utf16(packagePath), PackageAccess::Create);
  FileSystemManager manager(*package, opc::FileSystemOpsSelector());
  json files = json::array();
  json folders = json::array();
  json links = json::array();

  int const kFileCount = 203;
  int const kKindCount = static_cast<int>(sizeof(kKinds) / sizeof(kKinds[0]));
  for (int index = 0; index < kFileCount; ++index) {
    Kind const& kind = kKinds[index % kKindCount];
    std::u16string const extension = utf16(kind.extension);
    std::u16string path = folderOf(index) + u"/file " + utf16(std::to_string(index));
    if (index % 17 == 5) path = folderOf(index) + u"/résumé " + utf16(std::to_string(index));
    if (!extension.empty()) path += u"." + extension;
    // Two files share their bytes, so that the comparison counts parts and does not merely
    // collect digests.
    std::string const bytes = content(index == 150 ? 3 : index, kind);
    ContentType const type = opc::vkservices::lookupContentType(extension, defaultType());
    FileSystemEntry const entry =
        manager.createFile(path, type, static_cast<opc::Perms::Perms_tag>(0644),
                           boost::posix_time::ptime(boost::posix_time::not_a_date_time));
    opc::OutputStream& output = manager.getFileOutputStream(entry);
    output.write(reinterpret_cast<unsigned char const*>(bytes.data()), bytes.size());
    output.close();
    files.push_back(fileJson(entry.getPathName(), bytes, type));
  }
  struct LinkPlan {
    char16_t const* path;
    char16_t const* target;
  };
  LinkPlan const kLinks[] = {
      {u"/links/to-readme", u"../docs/file 1"},
      {u"/links/absolute", u"/media/images/file 5.xml"},
      {u"/docs/latest", u"2024/notes"},
      {u"/links/dangling", u"no/such/entry.txt"},
  };
  for (auto const& link : kLinks) {
    manager.createLink(link.path, link.target);
    links.push_back(json{{"path", utf8(link.path)}, {"target", utf8(link.target)}});
  }
  manager.createFolder(u"/empty/folder");

  for (auto const& leaf : manager.getAllLeafs()) {
    if (leaf.isFolder()) folders.push_back(utf8(leaf.getPathName()));
  }
  package->save();
  print(files, folders, links);
  return 0;
}

// Every entry below `folder`, depth first.
void collect(FileSystemManager& manager, FileSystemEntry const& folder, json& files, json& folders,
             json& links) {
  for (auto const& entry : manager.getChildren(folder)) {
    std::u16string const path = entry.getPathName();
    if (entry.isLink()) {
      links.push_back(json{{"path", utf8(path)}, {"target", utf8(manager.getLinkTarget(entry))}});
    } else if (entry.isFile()) {
      auto source = manager.getFileContentSource(entry, TransformMode::NoTransforms);
      opc::InputStream& input = source->getInputStream();
      input.open();
      std::string bytes;
      std::vector<unsigned char> buffer(64 * 1024);
      while (!input.isDone()) {
        std::size_t const got = input.read(buffer.data(), buffer.size());
        bytes.append(reinterpret_cast<char const*>(buffer.data()), got);
      }
      input.close();
      files.push_back(fileJson(path, bytes, source->getContentType()));
    } else {
      // Only empty folders are listed, as make lists them: the others are implied by paths.
      if (!manager.hasChildren(entry)) folders.push_back(utf8(path));
      collect(manager, entry, files, folders, links);
    }
  }
}

int list(std::string const& packagePath) {
  auto package = Package::open(utf16(packagePath), PackageAccess::Read);
  FileSystemManager manager(*package, opc::FileSystemOpsSelector());
  json files = json::array();
  json folders = json::array();
  json links = json::array();
  collect(manager, manager.getRoot(), files, folders, links);
  print(files, folders, links);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> const args(argv + 1, argv + argc);
  try {
    if (args.size() == 2 && args[0] == "make") return make(args[1]);
    if (args.size() == 2 && args[0] == "list") return list(args[1]);
  } catch (std::exception const& e) {
    std::cerr << "fsmanager_peer: " << e.what() << "\n";
    return 1;
  }
  std::cerr << "usage: fsmanager_peer make PACKAGE | list PACKAGE\n";
  return 2;
}
