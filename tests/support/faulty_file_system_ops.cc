#include "support/faulty_file_system_ops.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace opcvk_test {
namespace {

using boost::posix_time::ptime;
using boost::system::error_code;

char const* const kSlots[] = {
    "doGetTempName",
    "doGetParentPath",
    "doGetFilename",
    "doGetExtension",
    "doAppendPath",
    "doNormalizePath",
    "doGetLocalPath",
    "doExists",
    "doIsFile",
    "doIsFolder",
    "doIsSymlink",
    "doGetPermissions",
    "doSetPermissions",
    "doGetLastModifiedTime",
    "doSetLastModifiedTime",
    "doGetLinkTarget",
    "doGetFiles",
    "doCreateInputStream",
    "doCreateOutputStream",
    "doCreateFolder",
    "doCreateFolders",
    "doCreateSymlink",
    "doCopy",
    "doRename",
    "doRemove",
    "doRemoveAll",
};

// The slots of another FileSystemOps are protected.  A pointer to member formed through a
// class derived from FileSystemOps that does not override them names the base's virtual
// slot, and calling through it dispatches to the wrapped object's own override.
class Slots : public opc::FileSystemOps {
 public:
  using FileSystemOps::FileSystemOps;
  static constexpr auto getTempName = &Slots::doGetTempName;
  static constexpr auto getParentPath = &Slots::doGetParentPath;
  static constexpr auto getFilename = &Slots::doGetFilename;
  static constexpr auto getExtension = &Slots::doGetExtension;
  static constexpr auto appendPath = &Slots::doAppendPath;
  static constexpr auto normalizePath = &Slots::doNormalizePath;
  static constexpr auto getLocalPath = &Slots::doGetLocalPath;
  static constexpr auto isAbsolutePath = &Slots::doIsAbsolutePath;
  static constexpr auto exists = &Slots::doExists;
  static constexpr auto isFile = &Slots::doIsFile;
  static constexpr auto isFolder = &Slots::doIsFolder;
  static constexpr auto isSymlink = &Slots::doIsSymlink;
  static constexpr auto getPermissions = &Slots::doGetPermissions;
  static constexpr auto setPermissions = &Slots::doSetPermissions;
  static constexpr auto getLastModifiedTime = &Slots::doGetLastModifiedTime;
  static constexpr auto setLastModifiedTime = &Slots::doSetLastModifiedTime;
  static constexpr auto getLinkTarget = &Slots::doGetLinkTarget;
  static constexpr auto getFiles = &Slots::doGetFiles;
  static constexpr auto createInputStream = &Slots::doCreateInputStream;
  static constexpr auto createOutputStream = &Slots::doCreateOutputStream;
  static constexpr auto createFolder = &Slots::doCreateFolder;
  static constexpr auto createFolders = &Slots::doCreateFolders;
  static constexpr auto createSymlink = &Slots::doCreateSymlink;
  static constexpr auto copy = &Slots::doCopy;
  static constexpr auto rename = &Slots::doRename;
  static constexpr auto remove = &Slots::doRemove;
  static constexpr auto removeAll = &Slots::doRemoveAll;
};

}  // namespace

FaultyFileSystemOps::FaultyFileSystemOps(std::shared_ptr<opc::FileSystemOps> inner)
    : inner_(std::move(inner)) {
  if (!inner_) throw std::invalid_argument("FaultyFileSystemOps needs a file system to wrap");
}

FaultyFileSystemOps::~FaultyFileSystemOps() = default;

void FaultyFileSystemOps::failOn(std::string const& slot, error_code code, int nthCall) {
  if (std::find(std::begin(kSlots), std::end(kSlots), slot) == std::end(kSlots)) {
    throw std::invalid_argument("no slot that can fail is named " + slot);
  }
  if (!code) throw std::invalid_argument("an injected failure needs an error code");
  std::lock_guard<std::mutex> lock(mutex_);
  faults_[slot] = Fault{code, nthCall, 0};
}

void FaultyFileSystemOps::clearFaults() {
  std::lock_guard<std::mutex> lock(mutex_);
  faults_.clear();
}

int FaultyFileSystemOps::callCount(std::string const& slot) const {
  std::lock_guard<std::mutex> lock(mutex_);
  auto it = calls_.find(slot);
  return it == calls_.end() ? 0 : it->second;
}

bool FaultyFileSystemOps::injected(char const* slot, std::string& text, error_code& code) const {
  std::lock_guard<std::mutex> lock(mutex_);
  ++calls_[slot];
  auto it = faults_.find(slot);
  if (it == faults_.end()) return false;
  Fault& fault = it->second;
  ++fault.callsSinceSet;
  if (fault.nthCall != 0 && fault.callsSinceSet != fault.nthCall) return false;
  text = "injected failure";
  code = fault.code;
  return true;
}

#define OPCVK_FORWARD(name, slot, onFailure, ...)    \
  if (injected(#slot, text, code)) return onFailure; \
  return ((*inner_).*Slots::name)(__VA_ARGS__)

std::u16string FaultyFileSystemOps::doGetTempName(std::u16string const& path, std::string& text,
                                                  error_code& code) const {
  OPCVK_FORWARD(getTempName, doGetTempName, u"", path, text, code);
}

std::u16string FaultyFileSystemOps::doGetParentPath(std::u16string const& path, std::string& text,
                                                    error_code& code) const {
  OPCVK_FORWARD(getParentPath, doGetParentPath, u"", path, text, code);
}

std::u16string FaultyFileSystemOps::doGetFilename(std::u16string const& path, std::string& text,
                                                  error_code& code) const {
  OPCVK_FORWARD(getFilename, doGetFilename, u"", path, text, code);
}

std::u16string FaultyFileSystemOps::doGetExtension(std::u16string const& path, std::string& text,
                                                   error_code& code) const {
  OPCVK_FORWARD(getExtension, doGetExtension, u"", path, text, code);
}

std::u16string FaultyFileSystemOps::doAppendPath(std::u16string const& base,
                                                 std::u16string const& rest, std::string& text,
                                                 error_code& code) const {
  OPCVK_FORWARD(appendPath, doAppendPath, u"", base, rest, text, code);
}

std::u16string FaultyFileSystemOps::doNormalizePath(std::u16string const& path, std::string& text,
                                                    error_code& code) const {
  OPCVK_FORWARD(normalizePath, doNormalizePath, u"", path, text, code);
}

bool FaultyFileSystemOps::doGetLocalPath(std::u16string const& path, std::u16string& out) const {
  std::string text;
  error_code code;
  OPCVK_FORWARD(getLocalPath, doGetLocalPath, false, path, out);
}

bool FaultyFileSystemOps::doIsAbsolutePath(std::u16string const& path) const {
  std::lock_guard<std::mutex> lock(mutex_);
  ++calls_["doIsAbsolutePath"];
  return ((*inner_).*Slots::isAbsolutePath)(path);
}

bool FaultyFileSystemOps::doExists(std::u16string const& path, std::string& text,
                                   error_code& code) const {
  OPCVK_FORWARD(exists, doExists, false, path, text, code);
}

bool FaultyFileSystemOps::doIsFile(std::u16string const& path, std::string& text,
                                   error_code& code) const {
  OPCVK_FORWARD(isFile, doIsFile, false, path, text, code);
}

bool FaultyFileSystemOps::doIsFolder(std::u16string const& path, std::string& text,
                                     error_code& code) const {
  OPCVK_FORWARD(isFolder, doIsFolder, false, path, text, code);
}

bool FaultyFileSystemOps::doIsSymlink(std::u16string const& path, std::string& text,
                                      error_code& code) const {
  OPCVK_FORWARD(isSymlink, doIsSymlink, false, path, text, code);
}

opc::Perms::Perms_tag FaultyFileSystemOps::doGetPermissions(std::u16string const& path,
                                                            std::string& text,
                                                            error_code& code) const {
  OPCVK_FORWARD(getPermissions, doGetPermissions, opc::Perms::unknown, path, text, code);
}

void FaultyFileSystemOps::doSetPermissions(std::u16string const& path,
                                           opc::Perms::Perms_tag permissions, std::string& text,
                                           error_code& code) const {
  OPCVK_FORWARD(setPermissions, doSetPermissions, , path, permissions, text, code);
}

ptime FaultyFileSystemOps::doGetLastModifiedTime(std::u16string const& path, std::string& text,
                                                 error_code& code) const {
  OPCVK_FORWARD(getLastModifiedTime, doGetLastModifiedTime, ptime(), path, text, code);
}

void FaultyFileSystemOps::doSetLastModifiedTime(std::u16string const& path, ptime time,
                                                std::string& text, error_code& code) const {
  OPCVK_FORWARD(setLastModifiedTime, doSetLastModifiedTime, , path, time, text, code);
}

std::u16string FaultyFileSystemOps::doGetLinkTarget(std::u16string const& path, std::string& text,
                                                    error_code& code) const {
  OPCVK_FORWARD(getLinkTarget, doGetLinkTarget, u"", path, text, code);
}

void FaultyFileSystemOps::doGetFiles(std::u16string const& folder, std::vector<std::u16string>& out,
                                     bool recursive, std::string& text, error_code& code) const {
  OPCVK_FORWARD(getFiles, doGetFiles, , folder, out, recursive, text, code);
}

std::shared_ptr<std::istream> FaultyFileSystemOps::doCreateInputStream(std::u16string const& path,
                                                                       int mode, std::string& text,
                                                                       error_code& code) const {
  OPCVK_FORWARD(createInputStream, doCreateInputStream, nullptr, path, mode, text, code);
}

std::shared_ptr<std::ostream> FaultyFileSystemOps::doCreateOutputStream(std::u16string const& path,
                                                                        int mode, std::string& text,
                                                                        error_code& code) const {
  OPCVK_FORWARD(createOutputStream, doCreateOutputStream, nullptr, path, mode, text, code);
}

void FaultyFileSystemOps::doCreateFolder(std::u16string const& path, std::string& text,
                                         error_code& code) const {
  OPCVK_FORWARD(createFolder, doCreateFolder, , path, text, code);
}

void FaultyFileSystemOps::doCreateFolders(std::u16string const& path, std::string& text,
                                          error_code& code) const {
  OPCVK_FORWARD(createFolders, doCreateFolders, , path, text, code);
}

void FaultyFileSystemOps::doCreateSymlink(std::u16string const& target,
                                          std::u16string const& linkPath, std::string& text,
                                          error_code& code) const {
  OPCVK_FORWARD(createSymlink, doCreateSymlink, , target, linkPath, text, code);
}

void FaultyFileSystemOps::doCopy(std::u16string const& from, std::u16string const& to,
                                 opc::ExistsMode mode, std::string& text, error_code& code) const {
  OPCVK_FORWARD(copy, doCopy, , from, to, mode, text, code);
}

void FaultyFileSystemOps::doRename(std::u16string const& from, std::u16string const& to,
                                   std::string& text, error_code& code) const {
  OPCVK_FORWARD(rename, doRename, , from, to, text, code);
}

void FaultyFileSystemOps::doRemove(std::u16string const& path, std::string& text,
                                   error_code& code) const {
  OPCVK_FORWARD(remove, doRemove, , path, text, code);
}

void FaultyFileSystemOps::doRemoveAll(std::u16string const& path, std::string& text,
                                      error_code& code) const {
  OPCVK_FORWARD(removeAll, doRemoveAll, , path, text, code);
}

#undef OPCVK_FORWARD

}  // namespace opcvk_test
