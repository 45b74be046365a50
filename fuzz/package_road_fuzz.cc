// The whole road that a package's bytes take through the tool: the package opened for Read,
// every part and every relationship read to its end (sizes and CRC-32s checked on the way),
// the file system loaded from its manifest, listed folder by folder, and extracted into a
// scratch folder with times and permissions restored.  Bad input may only be refused with an
// opc::Exception (the model's and the file system's families) or, for an entry of an
// older-form manifest with an empty name, std::out_of_range; anything else (a crash, a
// sanitizer report, another exception, a hang, runaway memory) is a finding, and so is:
//   - a listing that disagrees with itself (a child whose parent is not the folder listed, an
//     entry that is not found again by its path, leaves that the walk and getAllLeafs count
//     differently);
//   - anything written outside the destination: the destination lies eight folders deep in
//     the scratch folder, and each folder above it must hold nothing but the next one;
//   - an extraction that returns while a leaf of plain ASCII path is missing from the
//     destination, has another kind there, or (a file) other bytes than its content.
//
// Input: the bytes of a package.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <vector>

#include <opc/core/exception.h>
#include <opc/core/file_system_ops_selector.h>
#include <opc/model/package.h>
#include <opc/model/package_options.h>
#include <opc/model/part.h>
#include <opc/model/relationship.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "fuzz_support.h"

namespace {

namespace fs = std::filesystem;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opcvk_fuzz::check;
using opcvk_fuzz::fail;

// The folders between the scratch folder and the destination: an escape that climbs up to
// this many ".." lands in one of them, where checkNothingOutside sees it.  One that climbs
// further lands above the scratch folder and is not seen here.
constexpr char const* kLevels[] = {"1", "2", "3", "4", "5", "6", "7", "8"};

// A folder of its own for the run, removed when the process ends normally.
class ScratchFolder {
 public:
  ScratchFolder() {
    std::string pattern = (fs::temp_directory_path() / "opcvk-road-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) fail("a scratch folder can be made", pattern);
    root_ = pattern;
    fs::path levels = root_;
    for (char const* level : kLevels) levels /= level;
    fs::create_directories(levels);
  }
  ScratchFolder(ScratchFolder const&) = delete;
  ScratchFolder& operator=(ScratchFolder const&) = delete;
  ~ScratchFolder() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }

  fs::path const& root() const { return root_; }

 private:
  fs::path root_;
};

fs::path const& scratch() {
  static ScratchFolder const folder;
  return folder.root();
}

fs::path destination() {
  fs::path path = scratch();
  for (char const* level : kLevels) path /= level;
  return path / "dest";
}

// Each folder from the scratch folder down holds exactly the next one (the destination only
// once extraction has made it).
void checkNothingOutside() {
  fs::path folder = scratch();
  std::vector<std::string> expected(std::begin(kLevels), std::end(kLevels));
  expected.push_back("dest");
  for (std::size_t depth = 0; depth < expected.size(); ++depth) {
    for (auto const& item : fs::directory_iterator(folder)) {
      std::string const name = item.path().filename().string();
      check(name == expected[depth], "nothing is written outside the destination",
            "found \"" + opcvk_fuzz::printable(name) + "\" in " + folder.string());
    }
    folder /= expected[depth];
    if (depth + 1 < expected.size() && !fs::exists(folder)) break;
  }
}

void removeDestination() {
  std::error_code error;
  fs::remove_all(destination(), error);
  if (error) fail("the destination can be removed", error.message());
}

std::string readAll(opc::InputStream& stream) {
  std::string bytes;
  unsigned char buffer[4096];
  stream.open();
  while (!stream.isDone()) {
    std::size_t const n = stream.read(buffer, sizeof buffer);
    bytes.append(reinterpret_cast<char const*>(buffer), n);
  }
  stream.close();
  return bytes;
}

// Resolves the part that each internal relationship of `source` targets, as a reader that
// follows them does.
void followRelationships(opc::model::RelationshipSource const& source) {
  for (auto const& relationship : source.getRelationships()) {
    if (relationship.getTargetMode() == opc::model::TargetMode::Internal) {
      (void)relationship.getTargetPartName();
    }
  }
}

// What a reader of the package does before the file system: every part read to its end, and
// every relationship followed.
void readEveryPart(opc::model::Package& package) {
  followRelationships(package);
  for (auto part : package.getParts()) {
    (void)readAll(part.getInputStream());
    followRelationships(part);
  }
}

bool isPlainASCII(std::u16string const& path) {
  for (char16_t unit : path) {
    if (unit < 0x20 || unit >= 0x7F || unit == '\\') return false;
  }
  return true;
}

std::string narrow(std::u16string const& ascii) { return std::string(ascii.begin(), ascii.end()); }

// Walks the tree from `folder` down and returns how many leaves it met.
std::size_t walk(FileSystemManager& files, FileSystemEntry const& folder) {
  std::size_t leaves = 0;
  bool empty = true;
  for (auto const& child : files.getChildren(folder)) {
    empty = false;
    std::u16string const path = child.getPathName();
    check(files.getParent(child).getPathName() == folder.getPathName(),
          "a child's parent is the folder listed", narrow(path));
    check(files.getEntry(path) == child, "an entry is found again by its path", narrow(path));
    if (child.isFolder()) {
      leaves += walk(files, child);
    } else {
      if (child.isLink()) (void)files.getLinkTarget(child);
      ++leaves;
    }
  }
  // An empty folder is a leaf, the root excepted.
  if (empty && folder.getPathName() != FileSystemEntry::getRootName()) ++leaves;
  return leaves;
}

void checkExtracted(FileSystemManager& files, std::vector<FileSystemEntry> const& leaves) {
  for (auto const& leaf : leaves) {
    std::u16string const path = leaf.getPathName();
    if (!isPlainASCII(path)) continue;
    std::string const shown = narrow(path);
    std::string const onDisk = destination().string() + shown;
    struct stat status {};
    check(::lstat(onDisk.c_str(), &status) == 0, "every leaf is extracted", shown);
    if (leaf.isLink()) {
      check(S_ISLNK(status.st_mode), "a link is extracted as a link", shown);
    } else if (leaf.isFolder()) {
      check(S_ISDIR(status.st_mode), "an empty folder is extracted as a folder", shown);
    } else {
      check(S_ISREG(status.st_mode), "a file is extracted as a regular file", shown);
      std::ifstream in(onDisk, std::ios::binary);
      if (!in) continue;  // restored permissions may forbid reading it back
      std::string const written((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
      auto source =
          files.getFileContentSource(leaf, opc::vkservices::TransformMode::ApplyTransforms);
      check(written == readAll(source->getInputStream()), "a file is extracted with its content",
            shown);
    }
  }
}

void travel(std::vector<unsigned char> bytes) {
  // Small limits, so that a size or count the engine invents cannot make one run slow.
  opc::model::PackageOptions options;
  options.limits.maxPartCount = 1000;
  options.limits.maxPartSize = 1 << 20;
  options.limits.maxStructurePartSize = 1 << 20;
  options.limits.ratioExemptSize = 64 * 1024;
  auto package =
      opc::model::Package::openBuffer(std::move(bytes), opc::model::PackageAccess::Read, options);
  readEveryPart(*package);

  FileSystemManager files(*package, opc::FileSystemOpsSelector());
  (void)files.getVersion();  // loads the manifest
  std::size_t const walked = walk(files, files.getRoot());
  std::vector<FileSystemEntry> leaves;
  for (auto const& leaf : files.getAllLeafs()) leaves.push_back(leaf);
  check(walked == leaves.size(), "the walk meets every leaf that getAllLeafs gives",
        std::to_string(walked) + " walked, " + std::to_string(leaves.size()) + " leaves");

  std::u16string target;
  for (char c : destination().string())
    target += static_cast<char16_t>(static_cast<unsigned char>(c));
  try {
    files.extractAll(target, opc::vkservices::RestoreMode::RestoreTimeAndPermissions,
                     opc::vkservices::TransformMode::ApplyTransforms,
                     opc::vkservices::ReplaceMode::ReplaceNever);
  } catch (opc::Exception const&) {
    checkNothingOutside();
    return;
  }
  checkNothingOutside();
  checkExtracted(files, leaves);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  (void)scratch();
  try {
    travel(std::vector<unsigned char>(data, data + size));
  } catch (opc::Exception const&) {
    // The documented refusal of bad input.
  } catch (std::out_of_range const&) {
    // Documented as well: an entry of an older-form manifest whose name is empty.
  } catch (std::exception const& e) {
    fail("only the project's exceptions are thrown",
         std::string(typeid(e).name()) + ": " + e.what());
  } catch (...) {
    fail("only the project's exceptions are thrown", "something that is no std::exception");
  }
  checkNothingOutside();
  removeDestination();
  return 0;
}
