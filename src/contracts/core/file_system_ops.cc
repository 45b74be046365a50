#include <opc/core/confined_destination.h>
#include <opc/core/exception.h>
#include <opc/core/file_system_ops.h>

#include "file_system_ops_utf8.h"
#include "path_confined_destination.h"

namespace opc {
namespace {

// One shape for every failure of an operation that cannot hand back an error code.
[[noreturn]] void raise(char const* operation, std::string const& subject, std::string const& text,
                        boost::system::error_code const& code) {
  std::string message = std::string("Could not ") + operation + ": " + subject + ": " +
                        (text.empty() ? code.message() : text);
  throw Exception(message, code);
}

void raiseIfFailed(char const* operation, std::u16string const& path, std::string const& text,
                   boost::system::error_code const& code) {
  if (code) raise(operation, detail::toMessageText(path), text, code);
}

}  // namespace

FileSystemOps::~FileSystemOps() = default;

std::u16string FileSystemOps::getTempName(std::u16string const& path) const {
  std::string text;
  boost::system::error_code code;
  std::u16string result = doGetTempName(path, text, code);
  raiseIfFailed("make a temporary name in", path, text, code);
  return result;
}

std::u16string FileSystemOps::getParentPath(std::u16string const& path) const {
  std::string text;
  boost::system::error_code code;
  std::u16string result = doGetParentPath(path, text, code);
  raiseIfFailed("get the parent path of", path, text, code);
  return result;
}

std::u16string FileSystemOps::getFilename(std::u16string const& path) const {
  std::string text;
  boost::system::error_code code;
  std::u16string result = doGetFilename(path, text, code);
  raiseIfFailed("get the file name of", path, text, code);
  return result;
}

std::u16string FileSystemOps::getExtension(std::u16string const& path) const {
  std::string text;
  boost::system::error_code code;
  std::u16string result = doGetExtension(path, text, code);
  raiseIfFailed("get the extension of", path, text, code);
  return result;
}

std::u16string FileSystemOps::appendPath(std::u16string const& base,
                                         std::u16string const& rest) const {
  std::string text;
  boost::system::error_code code;
  std::u16string result = doAppendPath(base, rest, text, code);
  if (code) {
    raise("append path", detail::toMessageText(rest) + " to " + detail::toMessageText(base), text,
          code);
  }
  return result;
}

std::u16string FileSystemOps::normalizePath(std::u16string const& path) const {
  std::string text;
  boost::system::error_code code;
  std::u16string result = doNormalizePath(path, text, code);
  raiseIfFailed("normalize", path, text, code);
  return result;
}

bool FileSystemOps::getLocalPath(std::u16string const& path, std::u16string& out) const {
  return doGetLocalPath(path, out);
}

bool FileSystemOps::isAbsolutePath(std::u16string const& path) const {
  return doIsAbsolutePath(path);
}

bool FileSystemOps::exists(std::u16string const& path, boost::system::error_code& code) const {
  std::string text;
  code.clear();
  bool result = doExists(path, text, code);
  return result && !code;
}

bool FileSystemOps::isFile(std::u16string const& path) const {
  std::string text;
  boost::system::error_code code;
  bool result = doIsFile(path, text, code);
  raiseIfFailed("test for a file", path, text, code);
  return result;
}

bool FileSystemOps::isFolder(std::u16string const& path) const {
  std::string text;
  boost::system::error_code code;
  bool result = doIsFolder(path, text, code);
  raiseIfFailed("test for a folder", path, text, code);
  return result;
}

bool FileSystemOps::isSymlink(std::u16string const& path) const {
  std::string text;
  boost::system::error_code code;
  bool result = doIsSymlink(path, text, code);
  raiseIfFailed("test for a symbolic link", path, text, code);
  return result;
}

Perms::Perms_tag FileSystemOps::getPermissions(std::u16string const& path,
                                               boost::system::error_code& code) const {
  std::string text;
  code.clear();
  Perms::Perms_tag result = doGetPermissions(path, text, code);
  return code ? Perms::unknown : result;
}

void FileSystemOps::setPermissions(std::u16string const& path, Perms::Perms_tag permissions,
                                   boost::system::error_code& code) const {
  std::string text;
  code.clear();
  doSetPermissions(path, permissions, text, code);
}

boost::posix_time::ptime FileSystemOps::getLastModifiedTime(std::u16string const& path,
                                                            boost::system::error_code& code) const {
  std::string text;
  code.clear();
  boost::posix_time::ptime result = doGetLastModifiedTime(path, text, code);
  return code ? boost::posix_time::ptime() : result;
}

void FileSystemOps::setLastModifiedTime(std::u16string const& path, boost::posix_time::ptime time,
                                        boost::system::error_code& code) const {
  std::string text;
  code.clear();
  doSetLastModifiedTime(path, time, text, code);
}

std::u16string FileSystemOps::getLinkTarget(std::u16string const& path) const {
  std::string text;
  boost::system::error_code code;
  std::u16string result = doGetLinkTarget(path, text, code);
  raiseIfFailed("get the link target of", path, text, code);
  return result;
}

void FileSystemOps::getFiles(std::u16string const& folder, std::vector<std::u16string>& out,
                             bool recursive, boost::system::error_code& code) const {
  // The slot fills a list of its own, so that a failure half-way leaves the caller's list as
  // it was, whatever the concrete class does.
  std::vector<std::u16string> found;
  std::string text;
  code.clear();
  doGetFiles(folder, found, recursive, text, code);
  if (!code) out.insert(out.end(), found.begin(), found.end());
}

std::shared_ptr<std::istream> FileSystemOps::createInputStream(
    std::u16string const& path, int mode, boost::system::error_code& code) const {
  std::string text;
  code.clear();
  std::shared_ptr<std::istream> result = doCreateInputStream(path, mode, text, code);
  if (code) return nullptr;
  return result;
}

std::shared_ptr<std::ostream> FileSystemOps::createOutputStream(
    std::u16string const& path, int mode, boost::system::error_code& code) const {
  std::string text;
  code.clear();
  std::shared_ptr<std::ostream> result = doCreateOutputStream(path, mode, text, code);
  if (code) return nullptr;
  return result;
}

void FileSystemOps::createFolder(std::u16string const& path,
                                 boost::system::error_code& code) const {
  std::string text;
  code.clear();
  doCreateFolder(path, text, code);
}

void FileSystemOps::createFolders(std::u16string const& path,
                                  boost::system::error_code& code) const {
  std::string text;
  code.clear();
  doCreateFolders(path, text, code);
}

void FileSystemOps::createSymlink(std::u16string const& target, std::u16string const& linkPath,
                                  boost::system::error_code& code) const {
  std::string text;
  code.clear();
  doCreateSymlink(target, linkPath, text, code);
}

void FileSystemOps::copy(std::u16string const& from, std::u16string const& to, ExistsMode mode,
                         boost::system::error_code& code) const {
  std::string text;
  code.clear();
  doCopy(from, to, mode, text, code);
}

void FileSystemOps::rename(std::u16string const& from, std::u16string const& to,
                           boost::system::error_code& code) const {
  std::string text;
  code.clear();
  doRename(from, to, text, code);
}

void FileSystemOps::remove(std::u16string const& path, boost::system::error_code& code) const {
  std::string text;
  code.clear();
  doRemove(path, text, code);
}

void FileSystemOps::removeAll(std::u16string const& path, boost::system::error_code& code) const {
  std::string text;
  code.clear();
  doRemoveAll(path, text, code);
}

std::unique_ptr<ConfinedDestination> FileSystemOps::openConfinedDestination(
    std::u16string const& root) const {
  return doOpenConfinedDestination(root);
}

std::unique_ptr<ConfinedDestination> FileSystemOps::doOpenConfinedDestination(
    std::u16string const& root) const {
  return std::make_unique<detail::PathConfinedDestination>(*this, root);
}

}  // namespace opc
