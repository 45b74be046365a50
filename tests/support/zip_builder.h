// Raw ZIP archives assembled byte by byte for tests: local headers, data, central directory,
// end records (ZIP64 too), with a knob for every field that a hostile archive could bend.
#ifndef TESTS_SUPPORT_ZIP_BUILDER_H_
#define TESTS_SUPPORT_ZIP_BUILDER_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace opcvk_test {

// Raw deflate (no zlib header) of `data`, and its CRC-32.  Both are written here from the
// format's definition, independent of the compression libraries under test: one block of
// fixed Huffman codes, with runs of one byte as matches at distance 1, so that repetitive
// content shrinks and the reader is checked against an encoder that is not its own.
std::string deflateRaw(std::string const& data);
std::uint32_t crc32Of(std::string const& data);

// One item.  By default every field is derived from `name`, `content` and `method`; each
// optional field, when set, replaces the derived value in the place its name says.
struct ZipBuilderItem {
  std::string name;     // bytes of the name in both headers
  std::string content;  // the uncompressed content
  std::uint16_t method = 8;

  std::optional<std::string> data;  // the stored bytes instead of content (compressed) as is
  std::optional<std::string> localName;
  std::optional<std::uint16_t> flags;  // general purpose flags of both headers
  std::optional<std::uint16_t> localFlags;
  std::optional<std::uint16_t> localMethod;
  std::optional<std::uint32_t> crc;
  std::optional<std::uint64_t> compressedSize;    // declared in the central header
  std::optional<std::uint64_t> uncompressedSize;  // declared in the central header
  std::optional<std::uint64_t> localHeaderOffset;
  std::optional<std::uint32_t> localSignature;
  std::optional<std::uint32_t> centralSignature;
  std::optional<std::uint16_t> diskNumberStart;
  std::string centralExtra;  // appended to the central extra field
  std::string localExtra;
  // Writes sizes and offset as 0xFFFFFFFF with a ZIP64 extra field in the central header.
  bool zip64 = false;
};

class ZipBuilder {
 public:
  ZipBuilderItem& add(std::string name, std::string content, std::uint16_t method = 8);

  std::vector<ZipBuilderItem> items;

  // Archive-level knobs.
  bool zip64End = false;  // write a ZIP64 end record and locator (and saturate the 32-bit one)
  std::string comment;
  std::optional<std::uint64_t> declaredCount;  // in the end record(s)
  std::optional<std::uint64_t> directoryOffset;
  std::optional<std::uint64_t> directorySize;
  std::optional<std::uint16_t> diskNumber;
  std::optional<std::uint16_t> commentLength;  // as declared, whatever the comment's size
  std::optional<std::uint32_t> zip64RecordSignature;

  // The archive; builds what the fields say, even when it is invalid.
  std::vector<unsigned char> build() const;
  std::string buildString() const;
};

}  // namespace opcvk_test

#endif  // TESTS_SUPPORT_ZIP_BUILDER_H_
