// Flags of the form `--name=value` that a benchmark program takes for itself before the
// benchmark library reads the rest of its command line.
#ifndef BENCH_BENCH_FLAGS_H_
#define BENCH_BENCH_FLAGS_H_

#include <cstring>
#include <string>

namespace opcvk_bench {

// Takes the value of `--name=value` out of argv; returns whether it was there.
inline bool takeFlag(int& argc, char** argv, char const* name, std::string& value) {
  std::string const prefix = std::string("--") + name + "=";
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], prefix.c_str(), prefix.size()) == 0) {
      value = argv[i] + prefix.size();
      for (int j = i; j + 1 < argc; ++j) argv[j] = argv[j + 1];
      --argc;
      return true;
    }
  }
  return false;
}

}  // namespace opcvk_bench

#endif  // BENCH_BENCH_FLAGS_H_
