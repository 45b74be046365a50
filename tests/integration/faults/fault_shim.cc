// A fault injector loaded with LD_PRELOAD into a process that saves a package.  It stands in
// front of the C library's file calls, counts them once the process has armed it, and at the
// call chosen by the environment either kills the process (SIGKILL, before the call runs) or
// makes the call fail with a chosen errno without running it.
//
//   OPCVK_FAULT_MODE   count | kill | fail        (unset: the shim does nothing)
//   OPCVK_FAULT_AT     the 1-based number of the call to kill at or fail
//   OPCVK_FAULT_ERRNO  the errno of a failed call (a number)
//   OPCVK_FAULT_STICKY 1: in fail mode, every later counted call fails too (a disk that
//                      stays full)
//   OPCVK_FAULT_KINDS  the kinds of call counted, separated by commas, out of open, write,
//                      read, sync, rename, unlink, lock, chmod (unset: all of them)
//   OPCVK_FAULT_LOG    in count mode, a file that receives one line per counted call
//                      ("<number> <kind> <call>") when the process exits
//
// Nothing is counted until the process calls opcvkFaultArm() (found with dlsym, so that the
// process runs unchanged without the shim): the calls of the save are what is numbered, not
// those of reading the package before it.
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <mutex>
#include <signal.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <vector>

namespace {

enum class Mode { Off, Count, Kill, Fail };

struct Settings {
  Mode mode = Mode::Off;
  long at = 0;
  int error = EIO;
  bool sticky = false;
  std::string kinds;
  std::string log;
};

// Never destroyed: the log is written at exit, after static objects may be gone.
Settings const& settings() {
  static Settings const* const value = [] {
    auto* result = new Settings();
    Settings& s = *result;
    char const* mode = std::getenv("OPCVK_FAULT_MODE");
    if (mode == nullptr) return result;
    std::string const m = mode;
    s.mode = m == "count"  ? Mode::Count
             : m == "kill" ? Mode::Kill
             : m == "fail" ? Mode::Fail
                           : Mode::Off;
    if (char const* at = std::getenv("OPCVK_FAULT_AT")) s.at = std::atol(at);
    if (char const* error = std::getenv("OPCVK_FAULT_ERRNO")) s.error = std::atoi(error);
    if (char const* sticky = std::getenv("OPCVK_FAULT_STICKY")) s.sticky = sticky[0] == '1';
    if (char const* kinds = std::getenv("OPCVK_FAULT_KINDS"))
      s.kinds = "," + std::string(kinds) + ",";
    if (char const* log = std::getenv("OPCVK_FAULT_LOG")) s.log = log;
    return result;
  }();
  return *value;
}

std::atomic<bool> armed{false};
std::atomic<long> counter{0};
std::mutex logMutex;
std::vector<std::string>* logLines = nullptr;

template <typename Function>
Function real(char const* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

// Decides the fate of one call: true to run it, false (errno set) to fail it.
bool admit(char const* kind, char const* call) {
  if (!armed.load()) return true;
  Settings const& s = settings();
  if (s.mode == Mode::Off) return true;
  if (!s.kinds.empty() && s.kinds.find("," + std::string(kind) + ",") == std::string::npos) {
    return true;
  }
  long const number = ++counter;
  switch (s.mode) {
    case Mode::Count: {
      std::lock_guard<std::mutex> lock(logMutex);
      if (logLines == nullptr) logLines = new std::vector<std::string>();
      logLines->push_back(std::to_string(number) + " " + kind + " " + call);
      return true;
    }
    case Mode::Kill:
      if (number == s.at) ::kill(::getpid(), SIGKILL);
      return true;
    case Mode::Fail:
      if (number == s.at || (s.sticky && number > s.at)) {
        errno = s.error;
        return false;
      }
      return true;
    case Mode::Off:
      break;
  }
  return true;
}

__attribute__((destructor)) void writeLog() {
  Settings const& s = settings();
  if (s.mode != Mode::Count || s.log.empty()) return;
  std::lock_guard<std::mutex> lock(logMutex);
  auto const realOpen = real<int (*)(char const*, int, ...)>("open");
  auto const realWrite = real<ssize_t (*)(int, void const*, size_t)>("write");
  int const fd = realOpen(s.log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return;
  std::string text;
  if (logLines != nullptr) {
    for (std::string const& line : *logLines) text += line + "\n";
  }
  std::size_t done = 0;
  while (done < text.size()) {
    ssize_t const n = realWrite(fd, text.data() + done, text.size() - done);
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  ::close(fd);
}

mode_t modeArgument(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? static_cast<mode_t>(va_arg(arguments, int)) : 0;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) void opcvkFaultArm() { armed = true; }

#define OPCVK_SHIM_OPEN(name, realName)                                               \
  __attribute__((visibility("default"))) int name(char const* path, int flags, ...) { \
    va_list arguments;                                                                \
    va_start(arguments, flags);                                                       \
    mode_t const mode = modeArgument(flags, arguments);                               \
    va_end(arguments);                                                                \
    if (!admit("open", #name)) return -1;                                             \
    return real<int (*)(char const*, int, ...)>(realName)(path, flags, mode);         \
  }
OPCVK_SHIM_OPEN(open, "open")
OPCVK_SHIM_OPEN(open64, "open64")

#define OPCVK_SHIM_OPENAT(name, realName)                                                      \
  __attribute__((visibility("default"))) int name(int dir, char const* path, int flags, ...) { \
    va_list arguments;                                                                         \
    va_start(arguments, flags);                                                                \
    mode_t const mode = modeArgument(flags, arguments);                                        \
    va_end(arguments);                                                                         \
    if (!admit("open", #name)) return -1;                                                      \
    return real<int (*)(int, char const*, int, ...)>(realName)(dir, path, flags, mode);        \
  }
OPCVK_SHIM_OPENAT(openat, "openat")
OPCVK_SHIM_OPENAT(openat64, "openat64")

// Writes to the standard streams are not counted: the process must be able to tell its
// failure even when every write to a file fails.
__attribute__((visibility("default"))) ssize_t write(int fd, void const* data, size_t count) {
  if (fd > 2 && !admit("write", "write")) return -1;
  return real<ssize_t (*)(int, void const*, size_t)>("write")(fd, data, count);
}

__attribute__((visibility("default"))) ssize_t writev(int fd, iovec const* vector, int count) {
  if (fd > 2 && !admit("write", "writev")) return -1;
  return real<ssize_t (*)(int, iovec const*, int)>("writev")(fd, vector, count);
}

__attribute__((visibility("default"))) ssize_t pwrite(int fd, void const* data, size_t count,
                                                      off_t offset) {
  if (!admit("write", "pwrite")) return -1;
  return real<ssize_t (*)(int, void const*, size_t, off_t)>("pwrite")(fd, data, count, offset);
}

__attribute__((visibility("default"))) ssize_t pwrite64(int fd, void const* data, size_t count,
                                                        off_t offset) {
  if (!admit("write", "pwrite64")) return -1;
  return real<ssize_t (*)(int, void const*, size_t, off_t)>("pwrite64")(fd, data, count, offset);
}

__attribute__((visibility("default"))) ssize_t pread(int fd, void* data, size_t count,
                                                     off_t offset) {
  if (!admit("read", "pread")) return -1;
  return real<ssize_t (*)(int, void*, size_t, off_t)>("pread")(fd, data, count, offset);
}

__attribute__((visibility("default"))) ssize_t pread64(int fd, void* data, size_t count,
                                                       off_t offset) {
  if (!admit("read", "pread64")) return -1;
  return real<ssize_t (*)(int, void*, size_t, off_t)>("pread64")(fd, data, count, offset);
}

__attribute__((visibility("default"))) int fsync(int fd) {
  if (!admit("sync", "fsync")) return -1;
  return real<int (*)(int)>("fsync")(fd);
}

__attribute__((visibility("default"))) int fdatasync(int fd) {
  if (!admit("sync", "fdatasync")) return -1;
  return real<int (*)(int)>("fdatasync")(fd);
}

__attribute__((visibility("default"))) int rename(char const* from, char const* to) {
  if (!admit("rename", "rename")) return -1;
  return real<int (*)(char const*, char const*)>("rename")(from, to);
}

__attribute__((visibility("default"))) int renameat(int fromDir, char const* from, int toDir,
                                                    char const* to) {
  if (!admit("rename", "renameat")) return -1;
  return real<int (*)(int, char const*, int, char const*)>("renameat")(fromDir, from, toDir, to);
}

__attribute__((visibility("default"))) int unlink(char const* path) {
  if (!admit("unlink", "unlink")) return -1;
  return real<int (*)(char const*)>("unlink")(path);
}

__attribute__((visibility("default"))) int flock(int fd, int operation) {
  if (!admit("lock", "flock")) return -1;
  return real<int (*)(int, int)>("flock")(fd, operation);
}

__attribute__((visibility("default"))) int fchmod(int fd, mode_t mode) {
  if (!admit("chmod", "fchmod")) return -1;
  return real<int (*)(int, mode_t)>("fchmod")(fd, mode);
}

}  // extern "C"
