// Seeds for the hash tables that file names read from packages and folders.  Those names come
// from whoever wrote the package: with a hash known in advance, they can be chosen so that
// every one lands in the same run of slots, and each look-up then walks all the names before
// it.  A seed that the writer cannot know mixed into the hash's starting state keeps them
// apart, and keys found to collide under one seed say nothing about another.
//
// Header only, so that every library of the project reaches it without a symbol of its own:
// each library that uses it takes the kernel's draw once, the first time it makes a seed.
#ifndef OPC_CORE_TABLE_SEED_H_
#define OPC_CORE_TABLE_SEED_H_

#include <atomic>
#include <cstdint>
#include <exception>
#include <random>

namespace opc {
namespace detail {

// A draw of 64 bits from the kernel, or 0 where it gives none.  The seed is no secret: it
// only has to be unknown to whoever writes the names, so the kernel's entropy is enough and
// the process's cryptographic generator (whose first use reads the crypto library's
// configuration) is left to those who need it.  "getentropy" asks the kernel alone; the
// default device first asks the processor which random instructions it has, and a virtual
// machine answers that question slowly: tens of microseconds, a fair part of a short command.
inline std::uint64_t kernelEntropy() {
  for (char const* token : {"getentropy", "default"}) {
    try {
      std::random_device entropy(token);
      return std::uint64_t{entropy()} << 32 | entropy();
    } catch (std::exception const&) {
      // Not on this platform: the next source, or none.
    }
  }
  return 0;
}

// The finaliser of splitmix64: every bit of its argument reaches every bit of the result.
inline std::uint64_t mixSeedBits(std::uint64_t seed) {
  seed = (seed ^ (seed >> 30)) * 0xBF58476D1CE4E5B9ull;
  seed = (seed ^ (seed >> 27)) * 0x94D049BB133111EBull;
  return seed ^ (seed >> 31);
}

// A seed for one table: the process's draw, taken once, mixed with the table's place in the
// order of tables and in memory (which alone still differs from run to run where the kernel
// gives no entropy).  `table` is any address that belongs to the table.  Thread-safe.
inline std::uint64_t tableSeed(void const* table) {
  static std::uint64_t const processEntropy = kernelEntropy();
  static std::atomic<std::uint64_t> tablesMade{0};
  std::uint64_t seed = processEntropy + (tablesMade.fetch_add(1, std::memory_order_relaxed) + 1) *
                                            0x9E3779B97F4A7C15ull;
  seed ^= reinterpret_cast<std::uintptr_t>(table);
  seed ^= reinterpret_cast<std::uintptr_t>(&seed) << 17;
  seed ^= reinterpret_cast<std::uintptr_t>(&tableSeed) << 31;
  return mixSeedBits(seed);
}

}  // namespace detail
}  // namespace opc

#endif  // OPC_CORE_TABLE_SEED_H_
