// xsd:dateTime text: reading never raises and gives a time in the supported range or
// not_a_date_time, and every time it gives is written as text that reads back to it.  The
// input also picks a time directly, so that writing is checked across the whole range.
//
// Input: the text as UTF-8 (see textFromBytes).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>

#include <opc/core/time_conversions.h>

#include "fuzz_support.h"

namespace {

namespace gregorian = boost::gregorian;
namespace posix_time = boost::posix_time;
using opcvk_fuzz::check;
using opcvk_fuzz::printable;

posix_time::ptime const kFirst(gregorian::date(1400, 1, 1));
posix_time::ptime const kEnd =
    posix_time::ptime(gregorian::date(9999, 12, 31)) + posix_time::hours(24);

// "YYYY-MM-DDThh:mm:ss[.f+]Z" with no trailing zero in the fraction.
bool isCanonical(std::u16string const& text) {
  static char16_t const kShape[] = u"dddd-dd-ddTdd:dd:dd";
  if (text.size() < 20 || text.back() != u'Z') return false;
  for (std::size_t i = 0; i < 19; ++i) {
    bool const digit = text[i] >= u'0' && text[i] <= u'9';
    if (kShape[i] == u'd' ? !digit : text[i] != kShape[i]) return false;
  }
  if (text.size() == 20) return true;
  if (text[19] != u'.' || text.size() < 22 || text.size() > 27) return false;
  for (std::size_t i = 20; i + 1 < text.size(); ++i) {
    if (text[i] < u'0' || text[i] > u'9') return false;
  }
  return text[text.size() - 2] != u'0';
}

void checkWritten(posix_time::ptime time, std::string const& shown) {
  std::u16string const written = opc::convertTimeToString(time);
  std::string const shownWritten = shown + "\" written as \"" + printable(written);
  check(isCanonical(written), "a time is written in the canonical form", shownWritten);
  posix_time::ptime back;
  opcvk_fuzz::mustNotThrow("convertStringToTime of written text", shownWritten,
                           [&] { back = opc::convertStringToTime(written); });
  check(back == time, "written text reads back to the same time", shownWritten);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  std::string const input(reinterpret_cast<char const*>(data), size);
  std::u16string const text = opcvk_fuzz::textFromBytes(input);
  std::string const shown = printable(text);

  posix_time::ptime time;
  opcvk_fuzz::mustNotThrow("convertStringToTime", shown,
                           [&] { time = opc::convertStringToTime(text); });
  if (!time.is_not_a_date_time()) {
    check(!time.is_special() && time >= kFirst && time < kEnd,
          "a time read is in 1400-01-01 .. 9999-12-31", shown);
    opcvk_fuzz::mustNotThrow("convertTimeToString", shown, [&] { checkWritten(time, shown); });
  }

  // The first eight bytes as a microsecond count into the supported range.
  std::uint64_t raw = 0;
  if (size > 0) std::memcpy(&raw, data, size < sizeof raw ? size : sizeof raw);
  std::uint64_t const span = static_cast<std::uint64_t>((kEnd - kFirst).total_microseconds());
  posix_time::ptime const picked =
      kFirst + posix_time::microseconds(static_cast<std::int64_t>(raw % span));
  std::string const shownPicked = posix_time::to_iso_extended_string(picked);
  opcvk_fuzz::mustNotThrow("convertTimeToString", shownPicked,
                           [&] { checkWritten(picked, shownPicked); });
  return 0;
}
