// Streams of an entry's content.  A deflated item whose sizes are both at most
// kWholeItemLimit is inflated in one call of libdeflate (several times faster than zlib's
// streaming inflate), into the caller's buffer when it is large enough, else into one buffer of
// the item's size; larger items stream through zlib with one input window, whatever their
// size.  Every way in which the data can disagree with the directory (more bytes, fewer bytes,
// a wrong CRC-32, corrupt deflate data) ends in InvalidPartContent naming the item; no byte
// beyond the declared size is ever given to the caller.
#include "zip_entry_stream.h"

#include <algorithm>
#include <cstdio>
#include <vector>
#include <zlib.h>

#include <libdeflate.h>

#include <opc/model/xml/xml_exceptions.h>

#include "zip_format.h"
#include "zip_names.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr std::size_t kInputWindow = 64 * 1024;

// The decompressor of the calling thread, made on its first use and kept until the thread
// ends: making one clears a table of some 10 KiB, which costs more than inflating a small item,
// and a decompressor keeps nothing from one call to the next.  Null if it cannot be made.
libdeflate_decompressor* threadDecompressor() {
  struct Kept {
    libdeflate_decompressor* decompressor = nullptr;
    ~Kept() {
      if (decompressor != nullptr) libdeflate_free_decompressor(decompressor);
    }
  };
  thread_local Kept kept;
  if (kept.decompressor == nullptr) kept.decompressor = libdeflate_alloc_decompressor();
  return kept.decompressor;
}

std::string hex32(std::uint32_t value) {
  char text[11];
  std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(value));
  return text;
}

class EntryStreamBase : public ZipEntryStream {
 public:
  EntryStreamBase(std::shared_ptr<ZipByteSource> source, ZipEntry const& entry,
                  std::vector<unsigned char> data = {})
      : source_(std::move(source)), entry_(entry), data_(std::move(data)) {}

  bool isDone() const override { return done_; }

 protected:
  [[noreturn]] void fail(std::string const& problem) const {
    throw InvalidPartContent("Invalid ZIP item " + quoteName(entry_.name) + ": " + problem);
  }

  void countOutput(unsigned char const* data, std::size_t count) {
    if (count > entry_.uncompressedSize - produced_) {
      fail("its data gives more than the " + std::to_string(entry_.uncompressedSize) +
           " bytes declared");
    }
    produced_ += count;
    crc_ = libdeflate_crc32(crc_, data, count);
  }

  // Called once all the data has come out.
  void finish() {
    if (produced_ != entry_.uncompressedSize) {
      fail("its data gives " + std::to_string(produced_) + " bytes, fewer than the " +
           std::to_string(entry_.uncompressedSize) + " declared");
    }
    if (crc_ != entry_.crc32) {
      fail("CRC-32 mismatch (the directory gives " + hex32(entry_.crc32) + ", the data " +
           hex32(crc_) + ")");
    }
    done_ = true;
  }

  // Lets go of the data read with the local header once it is not needed any more.
  void releaseData() { std::vector<unsigned char>().swap(data_); }

  // `count` bytes of the compressed data from `offset` within it: from the data read with
  // the local header where there is some, else from the source.
  void readData(std::uint64_t offset, unsigned char* buffer, std::size_t count) const {
    if (data_.size() == entry_.compressedSize && entry_.compressedSize > 0) {
      std::copy_n(data_.data() + offset, count, buffer);
    } else {
      source_->readAt(entry_.dataOffset + offset, buffer, count);
    }
  }

  std::shared_ptr<ZipByteSource> source_;
  ZipEntry entry_;
  // The whole compressed data when it came with the local header, else empty.
  std::vector<unsigned char> data_;
  std::uint64_t consumed_ = 0;  // compressed bytes taken from the source
  std::uint64_t produced_ = 0;
  std::uint32_t crc_ = 0;
  bool done_ = false;
};

class StoredEntryStream : public EntryStreamBase {
 public:
  using EntryStreamBase::EntryStreamBase;

  void open() override {}
  void close() override { releaseData(); }

  std::size_t read(unsigned char* buffer, std::size_t count) override {
    if (done_ || count == 0) return 0;
    std::uint64_t const left = entry_.compressedSize - consumed_;
    std::size_t const n = static_cast<std::size_t>(std::min<std::uint64_t>(count, left));
    if (n > 0) {
      readData(consumed_, buffer, n);
      consumed_ += n;
      countOutput(buffer, n);
    }
    if (consumed_ == entry_.compressedSize) {
      releaseData();
      finish();
    }
    return n;
  }
};

class DeflatedEntryStream : public EntryStreamBase {
 public:
  using EntryStreamBase::EntryStreamBase;
  ~DeflatedEntryStream() override { release(); }

  void open() override { start(); }
  void close() override { release(); }

  std::size_t read(unsigned char* buffer, std::size_t count) override {
    if (done_ || count == 0) return 0;
    start();
    std::size_t produced = 0;
    // Loop until some output comes, so that 0 is returned only at the end.
    while (produced == 0 && !done_) {
      refill();
      std::uint64_t const left = entry_.uncompressedSize - produced_;
      if (left == 0) {
        // All declared bytes are out: the deflate stream must end here without more output.
        drainEnd();
        break;
      }
      zstream_.next_out = buffer;
      zstream_.avail_out = static_cast<uInt>(std::min<std::uint64_t>({count, left, kMaxChunk}));
      uInt const before = zstream_.avail_out;
      int const status = inflate(&zstream_, Z_NO_FLUSH);
      produced = before - zstream_.avail_out;
      countOutput(buffer, produced);
      check(status, produced);
      if (status == Z_STREAM_END) finish();
    }
    if (!done_ && produced_ == entry_.uncompressedSize) drainEnd();
    return produced;
  }

 private:
  static constexpr std::uint64_t kMaxChunk = 1u << 30;

  void start() {
    if (started_) return;
    zstream_ = z_stream();
    if (inflateInit2(&zstream_, -MAX_WBITS) != Z_OK) fail("the decompressor could not start");
    started_ = true;
    // A small item needs no more than its own size.
    input_.resize(static_cast<std::size_t>(
        std::min<std::uint64_t>(kInputWindow, std::max<std::uint64_t>(entry_.compressedSize, 1))));
  }

  void release() {
    if (started_) inflateEnd(&zstream_);
    started_ = false;
    std::vector<unsigned char>().swap(input_);
  }

  void refill() {
    if (zstream_.avail_in > 0 || consumed_ == entry_.compressedSize) return;
    std::size_t const n = static_cast<std::size_t>(
        std::min<std::uint64_t>(input_.size(), entry_.compressedSize - consumed_));
    source_->readAt(entry_.dataOffset + consumed_, input_.data(), n);
    consumed_ += n;
    zstream_.next_in = input_.data();
    zstream_.avail_in = static_cast<uInt>(n);
  }

  void check(int status, std::size_t produced) {
    if (status == Z_DATA_ERROR || status == Z_NEED_DICT) {
      fail(std::string("its compressed data is corrupt (") +
           (zstream_.msg != nullptr ? zstream_.msg : "invalid deflate data") + ")");
    }
    if (status == Z_MEM_ERROR) fail("the decompressor ran out of memory");
    if (status == Z_BUF_ERROR || (status == Z_OK && produced == 0)) {
      // No progress is only possible when the input has run out.
      if (zstream_.avail_in == 0 && consumed_ == entry_.compressedSize) {
        fail("its compressed data ends before the deflate stream does");
      }
    }
  }

  // The declared size is reached: what is left must be the end of the deflate stream.  Any
  // further output is a lie about the size.
  void drainEnd() {
    unsigned char spare[1];
    for (;;) {
      refill();
      zstream_.next_out = spare;
      zstream_.avail_out = sizeof spare;
      int const status = inflate(&zstream_, Z_NO_FLUSH);
      std::size_t const produced = sizeof spare - zstream_.avail_out;
      if (produced > 0) countOutput(spare, produced);  // throws: more than declared
      check(status, produced);
      if (status == Z_STREAM_END) {
        finish();
        return;
      }
    }
  }

  z_stream zstream_ = z_stream();
  bool started_ = false;
  std::vector<unsigned char> input_;
};

// A deflated item small enough to be held whole: its compressed bytes are read in one call and
// inflated in one call.  Data that libdeflate refuses (corrupt, longer or shorter than
// declared) or whose CRC-32 is not the directory's is handed, before any byte went out, to the
// streaming road, which finds the same fault and tells it in its own words at the same point
// of the reading; so both roads fail alike.
class WholeDeflatedEntryStream : public EntryStreamBase {
 public:
  using EntryStreamBase::EntryStreamBase;

  void open() override {}
  void close() override {
    if (fallback_) fallback_->close();
    std::vector<unsigned char>().swap(output_);
    releaseData();
  }

  std::size_t read(unsigned char* buffer, std::size_t count) override {
    if (fallback_) return fallback_->read(buffer, count);
    if (done_ || count == 0) return 0;
    if (!inflated_) {
      std::size_t const size = static_cast<std::size_t>(entry_.uncompressedSize);
      // Straight into the caller's buffer when the whole content fits there.
      bool const direct = count >= size;
      if (!direct) output_.resize(size);
      if (!inflateWhole(direct ? buffer : output_.data())) {
        std::vector<unsigned char>().swap(output_);
        fallback_ = std::make_unique<DeflatedEntryStream>(source_, entry_);
        return fallback_->read(buffer, count);
      }
      inflated_ = true;
      // inflateWhole checked the size and the CRC-32 of all the bytes: they are not summed
      // again.
      produced_ = size;
      crc_ = entry_.crc32;
      finish();
      if (direct) return size;
      done_ = false;  // the bytes are checked, but not all handed out yet
    }
    std::size_t const n = std::min(count, output_.size() - given_);
    std::copy_n(output_.data() + given_, n, buffer);
    given_ += n;
    if (given_ == output_.size()) {
      done_ = true;
      std::vector<unsigned char>().swap(output_);
    }
    return n;
  }

  bool isDone() const override { return fallback_ ? fallback_->isDone() : done_; }

 private:
  // Whether the data inflated to exactly the declared size with the declared CRC-32.
  bool inflateWhole(unsigned char* out) {
    std::vector<unsigned char> read;
    if (data_.size() != entry_.compressedSize || entry_.compressedSize == 0) {
      read.resize(static_cast<std::size_t>(std::max<std::uint64_t>(entry_.compressedSize, 1)));
      source_->readAt(entry_.dataOffset, read.data(),
                      static_cast<std::size_t>(entry_.compressedSize));
    }
    std::vector<unsigned char> const& input = read.empty() ? data_ : read;
    consumed_ = entry_.compressedSize;
    std::size_t const size = static_cast<std::size_t>(entry_.uncompressedSize);
    libdeflate_decompressor* const inflater = threadDecompressor();
    if (inflater == nullptr) fail("the decompressor could not start");
    std::size_t actual = 0;
    libdeflate_result const result = libdeflate_deflate_decompress(
        inflater, input.data(), static_cast<std::size_t>(entry_.compressedSize), out, size,
        &actual);
    // The input is not needed again: a fallback reads the source.
    releaseData();
    return result == LIBDEFLATE_SUCCESS && actual == size &&
           libdeflate_crc32(0, out, size) == entry_.crc32;
  }

  std::vector<unsigned char> output_;
  std::size_t given_ = 0;
  bool inflated_ = false;
  std::unique_ptr<DeflatedEntryStream> fallback_;
};

}  // namespace

std::unique_ptr<ZipEntryStream> makeEntryStream(std::shared_ptr<ZipByteSource> source,
                                                ZipEntry const& entry) {
  return makeEntryStream(std::move(source), entry, {});
}

std::unique_ptr<ZipEntryStream> makeEntryStream(std::shared_ptr<ZipByteSource> source,
                                                ZipEntry const& entry,
                                                std::vector<unsigned char> data) {
  if (entry.method == zipformat::kMethodStored) {
    return std::unique_ptr<ZipEntryStream>(
        new StoredEntryStream(std::move(source), entry, std::move(data)));
  }
  if (entry.compressedSize <= kWholeItemLimit && entry.uncompressedSize <= kWholeItemLimit) {
    return std::unique_ptr<ZipEntryStream>(
        new WholeDeflatedEntryStream(std::move(source), entry, std::move(data)));
  }
  // Streams read their input from the source, window by window.
  return std::unique_ptr<ZipEntryStream>(new DeflatedEntryStream(std::move(source), entry));
}

}  // namespace detail
}  // namespace model
}  // namespace opc
