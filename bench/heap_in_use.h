// The heap a benchmark's data holds, read from the C library's own accounting.
#ifndef BENCH_HEAP_IN_USE_H_
#define BENCH_HEAP_IN_USE_H_

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

}  // namespace opcvk_bench

#endif  // BENCH_HEAP_IN_USE_H_
