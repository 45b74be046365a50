#include "support/zip_builder.h"

#include <array>

namespace opcvk_test {
namespace {

void put16(std::string& out, std::uint64_t value) {
  out += static_cast<char>(value & 0xFF);
  out += static_cast<char>((value >> 8) & 0xFF);
}
void put32(std::string& out, std::uint64_t value) {
  put16(out, value & 0xFFFF);
  put16(out, (value >> 16) & 0xFFFF);
}
void put64(std::string& out, std::uint64_t value) {
  put32(out, value & 0xFFFFFFFFu);
  put32(out, value >> 32);
}

std::string storedBytes(ZipBuilderItem const& item) {
  if (item.data) return *item.data;
  return item.method == 8 ? deflateRaw(item.content) : item.content;
}

}  // namespace

std::string deflateRaw(std::string const& data) {
  std::string out;
  std::uint32_t bits = 0;
  int count = 0;
  auto putBits = [&](std::uint32_t value, int n) {  // LSB first
    bits |= value << count;
    count += n;
    while (count >= 8) {
      out += static_cast<char>(bits & 0xFF);
      bits >>= 8;
      count -= 8;
    }
  };
  auto putCode = [&](std::uint32_t code, int n) {  // Huffman codes go MSB first
    std::uint32_t reversed = 0;
    for (int i = 0; i < n; ++i) reversed |= ((code >> i) & 1u) << (n - 1 - i);
    putBits(reversed, n);
  };
  auto putSymbol = [&](int symbol) {
    if (symbol < 144) {
      putCode(0x30 + symbol, 8);
    } else if (symbol < 256) {
      putCode(0x190 + symbol - 144, 9);
    } else if (symbol < 280) {
      putCode(symbol - 256, 7);
    } else {
      putCode(0xC0 + symbol - 280, 8);
    }
  };
  static int const kBase[29] = {3,  4,  5,  6,  7,  8,  9,  10, 11,  13,  15,  17,  19,  23, 27,
                                31, 35, 43, 51, 59, 67, 83, 99, 115, 131, 163, 195, 227, 258};
  static int const kExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                 2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
  putBits(1, 1);  // final block
  putBits(1, 2);  // fixed Huffman codes
  std::size_t i = 0;
  while (i < data.size()) {
    putSymbol(static_cast<unsigned char>(data[i]));
    std::size_t run = 0;
    while (run < 258 && i + 1 + run < data.size() && data[i + 1 + run] == data[i]) ++run;
    if (run >= 3) {
      int code = 28;
      while (kBase[code] > static_cast<int>(run)) --code;
      putSymbol(257 + code);
      putBits(static_cast<std::uint32_t>(static_cast<int>(run) - kBase[code]), kExtra[code]);
      putCode(0, 5);  // distance code 0: distance 1
    } else {
      run = 0;
    }
    i += 1 + run;
  }
  putSymbol(256);
  if (count > 0) putBits(0, 8 - count);
  return out;
}

std::uint32_t crc32Of(std::string const& data) {
  static std::array<std::uint32_t, 256> const table = [] {
    std::array<std::uint32_t, 256> result{};
    for (std::uint32_t n = 0; n < 256; ++n) {
      std::uint32_t c = n;
      for (int k = 0; k < 8; ++k) c = (c & 1u) ? 0xEDB88320u ^ (c >> 1) : c >> 1;
      result[n] = c;
    }
    return result;
  }();
  std::uint32_t crc = 0xFFFFFFFFu;
  for (char byte : data) crc = table[(crc ^ static_cast<unsigned char>(byte)) & 0xFF] ^ (crc >> 8);
  return crc ^ 0xFFFFFFFFu;
}

ZipBuilderItem& ZipBuilder::add(std::string name, std::string content, std::uint16_t method) {
  ZipBuilderItem item;
  item.name = std::move(name);
  item.content = std::move(content);
  item.method = method;
  items.push_back(std::move(item));
  return items.back();
}

std::string ZipBuilder::buildString() const {
  std::string out;
  std::string directory;
  for (ZipBuilderItem const& item : items) {
    std::string const data = storedBytes(item);
    std::uint32_t const crc = item.crc ? *item.crc : crc32Of(item.content);
    std::uint64_t const compressed = item.compressedSize ? *item.compressedSize : data.size();
    std::uint64_t const uncompressed =
        item.uncompressedSize ? *item.uncompressedSize : item.content.size();
    std::uint16_t const flags = item.flags ? *item.flags : 0;
    std::uint64_t const offset = item.localHeaderOffset ? *item.localHeaderOffset : out.size();
    std::string const localName = item.localName ? *item.localName : item.name;

    put32(out, item.localSignature ? *item.localSignature : 0x04034b50);
    put16(out, 20);
    put16(out, item.localFlags ? *item.localFlags : flags);
    put16(out, item.localMethod ? *item.localMethod : item.method);
    put16(out, 0);     // time
    put16(out, 0x21);  // date: 1980-01-01
    put32(out, crc);
    put32(out, compressed > 0xFFFFFFFFu ? 0xFFFFFFFFu : compressed);
    put32(out, uncompressed > 0xFFFFFFFFu ? 0xFFFFFFFFu : uncompressed);
    put16(out, localName.size());
    put16(out, item.localExtra.size());
    out += localName;
    out += item.localExtra;
    out += data;

    std::string extra;
    if (item.zip64) {
      put16(extra, 0x0001);
      put16(extra, 24);
      put64(extra, uncompressed);
      put64(extra, compressed);
      put64(extra, offset);
    }
    extra += item.centralExtra;
    put32(directory, item.centralSignature ? *item.centralSignature : 0x02014b50);
    put16(directory, 0x031E);  // made by: Unix, 3.0
    put16(directory, item.zip64 ? 45 : 20);
    put16(directory, flags);
    put16(directory, item.method);
    put16(directory, 0);
    put16(directory, 0x21);
    put32(directory, crc);
    put32(directory, item.zip64 ? 0xFFFFFFFFu : compressed);
    put32(directory, item.zip64 ? 0xFFFFFFFFu : uncompressed);
    put16(directory, item.name.size());
    put16(directory, extra.size());
    put16(directory, 0);  // comment
    put16(directory, item.diskNumberStart ? *item.diskNumberStart : 0);
    put16(directory, 0);
    put32(directory, 0100644u << 16);
    put32(directory, item.zip64 ? 0xFFFFFFFFu : offset);
    directory += item.name;
    directory += extra;
  }
  std::uint64_t const directoryStart = out.size();
  out += directory;
  std::uint64_t const count = declaredCount ? *declaredCount : items.size();
  std::uint64_t const cdOffset = directoryOffset ? *directoryOffset : directoryStart;
  std::uint64_t const cdSize = directorySize ? *directorySize : directory.size();
  if (zip64End) {
    std::uint64_t const recordOffset = out.size();
    put32(out, zip64RecordSignature ? *zip64RecordSignature : 0x06064b50);
    put64(out, 44);
    put16(out, 45);
    put16(out, 45);
    put32(out, diskNumber ? *diskNumber : 0);
    put32(out, 0);
    put64(out, count);
    put64(out, count);
    put64(out, cdSize);
    put64(out, cdOffset);
    put32(out, 0x07064b50);
    put32(out, 0);
    put64(out, recordOffset);
    put32(out, 1);
  }
  put32(out, 0x06054b50);
  put16(out, diskNumber ? *diskNumber : 0);
  put16(out, 0);
  put16(out, zip64End ? 0xFFFF : count);
  put16(out, zip64End ? 0xFFFF : count);
  put32(out, zip64End ? 0xFFFFFFFFu : cdSize);
  put32(out, zip64End ? 0xFFFFFFFFu : cdOffset);
  put16(out, commentLength ? *commentLength : comment.size());
  out += comment;
  return out;
}

std::vector<unsigned char> ZipBuilder::build() const {
  std::string const bytes = buildString();
  return std::vector<unsigned char>(bytes.begin(), bytes.end());
}

}  // namespace opcvk_test
