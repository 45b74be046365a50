// IcuEngine: the one road from libvki18n to ICU.
//
// ICU's three libraries cost every process that maps them a fair part of a short command's
// start (the loader maps and relocates them and runs their initialisers), while most commands
// never need them: the locale's codeset, UTF-8 and ASCII have answers of their own here.  So
// everything that calls ICU lives in a companion library, libvki18n_icu, which libvki18n does
// not link but loads the first time an answer needs ICU, and reaches only through these plain
// interfaces: nothing here names a type of ICU.
//
// Internal to libvki18n and its companion; not installed.
#ifndef FL_I18N_ICU_ENGINE_H_
#define FL_I18N_ICU_ENGINE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <fl/i18n/export.h>

namespace fl {
namespace i18n {
namespace detail {

// A converter from one encoding to UTF-16, over an ICU converter.  One object serves one
// thread at a time.
class IcuConverter {
 public:
  virtual ~IcuConverter() = default;
  // The `size` bytes at `data` (null only if `size` is 0) as UTF-16, a text of its own:
  // nothing is carried over from an earlier call.  Bytes that the encoding does not allow or
  // maps to nothing become U+FFFD.  With `dropByteOrderMark`, a U+FEFF that the text begins
  // with is left out.  Raises I18nError if ICU fails.
  virtual std::u16string convert(char const* data, std::size_t size, bool dropByteOrderMark) = 0;
};

// One encoding that ICU's detector offers for a text, with its confidence (of 100).
struct DetectedCharset {
  std::string name;
  std::int32_t confidence;
};

// What ICU answers.  Thread-safe; lives to the end of the process.
class IcuEngine {
 public:
  // A converter from the encoding `charset` (a name or alias that ICU knows; never empty and
  // without NUL).  Raises I18nError "Unknown character encoding "<name>": <ICU's error>" for
  // an encoding that ICU does not know.
  virtual std::unique_ptr<IcuConverter> openConverter(std::string const& charset) = 0;

  // The detector's candidates for the `size` bytes at `data`, best first, each encoding once
  // by its MIME name where it has one, only those that ICU can convert; empty if nothing
  // matched.  Beyond 2 GiB the detector sees the first 2 GiB.  Raises I18nError if the
  // detector cannot run.
  virtual std::vector<DetectedCharset> detect(char const* data, std::size_t size) = 0;

  // The preferred name of the C library's codeset `codeset` (not null, not empty): its MIME
  // name in ICU's alias table where it has one, else its IANA name, else `codeset` itself.
  virtual std::string preferredEncodingName(char const* codeset) = 0;

  // The NFC form of `text`, which holds no unpaired surrogate and fewer than 2^31 / 3 units.
  // The result is written into the string returned, and no other buffer holds the text.
  // Raises I18nError if ICU fails.
  virtual std::u16string normalizeNfc(std::u16string const& text) = 0;

 protected:
  ~IcuEngine() = default;
};

// The engine, loading libvki18n_icu on the first call; later calls find it loaded.  Raises
// I18nError naming the library and the loader's reason if it cannot be loaded (and tries
// again at the next call).  Exported for the tests that compare the roads without ICU with
// ICU's own answers.
FL_I18N_EXPORT IcuEngine& icuEngine();

}  // namespace detail
}  // namespace i18n
}  // namespace fl

#endif  // FL_I18N_ICU_ENGINE_H_
