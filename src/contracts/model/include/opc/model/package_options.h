// How a package is opened: access mode, limits against hostile input, and save options.
#ifndef OPC_MODEL_PACKAGE_OPTIONS_H_
#define OPC_MODEL_PACKAGE_OPTIONS_H_

#include <cstdint>
#include <optional>

namespace opc {
namespace model {

// Read: the package is only read; nothing the caller does ever writes it.
// Create: a new, empty package; whatever is at the path is replaced only when the package
//   is saved, and stays as it was if the package is never saved or the save fails.
// Modify: an existing package is read and may be changed and saved over itself.
enum class PackageAccess { Read, Create, Modify };

// Limits that an opened package must stay within.  A package beyond one of them is refused
// with InvalidPackage (at open) or InvalidPartContent (while a part is read), naming the
// limit.  The defaults admit every package a person would make, and stop ZIP bombs and
// absurd archives before they cost memory or time.
struct PackageLimits {
  // Most parts (ZIP items) in one package.
  std::uint64_t maxPartCount = 1000000;
  // Largest uncompressed size of one part, as declared by the archive and as actually read.
  std::uint64_t maxPartSize = std::uint64_t{64} << 30;  // 64 GiB
  // Largest ratio of uncompressed to compressed size of one deflated part.  Deflate cannot
  // exceed 1032:1; a declared ratio above this limit is a bomb.
  std::uint64_t maxCompressionRatio = 1100;
  // Parts smaller than this are exempt from the ratio limit (a 1 MiB run of zeros is fine).
  std::uint64_t ratioExemptSize = std::uint64_t{1} << 20;
  // Largest XML part of the package's own structure ([Content_Types].xml, relationships).
  std::uint64_t maxStructurePartSize = std::uint64_t{64} << 20;  // 64 MiB
};

struct PackageOptions {
  PackageLimits limits;
  // Threads the model may use to compress new parts while saving.  1 compresses on the
  // caller's thread; 0 uses the number of processors.  The model joins every thread it
  // starts before save() returns.
  unsigned compressionThreads = 1;
  // Content written to a part is kept in memory up to this many bytes, then spooled to a
  // temporary file beside the package (or in the temporary folder for a buffer package).
  std::uint64_t spoolThreshold = std::uint64_t{8} << 20;  // 8 MiB
  // Content of all parts together is kept in memory up to this many bytes; past it, new
  // content goes to one shared temporary file beside the package (or in the temporary
  // folder), so that writing many parts before a save needs little memory.
  std::uint64_t spoolBudget = std::uint64_t{64} << 20;  // 64 MiB
  // Reproducible saving.  When set, save() writes the same bytes for the same parts,
  // relationships and content types, wherever and whenever it runs: every item of the
  // archive carries this time in its ZIP header instead of the time of the save, and content
  // is compressed the same way whatever compressionThreads is and however many processors
  // the machine has.  Seconds since 1970-01-01 00:00:00 UTC, written as that UTC time (ZIP
  // headers have no time zone) and held to what a ZIP header can carry: times before
  // 1980-01-01 00:00:00 are written as that, times after 2107-12-31 23:59:58 as that, and odd
  // seconds as the even second before.  Items carry no other time.  Unset by default.
  std::optional<std::int64_t> reproducibleTime;
  // How long a writer (Create over an existing file, or Modify) waits for another writer of
  // the same file to close it before it gives up with PackageLocked.  0 gives up at once;
  // kWaitForever waits for as long as it takes.  Readers never wait.
  std::uint64_t lockWaitMilliseconds = 0;
  static constexpr std::uint64_t kWaitForever = UINT64_MAX;
};

}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_OPTIONS_H_
