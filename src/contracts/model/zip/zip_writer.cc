// The writers over libzip, made by the ZIP writer library, which is loaded here the first time
// one is asked for, once for the process.
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>

#include "companion_library.h"
#include "replacement_file.h"
#include "zip_archive.h"
#include "zip_writer_library.h"

namespace opc {
namespace model {
namespace detail {
namespace {

// The library's file name and its entry, shared with the library's build.
constexpr char kZipLibrary[] = OPCMODEL_ZIP_LIBRARY;
constexpr char kEntry[] = "opcmodel_zip_writers";

// What a failure to save names: the target, or memory.
std::string savePrefix(std::string const* path) {
  if (path == nullptr) return "Could not save package to memory: ";
  return "Could not save package \"" +
         opc::toUDEString(opc::detail::toStringFromUTF8String(*path)) + "\": ";
}

ZipWriterLibrary const* loadLibrary() {
  opcvk_companion::CompanionEntry const loaded =
      opcvk_companion::loadCompanion(kZipLibrary, kZipLibrary, kEntry);
  std::string const failure =
      opcvk_companion::failureMessage(loaded, "the ZIP writer library", kZipLibrary, kEntry);
  if (!failure.empty()) throw std::runtime_error(failure);
  using Entry = ZipWriterLibrary const* (*)();
  return reinterpret_cast<Entry>(loaded.entry)();
}

// The library, loaded on the first call; a failure raises CouldNotSavePackage after the
// target, and a later call tries again.
ZipWriterLibrary const& zipWriterLibrary(std::string const* path) {
  try {
    // A failed load leaves the static unset.
    static ZipWriterLibrary const* const library = loadLibrary();
    return *library;
  } catch (std::runtime_error const& e) {
    throw CouldNotSavePackage(savePrefix(path) + e.what());
  }
}

}  // namespace

std::unique_ptr<ZipWriter> ZipWriter::toFile(std::string const& path, unsigned compressionThreads) {
  // Loaded first, so that a failure leaves no temporary file behind.
  ZipWriterLibrary const& library = zipWriterLibrary(&path);
  auto file = std::make_unique<ReplacementFile>(path);
  ReplacementFile* const raw = file.get();
  return library.make(raw, std::move(file), nullptr, compressionThreads);
}

std::unique_ptr<ZipWriter> ZipWriter::toReplacement(ReplacementFile& file,
                                                    unsigned compressionThreads) {
  return zipWriterLibrary(&file.target()).make(&file, nullptr, nullptr, compressionThreads);
}

std::unique_ptr<ZipWriter> ZipWriter::toBuffer(std::vector<unsigned char>& out,
                                               unsigned compressionThreads) {
  return zipWriterLibrary(nullptr).make(nullptr, nullptr, &out, compressionThreads);
}

}  // namespace detail
}  // namespace model
}  // namespace opc
