// TextPool: many texts kept in one block of characters.
#ifndef TOOLS_OPCVK_TEXT_POOL_H_
#define TOOLS_OPCVK_TEXT_POOL_H_

#include <cstddef>
#include <string>
#include <string_view>
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

}  // namespace opcvk

#endif  // TOOLS_OPCVK_TEXT_POOL_H_
