// Helpers that the fuzz targets share: turning the engine's bytes into text, a reference
// UTF-8 reader and writer that do not come from the code under test, and the check that
// stops a run with a readable report when an invariant breaks.
#ifndef FUZZ_FUZZ_SUPPORT_H_
#define FUZZ_FUZZ_SUPPORT_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <typeinfo>
#include <utility>

namespace opcvk_fuzz {

// The text as C-style escapes, so that a report shows control bytes and non-ASCII units.
inline std::string printable(std::u16string const& text) {
  std::string out;
  for (char16_t unit : text) {
    if (unit >= 0x20 && unit < 0x7F && unit != '\\') {
      out += static_cast<char>(unit);
    } else {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\u%04X", static_cast<unsigned>(unit));
      out += buffer;
    }
  }
  return out;
}

inline std::string printable(std::string const& bytes) {
  std::string out;
  for (char byte : bytes) {
    auto const value = static_cast<unsigned char>(byte);
    if (value >= 0x20 && value < 0x7F && value != '\\') {
      out += byte;
    } else {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\x%02X", static_cast<unsigned>(value));
      out += buffer;
    }
  }
  return out;
}

// Reports a broken invariant and aborts, which the engine records as a crash together with
// the input that caused it.
[[noreturn]] inline void fail(char const* invariant, std::string const& detail) {
  std::fprintf(stderr, "\n*** invariant broken: %s\n*** %s\n", invariant, detail.c_str());
  std::fflush(stderr);
  std::abort();
}

inline void check(bool holds, char const* invariant, std::string const& detail) {
  if (!holds) fail(invariant, detail);
}

// Runs `operation`.  Returns true if it returned, false if it threw `Allowed` (what the
// contract promises for bad input); any other exception is a finding.
template <class Allowed, class Operation>
bool succeeds(char const* name, std::string const& input, Operation&& operation) {
  try {
    std::forward<Operation>(operation)();
    return true;
  } catch (Allowed const&) {
    return false;
  } catch (std::exception const& e) {
    fail("only the documented exception is thrown",
         std::string(name) + " on \"" + input + "\" threw " + typeid(e).name() + ": " + e.what());
  } catch (...) {
    fail("only the documented exception is thrown",
         std::string(name) + " on \"" + input + "\" threw something that is no std::exception");
  }
}

// Runs `operation`, which must not throw at all for this input.
template <class Operation>
void mustNotThrow(char const* name, std::string const& input, Operation&& operation) {
  try {
    std::forward<Operation>(operation)();
  } catch (std::exception const& e) {
    fail("no exception here",
         std::string(name) + " on \"" + input + "\" threw " + typeid(e).name() + ": " + e.what());
  } catch (...) {
    fail("no exception here", std::string(name) + " on \"" + input + "\" threw a non-std type");
  }
}

// The length of the well-formed UTF-8 sequence at `bytes[i]` (Unicode table 3-7), or 0.
// With `surrogates`, the encoded surrogates ED A0..BF xx are accepted too.
inline std::size_t utf8SequenceLength(std::string const& bytes, std::size_t i,
                                      bool surrogates = false) {
  auto at = [&](std::size_t k) -> unsigned {
    return i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0x100u;
  };
  auto cont = [&](std::size_t k, unsigned low = 0x80, unsigned high = 0xBF) {
    return at(k) >= low && at(k) <= high;
  };
  unsigned const lead = at(0);
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return cont(1) ? 2 : 0;
  if (lead == 0xE0) return cont(1, 0xA0) && cont(2) ? 3 : 0;
  if (lead == 0xED) return cont(1, 0x80, surrogates ? 0xBF : 0x9F) && cont(2) ? 3 : 0;
  if (lead >= 0xE1 && lead <= 0xEF) return cont(1) && cont(2) ? 3 : 0;
  if (lead == 0xF0) return cont(1, 0x90) && cont(2) && cont(3) ? 4 : 0;
  if (lead >= 0xF1 && lead <= 0xF3) return cont(1) && cont(2) && cont(3) ? 4 : 0;
  if (lead == 0xF4) return cont(1, 0x80, 0x8F) && cont(2) && cont(3) ? 4 : 0;
  return 0;
}

inline bool isWellFormedUTF8(std::string const& bytes) {
  for (std::size_t i = 0; i < bytes.size();) {
    std::size_t const length = utf8SequenceLength(bytes, i);
    if (length == 0) return false;
    i += length;
  }
  return true;
}

inline char32_t decodeSequence(std::string const& bytes, std::size_t i, std::size_t length) {
  auto byte = [&](std::size_t k) {
    return static_cast<char32_t>(static_cast<unsigned char>(bytes[i + k]));
  };
  switch (length) {
    case 1:
      return byte(0);
    case 2:
      return ((byte(0) & 0x1F) << 6) | (byte(1) & 0x3F);
    case 3:
      return ((byte(0) & 0x0F) << 12) | ((byte(1) & 0x3F) << 6) | (byte(2) & 0x3F);
    default:
      return ((byte(0) & 0x07) << 18) | ((byte(1) & 0x3F) << 12) | ((byte(2) & 0x3F) << 6) |
             (byte(3) & 0x3F);
  }
}

inline void appendUTF16(std::u16string& out, char32_t c) {
  if (c < 0x10000) {
    out += static_cast<char16_t>(c);
  } else {
    out += static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
    out += static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF));
  }
}

// The fuzz input as UTF-16 text for the operations that take text.  Well-formed UTF-8
// sequences, and encoded surrogates (so that unpaired surrogates reach the code under test),
// give their characters; every other byte gives the ISO-8859-1 character of its value, so
// that every input is some text and the dictionaries can stay in UTF-8.
inline std::u16string textFromBytes(std::string const& bytes) {
  std::u16string out;
  for (std::size_t i = 0; i < bytes.size();) {
    std::size_t const length = utf8SequenceLength(bytes, i, true);
    if (length == 0) {
      out += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]));
      ++i;
    } else {
      appendUTF16(out, decodeSequence(bytes, i, length));
      i += length;
    }
  }
  return out;
}

// UTF-8 of UTF-16 text; an unpaired surrogate becomes U+FFFD, as the library promises.
inline std::string utf8FromText(std::u16string const& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

// Cuts the input at its first byte `separator`: what comes before and what comes after
// (empty if there is no separator).
inline std::pair<std::string, std::string> splitAt(std::string const& input, char separator) {
  std::size_t const position = input.find(separator);
  if (position == std::string::npos) return {input, std::string()};
  return {input.substr(0, position), input.substr(position + 1)};
}

}  // namespace opcvk_fuzz

#endif  // FUZZ_FUZZ_SUPPORT_H_
