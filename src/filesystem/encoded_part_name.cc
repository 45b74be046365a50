#include "filesystem/encoded_part_name.h"

#include <cstdint>
#include <cstring>
#include <iterator>

namespace opc {
namespace vkservices {
namespace detail {
namespace {

// Per ASCII unit, whether a part name keeps it as it stands.
struct KeptUnits {
  bool of[128] = {};
  constexpr KeptUnits() {
    for (char c = 'a'; c <= 'z'; ++c) of[static_cast<unsigned char>(c)] = true;
    for (char c = 'A'; c <= 'Z'; ++c) of[static_cast<unsigned char>(c)] = true;
    for (char c = '0'; c <= '9'; ++c) of[static_cast<unsigned char>(c)] = true;
    for (char const c : std::string_view("-._~/+@")) of[static_cast<unsigned char>(c)] = true;
  }
};
constexpr KeptUnits kKept;

// Per byte, its escape, ready to be copied in one piece: a name of another script is nearly all
// escapes, and three appends for each byte cost more than the rest of the name's handling.
struct Escapes {
  char16_t of[256][3] = {};
  constexpr Escapes() {
    constexpr char16_t kHex[] = u"0123456789ABCDEF";
    for (int b = 0; b < 256; ++b) {
      of[b][0] = u'%';
      of[b][1] = kHex[b >> 4];
      of[b][2] = kHex[b & 0xF];
    }
  }
};
constexpr Escapes kEscapes;

bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool isLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

char16_t* putEscape(char16_t* to, std::uint32_t byte) {
  std::memcpy(to, kEscapes.of[byte], sizeof kEscapes.of[byte]);
  return to + 3;
}

// The most units that one character of a path gives: a surrogate pair, four escapes.
constexpr std::size_t kMostPerCharacter = 12;

// Writes at `to` what the character at `at` in `path` gives, moves `at` past it (one unit or
// a surrogate pair) and returns the end of what it wrote.
char16_t* putCharacter(std::u16string_view path, std::size_t& at, char16_t* to) {
  char16_t const unit = path[at++];
  if (unit < 0x80) {
    if (kKept.of[unit]) {
      *to = unit;
      return to + 1;
    }
    return putEscape(to, unit);
  }
  std::uint32_t point = unit;
  if (isHighSurrogate(unit) && at < path.size() && isLowSurrogate(path[at])) {
    point = 0x10000 + ((point - 0xD800) << 10) + (path[at++] - 0xDC00);
  }
  if (point < 0x800) {
    to = putEscape(to, 0xC0 | (point >> 6));
  } else if (point < 0x10000) {
    to = putEscape(to, 0xE0 | (point >> 12));
    to = putEscape(to, 0x80 | ((point >> 6) & 0x3F));
  } else {
    to = putEscape(to, 0xF0 | (point >> 18));
    to = putEscape(to, 0x80 | ((point >> 12) & 0x3F));
    to = putEscape(to, 0x80 | ((point >> 6) & 0x3F));
  }
  return putEscape(to, 0x80 | (point & 0x3F));
}

// Writes the encoded name of `path` into a block on the stack and hands each full block, and
// the last, to `take(units, count)`; stops early when `take` returns false.  A block at a time
// rather than a unit or an escape at a time: a name of another script is nearly all escapes.
template <typename Take>
bool encodeInBlocks(std::u16string_view path, Take&& take) {
  char16_t block[512];
  std::memcpy(block, kPartRoot.data(), kPartRoot.size() * sizeof(char16_t));
  char16_t* to = block + kPartRoot.size();
  for (std::size_t at = 0; at < path.size();) {
    if (static_cast<std::size_t>(std::end(block) - to) < kMostPerCharacter) {
      if (!take(block, static_cast<std::size_t>(to - block))) return false;
      to = block;
    }
    to = putCharacter(path, at, to);
  }
  return take(block, static_cast<std::size_t>(to - block));
}

}  // namespace

void appendEncodedPartName(std::u16string_view path, std::u16string& out) {
  encodeInBlocks(path, [&out](char16_t const* units, std::size_t count) {
    out.append(units, count);
    return true;
  });
}

bool isEncodedPartNameOf(std::u16string_view path, std::u16string_view name) {
  // Compared a block at a time as it is made, without making the whole.
  if (name.size() < kPartRoot.size() + path.size()) return false;
  std::size_t compared = 0;
  bool const same = encodeInBlocks(path, [&](char16_t const* units, std::size_t count) {
    if (name.size() - compared < count ||
        std::memcmp(name.data() + compared, units, count * sizeof(char16_t)) != 0) {
      return false;
    }
    compared += count;
    return true;
  });
  return same && compared == name.size();
}

}  // namespace detail
}  // namespace vkservices
}  // namespace opc
