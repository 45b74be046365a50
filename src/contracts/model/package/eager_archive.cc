#include "eager_archive.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <functional>
#include <utility>

#include <libdeflate.h>

#include <opc/core/exception.h>
#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>
#include <opc/model/zip_item_names.h>

#include "../part_name_rules.h"
#include "../zip/chunked_deflate.h"
#include "../zip/incompressible.h"

namespace opc {
namespace model {
namespace detail {
namespace {

// Content up to this size is compressed in memory by one worker; larger content is streamed
// into the file, deflated in chunks, when its turn comes.
constexpr std::uint64_t kMemoryItemLimit = std::uint64_t{2} << 20;
// Content on its way (submitted, not yet moved into the file) beyond which submit() waits.
constexpr std::uint64_t kWindow = std::uint64_t{4} << 20;
// What one content counts against the window: what it may hold in memory.
constexpr std::uint64_t kMostWeight = std::uint64_t{8} << 20;
// Jobs that wait before a sleeping worker is woken for them.
constexpr std::size_t kJobsPerWake = 16;
// Written jobs kept to be used again.
constexpr std::size_t kSpareJobs = 1024;
constexpr std::size_t kSampleSize = std::size_t{1} << 20;
constexpr std::size_t kCopySize = std::size_t{256} << 10;
// Room for the deflated bytes of an item of kSmallContentSize, whatever its level.
constexpr std::size_t kSmallOutputSize = static_cast<std::size_t>(kSmallContentSize) + 1024;

// Metadata deflates a level above bulk content (see levelOf), no more: all its time is spent
// at the end of the save, while the caller waits.  On a manifest of 100,000 files (16 MB of XML,
// deflated in 1 MiB chunks) libdeflate's level 5 gives 2,520,868 bytes in 0.09 s of CPU and its
// 7 gives 2,467,666 in 0.16 s: 2% of the manifest, 0.06% of the package it describes, is not
// worth the time.
constexpr int kMetadataLevel = 5;

int levelOf(interfaces::CompressionType compression, std::uint64_t size) {
  // Small content: see kSmallContentSize.  Content is bulk, written while the caller waits:
  // libdeflate's level 4 takes a third less time than its 6 for well under a percent more
  // bytes (about zlib's level 6 size).
  if (compression == interfaces::CompressionType::DeflateMetadata) return kMetadataLevel;
  return size <= kSmallContentSize ? kSmallContentDeflateLevel : 4;
}

[[noreturn]] void fail(std::string const& problem) {
  throw opc::Exception(problem, boost::system::error_code());
}

// Fills `buffer` from the reader until `count` bytes or the reader's end.
std::size_t fill(ContentReader& reader, unsigned char* buffer, std::size_t count) {
  std::size_t total = 0;
  while (total < count) {
    std::size_t const n = reader.read(buffer + total, count - total);
    if (n == 0) break;
    total += n;
  }
  return total;
}

std::string nameOf(EagerArchive::Item const& item) {
  return item.part ? toZipItemName(*item.part) : *item.name;
}

void expectSize(std::string const& name, std::uint64_t got, std::uint64_t size) {
  if (got != size) {
    fail("item \"" + name + "\": its content ends after " + std::to_string(got) +
         " bytes, before the " + std::to_string(size) + " declared");
  }
}

void expectEnd(std::string const& name, ContentReader& reader, std::uint64_t size) {
  unsigned char probe[1];
  if (reader.read(probe, sizeof probe) != 0) {
    fail("item \"" + name + "\": its content goes on past the " + std::to_string(size) +
         " bytes declared");
  }
}

}  // namespace

struct EagerArchive::Job {
  std::string name;
  interfaces::CompressionType compression;
  std::shared_ptr<PartContent const> source;
  std::shared_ptr<EagerContent> target;  // null for the items of the save
  std::uint64_t weight = 0;
  bool large = false;
  bool prepared = false;
  bool deflated = false;
  std::uint32_t crc = 0;
  // The deflated bytes, or the content read here when it is not held in one piece.
  std::vector<unsigned char> bytes;
  std::exception_ptr error;
};

EagerArchive::EagerArchive(Settings settings) : settings_(std::move(settings)) {}

EagerArchive::~EagerArchive() { stopWorkers(); }

void EagerArchive::stopWorkers() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  work_.notify_all();
  for (std::thread& worker : workers_) worker.join();
  workers_.clear();
}

bool EagerArchive::start() {
  try {
    if (settings_.prepare) settings_.prepare();
    file_ = std::make_unique<ReplacementFile>(settings_.target);
    reader_ = SharedDescriptorPtr(new SharedDescriptor(file_->descriptor()));
    time_ = settings_.reproducibleTime ? dosTimeOf(*settings_.reproducibleTime)
                                       : localDosTimeOf(std::time(nullptr));
    writer_ = std::make_unique<ZipStreamWriter>(file_->descriptor(), time_);
  } catch (...) {
    // The save meets the same obstacle and reports it.
    disabled_ = true;
    writer_.reset();
    reader_.reset();
    file_.reset();
    return false;
  }
  threads_ = deflateThreadsFor(settings_.threads);
  if (threads_ > 1) {
    for (unsigned i = 0; i < threads_; ++i) workers_.emplace_back([this] { work(); });
  }
  return true;
}

bool EagerArchive::started() const { return writer_ != nullptr; }

std::shared_ptr<PartContent const> EagerArchive::submit(
    std::string itemName, interfaces::CompressionType compression,
    std::shared_ptr<PartContent const> content) {
  if (disabled_ || (!writer_ && !start())) return content;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (failure_) return content;
  }
  auto target = std::make_shared<EagerContent>(content);
  enqueue(std::move(itemName), compression, std::move(content), target);
  return target;
}

void EagerArchive::enqueue(std::string name, interfaces::CompressionType compression,
                           std::shared_ptr<PartContent const> source,
                           std::shared_ptr<EagerContent> target) {
  std::uint64_t const size = source->size();
  std::unique_lock<std::mutex> lock(mutex_);
  // A job written before is used again: jobs are made on the caller's thread and written on a
  // worker's, and a block freed on another thread than the one that made it costs both
  // threads' allocators more than the job's work.
  std::unique_ptr<Job> job;
  if (spareJobs_.empty()) {
    job = std::make_unique<Job>();
  } else {
    job = std::move(spareJobs_.back());
    spareJobs_.pop_back();
  }
  job->name = std::move(name);
  job->compression = compression;
  job->source = std::move(source);
  job->target = std::move(target);
  job->weight = std::min(size, kMostWeight);
  job->large = size > kMemoryItemLimit;
  job->prepared = false;
  job->deflated = false;
  job->crc = 0;
  job->bytes.clear();
  job->error = nullptr;
  auto const hasRoom = [&] { return failure_ || inFlight_ < kWindow || jobs_.empty(); };
  if (!hasRoom()) {
    // Every job waiting is for the workers to take before the caller sleeps: see below.
    work_.notify_all();
    callerWaiting_ = true;
    room_.wait(lock, hasRoom);
    callerWaiting_ = false;
  }
  if (failure_) return;
  inFlight_ += job->weight;
  jobs_.push_back(std::move(job));
  if (!workers_.empty()) {
    // A worker that is busy takes the job when it is done: none is left behind.  One that
    // sleeps is woken for a few jobs rather than for each: a wake-up costs the caller a
    // system call and the worker a switch, more than deflating a small item.  The jobs left
    // waiting meanwhile are taken when the caller waits for room or for the end.
    if (jobs_.size() - taken_ >= kJobsPerWake || jobs_.back()->large) work_.notify_one();
    return;
  }
  // One thread: the caller's, at once.
  Job& inline_ = *jobs_.back();
  ++taken_;
  lock.unlock();
  prepare(inline_);
  lock.lock();
  inline_.prepared = true;
  writeReady(lock);
}

void EagerArchive::work() {
  std::unique_lock<std::mutex> lock(mutex_);
  auto canWrite = [&] { return !writing_ && !jobs_.empty() && jobs_.front()->prepared; };
  for (;;) {
    work_.wait(lock, [&] { return stop_ || (!failure_ && (taken_ < jobs_.size() || canWrite())); });
    if (stop_) return;
    if (canWrite()) {
      writeReady(lock);
      continue;
    }
    Job& job = *jobs_[taken_++];
    lock.unlock();
    prepare(job);
    lock.lock();
    // This worker writes it on its next turn if it is at the head; otherwise whoever writes
    // the head goes on to it.
    job.prepared = true;
  }
}

void EagerArchive::prepare(Job& job) const {
  if (job.large) return;  // streamed when its turn comes
  try {
    std::size_t const size = static_cast<std::size_t>(job.source->size());
    // Bytes held in one piece are taken where they are; the job keeps their content until it
    // is written.  Others are read into the job.
    unsigned char const* data = job.source->bytesInOnePiece();
    if (data == nullptr && size > 0) {
      std::unique_ptr<ContentReader> reader = job.source->openReader();
      job.bytes.resize(size);
      expectSize(job.name, fill(*reader, job.bytes.data(), size), size);
      expectEnd(job.name, *reader, size);
      data = job.bytes.data();
    }
    job.crc = static_cast<std::uint32_t>(libdeflate_crc32(0, data, size));
    job.deflated = false;
    if (job.compression != interfaces::CompressionType::Stored && size > 0 &&
        !looksIncompressible(data, size)) {
      libdeflate_compressor* compressor = compressorFor(levelOf(job.compression, size));
      std::size_t const bound = libdeflate_deflate_compress_bound(compressor, size);
      if (bound <= kSmallOutputSize) {
        // A small item deflates on the stack, and the job keeps only what it gives: a buffer
        // of the bound, zeroed, and held until the item is written, would cost more than the
        // copy, and most items are small.
        unsigned char out[kSmallOutputSize];
        std::size_t const compressed =
            libdeflate_deflate_compress(compressor, data, size, out, bound);
        if (compressed > 0 && compressed < size) {
          job.bytes.assign(out, out + compressed);
          job.deflated = true;
        }
      } else {
        std::vector<unsigned char> out(bound);
        std::size_t const compressed =
            libdeflate_deflate_compress(compressor, data, size, out.data(), out.size());
        if (compressed > 0 && compressed < size) {
          out.resize(compressed);
          job.bytes.swap(out);
          job.deflated = true;
        }
      }
    }
  } catch (...) {
    job.error = std::current_exception();
  }
}

void EagerArchive::writeReady(std::unique_lock<std::mutex>& lock) {
  writing_ = true;
  while (!failure_ && !jobs_.empty() && jobs_.front()->prepared) {
    Job& job = *jobs_.front();
    lock.unlock();
    std::exception_ptr error = job.error;
    std::uint64_t released = 0;
    if (!error) {
      try {
        write(job);
        released = job.target ? moveWritten(false) : job.weight;
      } catch (...) {
        error = std::current_exception();
      }
    }
    lock.lock();
    inFlight_ -= std::min(inFlight_, released);
    if (error) failure_ = error;
    std::unique_ptr<Job> done = std::move(jobs_.front());
    jobs_.pop_front();
    --taken_;
    if (spareJobs_.size() < kSpareJobs) {
      // What the job refers to goes now, as it did with the job; its name goes when the
      // caller's thread, which made it, gives the job the next one.
      done->source.reset();
      done->target.reset();
      done->error = nullptr;
      spareJobs_.push_back(std::move(done));
    }
    if (callerWaiting_ && (failure_ || inFlight_ < kWindow)) room_.notify_all();
  }
  writing_ = false;
  if (callerWaiting_ || failure_) room_.notify_all();
}

void EagerArchive::write(Job& job) {
  std::size_t const index = writer_->itemCount();
  if (job.large) {
    stream(job);
  } else {
    // Deflated, or read into the job: its bytes; otherwise the content's own.
    std::uint64_t const size = job.source->size();
    unsigned char const* held = job.source->bytesInOnePiece();
    bool const own = job.deflated || held == nullptr;
    writer_->add(job.name, job.deflated, job.crc, size, own ? job.bytes.data() : held,
                 own ? job.bytes.size() : static_cast<std::size_t>(size));
    std::vector<unsigned char>().swap(job.bytes);
  }
  if (job.target) {
    unmoved_.push_back({job.target, index, job.weight});
    unmovedWeight_ += job.weight;
    if (unmovedWeight_ >= kWindow / 2) writer_->flush();
  }
}

void EagerArchive::stream(Job& job) {
  std::unique_ptr<ContentReader> reader = job.source->openReader();
  std::uint64_t const size = job.source->size();
  std::vector<unsigned char> sample;
  if (job.compression != interfaces::CompressionType::Stored) {
    // Judged on its first MiB, as the libzip road does.
    sample.resize(kSampleSize);
    expectSize(job.name, fill(*reader, sample.data(), kSampleSize), kSampleSize);
    libdeflate_compressor* quick = compressorFor(1);
    std::vector<unsigned char> out(libdeflate_deflate_compress_bound(quick, kSampleSize));
    std::size_t const compressed =
        libdeflate_deflate_compress(quick, sample.data(), kSampleSize, out.data(), out.size());
    if (compressed > 0 && compressed < kSampleSize - kSampleSize / 32) {
      std::size_t used = 0;
      ChunkSource const source = [&](unsigned char* buffer, std::size_t n) -> std::size_t {
        if (used < sample.size()) {
          n = std::min(n, sample.size() - used);
          std::memcpy(buffer, sample.data() + used, n);
          used += n;
          if (used == sample.size()) std::vector<unsigned char>().swap(sample);
          return n;
        }
        return reader->read(buffer, n);
      };
      ChunkSink const sink = [&](unsigned char const* data, std::size_t n) {
        writer_->append(data, n);
      };
      writer_->begin(job.name, true, size);
      ChunkedDeflateResult const result =
          deflateInChunks(source, size, levelOf(job.compression, size), threads_, sink);
      expectEnd(job.name, *reader, size);
      writer_->end(result.crc, size);
      return;
    }
  }
  writer_->begin(job.name, false, size);
  std::uint32_t crc = static_cast<std::uint32_t>(libdeflate_crc32(0, sample.data(), sample.size()));
  writer_->append(sample.data(), sample.size());
  std::uint64_t total = sample.size();
  std::vector<unsigned char> buffer(kCopySize);
  while (total < size) {
    std::size_t const n = reader->read(
        buffer.data(), static_cast<std::size_t>(std::min<std::uint64_t>(size - total, kCopySize)));
    if (n == 0) break;
    crc = static_cast<std::uint32_t>(libdeflate_crc32(crc, buffer.data(), n));
    writer_->append(buffer.data(), n);
    total += n;
  }
  expectSize(job.name, total, size);
  expectEnd(job.name, *reader, size);
  writer_->end(crc, size);
}

std::uint64_t EagerArchive::moveWritten(bool all) {
  if (all) writer_->flush();
  std::uint64_t released = 0;
  std::size_t moved = 0;
  for (; moved < unmoved_.size(); ++moved) {
    Unmoved const& next = unmoved_[moved];
    ZipStreamItem const& item = writer_->item(next.item);
    if (item.dataOffset() + item.compressedSize > writer_->flushed()) break;
    next.content->moveTo(reader_, item.dataOffset(), item.compressedSize, item.deflated);
    released += next.weight;
  }
  unmoved_.erase(unmoved_.begin(), unmoved_.begin() + static_cast<std::ptrdiff_t>(moved));
  unmovedWeight_ -= released;
  return released;
}

void EagerArchive::drain() {
  std::unique_lock<std::mutex> lock(mutex_);
  work_.notify_all();
  callerWaiting_ = true;
  room_.wait(lock, [&] { return failure_ || (jobs_.empty() && !writing_); });
  callerWaiting_ = false;
  if (failure_) std::rethrow_exception(failure_);
}

void EagerArchive::compact(std::vector<bool> const& keep) {
  // The contents still read from elsewhere move to the current file first: they then read
  // from it whatever happens to the new one (their descriptor keeps it).
  moveWritten(true);
  auto fresh = std::make_unique<ReplacementFile>(settings_.target);
  SharedDescriptorPtr freshReader(new SharedDescriptor(fresh->descriptor()));
  auto freshWriter = std::make_unique<ZipStreamWriter>(fresh->descriptor(), time_);
  for (std::size_t i = 0; i < keep.size(); ++i) {
    if (!keep[i]) continue;
    freshWriter->copy(file_->descriptor(), writer_->item(i));
  }
  writer_ = std::move(freshWriter);
  file_ = std::move(fresh);
  reader_ = std::move(freshReader);
}

std::unique_ptr<ReplacementFile> EagerArchive::complete(std::vector<Item> const& items) {
  try {
    drain();
    // Every content the archive took is in the file from here on.  Where it lies tells which
    // item holds it: the items are in file order, so their data offsets rise.  A content of
    // an earlier file (or of none) is written again.
    moveWritten(true);
    std::size_t const count = writer_->itemCount();
    // Items come mostly in the order of the file: long names are read back a window at a time.
    ZipStreamWriter::NameReader names(*writer_);
    // The item after the one found last is tried first, before a search over them all.
    std::size_t next = 0;
    auto const find = [&](Item const& item) -> std::optional<std::size_t> {
      auto const* content = dynamic_cast<EagerContent const*>(item.content.get());
      if (content == nullptr || !content->liesIn(*reader_)) return std::nullopt;
      std::size_t low = 0;
      if (next < count && writer_->item(next).dataOffset() == content->dataOffset()) {
        low = next;
      } else {
        std::size_t high = count;
        while (low < high) {
          std::size_t const middle = low + (high - low) / 2;
          if (writer_->item(middle).dataOffset() < content->dataOffset()) {
            low = middle + 1;
          } else {
            high = middle;
          }
        }
      }
      if (low == count) return std::nullopt;
      ZipStreamItem const& written = writer_->item(low);
      if (written.dataOffset() != content->dataOffset() || written.size != content->size()) {
        return std::nullopt;
      }
      // The name last: a long one is read back from the file.
      std::string_view const writtenName = names.nameOf(low);
      bool const sameName =
          item.part ? isZipItemNameOf(writtenName, *item.part) : writtenName == *item.name;
      if (!sameName) return std::nullopt;
      next = low + 1;
      return low;
    };
    std::vector<bool> keep(count, false);
    std::vector<Item const*> rest;
    for (Item const& item : items) {
      std::optional<std::size_t> const index = find(item);
      if (index && !keep[*index]) {
        keep[*index] = true;
      } else {
        rest.push_back(&item);
      }
    }
    if (std::find(keep.begin(), keep.end(), false) != keep.end()) compact(keep);
    for (Item const* item : rest) enqueue(nameOf(*item), item->compression, item->content, nullptr);
    drain();
    writer_->finish();
  } catch (CouldNotSavePackage const&) {
    throw;
  } catch (opc::Exception const& e) {
    throw CouldNotSavePackage(prefix() + e.what(), e.code());
  } catch (std::exception const& e) {
    throw CouldNotSavePackage(prefix() + e.what());
  }
  stopWorkers();
  return std::move(file_);
}

std::string EagerArchive::prefix() const {
  return "Could not save package \"" +
         opc::toUDEString(opc::detail::toStringFromUTF8String(settings_.target)) + "\": ";
}

}  // namespace detail
}  // namespace model
}  // namespace opc
