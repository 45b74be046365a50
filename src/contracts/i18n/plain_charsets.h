// The answers about encodings that libvki18n gives without ICU, each the answer ICU gives:
// the preferred names of the codesets that the C library's locales use, and the converters
// whose result can be told without ICU for some inputs.  Private to the library; the tests
// hold every entry against ICU's own answer.
#ifndef FL_I18N_PLAIN_CHARSETS_H_
#define FL_I18N_PLAIN_CHARSETS_H_

#include <cstddef>
#include <string>

namespace fl {
namespace i18n {
namespace detail {

// A codeset name as nl_langinfo(CODESET) gives it, and the name that ICU's alias table
// prefers for it.
struct CodesetName {
  char const* codeset;
  char const* preferred;
};

// The codesets of the C library's locales, each with ICU's preferred name for it, and their
// number.
extern CodesetName const kPlainCodesetNames[];
extern std::size_t const kPlainCodesetNameCount;

// ICU's preferred name for `codeset` if the table has it (spelt exactly as there), else null.
char const* plainPreferredName(char const* codeset);

// How a converter for an encoding can go without ICU.
enum class PlainRoad {
  kNone,            // every conversion needs ICU
  kUtf8,            // UTF-8: every input is decoded here, with ICU's replacements
  kAsciiCompatible  // a single-byte encoding whose bytes 0x00-0x7F are ASCII: pure ASCII input
};

// The road for a converter of `charset`, by the name exactly as spelt.
PlainRoad plainRoadFor(std::string const& charset);

// The names that plainRoadFor knows, for the tests, and their numbers.
extern char const* const kUtf8Names[];
extern std::size_t const kUtf8NameCount;
extern char const* const kAsciiCompatibleNames[];
extern std::size_t const kAsciiCompatibleNameCount;

}  // namespace detail
}  // namespace i18n
}  // namespace fl

#endif  // FL_I18N_PLAIN_CHARSETS_H_
