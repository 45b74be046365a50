// The package model end to end, on real files: 100,000 small parts written, saved, reopened
// and read back, and one large part (2 GiB by default) written through its output stream,
// saved, reopened and read back through its input stream; each with one and two compression
// threads.  Each iteration reports, per phase (write, save, read), wall and CPU seconds (CPU
// of every thread of the process) and the peak resident memory so far (VmHWM), and the size of
// the saved package.  VmHWM is a process-wide high-water mark: run one case per process, e.g.
//   package_bench --benchmark_filter='^BM_LargePart/text/threads:1/'
//
// Flags of our own, taken before Google Benchmark's:
//   --work-dir=DIR        where packages and spool files go (default /tmp)
//   --large-mib=N         size of the large part in MiB (default 2048)
//   --export-small=DIR    write the small parts' content as files under DIR and exit
//   --export-text=FILE    write the large text-like content to FILE and exit
//   --export-random=FILE  write the large random content to FILE and exit
// The export flags give bench/package_vs_zip.sh the same bytes to hand to zip.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include <opc/core/string_conversions.h>
#include <opc/model/package.h>

#include "bench_flags.h"
#include "heap_in_use.h"

namespace {

using opc::interfaces::CompressionType;
using opc::interfaces::StandardPartInfo;
using opc::model::ContentType;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::model::PackageOptions;
using opc::model::Part;
using opc::model::PartName;

constexpr std::size_t kSmallPartCount = 100000;
constexpr std::size_t kSmallMinSize = 100;
constexpr std::size_t kSmallMaxSize = 8192;
constexpr std::size_t kPartsPerFolder = 1000;
constexpr std::size_t kChunk = 1 << 20;

std::string workDir = "/tmp";
std::uint64_t largeMiB = 2048;

// splitmix64: small, fast and the same on every platform, so that the export flags and the
// benchmark produce identical bytes.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (state_ += 0x9E3779B97F4A7C15ULL);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
  }

 private:
  std::uint64_t state_;
};

// Content generated as it is asked for: text-like (words from a small vocabulary, which
// deflates to about a third, as prose and markup do) or uniformly random (which does not
// deflate at all).
class Content {
 public:
  Content(bool text, std::uint64_t size, std::uint64_t seed)
      : text_(text), left_(size), random_(seed) {}

  std::size_t fill(unsigned char* buffer, std::size_t n) {
    std::size_t const count = static_cast<std::size_t>(std::min<std::uint64_t>(n, left_));
    if (text_) {
      fillText(buffer, count);
    } else {
      fillRandom(buffer, count);
    }
    left_ -= count;
    return count;
  }

 private:
  void fillText(unsigned char* buffer, std::size_t count) {
    static char const* const kWords[] = {
        "the",   "package", "part",   "of",       "content", "relationship", "<w:p>",  "</w:p>",
        "and",   "a",       "stream", "archive",  "folder",  "name",         "type",   "is",
        "to",    "data",    "file",   "value=\"", "\"/>",    "in",           "with",   "text",
        "<item", "id=\"",   "for",    "by",       "section", "table",        "record", "header"};
    std::size_t i = 0;
    while (i < count) {
      if (word_ == nullptr || *word_ == '\0') {
        std::uint64_t const r = random_.next();
        word_ = kWords[r % (sizeof kWords / sizeof kWords[0])];
        buffer[i++] = (r >> 32) % 12 == 0 ? '\n' : ' ';
        continue;
      }
      buffer[i++] = static_cast<unsigned char>(*word_++);
    }
  }

  void fillRandom(unsigned char* buffer, std::size_t count) {
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
      std::uint64_t const r = random_.next();
      std::memcpy(buffer + i, &r, 8);
    }
    if (i < count) {
      std::uint64_t const r = random_.next();
      std::memcpy(buffer + i, &r, count - i);
    }
  }

  bool text_;
  std::uint64_t left_;
  Random random_;
  char const* word_ = nullptr;
};

// The i-th small part: its size, kind and seed follow from i alone.
struct SmallPart {
  std::string name;  // "/data/d12/f12345.txt"
  bool text;
  std::size_t size;
  std::uint64_t seed;
};

SmallPart smallPart(std::size_t i) {
  Random r(0x5EED0000ULL + i);
  SmallPart part;
  part.text = r.next() % 2 == 0;
  part.size =
      kSmallMinSize + static_cast<std::size_t>(r.next() % (kSmallMaxSize - kSmallMinSize + 1));
  part.seed = r.next();
  part.name = "/data/d" + std::to_string(i / kPartsPerFolder) + "/f" + std::to_string(i) +
              (part.text ? ".txt" : ".bin");
  return part;
}

std::uint64_t largeSize() { return largeMiB << 20; }
constexpr std::uint64_t kLargeSeed = 0x1A26E;

// Wall and CPU seconds (all threads) since construction, and the peak memory at the end.
class Phase {
 public:
  Phase() : wall_(std::chrono::steady_clock::now()), cpu_(processCpuSeconds()) {}
  void report(benchmark::State& state, std::string const& name) const {
    state.counters[name + "_s"] =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_).count();
    state.counters[name + "_cpu_s"] = processCpuSeconds() - cpu_;
    // The high-water mark so far: where the process's peak is reached, phase by phase.
    state.counters[name + "_peak_MiB"] = opcvk_bench::peakResidentMiB();
  }

 private:
  static double processCpuSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
  }
  std::chrono::steady_clock::time_point wall_;
  double cpu_;
};

std::string packagePath(char const* what) {
  return workDir + "/opcvk-package-bench-" + what + "-" + std::to_string(::getpid()) + ".pkg";
}

double fileMiB(std::string const& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return -1;
  return static_cast<double>(st.st_size) / (1 << 20);
}

std::unique_ptr<Package> openPackage(std::string const& path, PackageAccess access,
                                     unsigned threads) {
  PackageOptions options;
  options.compressionThreads = threads;
  return Package::open(opc::toString(path), access, options);
}

// Reads a stream to its end; returns the number of bytes.
std::uint64_t drain(opc::InputStream& stream, std::vector<unsigned char>& buffer) {
  std::uint64_t total = 0;
  stream.open();
  while (!stream.isDone()) total += stream.read(buffer.data(), buffer.size());
  stream.close();
  return total;
}

void BM_SmallParts(benchmark::State& state) {
  unsigned const threads = static_cast<unsigned>(state.range(0));
  std::string const path = packagePath("small");
  ContentType const text(u"text/plain");
  ContentType const binary(u"application/octet-stream");
  std::vector<unsigned char> buffer(kSmallMaxSize);
  std::uint64_t expected = 0;
  for (auto _ : state) {
    {
      Phase write;
      auto package = openPackage(path, PackageAccess::Create, threads);
      expected = 0;
      for (std::size_t i = 0; i < kSmallPartCount; ++i) {
        SmallPart const plan = smallPart(i);
        Part part =
            package->createPart(PartName(opc::toString(plan.name)), plan.text ? text : binary,
                                StandardPartInfo(CompressionType::DeflateContent, plan.size));
        Content content(plan.text, plan.size, plan.seed);
        std::size_t const n = content.fill(buffer.data(), buffer.size());
        opc::OutputStream& out = part.getOutputStream();
        out.write(buffer.data(), n);
        out.close();
        expected += n;
      }
      write.report(state, "write");
      Phase save;
      package->save();
      save.report(state, "save");
    }
    Phase read;
    auto package = openPackage(path, PackageAccess::Read, threads);
    std::uint64_t total = 0;
    std::size_t count = 0;
    for (Part part : package->getParts()) {
      total += drain(part.getInputStream(), buffer);
      ++count;
    }
    package.reset();
    read.report(state, "read");
    if (count != kSmallPartCount || total != expected) {
      state.SkipWithError("the parts read back differ from those written");
    }
  }
  state.counters["size_MiB"] = fileMiB(path);
  state.counters["content_MiB"] = static_cast<double>(expected) / (1 << 20);
  state.counters["peak_MiB"] = opcvk_bench::peakResidentMiB();
  ::unlink(path.c_str());
}
BENCHMARK(BM_SmallParts)
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Iterations(1);

void largePart(benchmark::State& state, bool text) {
  unsigned const threads = static_cast<unsigned>(state.range(0));
  std::string const path = packagePath(text ? "text" : "random");
  PartName const name(u"/data/large.bin");
  std::vector<unsigned char> buffer(kChunk);
  for (auto _ : state) {
    {
      Phase write;
      auto package = openPackage(path, PackageAccess::Create, threads);
      Part part = package->createPart(name, ContentType(u"application/octet-stream"),
                                      StandardPartInfo(CompressionType::DeflateContent, 0));
      opc::OutputStream& out = part.getOutputStream();
      Content content(text, largeSize(), kLargeSeed);
      while (std::size_t const n = content.fill(buffer.data(), buffer.size())) {
        out.write(buffer.data(), n);
      }
      out.close();
      write.report(state, "write");
      Phase save;
      package->save();
      save.report(state, "save");
    }
    Phase read;
    auto package = openPackage(path, PackageAccess::Read, threads);
    std::uint64_t const total = drain(package->getPart(name).getInputStream(), buffer);
    package.reset();
    read.report(state, "read");
    if (total != largeSize()) state.SkipWithError("the part read back differs in size");
  }
  state.counters["size_MiB"] = fileMiB(path);
  state.counters["content_MiB"] = static_cast<double>(largeMiB);
  state.counters["peak_MiB"] = opcvk_bench::peakResidentMiB();
  ::unlink(path.c_str());
}

void BM_LargePartText(benchmark::State& state) { largePart(state, true); }
void BM_LargePartRandom(benchmark::State& state) { largePart(state, false); }
BENCHMARK(BM_LargePartText)
    ->Name("BM_LargePart/text")
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Iterations(1);
BENCHMARK(BM_LargePartRandom)
    ->Name("BM_LargePart/random")
    ->ArgName("threads")
    ->Arg(1)
    ->Arg(2)
    ->Unit(benchmark::kSecond)
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Iterations(1);

// Writes `content` to `path`, creating the folders on the way.
void writeFile(std::string const& path, Content content) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    ::mkdir(path.substr(0, slash).c_str(), 0755);
  }
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) throw std::runtime_error("cannot create " + path);
  std::vector<unsigned char> buffer(kChunk);
  while (std::size_t const n = content.fill(buffer.data(), buffer.size())) {
    if (std::fwrite(buffer.data(), 1, n, file) != n) {
      std::fclose(file);
      throw std::runtime_error("cannot write " + path);
    }
  }
  if (std::fclose(file) != 0) throw std::runtime_error("cannot write " + path);
}

}  // namespace

int main(int argc, char** argv) {
  std::string value;
  if (opcvk_bench::takeFlag(argc, argv, "work-dir", value)) workDir = value;
  if (opcvk_bench::takeFlag(argc, argv, "large-mib", value))
    largeMiB = std::strtoull(value.c_str(), nullptr, 10);
  try {
    bool exported = false;
    if (opcvk_bench::takeFlag(argc, argv, "export-small", value)) {
      for (std::size_t i = 0; i < kSmallPartCount; ++i) {
        SmallPart const plan = smallPart(i);
        writeFile(value + plan.name, Content(plan.text, plan.size, plan.seed));
      }
      exported = true;
    }
    if (opcvk_bench::takeFlag(argc, argv, "export-text", value)) {
      writeFile(value, Content(true, largeSize(), kLargeSeed));
      exported = true;
    }
    if (opcvk_bench::takeFlag(argc, argv, "export-random", value)) {
      writeFile(value, Content(false, largeSize(), kLargeSeed));
      exported = true;
    }
    if (exported) return 0;
  } catch (std::exception const& e) {
    std::fprintf(stderr, "package_bench: %s\n", e.what());
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
