// The ZIP container's reader over hostile bytes: opening parses the end records and the
// central directory; every item is then located (its local header read) and read to its end.  The
// model's own exceptions are the expected outcome of bad input; anything else (a crash, a sanitizer
// report, another exception, a hang, runaway memory) is a finding.
//
// Input: the bytes of an archive.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <opc/model/exceptions.h>
#include <opc/model/xml/xml_exceptions.h>

#include "zip/zip_archive.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  using opc::model::detail::ZipArchive;
  auto bytes = std::make_shared<std::vector<unsigned char> const>(data, data + size);
  // Small limits, so that a declared size or count the engine invents cannot make one run
  // slow: memory and time stay bounded by them.
  opc::model::PackageLimits limits;
  limits.maxPartCount = 1000;
  limits.maxPartSize = 1 << 20;
  limits.maxCompressionRatio = 1100;
  limits.ratioExemptSize = 64 * 1024;
  std::unique_ptr<ZipArchive> archive;
  try {
    archive = ZipArchive::open(opc::model::detail::openBufferSource(bytes), limits);
  } catch (opc::model::InvalidPackage const&) {
    return 0;
  }
  std::vector<unsigned char> buffer(4096);
  for (auto const& entry : archive->entries()) {
    if (archive->find(entry.name) < 0) __builtin_trap();  // every name must be found again
    try {
      // A located item lies inside the archive, data and all.
      auto const located = archive->locate(entry);
      if (located.dataOffset > size || size - located.dataOffset < located.compressedSize) {
        __builtin_trap();
      }
      auto stream = archive->openEntry(entry);
      stream->open();
      std::uint64_t total = 0;
      while (!stream->isDone()) {
        std::size_t const n = stream->read(buffer.data(), buffer.size());
        total += n;
        if (total > entry.uncompressedSize) __builtin_trap();  // more than declared came out
        if (n == 0 && !stream->isDone()) __builtin_trap();     // 0 only at the end
      }
      if (total != entry.uncompressedSize) __builtin_trap();
      stream->close();
    } catch (opc::model::InvalidPartContent const&) {
    } catch (opc::model::InvalidPackage const&) {
    }
  }
  return 0;
}
