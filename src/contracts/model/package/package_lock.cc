#include "package_lock.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <opc/model/exceptions.h>
#include <opc/model/package_options.h>

namespace opc {
namespace model {
namespace detail {
namespace {

using Clock = std::chrono::steady_clock;

// "1 second", "2.5 seconds", "0.25 seconds".
std::string seconds(std::uint64_t milliseconds) {
  std::string text = std::to_string(milliseconds / 1000);
  if (std::uint64_t const fraction = milliseconds % 1000) {
    std::string digits = std::to_string(1000 + fraction).substr(1);
    digits.erase(digits.find_last_not_of('0') + 1);
    text += "." + digits;
  }
  return text + (milliseconds == 1000 ? " second" : " seconds");
}

enum class Attempt { Locked, Busy, Replaced, Nothing, NoLocks };

// One try at the lock of what is at `path` now.  On Locked, `fd` holds it.
Attempt tryLock(std::string const& path, int& fd) {
  fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return Attempt::Nothing;
  struct stat open;
  if (::fstat(fd, &open) != 0 || !S_ISREG(open.st_mode)) {
    ::close(fd);
    return Attempt::Nothing;
  }
  int result;
  do {
    result = ::flock(fd, LOCK_EX | LOCK_NB);
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    Attempt const why = errno == EWOULDBLOCK ? Attempt::Busy : Attempt::NoLocks;
    ::close(fd);
    return why;
  }
  // The holder may have saved and so put another file at the path while this one waited:
  // the lock of a file that is no longer the package protects nothing.
  struct stat named;
  if (::stat(path.c_str(), &named) != 0) {
    ::close(fd);
    return Attempt::Nothing;
  }
  if (named.st_dev != open.st_dev || named.st_ino != open.st_ino) {
    ::close(fd);
    return Attempt::Replaced;
  }
  return Attempt::Locked;
}

}  // namespace

std::unique_ptr<PackageLock> PackageLock::acquire(std::string const& path,
                                                  std::uint64_t waitMilliseconds,
                                                  std::string const& context) {
  bool const forever = waitMilliseconds == PackageOptions::kWaitForever;
  Clock::time_point const start = Clock::now();
  std::chrono::milliseconds pause(1);
  for (;;) {
    int fd = -1;
    switch (tryLock(path, fd)) {
      case Attempt::Locked:
        return std::make_unique<PackageLock>(fd);
      case Attempt::Nothing:
      case Attempt::NoLocks:
        return nullptr;
      case Attempt::Replaced:
        continue;
      case Attempt::Busy:
        break;
    }
    // Polled rather than blocked on, so that the wait can end, and so that a file replaced
    // meanwhile is seen: the holder's lock has moved on to the new file.
    auto const waited = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    if (!forever && static_cast<std::uint64_t>(waited.count()) >= waitMilliseconds) {
      throw PackageLocked(context + (waitMilliseconds == 0
                                         ? std::string(": another writer has it open")
                                         : ": another writer still has it open after " +
                                               seconds(waitMilliseconds)));
    }
    auto sleep = pause;
    if (!forever) {
      sleep = std::min(sleep, std::chrono::milliseconds(waitMilliseconds - waited.count()));
    }
    std::this_thread::sleep_for(sleep);
    pause = std::min(pause * 2, std::chrono::milliseconds(50));
  }
}

PackageLock::PackageLock(int fd) : fd_(fd) {}

PackageLock::~PackageLock() {
  if (fd_ >= 0) ::close(fd_);
}

void PackageLock::adopt(int fd) {
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
