// The memory of one streaming parser: its many small, short-lived allocations served from
// blocks that are released together.  Internal to libopcmodel_xml; exported for its tests only.
#ifndef OPC_MODEL_XML_POOLED_MEMORY_MANAGER_H_
#define OPC_MODEL_XML_POOLED_MEMORY_MANAGER_H_

#include <array>
#include <cstddef>
#include <vector>

#include <xercesc/framework/MemoryManager.hpp>

#include <opc/model/export.h>

namespace opc {
namespace model {
namespace detail {

// Reading a document the parser allocates and frees a few small buffers for every attribute
// it scans and every value it validates; through the general allocator that is a fair part
// of reading a large manifest.  This manager serves requests up to kLargestPooledSize bytes
// from 64 KiB blocks, one free list per size class of 16 bytes, and larger ones from the
// general allocator.  Memory freed goes back to its list and is reused, so the blocks held
// grow with the most the parser ever had allocated at once, not with the document; they are
// released when the manager is destroyed.
//
// Everything allocated through the manager must be deallocated through it before it is
// destroyed: it must outlive the parser that uses it.  Not thread-safe: a parser is used by
// one thread at a time, and so is its manager.  Raises std::bad_alloc (through Xerces'
// OutOfMemoryException, as the default manager does) when memory runs out.
class OPC_MODEL_EXPORT PooledMemoryManager : public xercesc::MemoryManager {
 public:
  static constexpr std::size_t kLargestPooledSize = 1024;

  PooledMemoryManager() = default;
  PooledMemoryManager(PooledMemoryManager const&) = delete;
  PooledMemoryManager& operator=(PooledMemoryManager const&) = delete;
  ~PooledMemoryManager() override;

  xercesc::MemoryManager* getExceptionMemoryManager() override;
  void* allocate(XMLSize_t size) override;
  void deallocate(void* p) override;

  // The bytes held in blocks, for tests.
  std::size_t blockBytes() const { return blocks_.size() * kBlockSize; }

 private:
  static constexpr std::size_t kGranule = 16;
  static constexpr std::size_t kClassCount = kLargestPooledSize / kGranule;
  static constexpr std::size_t kBlockSize = 64 * 1024;

  struct FreeSlot {
    FreeSlot* next;
  };

  char* carve(std::size_t bytes);

  std::array<FreeSlot*, kClassCount + 1> freeLists_{};
  std::vector<char*> blocks_;
  char* next_ = nullptr;
  char* end_ = nullptr;
};

}  // namespace detail
}  // namespace model
}  // namespace opc

#endif  // OPC_MODEL_XML_POOLED_MEMORY_MANAGER_H_
