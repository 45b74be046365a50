#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <fl/i18n/charset.h>

#include "icu_engine.h"
#include "utf8.h"

namespace fl {
namespace i18n {
namespace {

constexpr char const kUtf8[] = "UTF-8";
// What text is taken as when nothing else fits: every byte is a character of it, so no byte
// is lost in a conversion.
constexpr char const kEveryByte[] = "ISO-8859-1";
// How many of the other candidates a remark names.
constexpr std::size_t kRunnersUp = 3;
// The confidence (of 100) with which the detector must see UTF-16 or UTF-32 in text that is
// also well-formed UTF-8 before it wins over UTF-8.
constexpr int32_t kWideOverUtf8 = 50;

using Candidate = detail::DetectedCharset;

// The encoding that a byte order mark at the start of the text announces, or null.  The
// UTF-32LE mark begins with the UTF-16LE one, so it is tried first.
char const* byteOrderMark(unsigned char const* p, std::size_t size) {
  if (size >= 3 && p[0] == 0xEF && p[1] == 0xBB && p[2] == 0xBF) return "UTF-8";
  if (size >= 4 && p[0] == 0xFF && p[1] == 0xFE && p[2] == 0x00 && p[3] == 0x00) {
    return "UTF-32LE";
  }
  if (size >= 4 && p[0] == 0x00 && p[1] == 0x00 && p[2] == 0xFE && p[3] == 0xFF) {
    return "UTF-32BE";
  }
  if (size >= 2 && p[0] == 0xFF && p[1] == 0xFE) return "UTF-16LE";
  if (size >= 2 && p[0] == 0xFE && p[1] == 0xFF) return "UTF-16BE";
  return nullptr;
}

// ICU's candidates for the text, best first, each encoding once, only those that can be
// converted.
std::vector<Candidate> askDetector(char const* data, std::size_t size) {
  return detail::icuEngine().detect(data, size);
}

bool isWide(std::string const& name) {
  return name == "UTF-16LE" || name == "UTF-16BE" || name == "UTF-32LE" || name == "UTF-32BE";
}

std::string describe(std::vector<Candidate> const& candidates, std::size_t from) {
  std::string text;
  std::size_t const end = std::min(candidates.size(), from + kRunnersUp);
  for (std::size_t i = from; i < end; ++i) {
    if (!text.empty()) text += ", ";
    text += candidates[i].name + " " + std::to_string(candidates[i].confidence);
  }
  return text.empty() ? "none" : text;
}

void remark(std::ostream& remarks, std::string const& dataName, std::string const& charset,
            std::string const& reason) {
  remarks << "charset of " << dataName << ": " << charset << " (" << reason << ")\n";
}

// The reasons for the answers that Utf8TextCheck gives too, in one place so that both say
// the same.
constexpr char const kEmptyReason[] = "empty";
constexpr char const kMarkReason[] = "byte order mark";

std::string wellFormedReason(std::uint64_t size) {
  return "well-formed UTF-8, " + std::to_string(size) + " bytes";
}

constexpr unsigned char kUtf8Mark[] = {0xEF, 0xBB, 0xBF};

}  // namespace

std::string detect_charset(char const* data, std::size_t size, std::ostream& remarks,
                           std::string const& dataName) {
  if (size == 0) {
    remark(remarks, dataName, kUtf8, kEmptyReason);
    return kUtf8;
  }
  auto const* bytes = reinterpret_cast<unsigned char const*>(data);
  if (char const* marked = byteOrderMark(bytes, size)) {
    remark(remarks, dataName, marked, kMarkReason);
    return marked;
  }

  // ICU's detector guesses poorly on short texts and gives no certainty for UTF-8, so
  // well-formed UTF-8 is settled here.  Only zero bytes raise a doubt: they are rare in
  // UTF-8 text, yet UTF-16 and UTF-32 of ASCII letters without a byte order mark are
  // well-formed UTF-8 too.
  if (detail::isWellFormedUtf8(data, size)) {
    if (std::memchr(data, 0, size) == nullptr) {
      remark(remarks, dataName, kUtf8, wellFormedReason(size));
      return kUtf8;
    }
    std::vector<Candidate> const candidates = askDetector(data, size);
    if (!candidates.empty() && isWide(candidates.front().name) &&
        candidates.front().confidence >= kWideOverUtf8) {
      remark(remarks, dataName, candidates.front().name,
             "zero bytes in well-formed UTF-8, detected with confidence " +
                 std::to_string(candidates.front().confidence) +
                 " of 100; runners-up: " + describe(candidates, 1));
      return candidates.front().name;
    }
    remark(remarks, dataName, kUtf8,
           "well-formed UTF-8 with zero bytes, " + std::to_string(size) +
               " bytes; the detector offered: " + describe(candidates, 0));
    return kUtf8;
  }

  std::vector<Candidate> const candidates = askDetector(data, size);
  if (candidates.empty()) {
    remark(remarks, dataName, kEveryByte,
           "no encoding matched; every byte is taken as one character");
    return kEveryByte;
  }
  remark(remarks, dataName, candidates.front().name,
         "not well-formed UTF-8, detected with confidence " +
             std::to_string(candidates.front().confidence) +
             " of 100; runners-up: " + describe(candidates, 1));
  return candidates.front().name;
}

struct Utf8TextCheck::Impl {
  std::uint64_t size = 0;
  // The first bytes of the text, as many as the byte order mark has.
  unsigned char head[sizeof kUtf8Mark] = {};
  bool zeroByte = false;
  detail::Utf8Validator validator;

  bool marked() const {
    return size >= sizeof kUtf8Mark && std::memcmp(head, kUtf8Mark, sizeof kUtf8Mark) == 0;
  }
  // Whether the text may still begin with the mark: its first bytes so far agree with it.
  bool mayBeMarked() const {
    std::size_t const seen = std::min<std::uint64_t>(size, sizeof kUtf8Mark);
    return std::memcmp(head, kUtf8Mark, seen) == 0;
  }
};

Utf8TextCheck::Utf8TextCheck() : impl_(std::make_unique<Impl>()) {}

Utf8TextCheck::~Utf8TextCheck() = default;

void Utf8TextCheck::update(char const* data, std::size_t size) {
  // Nothing to take; `data` may then be null, which memchr must not see.
  if (size == 0) return;
  Impl& state = *impl_;
  auto const* bytes = reinterpret_cast<unsigned char const*>(data);
  for (std::size_t i = 0; state.size + i < sizeof kUtf8Mark && i < size; ++i) {
    state.head[state.size + i] = bytes[i];
  }
  state.size += size;
  // Past a bad byte or a zero byte only the mark can settle the text, and it is in the head.
  if (state.validator.broken() || state.zeroByte) return;
  state.zeroByte = std::memchr(data, 0, size) != nullptr;
  state.validator.update(bytes, size);
}

bool Utf8TextCheck::maySettle() const {
  Impl const& state = *impl_;
  return state.mayBeMarked() || (!state.validator.broken() && !state.zeroByte);
}

bool Utf8TextCheck::settled() const {
  Impl const& state = *impl_;
  return state.size == 0 || state.marked() || (state.validator.wellFormed() && !state.zeroByte);
}

void Utf8TextCheck::writeRemark(std::ostream& remarks, std::string const& dataName) const {
  Impl const& state = *impl_;
  // The order in which detect_charset looks: emptiness, the mark, then the bytes.
  if (state.size == 0) {
    remark(remarks, dataName, kUtf8, kEmptyReason);
  } else if (state.marked()) {
    remark(remarks, dataName, kUtf8, kMarkReason);
  } else {
    remark(remarks, dataName, kUtf8, wellFormedReason(state.size));
  }
}

}  // namespace i18n
}  // namespace fl
