// encrypted_fs_peer: an encrypted package file system made and read through
// FileSystemManager, so that an independent implementation of the format can check it.
//
//   encrypted_fs_peer make KEY PACKAGE   creates PACKAGE holding files of several kinds and
//                                        sizes (empty, small, and one past the size that is
//                                        decrypted whole), names with blanks and non-ASCII
//                                        letters, a link and an empty folder, encrypted under
//                                        KEY (64 hexadecimal digits) with random IVs, or plain
//                                        if KEY is "-"; saves it and prints what it made
//   encrypted_fs_peer list KEY PACKAGE   opens PACKAGE for Read with KEY and prints its file
//                                        system, every file decrypted through the manager
//
// Both print {"files": [{"path", "size", "sha256", "contentType"}], "folders": [path],
// "links": [{"path", "target"}]}, sorted by path; "contentType" is the plain type.  Exit code
// 0 on success, 1 with the message on standard error.
#include <algorithm>
#include <cstdint>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <opc/core/file_system_ops_selector.h>
#include <opc/core/input_stream.h>
#include <opc/core/string_conversions.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "sha256.h"

namespace {

using nlohmann::json;
using opc::model::ContentType;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::bytes;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::TransformMode;

std::string utf8(std::u16string const& text) { return opc::detail::toUTF8String(text); }
std::u16string utf16(std::string const& text) { return opc::detail::toStringFromUTF8String(text); }

bytes keyFromHex(std::string const& hex) {
  if (hex.size() != 64) throw std::runtime_error("the key must be 64 hexadecimal digits");
  bytes key;
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    key.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return key;
}

std::string content(int index, std::size_t size) {
  std::uint64_t state = 0x9E3779B97F4A7C15ull * static_cast<std::uint64_t>(index + 1);
  std::string out;
  out.reserve(size);
  while (out.size() < size) {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    out.push_back(static_cast<char>(state & 0xFF));
  }
  return out;
}

std::string digest(std::string const& data) {
  opcvk_interop::Sha256 sha;
  sha.update(reinterpret_cast<unsigned char const*>(data.data()), data.size());
  return sha.hexDigest();
}

json fileJson(std::u16string const& path, std::string const& data, ContentType const& type) {
  return json{{"path", utf8(path)},
              {"size", data.size()},
              {"sha256", digest(data)},
              {"contentType", opc::toASCIIString(type.toString())}};
}

void print(json files, json folders, json links) {
  auto const byPath = [](json const& a, json const& b) {
    auto const key = [](json const& item) {
      return item.is_string() ? item.get<std::string>() : item["path"].get<std::string>();
    };
    return key(a) < key(b);
  };
  std::sort(files.begin(), files.end(), byPath);
  std::sort(folders.begin(), folders.end(), byPath);
  std::sort(links.begin(), links.end(), byPath);
  std::cout << json{{"files", files}, {"folders", folders}, {"links", links}}.dump(1) << "\n";
}

struct FilePlan {
  char const* path;
  char const* type;
  std::size_t size;
};

int make(std::string const& keyHex, std::string const& packagePath) {
  auto package = Package::open(utf16(packagePath), PackageAccess::Create);
  FileSystemManager manager(*package, opc::FileSystemOpsSelector());
  if (keyHex != "-") {
    manager.enableEncryption(keyFromHex(keyHex), opc::vkservices::IVMode::RandomIV, bytes());
  }
  FilePlan const kFiles[] = {
      {"/empty.bin", "application/octet-stream", 0},
      {"/a b/c+d@e.json", "application/json", 17},
      {"/données/été/résumé.txt", "text/plain;charset=utf-8", 1000},
      {"/docs/2024/notes.xml", "application/xml", 65536 + 3},
      {"/docs/readme", "application/vnd.veltrance.orvane.filesystemDefault", 15},
      {"/media/big.raw", "application/octet-stream", 5 * 1024 * 1024 + 11},
      {"/x.y/tilde~and_under-score.txt", "text/plain", 16},
  };
  json files = json::array();
  int index = 0;
  for (FilePlan const& plan : kFiles) {
    std::string const data = content(index++, plan.size);
    std::istringstream stream(data);
    ContentType const type(utf16(plan.type));
    auto source = std::make_unique<opc::vkservices::StreamContentSource>(stream, type);
    manager.addFile(std::move(source), utf16(plan.path), static_cast<opc::Perms::Perms_tag>(0644),
                    boost::posix_time::ptime(boost::posix_time::not_a_date_time));
    files.push_back(fileJson(utf16(plan.path), data, type));
  }
  manager.createLink(u"/links/to-notes", u"../docs/2024/notes.xml");
  manager.createFolder(u"/empty/folder");
  package->save();
  print(files, json::array({"/empty/folder"}),
        json::array({json{{"path", "/links/to-notes"}, {"target", "../docs/2024/notes.xml"}}}));
  return 0;
}

std::string readAll(opc::InputStream& input) {
  std::string out;
  std::vector<unsigned char> buffer(64 * 1024);
  input.open();
  while (!input.isDone()) {
    std::size_t const got = input.read(buffer.data(), buffer.size());
    out.append(reinterpret_cast<char const*>(buffer.data()), got);
  }
  input.close();
  return out;
}

int list(std::string const& keyHex, std::string const& packagePath) {
  auto package = Package::open(utf16(packagePath), PackageAccess::Read);
  FileSystemManager manager(*package, opc::FileSystemOpsSelector());
  manager.enableDecryption(keyFromHex(keyHex));
  json files = json::array();
  json folders = json::array();
  json links = json::array();
  for (FileSystemEntry const& entry : manager.getAllLeafs()) {
    if (entry.isLink()) {
      links.push_back(json{{"path", utf8(entry.getPathName())},
                           {"target", utf8(manager.getLinkTarget(entry))}});
    } else if (entry.isFolder()) {
      folders.push_back(utf8(entry.getPathName()));
    } else {
      auto source = manager.getFileContentSource(entry, TransformMode::ApplyTransforms);
      std::string const data = readAll(source->getInputStream());
      files.push_back(fileJson(entry.getPathName(), data, source->getContentType()));
    }
  }
  print(files, folders, links);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::vector<std::string> const args(argv + 1, argv + argc);
    if (args.size() == 3 && args[0] == "make") return make(args[1], args[2]);
    if (args.size() == 3 && args[0] == "list") return list(args[1], args[2]);
    std::cerr << "usage: encrypted_fs_peer make|list KEY PACKAGE\n";
    return 2;
  } catch (std::exception const& e) {
    std::cerr << e.what() << "\n";
    return 1;
  }
}
