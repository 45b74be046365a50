// Runs a check in a child process without root's rights, so that permission checks apply
// even when the tests run as root.
#ifndef TESTS_SUPPORT_RUN_UNPRIVILEGED_H_
#define TESTS_SUPPORT_RUN_UNPRIVILEGED_H_

#include <functional>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace opcvk_test {

constexpr uid_t kNobody = 65534;

// Runs `check` in a child process, as the user nobody if the test runs as root, so that
// permission checks apply either way.  Gives what `check` returned, or -1 if the child could
// not drop its rights or did not end normally.  The folders on the way must be open to
// others, and what must be refused must be closed to its owner too: then the check is real
// whether the tests run as root or not.
inline int runUnprivileged(std::function<int()> const& check) {
  pid_t child = ::fork();
  if (child == 0) {
    if (::geteuid() == 0 && (::setresgid(kNobody, kNobody, kNobody) != 0 ||
                             ::setresuid(kNobody, kNobody, kNobody) != 0)) {
      ::_exit(255);
    }
    ::_exit(check());
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status) == 255 ? -1 : WEXITSTATUS(status);
}

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_RUN_UNPRIVILEGED_H_
