// The memory a benchmark's data holds: the heap, read from the C library's own accounting,
// and the process's peak resident memory.
#ifndef BENCH_HEAP_IN_USE_H_
#define BENCH_HEAP_IN_USE_H_

#include <fstream>
#include <string>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace opcvk_bench {

// Bytes of heap in use, malloc's own overhead included; 0 where the C library cannot tell.
inline double heapInUseBytes() {
#if defined(__GLIBC__) && (__GLIBC__ > 2 || (__GLIBC__ == 2 && __GLIBC_MINOR__ >= 33))
  struct mallinfo2 const info = mallinfo2();
  return static_cast<double>(info.uordblks + info.hblkhd);
#else
  return 0.0;
#endif
}

// The process's peak resident memory (VmHWM) in MiB; 0 where the system cannot tell.
inline double peakResidentMiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024.0;
  }
  return 0.0;
}

}  // namespace opcvk_bench

#endif  // BENCH_HEAP_IN_USE_H_
