#include "read_ahead.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <stdexcept>
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

}  // namespace

ReadAhead::ReadAhead(std::string root, SourceTree const& tree, std::vector<std::uint32_t> indices,
                     unsigned threads, std::size_t maxFiles, std::uint64_t maxBytes)
    : root_(std::move(root)),
      tree_(tree),
      indices_(std::move(indices)),
      maxFiles_(std::max<std::size_t>(maxFiles, 1)),
      maxBytes_(maxBytes),
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
  bytesAhead_ -= sizeOf(taken_);
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
  return started_ == taken_ || bytesAhead_ + sizeOf(index) <= maxBytes_;
}

void ReadAhead::work() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    while (!stop_ && started_ < indices_.size() && !fits(started_)) {
      ++idleWorkers_;
      room_.wait(lock);
      --idleWorkers_;
    }
    if (stop_ || started_ >= indices_.size()) return;
    std::size_t const index = started_++;
    bytesAhead_ += sizeOf(index);
    lock.unlock();
    ReadResult result = read(index);
    lock.lock();
    Slot& slot = slots_[index % slots_.size()];
    slot.result = std::move(result);
    slot.ready = true;
    if (callerWaiting_ && index == taken_) ready_.notify_one();
  }
}

ReadResult ReadAhead::read(std::size_t index) const {
  SourceItem const& item = tree_.items[indices_[index]];
  std::string path;
  if (rootFd_ < 0) {
    path = root_;
    path += '/';
  }
  path.append(tree_.names, item.nameOffset, item.nameLength);
  ReadResult result;
  int const flags = O_RDONLY | O_CLOEXEC | O_NOCTTY;
  Descriptor const file(rootFd_ >= 0 ? ::openat(rootFd_, path.c_str(), flags)
                                     : ::open(path.c_str(), flags));
  if (file.get() < 0) {
    result.error = errno;
    result.failedToOpen = true;
    return result;
  }
  // One byte more than the walk saw, so that a file of the expected size is read in one call;
  // a file that grew meanwhile is read to its new end.  A read that gives fewer bytes than
  // asked for, and exactly the size the walk saw, has met the end: the call that would only
  // confirm it is saved (one in three system calls per small file).
  std::vector<unsigned char>& bytes = result.bytes;
  bytes.resize(static_cast<std::size_t>(item.size) + 1);
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
    if (filled == item.size && filled < bytes.size()) break;
  }
  bytes.resize(filled);
  return result;
}

}  // namespace opcvk
