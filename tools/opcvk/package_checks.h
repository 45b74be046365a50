// The checks of `opcvk test`: each looks at one aspect of an opened package and tells what it
// finds in a CheckReport.  A new check is a function added to the list of packageChecks(); the
// command runs them in order.
//
// An encrypted package is checked with its key, handed to CheckTarget::files by the command
// before the checks run: then the manifest is checked as a plain one, and every file is read
// through its decryption so that each GCM tag is verified.  Without the key, the manifest is
// reported as not checked, and so are the files it names.
#ifndef TOOLS_OPCVK_PACKAGE_CHECKS_H_
#define TOOLS_OPCVK_PACKAGE_CHECKS_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <opc/model/package.h>
#include <opc/vkservices/file_system_manager.h>

namespace opcvk {

// One thing found: what it is about ("part", "file", "manifest", "relationships",
// "package"), its name (a part name or a package path, in UTF-8; empty for the manifest), and
// what is wrong, or why it could not be checked.
struct Finding {
  std::string kind;
  std::string name;
  std::string text;
};

// What the checks found and how much they looked at.
class CheckReport {
 public:
  void problem(std::string kind, std::string name, std::string text);
  // Something a check could not look at (an encrypted manifest without a key): the package is
  // then not known to be well, and the test does not pass.
  void unchecked(std::string kind, std::string name, std::string text);

  std::vector<Finding> const& problems() const { return problems_; }
  std::vector<Finding> const& uncheckedItems() const { return unchecked_; }
  bool allWell() const { return problems_.empty() && unchecked_.empty(); }

  // Counts of what was looked at, for the summary.
  std::uint64_t parts = 0;
  std::uint64_t partBytes = 0;
  std::uint64_t files = 0;
  std::uint64_t folders = 0;
  std::uint64_t links = 0;

 private:
  std::vector<Finding> problems_;
  std::vector<Finding> unchecked_;
};

// What a check looks at.  The package is open for Read; the manager is over it.
struct CheckTarget {
  opc::model::Package& package;
  opc::vkservices::FileSystemManager& files;
  // Called with the bytes of each part as it is read, for a progress line.
  std::function<void(std::uint64_t)> partRead;
};

using PackageCheck = std::function<void(CheckTarget&, CheckReport&)>;

// Every part read to its end, so that the archive's sizes and CRC-32s are checked against the
// data, and the relationships of the package and of every part read.
void checkParts(CheckTarget& target, CheckReport& report);
// The file system's manifest against the parts: every file's part exists, and no part under
// "/fsroot" is left without a file.  An encrypted manifest without its key is reported as not
// checked.
void checkManifest(CheckTarget& target, CheckReport& report);

// Every file of an encrypted file system read through its decryption to its end, so that its
// GCM tag is verified: one problem per file that does not decrypt, named by its path.
// Nothing for a plain file system, whose parts checkParts has read, nor without the key.
void checkFileContents(CheckTarget& target, CheckReport& report);

// The checks of `opcvk test`, in the order they run.
std::vector<PackageCheck> packageChecks();

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PACKAGE_CHECKS_H_
