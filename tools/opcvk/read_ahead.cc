#include "read_ahead.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace opcvk {
namespace {

// Closes a descriptor when it goes out of scope.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  int get() const { return fd_; }

 private:
  int fd_;
};

void takeStatus(ReadResult& result, struct stat const& status) {
  result.statusKnown = true;
  result.mode = static_cast<std::uint32_t>(status.st_mode & 0777);
  result.mtimeSeconds = static_cast<std::int64_t>(status.st_mtim.tv_sec);
  result.mtimeNanoseconds = static_cast<std::uint32_t>(status.st_mtim.tv_nsec);
  result.size = static_cast<std::uint64_t>(status.st_size);
}

}  // namespace

// Files come in the order of the walk, a folder's files one after another: a file opened by
// its name below its folder's descriptor saves the kernel the walk from the root through
// every folder above it, once a file, and the worker the making of its whole path.  Only
// ever a worker's own.
struct ReadAhead::OpenFolder {
  OpenFolder() = default;
  OpenFolder(OpenFolder const&) = delete;
  OpenFolder& operator=(OpenFolder const&) = delete;
  ~OpenFolder() { close(); }

  void close() {
    if (fd >= 0) ::close(fd);
    fd = -1;
  }

  // The folder of the tree (SourceTree::folders) and its path below the root, without a
  // trailing "/"; meaningful only while fd is open.
  std::uint32_t index = SourceTree::kRootFolder;
  std::string path;
  int fd = -1;
  // The worker's buffer for the name or path it opens, kept from file to file rather than
  // made for each.
  std::string name;
};

ReadAhead::ReadAhead(std::string root, SourceTree const& tree, std::vector<std::uint32_t> indices,
                     unsigned threads, std::size_t maxFiles, std::uint64_t maxBytes,
                     std::uint64_t wholeFileLimit)
    : root_(std::move(root)),
      tree_(tree),
      indices_(std::move(indices)),
      maxFiles_(std::max<std::size_t>(maxFiles, 1)),
      maxBytes_(maxBytes),
      wholeFileLimit_(wholeFileLimit),
      slots_(std::min(maxFiles_, std::max<std::size_t>(indices_.size(), 1))) {
  if (indices_.empty()) return;
  rootFd_ = ::open(root_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  threads = std::max(threads, 1u);
  workers_.reserve(threads);
  try {
    for (unsigned i = 0; i < threads; ++i) workers_.emplace_back([this] { work(); });
  } catch (...) {
    // A thread that could not be started: those that run are stopped before the error goes
    // on, since their object is never finished.
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
    }
    room_.notify_all();
    for (std::thread& worker : workers_) worker.join();
    if (rootFd_ >= 0) ::close(rootFd_);
    throw;
  }
}

ReadAhead::~ReadAhead() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  room_.notify_all();
  for (std::thread& worker : workers_) worker.join();
  if (rootFd_ >= 0) ::close(rootFd_);
}

ReadResult ReadAhead::next() {
  std::unique_lock<std::mutex> lock(mutex_);
  if (taken_ >= indices_.size()) throw std::logic_error("ReadAhead::next past the last file");
  Slot& slot = slots_[taken_ % slots_.size()];
  while (!slot.ready) {
    callerWaiting_ = true;
    ready_.wait(lock);
  }
  callerWaiting_ = false;
  ReadResult result = std::move(slot.result);
  slot.result = ReadResult();
  slot.ready = false;
  bytesAhead_ -= result.bytes.size();
  ++taken_;
  // Workers that wait for room are woken when half the window is free rather than at every
  // file, so that a caller slower than the disk does not pay a wake-up per file.
  if (idleWorkers_ > 0 && started_ - taken_ <= slots_.size() / 2 && bytesAhead_ <= maxBytes_ / 2) {
    room_.notify_all();
  }
  return result;
}

bool ReadAhead::fits(std::size_t index) const {
  if (index - taken_ >= slots_.size()) return false;
  // A file larger than the whole budget still goes when nothing else is ahead.
  return started_ == taken_ || bytesAhead_ + expectedBytes(index) <= maxBytes_;
}

std::uint64_t ReadAhead::expectedBytes(std::size_t index) const {
  SourceItem const& item = tree_.items[indices_[index]];
  return item.statusKnown && item.size <= wholeFileLimit_ ? item.size : 0;
}

void ReadAhead::work() {
  OpenFolder folder;
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    while (!stop_ && started_ < indices_.size() && !fits(started_)) {
      ++idleWorkers_;
      room_.wait(lock);
      --idleWorkers_;
    }
    if (stop_ || started_ >= indices_.size()) return;
    std::size_t const index = started_++;
    std::uint64_t const expected = expectedBytes(index);
    bytesAhead_ += expected;
    lock.unlock();
    ReadResult result = read(index, folder);
    lock.lock();
    bytesAhead_ = bytesAhead_ - expected + result.bytes.size();
    Slot& slot = slots_[index % slots_.size()];
    slot.result = std::move(result);
    slot.ready = true;
    if (callerWaiting_ && index == taken_) ready_.notify_one();
  }
}

int ReadAhead::openingBase(SourceItem const& item, OpenFolder& folder, std::string& path) const {
  path.clear();
  if (rootFd_ < 0) {
    path = root_;
    path += '/';
    tree_.appendNative(item, path);
    return AT_FDCWD;
  }
  if (item.folder != SourceTree::kRootFolder) {
    if (folder.fd < 0 || folder.index != item.folder) {
      folder.close();
      folder.index = item.folder;
      folder.path.clear();
      tree_.appendNative(item, folder.path);
      folder.path.resize(folder.path.size() - item.nameLength - 1);
      folder.fd = ::openat(rootFd_, folder.path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    }
    if (folder.fd >= 0) {
      path.assign(tree_.nameOf(item));
      return folder.fd;
    }
    // A folder that cannot be opened leaves the file to the whole path, whose open tells
    // why exactly as it would have without this.
  }
  tree_.appendNative(item, path);
  return rootFd_;
}

ReadResult ReadAhead::read(std::size_t index, OpenFolder& folder) const {
  SourceItem const& item = tree_.items[indices_[index]];
  ReadResult result;
  if (item.statusKnown && item.size > wholeFileLimit_) {
    result.large = true;
    return result;
  }
  std::string& path = folder.name;
  int const base = openingBase(item, folder, path);
  // Not blocking: a pipe that took the file's place since the walk fails its read rather than
  // waiting for a writer.
  int const flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  Descriptor const file(::openat(base, path.c_str(), flags));
  if (file.get() < 0) {
    result.error = errno;
    result.failedToOpen = true;
    // The caller tells a time the package cannot hold before a file it cannot open, as the
    // library's own add does, which learns the status first.
    struct stat status;
    if (!item.statusKnown && ::fstatat(base, path.c_str(), &status, 0) == 0) {
      takeStatus(result, status);
    }
    return result;
  }
  std::uint64_t expected = item.size;
  if (!item.statusKnown) {
    struct stat status;
    if (::fstat(file.get(), &status) != 0) {
      result.error = errno;
      return result;
    }
    takeStatus(result, status);
    expected = result.size;
    if (S_ISREG(status.st_mode) && expected > wholeFileLimit_) {
      result.large = true;
      return result;
    }
  }
  // One byte more than expected, so that a file of the expected size is read in one call;
  // a file that grew meanwhile is read to its new end.  A read that gives fewer bytes than
  // asked for, and exactly the size the walk saw, has met the end: the call that would only
  // confirm it is saved (one in three system calls per small file).
  std::vector<unsigned char>& bytes = result.bytes;
  bytes.resize(static_cast<std::size_t>(expected) + 1);
  std::size_t filled = 0;
  for (;;) {
    if (filled == bytes.size()) bytes.resize(bytes.size() * 2);
    ssize_t const count = ::read(file.get(), bytes.data() + filled, bytes.size() - filled);
    if (count < 0) {
      if (errno == EINTR) continue;
      result.error = errno;
      bytes.clear();
      bytes.shrink_to_fit();
      return result;
    }
    if (count == 0) break;
    filled += static_cast<std::size_t>(count);
    if (filled == expected && filled < bytes.size()) break;
  }
  bytes.resize(filled);
  return result;
}

}  // namespace opcvk
