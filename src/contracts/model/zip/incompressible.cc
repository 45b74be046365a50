#include "incompressible.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "chunked_deflate.h"

namespace opc {
namespace model {
namespace detail {
namespace {

// Below this, a content has too few bytes for their spread to tell anything.
constexpr std::size_t kGuessMinimum = 64;
constexpr int kMostHashBits = 12;
// The first bytes are looked at first: text and most structured data use few byte values,
// where even a short stretch of random bytes uses most of them (about 160 of 256 bytes).
constexpr std::size_t kPrefix = 256;
constexpr unsigned kPrefixValues = 128;

// Bits are counted in units of 2^-16 bit, in integers: the same bytes must get the same
// answer on every machine, which floating point, rounded differently by different libraries,
// would not promise near the threshold.
constexpr int kFractionBits = 16;
constexpr std::int64_t kBit = std::int64_t{1} << kFractionBits;

// log2(n) in units of 2^-16, rounded down, by repeated squaring of the mantissa.
std::int64_t log2Of(std::uint32_t n) {
  int whole = 0;
  while ((n >> (whole + 1)) != 0) ++whole;
  // The mantissa n / 2^whole, in [1, 2), with 30 bits after the point.
  std::uint64_t mantissa = (std::uint64_t{n} << 30) >> whole;
  std::int64_t result = std::int64_t{whole} << kFractionBits;
  for (int bit = kFractionBits - 1; bit >= 0; --bit) {
    mantissa = (mantissa * mantissa) >> 30;
    if (mantissa >= (std::uint64_t{2} << 30)) {
      mantissa >>= 1;
      result |= std::int64_t{1} << bit;
    }
  }
  return result;
}

// n·log2(n) for every count a small item can have, so that the entropy of its bytes costs
// one lookup per byte value rather than a logarithm.
using CountTable = std::array<std::int64_t, kSmallContentSize + 1>;

CountTable const& countBits() {
  static CountTable const table = [] {
    CountTable made{};
    for (std::size_t n = 1; n < made.size(); ++n) {
      made[n] = static_cast<std::int64_t>(n) * log2Of(static_cast<std::uint32_t>(n));
    }
    return made;
  }();
  return table;
}

// Little-endian loads (one instruction where the processor is), so that the word at
// data + k is bits 8k to 8k + 31 of eightAt(data).
std::uint32_t wordAt(unsigned char const* data) {
  return std::uint32_t{data[0]} | std::uint32_t{data[1]} << 8 | std::uint32_t{data[2]} << 16 |
         std::uint32_t{data[3]} << 24;
}

std::uint64_t eightAt(unsigned char const* data) {
  return std::uint64_t{wordAt(data)} | std::uint64_t{wordAt(data + 4)} << 32;
}

// Bytes that repeat seven or more bytes seen before: what back references could take away.
// Every position's word of four bytes goes into a table of the last position of each hash,
// and every fourth position looks its word up: a repeat of seven bytes or more covers a
// looked-up position whose whole word lies inside it, at half the work of looking up every
// position.
std::size_t repeatedBytes(unsigned char const* data, std::size_t size) {
  // A slot per byte or so: the table is cleared for every item.
  int bits = 8;
  while (bits < kMostHashBits && (std::size_t{1} << bits) < size) ++bits;
  std::uint16_t last[std::size_t{1} << kMostHashBits];  // position + 1; 0 for none
  std::memset(last, 0, sizeof last[0] << bits);
  auto const hashOf = [bits](std::uint32_t word) { return (word * 2654435761u) >> (32 - bits); };
  std::size_t repeated = 0;
  std::size_t counted = 0;  // positions below this are in a repeat counted already
  std::size_t at = 0;
  for (; at + 8 <= size; at += 4) {
    // The words at `at` to at + 3 out of one load of eight bytes.
    std::uint64_t const bytes = eightAt(data + at);
    std::uint32_t const word = static_cast<std::uint32_t>(bytes);
    std::size_t const earlier = last[hashOf(word)];
    if (at >= counted && earlier != 0 && wordAt(data + earlier - 1) == word) {
      std::size_t length = 4;
      while (at + length < size && data[earlier - 1 + length] == data[at + length]) ++length;
      repeated += length;
      counted = at + length;
    }
    for (unsigned k = 0; k < 4; ++k) {
      last[hashOf(static_cast<std::uint32_t>(bytes >> (8 * k)))] =
          static_cast<std::uint16_t>(at + k + 1);
    }
  }
  // The last few positions only look back: nothing after them would find them.
  for (; at + 4 <= size; ++at) {
    std::uint32_t const word = wordAt(data + at);
    std::size_t const earlier = last[hashOf(word)];
    if (at >= counted && earlier != 0 && wordAt(data + earlier - 1) == word) {
      repeated += size - at;
      break;
    }
  }
  return repeated;
}

}  // namespace

bool looksIncompressible(unsigned char const* data, std::size_t size) {
  if (size < kGuessMinimum || size > kSmallContentSize) return false;
  std::uint32_t counts[256] = {};
  std::size_t const prefix = size < kPrefix ? size : kPrefix;
  unsigned values = 0;
  for (std::size_t i = 0; i < prefix; ++i) values += counts[data[i]]++ == 0;
  if (values < kPrefixValues * prefix / kPrefix) return false;
  std::size_t i = prefix;
  for (; i + 8 <= size; i += 8) {
    std::uint64_t const bytes = eightAt(data + i);
    for (unsigned k = 0; k < 8; ++k) ++counts[(bytes >> (8 * k)) & 0xFF];
  }
  for (; i < size; ++i) ++counts[data[i]];
  CountTable const& table = countBits();
  // The fewest bits any code for single bytes needs, size·log2(size) − Σ count·log2(count),
  // and the description of the code, at least a couple of bits for each value that occurs.
  std::int64_t bits = table[size];
  for (std::uint32_t count : counts) {
    if (count != 0) bits -= table[count] - 2 * kBit;
  }
  std::int64_t const stored = 8 * kBit * static_cast<std::int64_t>(size);
  if (bits < stored) return false;
  // Every repeated byte could be taken away by a reference, as if it cost nothing.
  return bits - 8 * kBit * static_cast<std::int64_t>(repeatedBytes(data, size)) >= stored;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
