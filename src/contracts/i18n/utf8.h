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

}  // namespace detail
}  // namespace i18n
}  // namespace fl

#endif  // FL_I18N_UTF8_H_
