// The memory budget of a package's part contents, and the one file that takes new content once
// the budget is spent.  Internal to libopcmodel: SharedSpool carries OPC_MODEL_EXPORT only so
// that the unit tests can reach it.
#ifndef OPC_MODEL_PACKAGE_SHARED_SPOOL_H_
#define OPC_MODEL_PACKAGE_SHARED_SPOOL_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <opc/model/export.h>

#include "part_content.h"

namespace opc {
namespace model {
namespace detail {

// One per package, shared by its output streams and by the contents they make.  Content kept
// in memory is counted against `budget` bytes until the content goes; content that does not fit
// is appended to a single temporary file, removed from its folder as soon as it is made.
// Parts written one after another would otherwise each hold their bytes until the package is
// saved, and a package of many parts would hold them all.  The file is only appended to, and
// read with positioned reads, so readers on several threads need no lock; its space comes back
// once no content uses it (after a save, typically), and the file goes with the last owner.
class OPC_MODEL_EXPORT SharedSpool : public std::enable_shared_from_this<SharedSpool> {
 public:
  // `folder`: where the file goes (the system's temporary folder if empty or if it cannot hold
  // the file).  Nothing is created before the first byte that does not fit.
  SharedSpool(std::uint64_t budget, std::u16string folder);
  ~SharedSpool();
  SharedSpool(SharedSpool const&) = delete;
  SharedSpool& operator=(SharedSpool const&) = delete;

  // Counts `count` more bytes as held in memory; false, counting nothing, past the budget.
  bool reserve(std::uint64_t count);
  // Gives back bytes that reserve() counted.
  void release(std::uint64_t count);
  std::uint64_t reserved() const { return reserved_.load(); }

  // Memory content whose bytes, already reserved, are given back when the last reader goes.
  std::shared_ptr<PartContent const> makeMemoryContent(std::vector<unsigned char> bytes);
  std::shared_ptr<PartContent const> makeMemoryContent(ByteBlocks blocks);

  // The content of one part in the file, made by one writer at a time.  Writes of several
  // writers interleave in the file: a content is a list of ranges.
  class Writer {
   public:
    explicit Writer(std::shared_ptr<SharedSpool> spool);
    ~Writer();
    Writer(Writer const&) = delete;
    Writer& operator=(Writer const&) = delete;
    // Throws opc::Exception if the file cannot be made or the file system refuses the bytes;
    // the content is then lost, and every later write() and finish() throws too.
    void write(unsigned char const* bytes, std::size_t count);
    // Ends writing; the content is what was written.  Throws as write() does.
    std::shared_ptr<PartContent const> finish();

   private:
    void flushStaging();

    std::shared_ptr<SharedSpool> spool_;
    std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges_;  // offset, length
    std::vector<unsigned char> staging_;
    std::uint64_t size_ = 0;
    bool finished_ = false;
    bool failed_ = false;
  };

  // The bytes of the file in use, for tests and measurements.
  std::uint64_t fileSize() const;

 private:
  friend class Writer;
  friend class SharedSpoolContent;
  // Appends `count` bytes; returns their offset.  Throws opc::Exception.
  std::uint64_t append(unsigned char const* bytes, std::size_t count);
  // Reads exactly `count` bytes at `offset`.  Throws opc::Exception.
  void readAt(std::uint64_t offset, unsigned char* bytes, std::size_t count) const;
  void addUser();
  void removeUser();

  std::uint64_t const budget_;
  std::u16string const folder_;
  std::atomic<std::uint64_t> reserved_{0};
  mutable std::mutex mutex_;  // guards what follows; never held during a read
  std::atomic<int> fd_{-1};
  std::uint64_t end_ = 0;
  std::size_t users_ = 0;  // writers and contents that have bytes in the file
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_SHARED_SPOOL_H_
