// A fresh, empty folder under the system's temporary folder, removed with everything in it
// when the object goes away.
#ifndef TESTS_SUPPORT_TEMP_DIR_H_
#define TESTS_SUPPORT_TEMP_DIR_H_

#include <string>

namespace opcvk_test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(TempDir const&) = delete;
  TempDir& operator=(TempDir const&) = delete;

  // The folder's absolute path, without a trailing "/".
  std::string const& path() const { return path_; }
  // `path()` + "/" + `name`.
  std::string operator/(std::string const& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_TEMP_DIR_H_
