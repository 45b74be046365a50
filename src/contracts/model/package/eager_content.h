// The content of a part that was handed to the archive being written before the save: read
// from where it came until its bytes are in the archive's file, then from there.  Internal
// to libopcmodel.
#ifndef OPC_MODEL_PACKAGE_EAGER_CONTENT_H_
#define OPC_MODEL_PACKAGE_EAGER_CONTENT_H_

#include <atomic>
#include <cstdint>
#include <memory>

#include "part_content.h"

namespace opc {
namespace model {
namespace detail {

// A descriptor of its own (a duplicate of the one given), closed with the last owner: readers
// keep reading a file that its writer has closed, renamed or removed meanwhile.
class SharedDescriptor {
 public:
  // Throws opc::Exception if the descriptor cannot be duplicated.
  explicit SharedDescriptor(int fd);
  SharedDescriptor(SharedDescriptor const&) = delete;
  SharedDescriptor& operator=(SharedDescriptor const&) = delete;
  ~SharedDescriptor();
  int fd() const { return fd_; }

 private:
  int fd_;
};

class EagerContent : public PartContent {
 public:
  explicit EagerContent(std::shared_ptr<PartContent const> original);

  std::uint64_t size() const override { return size_; }
  std::unique_ptr<ContentReader> openReader() const override;

  // Where the bytes are read from until moveTo(); null after.
  std::shared_ptr<PartContent const> original() const;
  // The content now lies in `file`: `compressedSize` stored bytes at `dataOffset`, raw
  // deflate or as they are.  The original goes (its memory with it); readers already open
  // keep what they read.  Called once, by one thread, while others may read.
  void moveTo(std::shared_ptr<SharedDescriptor const> file, std::uint64_t dataOffset,
              std::uint64_t compressedSize, bool deflated);

 private:
  // A package of many small parts holds one of these per part: no mutex of its own.  The
  // original is read and dropped through the atomic functions of shared_ptr; the fields of
  // the file are set once, before moved_ is raised and the original dropped.
  std::uint64_t const size_;
  std::shared_ptr<PartContent const> original_;
  std::shared_ptr<SharedDescriptor const> file_;
  std::uint64_t dataOffset_ = 0;
  std::uint64_t compressedSize_ = 0;
  bool deflated_ = false;
  std::atomic<bool> moved_{false};
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_PACKAGE_EAGER_CONTENT_H_
