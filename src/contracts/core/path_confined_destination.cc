#include "path_confined_destination.h"

#include <cerrno>
#include <utility>

#include <opc/core/exception.h>

#include "confined_path.h"
#include "local_file_system_ops_internal.h"

namespace opc {
namespace detail {
namespace {

using boost::system::error_code;

// Write and binary.
constexpr int kOutputMode = FileSystemOps::kModeOut | FileSystemOps::kModeBinary;

// Whether `code` means that something is already there, asked in both directions of
// equivalence so that a code of any category that knows the condition is recognised.
bool isFileExists(error_code const& code) {
  boost::system::error_condition const condition =
      boost::system::errc::make_error_condition(boost::system::errc::file_exists);
  return code.category().equivalent(code.value(), condition) ||
         condition.category().equivalent(code, condition.value());
}

void fail(ConfinedResult& result, error_code const& code) {
  result.status = ConfinedResult::Status::Failed;
  result.code = code;
}

void linkAt(ConfinedResult& result, std::size_t depth) {
  result.status = ConfinedResult::Status::SymbolicLink;
  result.depth = depth;
}

// A file opened by path.  Its name is looked at again before its time and permissions are
// set, since by path they would reach through a link that took the file's place.
class PathConfinedFile : public ConfinedFile {
 public:
  // `target` is empty for a file written in place, else the path that `commit` renames the
  // temporary file `path` to.
  PathConfinedFile(FileSystemOps const& fileSystem, std::u16string path, std::size_t depth,
                   std::shared_ptr<std::ostream> stream, std::u16string target)
      : fileSystem_(fileSystem),
        path_(std::move(path)),
        depth_(depth),
        stream_(std::move(stream)),
        target_(std::move(target)) {}

  ~PathConfinedFile() override {
    stream_.reset();
    if (!target_.empty() && !committed_) {
      error_code ignored;
      fileSystem_.remove(path_, ignored);
    }
  }

  std::ostream& stream() override { return *stream_; }

  void finishContent(ConfinedResult& result) override {
    result = ConfinedResult();
    // The file is closed first: closing later would change its time again.
    stream_.reset();
    bool link = false;
    try {
      link = fileSystem_.isSymlink(path_);
    } catch (Exception const&) {
      // Cannot be examined, so nothing can be set through it either: the next step says why.
    }
    if (link) linkAt(result, depth_);
  }

  void setLastModifiedTime(boost::posix_time::ptime time, error_code& code) override {
    stream_.reset();
    fileSystem_.setLastModifiedTime(path_, time, code);
  }

  void setPermissions(Perms::Perms_tag permissions, error_code& code) override {
    stream_.reset();
    fileSystem_.setPermissions(path_, permissions, code);
  }

  void commit(error_code& code) override {
    code.clear();
    if (stream_) {
      stream_->flush();
      if (!stream_->good()) code = systemError(EIO);
      stream_.reset();
    }
    if (code || target_.empty()) {
      committed_ = target_.empty();
      return;
    }
    fileSystem_.rename(path_, target_, code);
    committed_ = !code;
  }

 private:
  FileSystemOps const& fileSystem_;
  std::u16string path_;
  std::size_t depth_;
  std::shared_ptr<std::ostream> stream_;
  std::u16string target_;
  bool committed_ = false;
};

}  // namespace

PathConfinedDestination::PathConfinedDestination(FileSystemOps const& fileSystem,
                                                 std::u16string root)
    : fileSystem_(fileSystem), root_(std::move(root)) {}

PathConfinedDestination::~PathConfinedDestination() = default;

bool PathConfinedDestination::isUnchanged() const { return false; }

bool PathConfinedDestination::realPath(std::u16string const& path, std::u16string& out,
                                       error_code& code) {
  if (!splitConfinedPath(path, components_)) {
    code = systemError(EINVAL);
    return false;
  }
  out = fileSystem_.appendPath(root_, path);
  return true;
}

bool PathConfinedDestination::isLink(std::u16string const& path) const {
  try {
    return fileSystem_.isSymlink(path);
  } catch (Exception const&) {
    // Cannot be examined, so cannot be opened either: the operation that follows says why.
    return false;
  }
}

void PathConfinedDestination::makeParents(std::u16string const& path, ConfinedResult& result) {
  result = ConfinedResult();
  std::u16string fullPath;
  if (!realPath(path, fullPath, result.code)) return fail(result, result.code);
  std::u16string const parent = fileSystem_.getParentPath(fullPath);
  // Making the parents would follow links on the way: they are looked at first.  A folder,
  // the usual answer, costs one query.
  std::u16string real = root_;
  for (std::size_t i = 0; i + 1 < components_.size(); ++i) {
    real = fileSystem_.appendPath(real, u'/' + components_[i]);
    bool folder = false;
    bool link = false;
    try {
      folder = fileSystem_.isFolder(real);
      link = !folder && fileSystem_.isSymlink(real);
    } catch (Exception const&) {
      // Cannot be examined: nothing can be made through it either.
    }
    if (link) return linkAt(result, i + 1);
    // Missing (made next, below a folder that was looked at), or something else in the way
    // (the making reports it): nothing below can be reached through a link.
    if (!folder) break;
  }
  error_code code;
  if (fileSystem_.exists(parent, code)) return;
  code.clear();
  fileSystem_.createFolders(parent, code);
  if (code && !isFileExists(code)) fail(result, code);
}

std::unique_ptr<ConfinedFile> PathConfinedDestination::openFile(std::u16string const& path,
                                                                ConfinedResult& result) {
  result = ConfinedResult();
  std::u16string fullPath;
  if (!realPath(path, fullPath, result.code)) {
    fail(result, result.code);
    return nullptr;
  }
  // Opening a link would write through it.
  if (isLink(fullPath)) {
    linkAt(result, components_.size());
    return nullptr;
  }
  return open(std::move(fullPath), std::u16string(), result);
}

std::unique_ptr<ConfinedFile> PathConfinedDestination::openTemporaryFile(std::u16string const& path,
                                                                         ConfinedResult& result) {
  result = ConfinedResult();
  std::u16string fullPath;
  if (!realPath(path, fullPath, result.code) || components_.empty()) {
    fail(result, systemError(EINVAL));
    return nullptr;
  }
  std::u16string temporary;
  try {
    // By path a name can only be chosen free, not taken exclusively.
    temporary = fileSystem_.getTempName(fileSystem_.getParentPath(fullPath));
  } catch (Exception const& e) {
    fail(result, e.code());
    return nullptr;
  }
  return open(std::move(temporary), std::move(fullPath), result);
}

std::unique_ptr<ConfinedFile> PathConfinedDestination::open(std::u16string path,
                                                            std::u16string target,
                                                            ConfinedResult& result) {
  error_code code;
  std::shared_ptr<std::ostream> stream = fileSystem_.createOutputStream(path, kOutputMode, code);
  if (code || !stream) {
    fail(result, code);
    return nullptr;
  }
  return std::make_unique<PathConfinedFile>(fileSystem_, std::move(path), components_.size(),
                                            std::move(stream), std::move(target));
}

bool PathConfinedDestination::exists(std::u16string const& path, error_code& code) {
  code.clear();
  std::u16string fullPath;
  return realPath(path, fullPath, code) && fileSystem_.exists(fullPath, code);
}

void PathConfinedDestination::setPermissions(std::u16string const& path,
                                             Perms::Perms_tag permissions, error_code& code) {
  code.clear();
  std::u16string fullPath;
  if (realPath(path, fullPath, code)) fileSystem_.setPermissions(fullPath, permissions, code);
}

void PathConfinedDestination::createFolder(std::u16string const& path, error_code& code) {
  code.clear();
  std::u16string fullPath;
  if (!realPath(path, fullPath, code)) return;
  // Whatever is there counts as the folder; nothing is made through it.
  if (fileSystem_.exists(fullPath, code)) return;
  code.clear();
  fileSystem_.createFolder(fullPath, code);
  // Made by someone else between the look and the making.
  if (code && isFileExists(code)) code.clear();
}

void PathConfinedDestination::createSymlink(std::u16string const& target,
                                            std::u16string const& path, error_code& code) {
  code.clear();
  std::u16string fullPath;
  if (realPath(path, fullPath, code)) fileSystem_.createSymlink(target, fullPath, code);
}

}  // namespace detail
}  // namespace opc
