// The output of the libzip writer: libzip's writes gathered into few large ones, into a file
// or a buffer.
#include "zip_archive_sink.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "zip_writer_output.h"

namespace opc {
namespace model {
namespace detail {
namespace {

constexpr std::size_t kGatherSize = 1024 * 1024;

}  // namespace

ArchiveSink::ArchiveSink(int fd) : fd_(fd) { zip_error_init(&error_); }

ArchiveSink::~ArchiveSink() { zip_error_fini(&error_); }

zip_source_t* ArchiveSink::makeSource() {
  return zip_source_function_create(&ArchiveSink::callback, this, nullptr);
}

bool ArchiveSink::writeOut(std::uint64_t position, unsigned char const* data, std::size_t count) {
  if (fd_ < 0) {
    if (bytes_.size() < position + count) bytes_.resize(position + count);
    if (count > 0) std::memcpy(bytes_.data() + position, data, count);
    return true;
  }
  if (!writeFully(fd_, position, data, count)) {
    systemError_ = errno;
    return false;
  }
  return true;
}

bool ArchiveSink::flush() {
  if (pending_.empty()) return true;
  bool const ok = writeOut(pendingStart_, pending_.data(), pending_.size());
  pending_.clear();
  return ok;
}

bool ArchiveSink::writeAt(std::uint64_t position, unsigned char const* data, std::size_t count) {
  if (fd_ < 0) return writeOut(position, data, count);
  std::uint64_t const pendingEnd = pendingStart_ + pending_.size();
  if (position >= pendingStart_ && position < pendingEnd) {
    // libzip going back to rewrite a local header it wrote a moment ago: the header is most
    // likely still here, and rewriting it here saves a flush and a write for every item.
    std::size_t const at = static_cast<std::size_t>(position - pendingStart_);
    std::size_t const n = std::min(count, pending_.size() - at);
    std::memcpy(pending_.data() + at, data, n);
    if (n == count) return true;
    position += n;
    data += n;
    count -= n;
  }
  if (position != pendingStart_ + pending_.size()) {
    if (!flush()) return false;
    pendingStart_ = position;
  }
  if (pending_.capacity() < kGatherSize) pending_.reserve(kGatherSize);
  if (pending_.size() + count > kGatherSize) {
    if (!flush()) return false;
    pendingStart_ = position;
    if (count >= kGatherSize) return writeOut(position, data, count);
  }
  pending_.insert(pending_.end(), data, data + count);
  return true;
}

bool ArchiveSink::writeEmptyArchive() {
  unsigned char record[22] = {0x50, 0x4b, 0x05, 0x06};
  return writeAt(0, record, sizeof record) && flush();
}

zip_int64_t ArchiveSink::callback(void* state, void* data, zip_uint64_t length,
                                  zip_source_cmd_t command) {
  ArchiveSink& sink = *static_cast<ArchiveSink*>(state);
  switch (command) {
    case ZIP_SOURCE_SUPPORTS:
      return zip_source_make_command_bitmap(
          ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR,
          ZIP_SOURCE_FREE, ZIP_SOURCE_SEEK, ZIP_SOURCE_TELL, ZIP_SOURCE_SUPPORTS,
          ZIP_SOURCE_BEGIN_WRITE, ZIP_SOURCE_COMMIT_WRITE, ZIP_SOURCE_ROLLBACK_WRITE,
          ZIP_SOURCE_WRITE, ZIP_SOURCE_SEEK_WRITE, ZIP_SOURCE_TELL_WRITE, ZIP_SOURCE_REMOVE, -1);
    case ZIP_SOURCE_STAT: {
      // The archive starts empty: libzip opens it with ZIP_TRUNCATE and never reads it.
      zip_stat_t* stat = static_cast<zip_stat_t*>(data);
      zip_stat_init(stat);
      stat->valid = ZIP_STAT_SIZE;
      stat->size = 0;
      return sizeof(zip_stat_t);
    }
    case ZIP_SOURCE_OPEN:
    case ZIP_SOURCE_CLOSE:
    case ZIP_SOURCE_FREE:
    case ZIP_SOURCE_REMOVE:
    case ZIP_SOURCE_READ:
    case ZIP_SOURCE_SEEK:
    case ZIP_SOURCE_TELL:
      return 0;
    case ZIP_SOURCE_BEGIN_WRITE:
      sink.position_ = sink.size_ = sink.pendingStart_ = 0;
      sink.pending_.clear();
      sink.bytes_.clear();
      return 0;
    case ZIP_SOURCE_WRITE:
      if (!sink.writeAt(sink.position_, static_cast<unsigned char const*>(data),
                        static_cast<std::size_t>(length))) {
        zip_error_set(&sink.error_, ZIP_ER_WRITE, sink.systemError_);
        return -1;
      }
      sink.position_ += length;
      sink.size_ = std::max(sink.size_, sink.position_);
      return static_cast<zip_int64_t>(length);
    case ZIP_SOURCE_SEEK_WRITE: {
      zip_int64_t const position =
          zip_source_seek_compute_offset(sink.position_, sink.size_, data, length, &sink.error_);
      if (position < 0) return -1;
      sink.position_ = static_cast<std::uint64_t>(position);
      return 0;
    }
    case ZIP_SOURCE_TELL_WRITE:
      return static_cast<zip_int64_t>(sink.position_);
    case ZIP_SOURCE_COMMIT_WRITE:
      if (!sink.flush()) {
        zip_error_set(&sink.error_, ZIP_ER_WRITE, sink.systemError_);
        return -1;
      }
      return 0;
    case ZIP_SOURCE_ROLLBACK_WRITE:
      sink.pending_.clear();
      return 0;
    case ZIP_SOURCE_ERROR:
      return zip_error_to_data(&sink.error_, data, length);
    default:
      zip_error_set(&sink.error_, ZIP_ER_OPNOTSUPP, 0);
      return -1;
  }
}

}  // namespace detail
}  // namespace model
}  // namespace opc
