// Conversions between the library's text type (UTF-16) and narrow and wide text.
#ifndef OPC_CORE_STRING_CONVERSIONS_H_
#define OPC_CORE_STRING_CONVERSIONS_H_

#include <string>

#include <opc/core/export.h>

namespace opc {

// Narrow text in the user default encoding to UTF-16.
//
// The user default encoding is the codeset (LC_CTYPE) of the calling thread's locale: the
// one the thread installed with uselocale, or else the process's, as set by the program
// with setlocale; a program that never calls either runs in the "C" locale, whose codeset
// is ASCII.  ASCII text comes back unchanged whatever the locale.  With `strict` true (all
// callers pass it), each byte of a sequence that is not valid in that encoding is decoded
// as the ISO-8859-1 character of the same value, so that no input is lost or raises; with
// `strict` false, each invalid sequence becomes one U+FFFD.  Thread-safe.
OPC_CORE_EXPORT std::u16string toString(std::string const& text, bool strict = true);

// UTF-16 to the user default encoding (see toString).  Every message that names a path goes
// through it.  A character that the encoding cannot represent becomes "?"; unpaired
// surrogates count as such characters.  Never raises for content.  Thread-safe.
OPC_CORE_EXPORT std::string toUDEString(std::u16string const& text);

// Narrowing of text that is ASCII by design (permission digits, content-type parameters).
// Each code unit above 0x7F becomes "?" (a surrogate pair gives two), so that no code unit
// is truncated into another.  Thread-safe.
OPC_CORE_EXPORT std::string toASCIIString(std::u16string const& text);

// UTF-16 to the platform's wide text (UTF-32 on Linux), for wide regular expressions.
// Surrogate pairs are combined; an unpaired surrogate becomes U+FFFD.  Thread-safe.
OPC_CORE_EXPORT std::wstring toWideString(std::u16string const& text);

// Compares without regard to case: 0 if equal, <0 or >0 as `a` sorts before or after `b`
// after simple Unicode case folding of each character, by code point; a text that is a
// prefix of the other sorts first.  Folding maps one character to one character, so
// "STRASSE" equals "strasse" but not the word spelt with U+00DF SHARP S; U+212A KELVIN SIGN
// equals "k".  Does not depend on the locale.  Thread-safe.
OPC_CORE_EXPORT int caselessCompare(std::u16string const& a, std::u16string const& b);

// True if the text holds a Unicode White_Space character: U+0009..U+000D, U+0020, U+0085,
// U+00A0, U+1680, U+2000..U+200A, U+2028, U+2029, U+202F, U+205F or U+3000.
OPC_CORE_EXPORT bool hasWhitespace(std::u16string const& text);

namespace detail {

// UTF-8 to UTF-16, whatever the locale.  A malformed sequence (an overlong form, a code
// point above U+10FFFF, a stray or truncated sequence) is replaced by one U+FFFD for each
// maximal invalid subpart, and decoding goes on, so that the result is always usable text.
// With `strict` true (all callers pass it), surrogates encoded in UTF-8 are malformed too;
// with `strict` false they are accepted as in CESU-8, each becoming its UTF-16 code unit.
// Never raises.  Thread-safe.
OPC_CORE_EXPORT std::u16string toStringFromUTF8String(std::string const& text, bool strict = true);

// UTF-16 to UTF-8, whatever the locale; unpaired surrogates become U+FFFD.  Thread-safe.
OPC_CORE_EXPORT std::string toUTF8String(std::u16string const& text);

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_STRING_CONVERSIONS_H_
