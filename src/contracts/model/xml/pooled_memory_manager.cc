#include "pooled_memory_manager.h"

#include <new>

#include <xercesc/util/OutOfMemoryException.hpp>
#include <xercesc/util/PlatformUtils.hpp>

namespace opc {
namespace model {
namespace detail {
namespace {

// Every allocation starts with a header that keeps its size class (0 for one of the general
// allocator), so that deallocate, which is given no size, knows where it goes.  The header
// is a granule wide, which keeps what follows it aligned for any type.
struct Header {
  std::size_t sizeClass;
};

constexpr std::size_t kHeaderSize = 16;
static_assert(sizeof(Header) <= kHeaderSize, "the header fits its granule");
static_assert(alignof(std::max_align_t) <= kHeaderSize, "the header keeps payloads aligned");

}  // namespace

PooledMemoryManager::~PooledMemoryManager() {
  for (char* block : blocks_) ::operator delete(block);
}

xercesc::MemoryManager* PooledMemoryManager::getExceptionMemoryManager() {
  // An exception may outlive the parse, and the parser, that raised it.
  return xercesc::XMLPlatformUtils::fgMemoryManager;
}

void* PooledMemoryManager::allocate(XMLSize_t size) {
  std::size_t const sizeClass = size == 0 ? 1 : (size + kGranule - 1) / kGranule;
  char* start = nullptr;
  try {
    if (sizeClass > kClassCount) {
      start = static_cast<char*>(::operator new(kHeaderSize + size));
      reinterpret_cast<Header*>(start)->sizeClass = 0;
      return start + kHeaderSize;
    }
    if (FreeSlot* slot = freeLists_[sizeClass]) {
      freeLists_[sizeClass] = slot->next;
      return slot;
    }
    start = carve(kHeaderSize + sizeClass * kGranule);
  } catch (std::bad_alloc const&) {
    throw xercesc::OutOfMemoryException();
  }
  reinterpret_cast<Header*>(start)->sizeClass = sizeClass;
  return start + kHeaderSize;
}

void PooledMemoryManager::deallocate(void* p) {
  if (p == nullptr) return;
  char* start = static_cast<char*>(p) - kHeaderSize;
  std::size_t const sizeClass = reinterpret_cast<Header const*>(start)->sizeClass;
  if (sizeClass == 0) {
    ::operator delete(start);
    return;
  }
  auto* slot = static_cast<FreeSlot*>(p);
  slot->next = freeLists_[sizeClass];
  freeLists_[sizeClass] = slot;
}

char* PooledMemoryManager::carve(std::size_t bytes) {
  if (static_cast<std::size_t>(end_ - next_) < bytes) {
    // What is left of the current block is too small for this class; it stays unused, which
    // costs less than a list of remnants would.
    blocks_.reserve(blocks_.size() + 1);
    char* block = static_cast<char*>(::operator new(kBlockSize));
    blocks_.push_back(block);
    next_ = block;
    end_ = block + kBlockSize;
  }
  char* start = next_;
  next_ += bytes;
  return start;
}

}  // namespace detail
}  // namespace model
}  // namespace opc
