// The one-pass check of an archive item's name (see isPlainPartItemName), byte by byte and, where
// the processor has the instructions, sixteen bytes at a time.  Both are here, inline, so that
// tests hold the wide one to the byte-wise one over any input.  Internal to libopcmodel.
#ifndef OPC_MODEL_PLAIN_ITEM_NAME_H_
#define OPC_MODEL_PLAIN_ITEM_NAME_H_

#include <cstddef>
#include <cstring>
#include <string_view>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__SSE2__) && defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
// The shuffle instruction classifies sixteen bytes by table; compiled for the processors that
// have it and chosen at run time (see isPlainPartItemName).
#include <tmmintrin.h>
#define OPC_MODEL_PLAIN_ITEM_NAME_SHUFFLE 1
#endif

namespace opc {
namespace model {
namespace detail {

// What each byte of an item name is to the check: a segment character other than "%"
// (unreserved, sub-delims, ":" and "@"), a "/", the "%" of an escape, or anything else (every
// byte from 0x80 on among them).
enum class PlainItemByte : unsigned char { kOther, kSegment, kSlash, kPercent };

struct PlainItemBytes {
  PlainItemByte kind[256] = {};
  constexpr PlainItemBytes() {
    for (char c = 'a'; c <= 'z'; ++c) kind[static_cast<unsigned char>(c)] = PlainItemByte::kSegment;
    for (char c = 'A'; c <= 'Z'; ++c) kind[static_cast<unsigned char>(c)] = PlainItemByte::kSegment;
    for (char c = '0'; c <= '9'; ++c) kind[static_cast<unsigned char>(c)] = PlainItemByte::kSegment;
    for (char const c : std::string_view("-._~!$&'()*+,;=:@")) {
      kind[static_cast<unsigned char>(c)] = PlainItemByte::kSegment;
    }
    kind[static_cast<unsigned char>('/')] = PlainItemByte::kSlash;
    kind[static_cast<unsigned char>('%')] = PlainItemByte::kPercent;
  }
};
inline constexpr PlainItemBytes kPlainItemBytes;

// Per byte, its value as a hexadecimal digit, or -1.
struct HexDigitValues {
  signed char of[256] = {};
  constexpr HexDigitValues() {
    for (int b = 0; b < 256; ++b) of[b] = -1;
    for (int d = 0; d < 10; ++d) of['0' + d] = static_cast<signed char>(d);
    for (int d = 0; d < 6; ++d) {
      of['a' + d] = static_cast<signed char>(10 + d);
      of['A' + d] = static_cast<signed char>(10 + d);
    }
  }
};
inline constexpr HexDigitValues kHexDigitValues;

// The bytes that an escape may encode: every one but "/", "\\" and the unreserved characters.
struct EscapableItemBytes {
  bool of[256] = {};
  constexpr EscapableItemBytes() {
    for (int b = 0; b < 256; ++b) {
      bool const unreserved = (b >= 'a' && b <= 'z') || (b >= 'A' && b <= 'Z') ||
                              (b >= '0' && b <= '9') || b == '-' || b == '.' || b == '_' ||
                              b == '~';
      of[b] = !unreserved && b != '/' && b != '\\';
    }
  }
};
inline constexpr EscapableItemBytes kEscapableItemBytes;

// Whether the "%" at `at` begins an escape that a part name keeps as it is: two hexadecimal
// digits, of a byte that has to be escaped.  Names of other scripts are written with such
// escapes, one for each byte of their UTF-8 form.
inline bool isPlainEscapeAt(std::string_view itemName, std::size_t at) {
  if (itemName.size() - at < 3) return false;
  int const high = kHexDigitValues.of[static_cast<unsigned char>(itemName[at + 1])];
  int const low = kHexDigitValues.of[static_cast<unsigned char>(itemName[at + 2])];
  return high >= 0 && low >= 0 && kEscapableItemBytes.of[high * 16 + low];
}

// The rule by the byte: the reference that the wide check must agree with.
inline bool isPlainItemNameBytewise(std::string_view itemName) {
  if (itemName.empty() || itemName.back() == '/') return false;
  std::size_t segmentStart = 0;
  for (std::size_t i = 0; i < itemName.size(); ++i) {
    PlainItemByte const kind = kPlainItemBytes.kind[static_cast<unsigned char>(itemName[i])];
    if (kind == PlainItemByte::kSegment) continue;
    if (kind == PlainItemByte::kPercent) {
      // Its two digits are segment characters: what follows them is checked as usual.
      if (!isPlainEscapeAt(itemName, i)) return false;
      i += 2;
      continue;
    }
    // Empty, ending in "." (which covers "." and ".."): the full check words the refusal.
    if (kind == PlainItemByte::kOther || i == segmentStart || itemName[i - 1] == '.') {
      return false;
    }
    segmentStart = i + 1;
  }
  // The last segment, not empty since the name does not end in "/".
  return itemName.back() != '.';
}

#if defined(__SSE2__)
// One block of sixteen bytes of an item name, for the checks sixteen bytes a step: the bytes,
// which of them belong to the name, and how far the next block starts.
struct ItemNameBlock {
  __m128i bytes;
  unsigned valid = 0xFFFF;
  std::size_t step = 16;
};

// The block at `at`, with `left` bytes of the name that starts at `begin` still to check.
// Where fewer than sixteen are left after the first block, the block is the name's last
// sixteen bytes, some of them checked already: `at` and `left` move back to them (every check
// gives the same answer for a byte seen twice), and `before` (whether the byte before the
// block is a "/" or a ".") is told again.  A name of fewer than sixteen bytes is one block
// padded with zero bytes, which are no "/" or "." and which `valid` leaves out of the rest.
inline ItemNameBlock loadItemNameBlock(unsigned char const* begin, unsigned char const*& at,
                                       std::size_t& left, unsigned& before) {
  ItemNameBlock block;
  if (left >= 16) {
    block.bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(at));
  } else if (at != begin) {
    std::size_t const back = 16 - left;
    at -= back;
    left += back;
    unsigned char const previous = at[-1];
    before = (previous == '/' || previous == '.') ? 1 : 0;
    block.bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(at));
  } else {
    unsigned char tail[16] = {};
    std::memcpy(tail, at, left);
    block.bytes = _mm_loadu_si128(reinterpret_cast<__m128i const*>(tail));
    block.valid = (1u << left) - 1;
    block.step = left;
  }
  return block;
}

// Whether every "%" that the bits of `percent` mark in the block at `at` (of the name that
// starts at `begin`) starts an escape that a plain name may hold.
inline bool escapesArePlain(std::string_view itemName, unsigned char const* begin,
                            unsigned char const* at, unsigned percent) {
  for (; percent != 0; percent &= percent - 1) {
    std::size_t const offset = static_cast<std::size_t>(at - begin) + __builtin_ctz(percent);
    if (!isPlainEscapeAt(itemName, offset)) return false;
  }
  return true;
}

// The same rule over sixteen bytes a step.  The segment characters, "/" and "%" are the
// printable ASCII bytes but for six single ones and two short runs; a segment is empty or ends
// in "." exactly where a "/" follows a "/" or a ".", or the name starts with "/" or ends in "/"
// or ".".  Each "%" found is then checked for its escape on its own.  Names of a deep tree run to a
// kilobyte and more, and a step per byte made this check the dearest part of opening such a
// package.
inline bool isPlainItemNameWide(std::string_view itemName) {
  std::size_t left = itemName.size();
  if (left == 0 || itemName.back() == '/' || itemName.back() == '.') return false;
  auto const* const begin = reinterpret_cast<unsigned char const*>(itemName.data());
  auto const* at = begin;
  auto const byte = [](char c) { return _mm_set1_epi8(c); };
  // Whether the byte before the block was a "/" or a "."; a "/" first is as if after a "/".
  unsigned before = 1;
  while (left != 0) {
    ItemNameBlock const block = loadItemNameBlock(begin, at, left, before);
    __m128i const bytes = block.bytes;
    unsigned const valid = block.valid;
    std::size_t const step = block.step;
    // Signed, the bytes from 0x80 up are below 0x20: this is 0x21 to 0x7E.
    __m128i const printable =
        _mm_and_si128(_mm_cmpgt_epi8(bytes, byte(0x20)), _mm_cmpgt_epi8(byte(0x7F), bytes));
    __m128i const single = _mm_or_si128(_mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, byte('"')),
                                                                  _mm_cmpeq_epi8(bytes, byte('#'))),
                                                     _mm_cmpeq_epi8(bytes, byte('<'))),
                                        _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, byte('>')),
                                                                  _mm_cmpeq_epi8(bytes, byte('?'))),
                                                     _mm_cmpeq_epi8(bytes, byte('`'))));
    // "[\]^" and "{|}".
    __m128i const runs = _mm_or_si128(
        _mm_and_si128(_mm_cmpgt_epi8(bytes, byte('Z')), _mm_cmpgt_epi8(byte('_'), bytes)),
        _mm_and_si128(_mm_cmpgt_epi8(bytes, byte('z')), _mm_cmpgt_epi8(byte('~'), bytes)));
    unsigned const taken = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_andnot_si128(_mm_or_si128(single, runs), printable)));
    if ((taken & valid) != valid) return false;
    unsigned const slash =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, byte('/'))));
    unsigned const stop =
        slash | static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, byte('.'))));
    if ((slash & ((stop << 1) | before)) != 0) return false;
    before = (stop >> 15) & 1;
    unsigned percent = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, byte('%'))));
    if (!escapesArePlain(itemName, begin, at, percent)) return false;
    at += step;
    left -= step;
  }
  return true;
}
#endif

#if defined(OPC_MODEL_PLAIN_ITEM_NAME_SHUFFLE)
// Byte classes by their two halves, for the shuffle instruction: a byte is in a class when the
// entry of its low half and the entry of its high half share a bit.  Each high half from 2 to 7
// (the printable ASCII bytes) has a bit of its own; every other high half has none, so that
// control bytes and bytes from 0x80 on are in no class.
struct NibbleClass {
  alignas(16) unsigned char low[16] = {};
  alignas(16) unsigned char high[16] = {};
};

template <typename InClass>
constexpr NibbleClass makeNibbleClass(InClass inClass) {
  NibbleClass table;
  for (int h = 2; h <= 7; ++h) {
    unsigned char const bit = static_cast<unsigned char>(1u << (h - 2));
    table.high[h] = bit;
    for (int l = 0; l < 16; ++l) {
      if (inClass(h * 16 + l)) table.low[l] = static_cast<unsigned char>(table.low[l] | bit);
    }
  }
  return table;
}

// Segment characters, "/" and "%".
inline constexpr NibbleClass kTakenBytes =
    makeNibbleClass([](int b) { return kPlainItemBytes.kind[b] != PlainItemByte::kOther; });
// Hexadecimal digits, and those of the first half of a byte from 0x80 on: every such byte
// must be escaped, so its escape needs no further look.
inline constexpr NibbleClass kHexDigits =
    makeNibbleClass([](int b) { return kHexDigitValues.of[b] >= 0; });
inline constexpr NibbleClass kHighHexDigits =
    makeNibbleClass([](int b) { return kHexDigitValues.of[b] >= 8; });

// The bits of the bytes of `bytes` that are in `table`'s class.
__attribute__((target("ssse3"))) inline unsigned nibbleClassMask(__m128i bytes,
                                                                 NibbleClass const& table) {
  __m128i const halfMask = _mm_set1_epi8(0x0F);
  __m128i const low = _mm_shuffle_epi8(_mm_load_si128(reinterpret_cast<__m128i const*>(table.low)),
                                       _mm_and_si128(bytes, halfMask));
  __m128i const high =
      _mm_shuffle_epi8(_mm_load_si128(reinterpret_cast<__m128i const*>(table.high)),
                       _mm_and_si128(_mm_srli_epi16(bytes, 4), halfMask));
  __m128i const none = _mm_cmpeq_epi8(_mm_and_si128(low, high), _mm_setzero_si128());
  return static_cast<unsigned>(_mm_movemask_epi8(none)) ^ 0xFFFF;
}

// The rule of isPlainItemNameWide with the byte classes found by table, and the escapes of
// bytes from 0x80 on, all the escapes of a name of another script, told sixteen at a time.
__attribute__((target("ssse3"))) inline bool isPlainItemNameShuffle(std::string_view itemName) {
  std::size_t left = itemName.size();
  if (left == 0 || itemName.back() == '/' || itemName.back() == '.') return false;
  auto const* const begin = reinterpret_cast<unsigned char const*>(itemName.data());
  auto const* const end = begin + itemName.size();
  auto const* at = begin;
  unsigned before = 1;
  while (left != 0) {
    ItemNameBlock const block = loadItemNameBlock(begin, at, left, before);
    __m128i const bytes = block.bytes;
    unsigned const valid = block.valid;
    std::size_t const step = block.step;
    if ((nibbleClassMask(bytes, kTakenBytes) & valid) != valid) return false;
    unsigned const slash =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('/'))));
    unsigned const stop =
        slash | static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('.'))));
    if ((slash & ((stop << 1) | before)) != 0) return false;
    before = (stop >> 15) & 1;
    unsigned percent =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('%'))));
    if (percent != 0 && end - at >= 18) {
      // An escape whose first digit is 8 or more, and whose second is a digit, is of a byte
      // that must be escaped; the others are looked at one by one.
      __m128i const first = _mm_loadu_si128(reinterpret_cast<__m128i const*>(at + 1));
      __m128i const second = _mm_loadu_si128(reinterpret_cast<__m128i const*>(at + 2));
      percent &= ~(nibbleClassMask(first, kHighHexDigits) & nibbleClassMask(second, kHexDigits));
    }
    if (!escapesArePlain(itemName, begin, at, percent)) return false;
    at += step;
    left -= step;
  }
  return true;
}
#endif

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PLAIN_ITEM_NAME_H_
