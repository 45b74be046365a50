#include "support/temp_dir.h"

#include <filesystem>
#include <stdexcept>
#include <stdlib.h>
#include <system_error>
#include <vector>

namespace opcvk_test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "opcvk-test-XXXXXX").string();
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  if (mkdtemp(buffer.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = buffer.data();
}

TempDir::~TempDir() {
  // Tests make read-only files and folders; give the owner back its rights so that the
  // removal cannot fail half-way.
  std::error_code ignored;
  for (auto it = std::filesystem::recursive_directory_iterator(path_, ignored);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
      std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                   std::filesystem::perm_options::add, ignored);
    }
  }
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ignored);
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace opcvk_test
