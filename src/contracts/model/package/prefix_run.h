// The leading runs of segments of part keys as a package's parts are read, folder by folder.
// Internal to libopcmodel.
#ifndef OPC_MODEL_PACKAGE_PREFIX_RUN_H_
#define OPC_MODEL_PACKAGE_PREFIX_RUN_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <unordered_map>
#include <vector>

namespace opc {
namespace model {
namespace detail {

// The leading runs of segments ("/a", "/a/b") of the key of the part that load() added last,
// with their counts in the prefix map.  Parts come folder by folder, so the next key mostly
// shares them: those runs were found to be no part already and cannot have become one since,
// and their counts are found without a look-up.
class PrefixRun {
 public:
  // How many leading characters `key` shares with the last key: its slashes before that
  // point end runs that are known.
  std::size_t sharedLength(std::string const& key) const {
    std::size_t const most = std::min(key.size(), key_.size());
    std::size_t common = 0;
    // Eight bytes at a time while they agree: the keys of one folder share most of theirs.
    while (common + 8 <= most) {
      std::uint64_t mine;
      std::uint64_t theirs;
      std::memcpy(&mine, key.data() + common, sizeof mine);
      std::memcpy(&theirs, key_.data() + common, sizeof theirs);
      if (mine != theirs) break;
      common += 8;
    }
    while (common < most && key[common] == key_[common]) ++common;
    return common;
  }

  // Counts the runs of `key` in `prefixes` and makes it the last key.
  void count(std::string const& key, std::unordered_map<std::string, std::size_t>& prefixes) {
    count(key, sharedLength(key), prefixes);
  }

  // The same, where `common` is sharedLength(key), found already by the caller.
  void count(std::string const& key, std::size_t common,
             std::unordered_map<std::string, std::size_t>& prefixes) {
    std::size_t run = 0;
    for (std::size_t slash = key.find('/', 1); slash != std::string::npos;
         slash = key.find('/', slash + 1), ++run) {
      if (slash < common && run < counts_.size()) {
        ++*counts_[run];
        continue;
      }
      counts_.resize(run);
      counts_.push_back(&++prefixes[key.substr(0, slash)]);
    }
    counts_.resize(run);
    key_ = key;
  }

 private:
  std::string key_;
  // The counts of key_'s runs, shortest first; the map's elements do not move.
  std::vector<std::size_t*> counts_;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_PREFIX_RUN_H_
