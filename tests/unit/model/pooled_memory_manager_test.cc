#include "xml/pooled_memory_manager.h"

#include <cstdint>
#include <cstring>
#include <set>
#include <vector>

#include <gtest/gtest.h>
#include <xercesc/util/PlatformUtils.hpp>

#include <opc/model/xml/xerces_guard.h>

namespace {

using opc::model::detail::PooledMemoryManager;

bool isAligned(void* p) {
  return reinterpret_cast<std::uintptr_t>(p) % alignof(std::max_align_t) == 0;
}

TEST(PooledMemoryManagerTest, GivesAlignedDistinctWritableMemoryOfEverySize) {
  PooledMemoryManager memory;
  std::vector<std::pair<unsigned char*, std::size_t>> taken;
  for (std::size_t size : {0u, 1u, 15u, 16u, 17u, 100u, 1023u, 1024u, 1025u, 70000u}) {
    auto* p = static_cast<unsigned char*>(memory.allocate(size));
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(isAligned(p)) << size;
    std::memset(p, static_cast<int>(size & 0xFF), size);
    taken.emplace_back(p, size);
  }
  // Every block still holds what was written to it: no two overlap.
  for (auto const& [p, size] : taken) {
    for (std::size_t i = 0; i < size; ++i) ASSERT_EQ(p[i], static_cast<unsigned char>(size & 0xFF));
  }
  for (auto const& [p, size] : taken) memory.deallocate(p);
}

TEST(PooledMemoryManagerTest, ReusesWhatIsFreedSoThatBlocksDoNotGrowWithTheWork) {
  PooledMemoryManager memory;
  std::vector<void*> live;
  for (int round = 0; round < 1000; ++round) {
    for (std::size_t size = 8; size <= 1024; size += 40) live.push_back(memory.allocate(size));
    for (void* p : live) memory.deallocate(p);
    live.clear();
  }
  // One round needs about 14 KiB: a single block serves a thousand of them.
  EXPECT_EQ(memory.blockBytes(), 64u * 1024u);
}

TEST(PooledMemoryManagerTest, GivesBackTheSameSlotForTheSameSizeClass) {
  PooledMemoryManager memory;
  void* first = memory.allocate(40);
  memory.deallocate(first);
  EXPECT_EQ(memory.allocate(33), first);
  EXPECT_NE(memory.allocate(40), first);
}

TEST(PooledMemoryManagerTest, LargeRequestsDoNotUseBlocks) {
  PooledMemoryManager memory;
  void* p = memory.allocate(PooledMemoryManager::kLargestPooledSize + 1);
  EXPECT_EQ(memory.blockBytes(), 0u);
  memory.deallocate(p);
  memory.deallocate(nullptr);
}

TEST(PooledMemoryManagerTest, ExceptionsUseTheLibrarysOwnManager) {
  opc::model::XercesGuard guard;
  PooledMemoryManager memory;
  EXPECT_EQ(memory.getExceptionMemoryManager(), xercesc::XMLPlatformUtils::fgMemoryManager);
}

}  // namespace
