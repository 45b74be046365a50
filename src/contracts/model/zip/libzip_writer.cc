// ZipWriter over libzip, the heart of the ZIP writer library (see zip_writer_library.h).
// libzip lays out the archive (local headers, central directory, ZIP64 records, the UTF-8
// flag) and writes everything in zip_close(), asking each item's source for its stat and bytes
// in order.  Compression happens before that, on worker threads that run ahead of libzip by a
// few items, or on the caller's thread when libzip asks.
#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <mutex>
#include <thread>

#include <zip.h>

#include <opc/core/string_conversions.h>
#include <opc/model/exceptions.h>

#include "chunked_deflate.h"
#include "replacement_file.h"
#include "zip_archive.h"
#include "zip_archive_sink.h"
#include "zip_dos_time.h"
#include "zip_format.h"
#include "zip_item_source.h"
#include "zip_names.h"
#include "zip_writer_items.h"
#include "zip_writer_library.h"
#include "zip_writer_output.h"

namespace opc {
namespace model {
namespace detail {
namespace {

// Workers may run ahead of libzip by this many bytes of content (and always by one item per
// thread), which bounds the memory that prepared items hold.  Counted in bytes rather than
// items so that small items do not cost a hand-over between threads each: a worker that
// found the window full sleeps until libzip has used half of it.
constexpr std::uint64_t kWindowBytes = std::uint64_t{8} << 20;

boost::system::error_code systemCode(int error) {
  return boost::system::error_code(error, boost::system::system_category());
}

// libzip keeps an item's time as a time_t: it reads a DOS time as local time and writes the
// local time again, so that a DOS time survives unless the local time zone skips it (the hour
// that daylight saving time leaves out), where it would come out an hour later.
bool localZoneCanWrite(DosTime const& dos) {
  std::tm fields{};
  fields.tm_year = (dos.date >> 9) + 80;
  fields.tm_mon = ((dos.date >> 5) & 15) - 1;
  fields.tm_mday = dos.date & 31;
  fields.tm_hour = dos.time >> 11;
  fields.tm_min = (dos.time >> 5) & 63;
  fields.tm_sec = (dos.time & 31) * 2;
  fields.tm_isdst = -1;
  std::tm const wanted = fields;
  std::time_t const local = std::mktime(&fields);
  std::tm back{};
  if (local == static_cast<std::time_t>(-1) || localtime_r(&local, &back) == nullptr) return false;
  return back.tm_year == wanted.tm_year && back.tm_mon == wanted.tm_mon &&
         back.tm_mday == wanted.tm_mday && back.tm_hour == wanted.tm_hour &&
         back.tm_min == wanted.tm_min && back.tm_sec == wanted.tm_sec;
}

class LibzipWriter : public ZipWriter, private ItemSourceOwner {
 public:
  // Writes into `file` (owned or not, see ZipWriter::toFile and toReplacement), or into `out`.
  LibzipWriter(ReplacementFile* file, std::unique_ptr<ReplacementFile> owned,
               std::vector<unsigned char>* out, unsigned threads)
      : path_(file != nullptr ? file->target() : std::string()),
        owned_(std::move(owned)),
        out_(out),
        sink_(file != nullptr ? file->descriptor() : -1) {
    spoolFolder_ = out_ != nullptr ? tempFolder() : folderOf(path_);
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* source = sink_.makeSource();
    if (source != nullptr) {
      archive_ = zip_open_from_source(source, ZIP_CREATE | ZIP_TRUNCATE, &error);
      if (archive_ == nullptr) zip_source_free(source);
    }
    std::string const cause = zip_error_strerror(&error);
    zip_error_fini(&error);
    if (archive_ == nullptr) {
      discardTemp();
      fail("the archive could not be started (" + cause + ")");
    }
    unsigned const count = deflateThreadsFor(threads);
    threads_ = count;
    if (count > 1) {
      window_ = count;
      for (unsigned i = 0; i < count; ++i) workers_.emplace_back([this] { work(); });
    }
  }

  ~LibzipWriter() override {
    stopWorkers();
    // Items must outlive libzip's sources, which point at them.
    if (archive_ != nullptr) zip_discard(archive_);
    archive_ = nullptr;
    discardTemp();
  }

  void makeReproducible(std::int64_t secondsSinceEpoch) override {
    DosTime const fixed = dosTimeOf(secondsSinceEpoch);
    if (!localZoneCanWrite(fixed)) {
      char text[32];
      std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", (fixed.date >> 9) + 1980,
                    (fixed.date >> 5) & 15, fixed.date & 31, fixed.time >> 11,
                    (fixed.time >> 5) & 63, (fixed.time & 31) * 2);
      fail(std::string("the reproducible time ") + text +
           " UTC cannot be written in the local time zone, which skips it for daylight saving "
           "time (run with TZ=UTC)");
    }
    reproducible_ = true;
    fixedTime_ = fixed;
  }

  void addRaw(std::string const& name, ZipArchive const& from, ZipEntry const& entry) override {
    auto item = std::make_unique<WriterItem>();
    item->name = name;
    item->plan = WriterItem::Plan::Raw;
    item->rawSource = from.source();
    // Its local header is read here, where the copy needs the offset of its data.
    item->rawEntry = from.locate(entry);
    item->state = WriterItem::State::Done;
    addItem(std::move(item), entry.method == zipformat::kMethodStored);
  }

  void add(std::string const& name, interfaces::CompressionType compression, std::uint64_t size,
           ZipContentReader reader) override {
    auto item = std::make_unique<WriterItem>();
    item->name = name;
    item->compression = compression;
    item->size = size;
    item->reader = std::move(reader);
    item->spoolFolder = spoolFolder_;
    item->threads = threads_;
    item->reproducible = reproducible_;
    bool const stored = compression == interfaces::CompressionType::Stored;
    if (stored) {
      item->plan = WriterItem::Plan::StreamReader;
      item->compressedSize = size;
      item->state = WriterItem::State::Done;
    } else {
      item->needsPreparation = true;
    }
    WriterItem* added = addItem(std::move(item), stored);
    if (added->needsPreparation && !workers_.empty()) {
      std::lock_guard<std::mutex> lock(mutex_);
      added->workIndex = work_.size();
      work_.push_back(added);
      workBytes_.push_back(workBytes_.back() + added->size);
      if (idleWorkers_ > 0 && mayTake(kWindowBytes)) ready_.notify_one();
    }
  }

  void commit() override {
    if (committed_) fail("the archive was already written");
    committed_ = true;
    try {
      if (items_.empty()) {
        zip_discard(archive_);
        archive_ = nullptr;
        if (!sink_.writeEmptyArchive()) failSystem("could not write", sink_.systemError());
      } else {
        int const status = zip_close(archive_);
        if (status != 0) {
          std::string const cause = zip_strerror(archive_);
          zip_discard(archive_);
          archive_ = nullptr;
          stopWorkers();
          rethrowFailure();
          int const system = sink_.systemError();
          if (system != 0) failSystem("could not write", system);
          fail(cause);
        }
        archive_ = nullptr;
      }
      stopWorkers();
      if (!sink_.flush()) failSystem("could not write", sink_.systemError());
      if (out_ != nullptr) {
        out_->swap(sink_.bytes());
        std::vector<unsigned char>().swap(sink_.bytes());
        return;
      }
      if (owned_) {
        owned_->commit();
        owned_.reset();
      }
    } catch (...) {
      stopWorkers();
      discardTemp();
      throw;
    }
  }

 private:
  static std::string tempFolder() {
    char const* folder = std::getenv("TMPDIR");
    return folder != nullptr && *folder != '\0' ? folder : "/tmp";
  }

  std::string prefix() const {
    if (out_ != nullptr) return "Could not save package to memory: ";
    return "Could not save package \"" +
           opc::toUDEString(opc::detail::toStringFromUTF8String(path_)) + "\": ";
  }

  [[noreturn]] void fail(std::string const& cause) const {
    throw CouldNotSavePackage(prefix() + cause);
  }

  [[noreturn]] void failSystem(std::string const& step, int error) const {
    throw CouldNotSavePackage(prefix() + step + ": " + std::strerror(error), systemCode(error));
  }

  // A temporary file of the writer's own goes at once; the caller's goes with the caller's
  // ReplacementFile.
  void discardTemp() { owned_.reset(); }

  WriterItem* addItem(std::unique_ptr<WriterItem> item, bool stored) {
    if (committed_) fail("the archive was already written");
    WriterItem* raw = item.get();
    AddedItem const added = addItemSource(archive_, *raw, *this);
    if (!added.sourceMade) fail("item " + quoteName(item->name) + ": out of memory");
    if (added.index < 0) {
      zip_error_t* error = zip_get_error(archive_);
      bool const exists = zip_error_code_zip(error) == ZIP_ER_EXISTS;
      std::string const cause = exists ? "another item has the same name" : zip_strerror(archive_);
      zip_error_clear(archive_);
      fail("item " + quoteName(item->name) + ": " + cause);
    }
    auto const index = static_cast<zip_uint64_t>(added.index);
    if (stored) zip_set_file_compression(archive_, index, ZIP_CM_STORE, 0);
    items_.push_back(std::move(item));
    // Otherwise libzip writes the time of the save.  (The item is kept first: libzip's source
    // points at it.)
    if (reproducible_ &&
        zip_file_set_dostime(archive_, index, fixedTime_.time, fixedTime_.date, 0) != 0) {
      std::string const cause = zip_strerror(archive_);
      zip_error_clear(archive_);
      fail("item " + quoteName(raw->name) + ": its time could not be set (" + cause + ")");
    }
    return raw;
  }

  // Whether a worker may take the next item: within `window_` items or `windowBytes` bytes of
  // content ahead of the item that libzip is writing, which bounds the memory held by
  // compressed results.  Called with the mutex held.
  bool mayTake(std::uint64_t windowBytes) const {
    if (next_ >= work_.size()) return false;
    if (next_ < reached_ + window_) return true;
    return workBytes_[next_ + 1] - workBytes_[std::min(reached_, next_)] <= windowBytes;
  }

  // Worker threads take prepared-to-be items in order, as far ahead as mayTake allows.
  void work() {
    for (;;) {
      WriterItem* item = nullptr;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        while (!stop_ && !mayTake(kWindowBytes)) {
          ++idleWorkers_;
          ready_.wait(lock);
          --idleWorkers_;
        }
        if (stop_) return;
        item = work_[next_++];
        item->state = WriterItem::State::Running;
      }
      runPreparation(*item);
    }
  }

  void runPreparation(WriterItem& item) {
    std::exception_ptr error;
    try {
      item.prepare();
    } catch (...) {
      error = std::current_exception();
    }
    std::lock_guard<std::mutex> lock(mutex_);
    item.error = error;
    item.state = WriterItem::State::Done;
    if (writerWaiting_) done_.notify_all();
  }

  void ensurePrepared(WriterItem& item) override {
    if (!item.needsPreparation) return;
    if (workers_.empty()) {
      if (item.state == WriterItem::State::Pending) {
        item.state = WriterItem::State::Done;
        item.prepare();
      }
      return;
    }
    std::unique_lock<std::mutex> lock(mutex_);
    reached_ = std::max(reached_, item.workIndex + 1);
    if (idleWorkers_ > 0 && mayTake(kWindowBytes / 2)) ready_.notify_all();
    if (item.state == WriterItem::State::Pending) {
      // No worker has taken it: items are taken in order, so it is the next one.
      next_ = item.workIndex + 1;
      item.state = WriterItem::State::Running;
      lock.unlock();
      runPreparation(item);
      lock.lock();
    }
    if (item.state != WriterItem::State::Done) {
      writerWaiting_ = true;
      done_.wait(lock, [&] { return item.state == WriterItem::State::Done; });
      writerWaiting_ = false;
    }
    if (item.error) std::rethrow_exception(item.error);
  }

  void itemWritten(WriterItem& item) override { item.release(); }

  void recordFailure(WriterItem const& item, std::exception_ptr error) override {
    if (!failure_) {
      failure_ = error;
      failedItem_ = item.name;
    }
  }

  void rethrowFailure() const {
    if (!failure_) return;
    std::string const where = "item " + quoteName(failedItem_) + ": ";
    try {
      std::rethrow_exception(failure_);
    } catch (CouldNotSavePackage const&) {
      throw;
    } catch (opc::Exception const& e) {
      throw CouldNotSavePackage(prefix() + where + e.what(), e.code());
    } catch (std::exception const& e) {
      throw CouldNotSavePackage(prefix() + where + e.what());
    } catch (...) {
      throw CouldNotSavePackage(prefix() + where + "an unknown exception was thrown");
    }
  }

  void stopWorkers() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stop_ = true;
      ready_.notify_all();
    }
    for (std::thread& worker : workers_) worker.join();
    workers_.clear();
  }

  std::string path_;
  std::unique_ptr<ReplacementFile> owned_;
  std::vector<unsigned char>* out_;
  ArchiveSink sink_;
  std::string spoolFolder_;
  unsigned threads_ = 1;
  bool reproducible_ = false;
  DosTime fixedTime_{0, 0};
  zip_t* archive_ = nullptr;
  std::deque<std::unique_ptr<WriterItem>> items_;
  bool committed_ = false;
  std::exception_ptr failure_;
  std::string failedItem_;

  std::mutex mutex_;
  std::condition_variable ready_;  // work for the workers
  std::condition_variable done_;   // an item is prepared
  std::vector<WriterItem*> work_;
  std::vector<std::uint64_t> workBytes_{0};  // content bytes of work_ before each item
  std::size_t next_ = 0;                     // the next item of work_ to take
  std::size_t reached_ = 0;                  // items of work_ that libzip has asked for
  std::size_t window_ = 1;
  unsigned idleWorkers_ = 0;    // workers waiting on ready_
  bool writerWaiting_ = false;  // libzip's thread waits on done_
  bool stop_ = false;
  std::vector<std::thread> workers_;
};

class LibzipWriters final : public ZipWriterLibrary {
 public:
  std::unique_ptr<ZipWriter> make(ReplacementFile* file, std::unique_ptr<ReplacementFile> owned,
                                  std::vector<unsigned char>* out,
                                  unsigned compressionThreads) const override {
    return std::make_unique<LibzipWriter>(file, std::move(owned), out, compressionThreads);
  }
};

}  // namespace

}  // namespace detail
}  // namespace model
}  // namespace opc

opc::model::detail::ZipWriterLibrary const* opcmodel_zip_writers() {
  // Never destroyed: a writer may still be made while the process exits.
  static auto const* const writers = new opc::model::detail::LibzipWriters();
  return writers;
}
