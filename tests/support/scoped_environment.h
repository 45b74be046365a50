// Sets an environment variable for the life of an object and puts back what was there.
#ifndef TESTS_SUPPORT_SCOPED_ENVIRONMENT_H_
#define TESTS_SUPPORT_SCOPED_ENVIRONMENT_H_

#include <cstdlib>
#include <string>

namespace opcvk_test {

// Not thread-safe, as the environment is not: for tests that run on one thread.
class ScopedEnvironment {
 public:
  ScopedEnvironment(char const* name, std::string const& value) : name_(name) {
    char const* old = std::getenv(name);
    hadValue_ = old != nullptr;
    if (hadValue_) old_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  ~ScopedEnvironment() {
    if (hadValue_) {
      ::setenv(name_.c_str(), old_.c_str(), 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }
  ScopedEnvironment(ScopedEnvironment const&) = delete;
  ScopedEnvironment& operator=(ScopedEnvironment const&) = delete;

 private:
  std::string name_;
  std::string old_;
  bool hadValue_ = false;
};

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_SCOPED_ENVIRONMENT_H_
