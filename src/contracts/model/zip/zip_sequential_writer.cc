// ZipWriter over ZipStreamWriter: every item goes into the file when it is added, so that a
// save that copies most of its items from the archive it replaces holds nothing per item but
// the directory row the end of the archive needs.  libzip's writer, by contrast, keeps a
// source and a description of every item until the archive is closed.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <libdeflate.h>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>

#include "chunked_deflate.h"
#include "replacement_file.h"
#include "zip_archive.h"
#include "zip_dos_time.h"
#include "zip_format.h"
#include "zip_names.h"
#include "zip_stream_writer.h"
#include "zip_writer_items.h"
#include "zip_writer_output.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr std::size_t kChunkSize = std::size_t{1} << 20;
// Raw copies read their archive in windows of this size, refilled when less than the reserve
// is left after the next item's header (see fillWindow).
constexpr std::size_t kWindowSize = std::size_t{1} << 20;
constexpr std::size_t kWindowReserve = std::size_t{64} << 10;
// New content above this size is deflated into the file as it is read (see add()).
constexpr std::uint64_t kDirectFrom = std::uint64_t{1} << 20;

boost::system::error_code systemCode(int error) {
  return boost::system::error_code(error, boost::system::system_category());
}

// Fills `buffer` from the reader until `count` bytes or the reader's end.
std::size_t fillFrom(ZipContentReader const& reader, unsigned char* buffer, std::size_t count) {
  std::size_t total = 0;
  while (total < count) {
    std::size_t const n = reader(buffer + total, count - total);
    if (n == 0) break;
    if (n > count - total) {
      throw opc::Exception("its reader claims more bytes than it was asked for",
                           boost::system::error_code());
    }
    total += n;
  }
  return total;
}

class SequentialWriter : public ZipWriter {
 public:
  SequentialWriter(ReplacementFile& file, unsigned threads) : file_(file) {
    threads_ = deflateThreadsFor(threads);
  }

  void makeReproducible(std::int64_t secondsSinceEpoch) override {
    if (out_) fail("the reproducible time must be set before the first item");
    time_ = dosTimeOf(secondsSinceEpoch);
    reproducible_ = true;
  }

  void addRaw(std::string const& name, ZipArchive const& from, ZipEntry const& entry) override {
    // The local header is read here, where the copy needs the offset of its data; what it
    // finds wrong is the archive's problem, told as such.
    ensureUsable();
    broken_ = true;
    ZipByteSource const& source = *from.source();
    fillWindow(source, entry.localHeaderOffset);
    ZipEntry const located = from.locateIn(entry, window_.data(), windowOffset_, window_.size());
    broken_ = false;
    bool const deflated = located.method == zipformat::kMethodDeflated;
    std::uint64_t const at = located.dataOffset - windowOffset_;
    guardWrite(name, [&] {
      if (located.dataOffset >= windowOffset_ && at <= window_.size() &&
          window_.size() - at >= located.compressedSize) {
        out().add(name, deflated, located.crc32, located.uncompressedSize, window_.data() + at,
                  static_cast<std::size_t>(located.compressedSize));
      } else {
        out().copyStored(name, deflated, located.crc32, located.uncompressedSize,
                         located.compressedSize, source, located.dataOffset);
      }
    });
  }

  void add(std::string const& name, interfaces::CompressionType compression, std::uint64_t size,
           ZipContentReader reader) override {
    ensureUsable();
    WriterItem item;
    item.name = name;
    item.compression = compression;
    item.size = size;
    item.reader = std::move(reader);
    item.spoolFolder = folderOf(file_.target());
    item.threads = threads_;
    item.reproducible = reproducible_;
    if (compression == interfaces::CompressionType::Stored) {
      item.plan = WriterItem::Plan::StreamReader;
    } else {
      item.needsPreparation = true;
      // Larger content deflates straight into the file rather than into memory or a spool
      // file first, since nothing else is written meanwhile.  A reproducible archive keeps
      // deflating in one piece what fits in memory, so that its bytes stay what they were.
      if (!reproducible_) item.inMemoryLimit = kDirectFrom;
      item.openDirect = [this, &item] {
        out().begin(item.name, true, item.size);
        return
            [this](unsigned char const* bytes, std::size_t count) { out_->append(bytes, count); };
      };
    }
    guardWrite(name, [&] {
      item.prepare();
      write(item);
    });
  }

  void commit() override {
    ensureUsable();
    committed_ = true;
    guardWrite(std::string(), [&] { out().finish(); });
  }

 private:
  std::string prefix() const {
    return "Could not save package \"" +
           opc::toUDEString(opc::detail::toStringFromUTF8String(file_.target())) + "\": ";
  }

  [[noreturn]] void fail(std::string const& cause) const {
    throw CouldNotSavePackage(prefix() + cause);
  }

  // Makes the window hold the bytes of `source` from `offset` on, unless it holds them and
  // enough after them for a local header and a small item's data: items copied in the order
  // of their archive then cost one read per window rather than two each.
  void fillWindow(ZipByteSource const& source, std::uint64_t offset) {
    if (&source == windowSource_ && offset >= windowOffset_ &&
        offset - windowOffset_ + kWindowReserve <= window_.size()) {
      return;
    }
    std::uint64_t const end = source.size();
    std::size_t const count =
        offset >= end
            ? 0
            : static_cast<std::size_t>(std::min<std::uint64_t>(kWindowSize, end - offset));
    windowSource_ = nullptr;
    window_.resize(count);
    source.readAt(offset, window_.data(), count);
    windowSource_ = &source;
    windowOffset_ = offset;
  }

  ZipStreamWriter& out() {
    if (!out_) {
      if (!reproducible_) time_ = localDosTimeOf(std::time(nullptr));
      out_ = std::make_unique<ZipStreamWriter>(file_.descriptor(), time_);
    }
    return *out_;
  }

  // Called in a handler: the exception at hand as the failure of the item `name`, as a
  // failure of the item's reader is told.
  [[noreturn]] void rethrowForItem(std::string const& name) const {
    std::string const where = prefix() + "item " + quoteName(name) + ": ";
    try {
      throw;
    } catch (CouldNotSavePackage const&) {
      throw;
    } catch (opc::Exception const& e) {
      throw CouldNotSavePackage(where + e.what(), e.code());
    } catch (std::exception const& e) {
      throw CouldNotSavePackage(where + e.what());
    } catch (...) {
      throw CouldNotSavePackage(where + "an unknown exception was thrown");
    }
  }

  // Refuses a call after commit(), or after a call that threw: its item may be in the file
  // in part, and what follows would be misplaced.
  void ensureUsable() const {
    if (committed_) fail("the archive was already written");
    if (broken_) fail("an earlier item could not be written");
  }

  // Runs a step of one item: its reader, its compression, its writing.  A system error of
  // the file is told as the save's ("could not write: <why>"); everything else names the
  // item, as a failure of its reader does.  The writer is spent either way: a failed step may
  // leave the file with part of an item.
  template <typename Step>
  void guardWrite(std::string const& name, Step const& step) {
    broken_ = true;
    try {
      step();
    } catch (opc::Exception const& e) {
      // ZipStreamWriter's own failure to write, told in the words the libzip road uses.
      if (e.code() && e.code().category() == boost::system::system_category() &&
          std::strncmp(e.what(), "could not write", 15) == 0) {
        throw CouldNotSavePackage(prefix() + "could not write: " + std::strerror(e.code().value()),
                                  e.code());
      }
      if (name.empty()) throw CouldNotSavePackage(prefix() + e.what(), e.code());
      rethrowForItem(name);
    } catch (...) {
      rethrowForItem(name);
    }
    broken_ = false;
  }

  // Writes an item that add() prepared (or, when stored, that streams from its reader).
  void write(WriterItem& item) {
    ZipStreamWriter& writer = out();
    if (item.plan == WriterItem::Plan::Direct) {
      writer.end(item.crc, item.size);
      return;
    }
    if (item.plan == WriterItem::Plan::Memory) {
      writer.add(item.name, item.deflated, item.crc, item.size, item.data.data(), item.data.size());
      return;
    }
    std::vector<unsigned char> chunk(static_cast<std::size_t>(
        std::min<std::uint64_t>(kChunkSize, std::max<std::uint64_t>(item.size, 1))));
    if (item.plan == WriterItem::Plan::Spool) {
      writer.begin(item.name, true, item.size);
      for (std::uint64_t at = 0; at < item.compressedSize;) {
        std::size_t const n = static_cast<std::size_t>(
            std::min<std::uint64_t>(chunk.size(), item.compressedSize - at));
        if (!readFully(item.spoolFd, at, chunk.data(), n)) {
          throw opc::Exception(std::string("could not read a spool file: ") + std::strerror(errno),
                               systemCode(errno));
        }
        writer.append(chunk.data(), n);
        at += n;
      }
      writer.end(item.crc, item.size);
      return;
    }
    // Stored as it streams: the sample that preparation judged (if any), then the reader.
    writer.begin(item.name, false, item.size);
    std::uint32_t crc = 0;
    std::uint64_t done = 0;
    if (!item.data.empty()) {
      crc = libdeflate_crc32(crc, item.data.data(), item.data.size());
      writer.append(item.data.data(), item.data.size());
      done = item.data.size();
      std::vector<unsigned char>().swap(item.data);
    }
    while (done < item.size) {
      std::size_t const want =
          static_cast<std::size_t>(std::min<std::uint64_t>(chunk.size(), item.size - done));
      std::size_t const got = fillFrom(item.reader, chunk.data(), want);
      if (got < want) {
        throw opc::Exception("its content ends after " + std::to_string(done + got) +
                                 " bytes, before the " + std::to_string(item.size) + " declared",
                             boost::system::error_code());
      }
      crc = libdeflate_crc32(crc, chunk.data(), got);
      writer.append(chunk.data(), got);
      done += got;
    }
    unsigned char probe[1];
    if (item.reader(probe, sizeof probe) != 0) {
      throw opc::Exception(
          "its content goes on past the " + std::to_string(item.size) + " bytes declared",
          boost::system::error_code());
    }
    writer.end(crc, item.size);
  }

  ReplacementFile& file_;
  unsigned threads_ = 1;
  bool reproducible_ = false;
  DosTime time_{0, 0};
  std::unique_ptr<ZipStreamWriter> out_;
  // Bytes of the archive that raw copies come from (see fillWindow).
  std::vector<unsigned char> window_;
  ZipByteSource const* windowSource_ = nullptr;
  std::uint64_t windowOffset_ = 0;
  bool committed_ = false;
  bool broken_ = false;
};

}  // namespace

std::unique_ptr<ZipWriter> ZipWriter::sequentialToReplacement(ReplacementFile& file,
                                                              unsigned compressionThreads) {
  return std::make_unique<SequentialWriter>(file, compressionThreads);
}

}  // namespace detail
}  // namespace model
}  // namespace opc
