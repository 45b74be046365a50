// fl::i18n charset detection and conversion: from text in any encoding to UTF-16 and UTF-8.
#ifndef FL_I18N_CHARSET_H_
#define FL_I18N_CHARSET_H_

#include <cstddef>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

#include <fl/i18n/export.h>

namespace fl {
namespace i18n {

// What the detection and conversion operations raise: an encoding name that is not known,
// a converter that cannot be opened, bytes that cannot be converted.
class FL_I18N_EXPORT I18nError : public std::runtime_error {
 public:
  explicit I18nError(std::string const& message);
  ~I18nError() override;
};

// The canonical name of the encoding that the `size` bytes at `data` are most likely in:
// exactly "UTF-8" for UTF-8 (and for plain ASCII, which is valid UTF-8), "UTF-16LE",
// "UTF-16BE", "ISO-8859-1", "windows-1252", "Shift_JIS", ...  The whole text is the sample.
// A byte order mark decides on its own.  Empty input gives "UTF-8".
//
// Text that is not well-formed UTF-8 goes to ICU's detector, whose best match that ICU can
// also convert is the answer, by its MIME name where it has one; if nothing matches,
// "ISO-8859-1", in which every byte is a character.  (ICU is loaded for it; a failure to
// load it raises I18nError naming the library and the reason.)  Well-formed UTF-8 that holds zero
// bytes is asked about too, and is UTF-16 or UTF-32 without a byte order mark if the detector is
// sure of that.  The detector's own idea of UTF-8 is lenient, so text that is mostly UTF-8
// with a few bad bytes (a damaged UTF-8 file) may still be reported as "UTF-8"; a converter
// for it then replaces the bad bytes.  Linear in `size`; beyond 2 GiB the detector sees the
// first 2 GiB.
//
// The detector writes its remarks (what it chose and why, how sure it was, the runners-up)
// to `remarks`, one line each, naming the data `dataName`.  Raises I18nError if detection
// cannot run at all.  Thread-safe: each call has a detector of its own.
FL_I18N_EXPORT std::string detect_charset(char const* data, std::size_t size, std::ostream& remarks,
                                          std::string const& dataName);

// detect_charset over a text given in pieces, for the answers that need no more than one
// pass: an empty text, a text that begins with the UTF-8 byte order mark, and well-formed
// UTF-8 without zero bytes are "UTF-8".  A reader can pass such text on as it comes instead
// of holding all of it.  What the check settles, detect_charset on the whole text settles the
// same way, with the same remark; a text it does not settle goes to detect_charset whole.
//
// Pieces may be cut anywhere, inside a character too.  Linear in the bytes given; holds a
// few bytes of state.  Not copyable; one object is used by one thread at a time.
class FL_I18N_EXPORT Utf8TextCheck {
 public:
  Utf8TextCheck();
  ~Utf8TextCheck();
  Utf8TextCheck(Utf8TextCheck const&) = delete;
  Utf8TextCheck& operator=(Utf8TextCheck const&) = delete;

  // Takes the next `size` bytes of the text.  Never raises but std::bad_alloc.
  void update(char const* data, std::size_t size);

  // False once no continuation of the text seen can be settled here (a byte that cannot be
  // UTF-8, or a zero byte, without the byte order mark); further updates change nothing.
  bool maySettle() const;

  // Whether the text seen so far, taken as the whole text, is settled as "UTF-8".
  bool settled() const;

  // Writes the remark that detect_charset writes for the text seen, naming it `dataName`.
  // Precondition: settled().
  void writeRemark(std::ostream& remarks, std::string const& dataName) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// A converter of strings of `From` to strings of `To`.
template <typename To, typename From>
class converter {
 public:
  virtual ~converter() = default;
  // The `size` units at `data` converted.  Raises I18nError for input that the converter's
  // policy refuses.
  virtual std::basic_string<To> convert(From const* data, std::size_t size) const = 0;
};

// Bytes in the encoding `charset` to UTF-16.  Not copyable; one object may be used from one
// thread at a time.
class FL_I18N_EXPORT codecvt_string_to_ustring : public converter<char16_t, char> {
 public:
  // Opens a converter for `charset` (any name or alias that ICU knows).  With
  // `dropByteOrderMark`, a byte order mark at the start of the input is not part of the
  // result.  Raises I18nError for an unknown encoding.
  //
  // UTF-8 (spelt "UTF-8", "utf-8", "UTF8" or "utf8") is converted without ICU, and so is
  // pure ASCII text from the single-byte encodings whose lower half is ASCII ("US-ASCII",
  // "ISO-8859-1", "windows-1252", ...), with ICU's result; everything else loads ICU, and
  // raises I18nError naming the library and the reason if that fails (for any other name
  // here, for those encodings at the first input that needs ICU).
  codecvt_string_to_ustring(std::string const& charset, bool dropByteOrderMark);
  ~codecvt_string_to_ustring() override;
  codecvt_string_to_ustring(codecvt_string_to_ustring const&) = delete;
  codecvt_string_to_ustring& operator=(codecvt_string_to_ustring const&) = delete;

  // Bytes that are not valid in the encoding, or that it maps to nothing, become U+FFFD:
  // recoding text never loses the rest of it for one bad byte; in UTF-8, each maximal part
  // of a bad sequence that could begin a character becomes one U+FFFD.  Each call converts a
  // text of its own; input of any size is fed to ICU in pieces.
  std::u16string convert(char const* data, std::size_t size) const override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// UTF-16 to UTF-8.  An unpaired surrogate becomes U+FFFD, so the result is always
// well-formed.  Thread-safe.
FL_I18N_EXPORT std::string ustring_to_utf8(std::u16string const& text);

}  // namespace i18n
}  // namespace fl

#endif  // FL_I18N_CHARSET_H_
