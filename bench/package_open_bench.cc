// Opening a package for Read, and nothing else: the archive's directory read and checked, the
// content types read, the part table filled.  Every command that reads a package pays this
// before its own work, per entry and per byte of the entries' names.  The packages are named
// on the command line, each with its own case:
//   package_open_bench --package=/path/a.opc --package=/path/b.opc [benchmark flags]
// Counters: entries per second and name bytes per entry (from the archive's directory), and
// peak resident memory (VmHWM).  With --once=N each package is opened N times and no
// benchmark runs, for counts that do not depend on timing:
//   valgrind --tool=cachegrind --cache-sim=no package_open_bench --once=1 --package=...
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <opc/core/string_conversions.h>
#include <opc/model/package.h>

#include "bench_flags.h"
#include "heap_in_use.h"
#include "zip/zip_archive.h"

namespace {

using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PackageLimits;

void openPackage(benchmark::State& state, std::string const& path) {
  std::u16string const widePath = opc::detail::toStringFromUTF8String(path);
  auto const archive = opc::model::detail::ZipArchive::open(
      opc::model::detail::openFileSource(path), PackageLimits());
  std::uint64_t nameBytes = 0;
  for (std::size_t i = 0; i < archive->size(); ++i) nameBytes += archive->name(i).size();
  double const entries = static_cast<double>(archive->size());
  for (auto _ : state) {
    auto package = Package::open(widePath, PackageAccess::Read);
    benchmark::DoNotOptimize(package.get());
  }
  state.counters["entries/s"] = benchmark::Counter(
      entries * static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["name_B/entry"] = static_cast<double>(nameBytes) / entries;
  state.counters["peak_MiB"] = opcvk_bench::peakResidentMiB();
}

}  // namespace

int main(int argc, char** argv) {
  std::string path;
  std::vector<std::string> paths;
  while (opcvk_bench::takeFlag(argc, argv, "package", path)) paths.push_back(path);
  if (paths.empty()) {
    std::fprintf(stderr, "usage: package_open_bench [--once=N] --package=PATH... [flags]\n");
    return 2;
  }
  std::string once;
  if (opcvk_bench::takeFlag(argc, argv, "once", once)) {
    long const times = std::strtol(once.c_str(), nullptr, 10);
    try {
      for (std::string const& each : paths) {
        std::u16string const widePath = opc::detail::toStringFromUTF8String(each);
        for (long i = 0; i < times; ++i) Package::open(widePath, PackageAccess::Read);
      }
    } catch (std::exception const& e) {
      std::fprintf(stderr, "package_open_bench: %s\n", e.what());
      return 1;
    }
    return 0;
  }
  for (std::string const& each : paths) {
    std::string const base = each.substr(each.find_last_of('/') + 1);
    benchmark::RegisterBenchmark(("BM_OpenForRead/" + base).c_str(), [each](
                                                                         benchmark::State& state) {
      openPackage(state, each);
    })->Unit(benchmark::kMillisecond);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
