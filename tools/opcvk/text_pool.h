// TextPool: many texts kept in one block of characters.
#ifndef TOOLS_OPCVK_TEXT_POOL_H_
#define TOOLS_OPCVK_TEXT_POOL_H_

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace opcvk {

// Texts numbered from 0 in the order they were added.  A text costs its characters and one
// offset, not a string object and a heap block of its own: the names of 100,000 parts or
// paths take one block rather than 100,000.  Views stay valid until the next add().
class TextPool {
 public:
  // Returns the number of the new text.
  std::size_t add(std::u16string_view text) {
    chars_.append(text.data(), text.size());
    ends_.push_back(chars_.size());
    return ends_.size() - 1;
  }

  std::u16string_view operator[](std::size_t index) const {
    std::size_t const begin = index == 0 ? 0 : ends_[index - 1];
    return std::u16string_view(chars_).substr(begin, ends_[index] - begin);
  }

  std::size_t size() const { return ends_.size(); }

  // Gives back the room that growing left unused, once every text is in.
  void shrink() {
    chars_.shrink_to_fit();
    ends_.shrink_to_fit();
  }

  // Makes room for `texts` more texts of `chars` code units in all, so that a pool whose size
  // is known grows in one step, never holding its old block beside a doubled one.
  void reserve(std::size_t texts, std::size_t chars) {
    ends_.reserve(ends_.size() + texts);
    chars_.reserve(chars_.size() + chars);
  }

 private:
  std::u16string chars_;
  // Where each text ends in chars_.
  std::vector<std::size_t> ends_;
};

// Paths numbered from 0 in the order they were added, each kept as its folder (up to and
// with its last "/") and its last name, every folder once: a tree of long paths that go deep
// (names of 500 characters and more) costs its folders once rather than in each of its files.
class PathPool {
 public:
  // Returns the number of the new path.
  std::size_t add(std::u16string_view path) {
    std::size_t const slash = path.rfind(u'/');
    std::size_t const split = slash == std::u16string_view::npos ? 0 : slash + 1;
    folderOf_.push_back(numberOf(path.substr(0, split)));
    names_.add(path.substr(split));
    return folderOf_.size() - 1;
  }

  std::size_t size() const { return folderOf_.size(); }

  // How many folders the paths lie in, and the text of the folder numbered `number` (from 0
  // to folderCount() - 1), with its last "/".
  std::size_t folderCount() const { return folders_.size(); }
  std::u16string_view folderText(std::uint32_t number) const { return folders_[number]; }

  // The number of the folder of path `index`: the same for two paths of one folder.
  std::uint32_t folderNumber(std::size_t index) const { return folderOf_[index]; }

  // The folder of path `index`, with its last "/", and the name that follows it.
  std::u16string_view folder(std::size_t index) const { return folders_[folderOf_[index]]; }
  std::u16string_view name(std::size_t index) const { return names_[index]; }

  // Path `index` in `out`, reusing its room.
  void assign(std::size_t index, std::u16string& out) const {
    out.assign(folder(index)).append(name(index));
  }

  // Whether path `index` is `path`, compared as bytes.
  bool equals(std::size_t index, std::u16string_view path) const {
    std::u16string_view const head = folder(index);
    std::u16string_view const tail = name(index);
    return path.size() == head.size() + tail.size() && same(head, path.substr(0, head.size())) &&
           same(tail, path.substr(head.size()));
  }

  // Forgets what finds a folder again, once every path is in.
  void shrink() {
    numbers_ = std::unordered_multimap<std::size_t, std::uint32_t>();
    folderOf_.shrink_to_fit();
    folders_.shrink();
    names_.shrink();
  }

 private:
  static bool same(std::u16string_view a, std::u16string_view b) {
    return a.size() == b.size() &&
           std::memcmp(a.data(), b.data(), a.size() * sizeof(char16_t)) == 0;
  }

  std::uint32_t numberOf(std::u16string_view folder) {
    // Files of one folder mostly come one after another.
    if (!folderOf_.empty() && same(folders_[folderOf_.back()], folder)) return folderOf_.back();
    std::size_t const hash = std::hash<std::u16string_view>()(folder);
    auto const range = numbers_.equal_range(hash);
    for (auto at = range.first; at != range.second; ++at) {
      if (same(folders_[at->second], folder)) return at->second;
    }
    auto const number = static_cast<std::uint32_t>(folders_.add(folder));
    numbers_.emplace(hash, number);
    return number;
  }

  TextPool folders_;
  TextPool names_;
  std::vector<std::uint32_t> folderOf_;
  // Folder numbers by the hash of the folder's text.
  std::unordered_multimap<std::size_t, std::uint32_t> numbers_;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_TEXT_POOL_H_
