// Helpers of the package tests: crafted archives (stored items, written here byte by byte so
// that a test can put anything in them), reading items back, and stream shortcuts.
#ifndef TESTS_UNIT_MODEL_PACKAGE_TEST_SUPPORT_H_
#define TESTS_UNIT_MODEL_PACKAGE_TEST_SUPPORT_H_

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/core/string_conversions.h>

#include "zip/zip_archive.h"

namespace opcvk_test {

using Bytes = std::vector<unsigned char>;
using Items = std::vector<std::pair<std::string, std::string>>;

inline std::uint32_t crc32Of(std::string const& data) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (unsigned char byte : data) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

inline void put16(Bytes& out, std::uint32_t value) {
  out.push_back(static_cast<unsigned char>(value & 0xFF));
  out.push_back(static_cast<unsigned char>((value >> 8) & 0xFF));
}
inline void put32(Bytes& out, std::uint32_t value) {
  put16(out, value & 0xFFFF);
  put16(out, value >> 16);
}

// A ZIP archive of stored items, in the given order, names flagged UTF-8.
inline Bytes makeZip(Items const& items) {
  Bytes out;
  Bytes directory;
  for (auto const& item : items) {
    std::uint32_t const offset = static_cast<std::uint32_t>(out.size());
    std::uint32_t const crc = crc32Of(item.second);
    std::uint32_t const size = static_cast<std::uint32_t>(item.second.size());
    std::uint32_t const nameSize = static_cast<std::uint32_t>(item.first.size());
    put32(out, 0x04034b50);
    put16(out, 20);
    put16(out, 0x0800);
    put16(out, 0);
    put16(out, 0);
    put16(out, 0x21);
    put32(out, crc);
    put32(out, size);
    put32(out, size);
    put16(out, nameSize);
    put16(out, 0);
    out.insert(out.end(), item.first.begin(), item.first.end());
    out.insert(out.end(), item.second.begin(), item.second.end());
    put32(directory, 0x02014b50);
    put16(directory, 20);
    put16(directory, 20);
    put16(directory, 0x0800);
    put16(directory, 0);
    put16(directory, 0);
    put16(directory, 0x21);
    put32(directory, crc);
    put32(directory, size);
    put32(directory, size);
    put16(directory, nameSize);
    put16(directory, 0);
    put16(directory, 0);
    put16(directory, 0);
    put16(directory, 0);
    put32(directory, 0);
    put32(directory, offset);
    directory.insert(directory.end(), item.first.begin(), item.first.end());
  }
  std::uint32_t const directoryOffset = static_cast<std::uint32_t>(out.size());
  out.insert(out.end(), directory.begin(), directory.end());
  put32(out, 0x06054b50);
  put16(out, 0);
  put16(out, 0);
  put16(out, static_cast<std::uint32_t>(items.size()));
  put16(out, static_cast<std::uint32_t>(items.size()));
  put32(out, static_cast<std::uint32_t>(directory.size()));
  put32(out, directoryOffset);
  put16(out, 0);
  return out;
}

inline std::string const& minimalTypes() {
  static std::string const kTypes =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
      "<Types xmlns=\"http://schemas.openxmlformats.org/package/2006/content-types\">"
      "<Default Extension=\"rels\" "
      "ContentType=\"application/vnd.openxmlformats-package.relationships+xml\"/>"
      "<Default Extension=\"xml\" ContentType=\"application/xml\"/>"
      "<Default Extension=\"txt\" ContentType=\"text/plain\"/>"
      "</Types>";
  return kTypes;
}

inline std::string relationshipsXml(std::string const& body) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
         "<Relationships xmlns=\"http://schemas.openxmlformats.org/package/2006/relationships\">" +
         body + "</Relationships>";
}

inline std::string readAll(opc::InputStream& stream) {
  std::string result;
  unsigned char buffer[4096];
  stream.open();
  while (std::size_t n = stream.read(buffer, sizeof buffer)) {
    result.append(reinterpret_cast<char*>(buffer), n);
  }
  stream.close();
  return result;
}

inline void writeAll(opc::OutputStream& stream, std::string const& text) {
  stream.write(reinterpret_cast<unsigned char const*>(text.data()), text.size());
  stream.close();
}

inline std::unique_ptr<opc::model::detail::ZipArchive> openZip(Bytes const& bytes) {
  return opc::model::detail::ZipArchive::open(
      opc::model::detail::openBufferSource(std::make_shared<Bytes const>(bytes)),
      opc::model::PackageLimits());
}

inline std::vector<std::string> itemNames(Bytes const& bytes) {
  std::vector<std::string> names;
  auto const archive = openZip(bytes);
  for (auto const& entry : archive->entries()) names.push_back(entry.name);
  return names;
}

// The content of one item; "(missing)" if there is none.
inline std::string itemText(Bytes const& bytes, std::string const& name) {
  auto archive = openZip(bytes);
  std::int64_t const index = archive->find(name);
  if (index < 0) return "(missing)";
  auto stream = archive->openEntry(archive->entries()[static_cast<std::size_t>(index)]);
  return readAll(*stream);
}

// The bytes an item stores (compressed or not) as they lie in the archive; "(missing)" if
// there is none.
inline std::string storedBytes(opc::model::detail::ZipArchive const& archive,
                               std::string const& name) {
  std::int64_t const index = archive.find(name);
  if (index < 0) return "(missing)";
  opc::model::detail::ZipEntry const entry =
      archive.locate(archive.entry(static_cast<std::size_t>(index)));
  std::string bytes(entry.compressedSize, '\0');
  archive.source()->readAt(entry.dataOffset, reinterpret_cast<unsigned char*>(&bytes[0]),
                           bytes.size());
  return bytes;
}

// The names in a folder, sorted.
inline std::vector<std::string> folderNames(std::string const& folder) {
  std::vector<std::string> names;
  for (auto const& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

inline Bytes fileBytes(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeFile(std::string const& path, Bytes const& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<char const*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
}

inline std::u16string u16(std::string const& text) {
  return opc::detail::toStringFromUTF8String(text, true);
}

// `size` bytes of text that compresses well: lines `prefix` N `suffix` with N counting up to
// `period` and starting again, cut at `size`.
inline std::string numberedLines(std::size_t size, std::string const& prefix, unsigned period,
                                 std::string const& suffix) {
  std::string result;
  for (std::size_t i = 0; result.size() < size; ++i) {
    result += prefix + std::to_string(i % period) + suffix;
  }
  result.resize(size);
  return result;
}

}  // namespace opcvk_test

#endif  // TESTS_UNIT_MODEL_PACKAGE_TEST_SUPPORT_H_
