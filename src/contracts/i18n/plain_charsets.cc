#include "plain_charsets.h"

#include <cstring>

namespace fl {
namespace i18n {
namespace detail {

// The codesets of the locales that glibc supports, by its own names, and "ANSI_X3.4-1968" of
// the C locale.  A codeset that ICU does not know keeps its own name, as ICU's road gives it.
CodesetName const kPlainCodesetNames[] = {
    {"UTF-8", "UTF-8"},
    {"ANSI_X3.4-1968", "US-ASCII"},
    {"ARMSCII-8", "ARMSCII-8"},
    {"BIG5", "Big5"},
    {"BIG5-HKSCS", "Big5-HKSCS"},
    {"CP1251", "windows-1251"},
    {"CP1255", "windows-1255"},
    {"EUC-JP", "EUC-JP"},
    {"EUC-KR", "EUC-KR"},
    {"EUC-TW", "EUC-TW"},
    {"GB18030", "GB18030"},
    {"GB2312", "GB2312"},
    {"GBK", "GBK"},
    {"GEORGIAN-PS", "GEORGIAN-PS"},
    {"ISO-8859-1", "ISO-8859-1"},
    {"ISO-8859-2", "ISO-8859-2"},
    {"ISO-8859-3", "ISO-8859-3"},
    {"ISO-8859-5", "ISO-8859-5"},
    {"ISO-8859-6", "ISO-8859-6"},
    {"ISO-8859-7", "ISO-8859-7"},
    {"ISO-8859-8", "ISO-8859-8"},
    {"ISO-8859-9", "ISO-8859-9"},
    {"ISO-8859-10", "ISO-8859-10"},
    {"ISO-8859-13", "ISO-8859-13"},
    {"ISO-8859-14", "ISO-8859-14"},
    {"ISO-8859-15", "ISO-8859-15"},
    {"KOI8-R", "KOI8-R"},
    {"KOI8-T", "KOI8-T"},
    {"KOI8-U", "KOI8-U"},
    {"PT154", "PTCP154"},
    {"RK1048", "KZ-1048"},
    {"TIS-620", "TIS-620"},
};
std::size_t const kPlainCodesetNameCount = sizeof kPlainCodesetNames / sizeof *kPlainCodesetNames;

// ICU takes names with any case and punctuation; these are the spellings that callers use.
char const* const kUtf8Names[] = {"UTF-8", "utf-8", "UTF8", "utf8"};
std::size_t const kUtf8NameCount = sizeof kUtf8Names / sizeof *kUtf8Names;

// Single-byte encodings without state: a byte below 0x80 is the same ASCII character
// wherever it stands, so that pure ASCII text is the same text in UTF-16.  (Shift_JIS is not
// among them: ICU maps some of its control bytes elsewhere; nor is any ISO-2022 encoding,
// whose escape sequences are ASCII.)
char const* const kAsciiCompatibleNames[] = {
    "US-ASCII",     "ISO-8859-1",   "ISO-8859-2",   "ISO-8859-3",   "ISO-8859-4",   "ISO-8859-5",
    "ISO-8859-6",   "ISO-8859-7",   "ISO-8859-8",   "ISO-8859-9",   "ISO-8859-10",  "ISO-8859-11",
    "ISO-8859-13",  "ISO-8859-14",  "ISO-8859-15",  "windows-1250", "windows-1251", "windows-1252",
    "windows-1253", "windows-1254", "windows-1255", "windows-1256", "windows-1257", "windows-1258",
    "KOI8-R",       "KOI8-U",       "TIS-620"};
std::size_t const kAsciiCompatibleNameCount =
    sizeof kAsciiCompatibleNames / sizeof *kAsciiCompatibleNames;

namespace {

bool listed(char const* const* names, std::size_t count, std::string const& name) {
  for (std::size_t i = 0; i < count; ++i) {
    if (name == names[i]) return true;
  }
  return false;
}

}  // namespace

char const* plainPreferredName(char const* codeset) {
  for (CodesetName const& entry : kPlainCodesetNames) {
    if (std::strcmp(entry.codeset, codeset) == 0) return entry.preferred;
  }
  return nullptr;
}

PlainRoad plainRoadFor(std::string const& charset) {
  if (listed(kUtf8Names, kUtf8NameCount, charset)) return PlainRoad::kUtf8;
  if (listed(kAsciiCompatibleNames, kAsciiCompatibleNameCount, charset)) {
    return PlainRoad::kAsciiCompatible;
  }
  return PlainRoad::kNone;
}

}  // namespace detail
}  // namespace i18n
}  // namespace fl
