// UTF-8 checks and encoding that libvki18n needs without ICU's help.  Private to the library.
#ifndef FL_I18N_UTF8_H_
#define FL_I18N_UTF8_H_

#include <cstddef>
#include <string>

namespace fl {
namespace i18n {
namespace detail {

// True if the `size` bytes at `data` are well-formed UTF-8 in the strict sense of the Unicode
// standard: shortest forms only, no encoded surrogates, nothing above U+10FFFF, no sequence
// cut off at the end.  Linear, with a fast path for runs of ASCII.
bool isWellFormedUtf8(char const* data, std::size_t size);

// The same check over text given in pieces, cut anywhere (inside a sequence too): after the
// last piece, wellFormed() is what isWellFormedUtf8 says of the pieces put together.
class Utf8Validator {
 public:
  void update(unsigned char const* data, std::size_t size);
  // Whether the text so far is well-formed, no sequence left unfinished.
  bool wellFormed() const { return !broken_ && expected_ == 0; }
  // Whether a bad byte has been seen: no later piece can make the text well-formed.
  bool broken() const { return broken_; }

 private:
  bool broken_ = false;
  // Continuation bytes still due for the sequence begun, and the range of the next one.
  int expected_ = 0;
  unsigned char low_ = 0x80;
  unsigned char high_ = 0xBF;
};

// The UTF-8 form of UTF-16 `text`; an unpaired surrogate becomes U+FFFD.
std::string encodeUtf8(std::u16string const& text);

// The UTF-16 form of the `size` bytes of UTF-8 at `data` (null only if `size` is 0), as ICU's
// UTF-8 converter gives it with every bad sequence replaced: each maximal subpart of an
// ill-formed sequence (the longest start of a well-formed sequence that it begins with, or
// else its one byte) becomes one U+FFFD.  Noncharacters are characters like any other.  With
// `dropByteOrderMark`, a U+FEFF that the result begins with is left out.
std::u16string decodeUtf8(char const* data, std::size_t size, bool dropByteOrderMark);

// Whether every one of the `size` bytes at `data` is below 0x80.
bool isAscii(char const* data, std::size_t size);

// The `size` ASCII bytes at `data`, each as the UTF-16 unit of the same value.
std::u16string widenAscii(char const* data, std::size_t size);

}  // namespace detail
}  // namespace i18n
}  // namespace fl

#endif  // FL_I18N_UTF8_H_
