// A deflate block walker.  It decodes each block's Huffman symbols without producing any
// output, which is all it takes to find where the blocks end: deflate blocks carry no length.
// It reads only what it is given, and fails on anything it cannot follow.
#include "deflate_join.h"

#include <algorithm>
#include <cstring>

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr unsigned kMaxCodeLength = 15;
constexpr unsigned kPrimaryBits = 10;  // codes up to this long decode with one table look-up
constexpr unsigned kMaxLitLenCodes = 288;
constexpr unsigned kMaxDistanceCodes = 32;

// Extra bits of the length symbols 257..285 and of the distance symbols 0..29.
constexpr unsigned char kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                            2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr unsigned char kDistanceExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                              6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
// The order in which a dynamic block gives the lengths of the code-length code.
constexpr unsigned char kCodeLengthOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                                11, 4,  12, 3, 13, 2, 14, 1, 15};

class BitReader {
 public:
  BitReader(unsigned char const* data, std::size_t size)
      : data_(data), size_(size), total_(static_cast<std::uint64_t>(size) * 8) {}

  std::uint64_t position() const { return position_; }
  bool has(std::uint64_t count) const { return count <= total_ - position_; }

  // The next `count` (at most 32) bits, least significant first; zeros past the end.
  std::uint32_t peek(unsigned count) const {
    std::size_t const byte = static_cast<std::size_t>(position_ >> 3);
    std::uint64_t value = 0;
    std::size_t const available = std::min<std::size_t>(8, size_ - byte);
    if (available == 8) {
      // Every symbol takes a peek: eight bytes in one load where they are all there, rather
      // than a byte at a time, halves the work of the walk over a large deflated item.
      std::memcpy(&value, data_ + byte, 8);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
      value = __builtin_bswap64(value);
#endif
    } else {
      for (std::size_t i = 0; i < available; ++i) {
        value |= static_cast<std::uint64_t>(data_[byte + i]) << (8 * i);
      }
    }
    value >>= (position_ & 7);
    return static_cast<std::uint32_t>(value & ((std::uint64_t{1} << count) - 1));
  }

  void skip(std::uint64_t count) { position_ += count; }

  bool take(unsigned count, std::uint32_t& value) {
    if (!has(count)) return false;
    value = peek(count);
    position_ += count;
    return true;
  }

  void alignToByte() { position_ = std::min(total_, (position_ + 7) & ~std::uint64_t{7}); }

 private:
  unsigned char const* data_;
  std::size_t size_;
  std::uint64_t total_;
  std::uint64_t position_ = 0;
};

// A canonical Huffman code: a table for short codes, and a bit-by-bit walk for the rest.
class HuffmanCode {
 public:
  // False for an over-subscribed set of lengths.  Incomplete codes are accepted; a pattern
  // without a code fails when it is met.
  bool build(unsigned char const* lengths, unsigned count) {
    std::fill(std::begin(counts_), std::end(counts_), 0);
    std::fill(std::begin(table_), std::end(table_), 0);
    for (unsigned s = 0; s < count; ++s) ++counts_[lengths[s]];
    counts_[0] = 0;
    int left = 1;
    for (unsigned len = 1; len <= kMaxCodeLength; ++len) {
      left <<= 1;
      left -= counts_[len];
      if (left < 0) return false;
    }
    std::uint16_t offsets[kMaxCodeLength + 2] = {};
    for (unsigned len = 1; len <= kMaxCodeLength; ++len) {
      offsets[len + 1] = static_cast<std::uint16_t>(offsets[len] + counts_[len]);
    }
    std::uint32_t next[kMaxCodeLength + 1] = {};
    std::uint32_t code = 0;
    for (unsigned len = 1; len <= kMaxCodeLength; ++len) {
      code = (code + counts_[len - 1]) << 1;
      next[len] = code;
    }
    for (unsigned s = 0; s < count; ++s) {
      unsigned const len = lengths[s];
      if (len == 0) continue;
      symbols_[offsets[len]++] = static_cast<std::uint16_t>(s);
      std::uint32_t const c = next[len]++;
      if (len > kPrimaryBits) continue;
      // Deflate sends a code's bits from its most significant one: index by the reversal.
      std::uint32_t reversed = 0;
      for (unsigned i = 0; i < len; ++i) reversed |= ((c >> i) & 1u) << (len - 1 - i);
      auto const entry = static_cast<std::uint16_t>((s << 4) | len);
      for (std::uint32_t i = reversed; i < (1u << kPrimaryBits); i += 1u << len) table_[i] = entry;
    }
    return true;
  }

  // The next symbol, or -1.
  int decode(BitReader& bits) const {
    std::uint16_t const entry = table_[bits.peek(kPrimaryBits)];
    if (entry != 0) {
      unsigned const len = entry & 15u;
      if (!bits.has(len)) return -1;
      bits.skip(len);
      return entry >> 4;
    }
    int code = 0;
    int first = 0;
    int index = 0;
    for (unsigned len = 1; len <= kMaxCodeLength; ++len) {
      std::uint32_t bit = 0;
      if (!bits.take(1, bit)) return -1;
      code |= static_cast<int>(bit);
      int const count = counts_[len];
      if (code - count < first) return symbols_[index + (code - first)];
      index += count;
      first += count;
      first <<= 1;
      code <<= 1;
    }
    return -1;
  }

 private:
  std::uint16_t counts_[kMaxCodeLength + 1] = {};
  std::uint16_t symbols_[kMaxLitLenCodes] = {};
  std::uint16_t table_[1u << kPrimaryBits] = {};
};

struct FixedCodes {
  HuffmanCode literals;
  HuffmanCode distances;
  FixedCodes() {
    unsigned char lengths[kMaxLitLenCodes];
    std::fill(lengths, lengths + 144, 8);
    std::fill(lengths + 144, lengths + 256, 9);
    std::fill(lengths + 256, lengths + 280, 7);
    std::fill(lengths + 280, lengths + 288, 8);
    literals.build(lengths, kMaxLitLenCodes);
    std::fill(lengths, lengths + kMaxDistanceCodes, 5);
    distances.build(lengths, kMaxDistanceCodes);
  }
};

bool skipStored(BitReader& bits) {
  bits.alignToByte();
  std::uint32_t length = 0;
  std::uint32_t complement = 0;
  if (!bits.take(16, length) || !bits.take(16, complement)) return false;
  if (length != (~complement & 0xFFFFu)) return false;
  if (!bits.has(std::uint64_t{length} * 8)) return false;
  bits.skip(std::uint64_t{length} * 8);
  return true;
}

bool skipSymbols(BitReader& bits, HuffmanCode const& literals, HuffmanCode const& distances) {
  for (;;) {
    int const symbol = literals.decode(bits);
    if (symbol < 0) return false;
    if (symbol < 256) continue;
    if (symbol == 256) return true;
    unsigned const length = static_cast<unsigned>(symbol - 257);
    if (length >= sizeof kLengthExtra) return false;
    if (!bits.has(kLengthExtra[length])) return false;
    bits.skip(kLengthExtra[length]);
    int const distance = distances.decode(bits);
    if (distance < 0 || distance >= static_cast<int>(sizeof kDistanceExtra)) return false;
    if (!bits.has(kDistanceExtra[distance])) return false;
    bits.skip(kDistanceExtra[distance]);
  }
}

bool skipDynamic(BitReader& bits, HuffmanCode& literals, HuffmanCode& distances) {
  std::uint32_t hlit = 0;
  std::uint32_t hdist = 0;
  std::uint32_t hclen = 0;
  if (!bits.take(5, hlit) || !bits.take(5, hdist) || !bits.take(4, hclen)) return false;
  unsigned const literalCount = hlit + 257;
  unsigned const distanceCount = hdist + 1;
  if (literalCount > 286 || distanceCount > 30) return false;
  unsigned char lengths[kMaxLitLenCodes + kMaxDistanceCodes] = {};
  for (unsigned i = 0; i < hclen + 4; ++i) {
    std::uint32_t length = 0;
    if (!bits.take(3, length)) return false;
    lengths[kCodeLengthOrder[i]] = static_cast<unsigned char>(length);
  }
  HuffmanCode lengthCode;
  if (!lengthCode.build(lengths, 19)) return false;
  std::fill(std::begin(lengths), std::end(lengths), 0);
  unsigned const total = literalCount + distanceCount;
  unsigned index = 0;
  while (index < total) {
    int const symbol = lengthCode.decode(bits);
    if (symbol < 0) return false;
    if (symbol < 16) {
      lengths[index++] = static_cast<unsigned char>(symbol);
      continue;
    }
    unsigned char value = 0;
    std::uint32_t repeat = 0;
    if (symbol == 16) {
      if (index == 0 || !bits.take(2, repeat)) return false;
      value = lengths[index - 1];
      repeat += 3;
    } else if (symbol == 17) {
      if (!bits.take(3, repeat)) return false;
      repeat += 3;
    } else {
      if (!bits.take(7, repeat)) return false;
      repeat += 11;
    }
    if (index + repeat > total) return false;
    std::fill(lengths + index, lengths + index + repeat, value);
    index += repeat;
  }
  if (lengths[256] == 0) return false;  // a block must be able to end
  return literals.build(lengths, literalCount) &&
         distances.build(lengths + literalCount, distanceCount) &&
         skipSymbols(bits, literals, distances);
}

}  // namespace

bool findDeflateBlocks(unsigned char const* data, std::size_t size, DeflateBlockBounds& bounds) {
  static FixedCodes const fixed;
  BitReader bits(data, size);
  HuffmanCode literals;
  HuffmanCode distances;
  for (;;) {
    std::uint64_t const start = bits.position();
    std::uint32_t final = 0;
    std::uint32_t type = 0;
    if (!bits.take(1, final) || !bits.take(2, type)) return false;
    bool ok = false;
    switch (type) {
      case 0:
        ok = skipStored(bits);
        break;
      case 1:
        ok = skipSymbols(bits, fixed.literals, fixed.distances);
        break;
      case 2:
        ok = skipDynamic(bits, literals, distances);
        break;
      default:
        return false;
    }
    if (!ok) return false;
    if (final != 0) {
      bounds.lastBlockStart = start;
      bounds.end = bits.position();
      return true;
    }
  }
}

bool makeDeflatePiece(std::vector<unsigned char>& stream) {
  DeflateBlockBounds bounds;
  if (!findDeflateBlocks(stream.data(), stream.size(), bounds)) return false;
  stream[static_cast<std::size_t>(bounds.lastBlockStart >> 3)] &=
      static_cast<unsigned char>(~(1u << (bounds.lastBlockStart & 7)));
  // An empty stored block right after the last code: three zero header bits, zero padding to
  // the byte, then LEN 0 and NLEN 0xFFFF.  The next piece then starts on a byte boundary.
  std::size_t const endByte = static_cast<std::size_t>(bounds.end >> 3);
  std::size_t const size = static_cast<std::size_t>((bounds.end + 3 + 7) >> 3);
  stream.resize(size, 0);
  stream[endByte] &= static_cast<unsigned char>((1u << (bounds.end & 7)) - 1);
  std::fill(stream.begin() + static_cast<std::ptrdiff_t>(endByte) + 1, stream.end(), 0);
  unsigned char const tail[4] = {0x00, 0x00, 0xFF, 0xFF};
  stream.insert(stream.end(), tail, tail + 4);
  return true;
}

void appendStoredPiece(unsigned char const* data, std::size_t count,
                       std::vector<unsigned char>& out) {
  while (count > 0) {
    std::size_t const n = std::min<std::size_t>(count, 0xFFFF);
    unsigned char const header[5] = {
        0x00,  // BFINAL 0, BTYPE stored, padding
        static_cast<unsigned char>(n & 0xFF), static_cast<unsigned char>(n >> 8),
        static_cast<unsigned char>(~n & 0xFF), static_cast<unsigned char>((~n >> 8) & 0xFF)};
    out.insert(out.end(), header, header + 5);
    out.insert(out.end(), data, data + n);
    data += n;
    count -= n;
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc
