// The content of a part that was handed to the archive being written before the save: read
// from where it came until its bytes are in the archive's file, then from there.  Internal
// to libopcmodel.
#ifndef OPC_MODEL_PACKAGE_EAGER_CONTENT_H_
#define OPC_MODEL_PACKAGE_EAGER_CONTENT_H_

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include <boost/intrusive_ptr.hpp>

#include "part_content.h"

namespace opc {
namespace model {
namespace detail {

// A descriptor of its own (a duplicate of the one given), closed with the last owner: readers
// keep reading a file that its writer has closed, renamed or removed meanwhile.  Counted in
// place (boost::intrusive_ptr), so that each of the many contents that lie in one file holds
// it with a pointer of 8 bytes.
class SharedDescriptor {
 public:
  // Throws opc::Exception if the descriptor cannot be duplicated.
  explicit SharedDescriptor(int fd);
  SharedDescriptor(SharedDescriptor const&) = delete;
  SharedDescriptor& operator=(SharedDescriptor const&) = delete;
  ~SharedDescriptor();
  int fd() const { return fd_; }

 private:
  friend void intrusive_ptr_add_ref(SharedDescriptor const* descriptor);
  friend void intrusive_ptr_release(SharedDescriptor const* descriptor);

  int fd_;
  mutable std::atomic<std::size_t> owners_{0};
};

void intrusive_ptr_add_ref(SharedDescriptor const* descriptor);
void intrusive_ptr_release(SharedDescriptor const* descriptor);

using SharedDescriptorPtr = boost::intrusive_ptr<SharedDescriptor const>;

class EagerContent : public PartContent {
 public:
  explicit EagerContent(std::shared_ptr<PartContent const> original);
  EagerContent(EagerContent const&) = delete;
  EagerContent& operator=(EagerContent const&) = delete;
  ~EagerContent() override;

  std::uint64_t size() const override { return size_; }
  std::unique_ptr<ContentReader> openReader() const override;

  // The content now lies in `file`: `compressedSize` stored bytes at `dataOffset`, raw
  // deflate or as they are.  The original goes (its memory with it); readers already open
  // keep what they read.  Called once, by one thread, while others may read.
  void moveTo(SharedDescriptorPtr const& file, std::uint64_t dataOffset,
              std::uint64_t compressedSize, bool deflated);
  // Whether moveTo put the content in `file`, and where its stored bytes begin there.
  bool liesIn(SharedDescriptor const& file) const {
    return file_.load(std::memory_order_acquire) == &file;
  }
  std::uint64_t dataOffset() const { return place_ & ~kDeflatedBit; }

 private:
  static constexpr std::uint64_t kDeflatedBit = std::uint64_t{1} << 63;

  // A package of many small parts holds one of these per part, in a block of its own with
  // the count of its shared_ptr: 56 bytes keep that block at 72, which malloc serves from
  // its 80-byte bins (a byte more would cost 16).  So no mutex, no flag of its own: the
  // original is read and dropped through the atomic functions of shared_ptr, and file_,
  // stored last (release) once the place is set, says that the content was moved.
  std::shared_ptr<PartContent const> original_;
  std::atomic<SharedDescriptor const*> file_{nullptr};  // holds one count once set
  std::uint64_t const size_;
  // The data offset in the file, with kDeflatedBit for deflated bytes (offsets of a file
  // never reach that bit).
  std::uint64_t place_ = 0;
  std::uint64_t compressedSize_ = 0;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_EAGER_CONTENT_H_
