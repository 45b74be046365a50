// Conversions between the library's text type (UTF-16) and narrow and wide text.
#ifndef OPC_CORE_STRING_CONVERSIONS_H_
#define OPC_CORE_STRING_CONVERSIONS_H_

#include <string>

#include <opc/core/export.h>

namespace opc {

// Narrow text in the user default encoding to UTF-16.
//
// The user default encoding is the codeset of the process's current C locale (LC_CTYPE),
// as set by the program with setlocale; a program that never calls it runs in the "C"
// locale, whose codeset is ASCII.  ASCII text comes back unchanged whatever the locale.
// With `strict` true (all callers pass it), a byte sequence that is not valid in that
// encoding is decoded byte by byte as ISO-8859-1, so that no input is lost or raises; with
// `strict` false, invalid sequences become U+FFFD.  Thread-safe.
OPC_CORE_EXPORT std::u16string toString(std::string const& text, bool strict = true);

// UTF-16 to the user default encoding (see toString).  Every message that names a path goes
// through it.  A character that the encoding cannot represent becomes "?"; unpaired
// surrogates count as such characters.  Never raises for content.  Thread-safe.
OPC_CORE_EXPORT std::string toUDEString(std::u16string const& text);

// Narrowing of text that is ASCII by design (permission digits, content-type parameters).
// Each code unit above 0x7F becomes "?", so that no code unit is truncated into another.
OPC_CORE_EXPORT std::string toASCIIString(std::u16string const& text);

// UTF-16 to the platform's wide text (UTF-32 on Linux), for wide regular expressions.
// Surrogate pairs are combined; an unpaired surrogate becomes U+FFFD.
OPC_CORE_EXPORT std::wstring toWideString(std::u16string const& text);

// Compares without regard to case: 0 if equal, <0 or >0 as `a` sorts before or after `b`
// after simple Unicode case folding of each character.
OPC_CORE_EXPORT int caselessCompare(std::u16string const& a, std::u16string const& b);

// True if the text holds a Unicode white-space character.
OPC_CORE_EXPORT bool hasWhitespace(std::u16string const& text);

namespace detail {

// UTF-8 to UTF-16.  With `strict` true (all callers pass it), a malformed sequence is
// replaced by U+FFFD and decoding goes on, so that the result is always usable text.
OPC_CORE_EXPORT std::u16string toStringFromUTF8String(std::string const& text, bool strict = true);

// UTF-16 to UTF-8; unpaired surrogates become U+FFFD.
OPC_CORE_EXPORT std::string toUTF8String(std::u16string const& text);

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_STRING_CONVERSIONS_H_
