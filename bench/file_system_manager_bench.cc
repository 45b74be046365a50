// FileSystemManager over packages on disk: what a file costs, and that memory stays bounded.
//
//  - BM_LargeFile: one 2 GiB file written through getFileOutputStream in 1 MiB pieces, the
//    package saved, opened again for Read and the file read back through
//    getFileContentSource.  The content is spooled to disk and streamed, so the peak resident
//    memory must stay in tens of MiB, whatever the file's size.
//  - BM_CreateSmallFiles: 100,000 files of 100 B to 4 KiB in 100 folders, created, written
//    and saved.
//  - BM_ReadSmallFiles: that package opened for Read and every file read back (the package is
//    made first, untimed, if an earlier run did not leave it).
//
// Each is meant to run in a process of its own (--benchmark_filter), so that the peak
// resident memory (VmHWM) is its own.  Packages go to $OPCVK_BENCH_DIR, else /tmp.  Every
// byte read back is checked against what was written; a difference fails the run.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <opc/core/file_system_ops_selector.h>
#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/core/perms.h>
#include <opc/core/string_conversions.h>
#include <opc/model/content_type.h>
#include <opc/model/package.h>
#include <opc/vkservices/file_system_entry.h>
#include <opc/vkservices/file_system_manager.h>

#include "heap_in_use.h"

namespace {

using opc::model::ContentType;
using opc::model::Package;
using opc::model::PackageAccess;
using opc::vkservices::FileSystemEntry;
using opc::vkservices::FileSystemManager;
using opc::vkservices::TransformMode;

constexpr std::uint64_t kLargeSize = std::uint64_t{2} << 30;  // 2 GiB
constexpr std::size_t kPiece = std::size_t{1} << 20;
constexpr int kSmallCount = 100000;
constexpr int kSmallFolders = 100;
constexpr std::size_t kSmallMin = 100;
constexpr std::size_t kSmallMax = 4096;

std::string benchDir() {
  char const* dir = std::getenv("OPCVK_BENCH_DIR");
  return dir != nullptr && *dir != '\0' ? dir : "/tmp";
}

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::uint64_t fileSize(std::string const& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  return file ? static_cast<std::uint64_t>(file.tellg()) : 0;
}

// Bytes that deflate shrinks somewhat but not to nothing (six random bits in each), from a
// fixed seed, so that compression does real work and every run writes the same package.
class Bytes {
 public:
  explicit Bytes(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15ull + 1) {}
  void fill(unsigned char* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
      state_ ^= state_ << 13;
      state_ ^= state_ >> 7;
      state_ ^= state_ << 17;
      data[i] = static_cast<unsigned char>(0x20 + (state_ & 0x3F));
    }
  }
  std::uint64_t next() {
    unsigned char byte[8];
    fill(byte, sizeof(byte));
    std::uint64_t value = 0;
    for (unsigned char b : byte) value = value << 8 | b;
    return value;
  }

 private:
  std::uint64_t state_;
};

// FNV-1a over the bytes, fed piece by piece: enough to tell a changed byte.
class Checksum {
 public:
  void update(unsigned char const* data, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) value_ = (value_ ^ data[i]) * 0x100000001B3ull;
  }
  std::uint64_t value() const { return value_; }

 private:
  std::uint64_t value_ = 0xCBF29CE484222325ull;
};

opc::Perms::Perms_tag filePerms() { return static_cast<opc::Perms::Perms_tag>(0644); }
boost::posix_time::ptime noTime() {
  return boost::posix_time::ptime(boost::posix_time::not_a_date_time);
}

// Reads the whole content of `entry`, returning its checksum and adding to `total`.
std::uint64_t readBack(FileSystemManager& manager, FileSystemEntry const& entry,
                       std::vector<unsigned char>& buffer, std::uint64_t& total) {
  auto source = manager.getFileContentSource(entry, TransformMode::NoTransforms);
  opc::InputStream& input = source->getInputStream();
  input.open();
  Checksum sum;
  while (!input.isDone()) {
    std::size_t const got = input.read(buffer.data(), buffer.size());
    sum.update(buffer.data(), got);
    total += got;
  }
  input.close();
  return sum.value();
}

void BM_LargeFile(benchmark::State& state) {
  std::string const path = benchDir() + "/opcvk_fsm_bench_large.zip";
  std::vector<unsigned char> buffer(kPiece);
  for (auto _ : state) {
    Checksum written;
    auto start = std::chrono::steady_clock::now();
    {
      auto package = Package::open(opc::toString(path), PackageAccess::Create);
      FileSystemManager manager(*package, opc::FileSystemOpsSelector());
      FileSystemEntry const entry = manager.createFile(
          u"/large/content.bin", ContentType(u"application/octet-stream"), filePerms(), noTime());
      opc::OutputStream& output = manager.getFileOutputStream(entry);
      Bytes bytes(1);
      for (std::uint64_t done = 0; done < kLargeSize; done += kPiece) {
        bytes.fill(buffer.data(), kPiece);
        written.update(buffer.data(), kPiece);
        output.write(buffer.data(), kPiece);
      }
      output.close();
      state.counters["write_s"] = secondsSince(start);
      state.counters["rss_after_write_MiB"] = opcvk_bench::peakResidentMiB();
      start = std::chrono::steady_clock::now();
      package->save();
      state.counters["save_s"] = secondsSince(start);
    }
    state.counters["package_MiB"] = static_cast<double>(fileSize(path)) / (1024.0 * 1024.0);
    start = std::chrono::steady_clock::now();
    auto package = Package::open(opc::toString(path), PackageAccess::Read);
    FileSystemManager manager(*package, opc::FileSystemOpsSelector());
    std::uint64_t total = 0;
    std::uint64_t const read =
        readBack(manager, manager.getEntry(u"/large/content.bin"), buffer, total);
    state.counters["read_s"] = secondsSince(start);
    if (total != kLargeSize || read != written.value()) {
      state.SkipWithError("the large file read back differs from what was written");
    }
  }
  std::remove(path.c_str());
  state.counters["peak_rss_MiB"] = opcvk_bench::peakResidentMiB();
  state.SetBytesProcessed(static_cast<std::int64_t>(kLargeSize) * 2);
}
BENCHMARK(BM_LargeFile)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

std::string smallPackagePath() { return benchDir() + "/opcvk_fsm_bench_small.zip"; }

std::u16string smallPath(int index) {
  std::string const text = "/folder " + std::to_string(index % kSmallFolders) + "/file " +
                           std::to_string(index) + ".txt";
  return opc::toString(text);
}

// The bytes of the small file `index`, the same on every call.
void smallContent(int index, std::vector<unsigned char>& data) {
  Bytes bytes(static_cast<std::uint64_t>(index) + 7);
  data.resize(kSmallMin + bytes.next() % (kSmallMax - kSmallMin + 1));
  bytes.fill(data.data(), data.size());
}

// Makes the package of small files; returns the total of their sizes.
std::uint64_t makeSmallPackage(benchmark::State* state) {
  auto start = std::chrono::steady_clock::now();
  auto package = Package::open(opc::toString(smallPackagePath()), PackageAccess::Create);
  FileSystemManager manager(*package, opc::FileSystemOpsSelector());
  ContentType const type(u"text/plain");
  std::vector<unsigned char> data;
  std::uint64_t total = 0;
  for (int index = 0; index < kSmallCount; ++index) {
    smallContent(index, data);
    FileSystemEntry const entry = manager.createFile(smallPath(index), type, filePerms(), noTime());
    opc::OutputStream& output = manager.getFileOutputStream(entry);
    output.write(data.data(), data.size());
    output.close();
    total += data.size();
  }
  double const create = secondsSince(start);
  double const rssCreated = opcvk_bench::peakResidentMiB();
  start = std::chrono::steady_clock::now();
  package->save();
  if (state != nullptr) {
    state->counters["create_s"] = create;
    state->counters["save_s"] = secondsSince(start);
    state->counters["rss_before_save_MiB"] = rssCreated;
  }
  return total;
}

void BM_CreateSmallFiles(benchmark::State& state) {
  std::uint64_t total = 0;
  for (auto _ : state) total = makeSmallPackage(&state);
  state.counters["per_file"] = benchmark::Counter(
      kSmallCount, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["content_MiB"] = static_cast<double>(total) / (1024.0 * 1024.0);
  state.counters["package_MiB"] =
      static_cast<double>(fileSize(smallPackagePath())) / (1024.0 * 1024.0);
  state.counters["peak_rss_MiB"] = opcvk_bench::peakResidentMiB();
}
BENCHMARK(BM_CreateSmallFiles)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

void BM_ReadSmallFiles(benchmark::State& state) {
  if (fileSize(smallPackagePath()) == 0) makeSmallPackage(nullptr);
  // The checksums that the files must give, worked out before the clock starts.
  std::vector<std::uint64_t> expected(kSmallCount);
  std::vector<unsigned char> data;
  for (int index = 0; index < kSmallCount; ++index) {
    smallContent(index, data);
    Checksum sum;
    sum.update(data.data(), data.size());
    expected[static_cast<std::size_t>(index)] = sum.value();
  }
  double const rssBefore = opcvk_bench::peakResidentMiB();
  std::vector<unsigned char> buffer(64 * 1024);
  std::uint64_t total = 0;
  int mismatches = 0;
  for (auto _ : state) {
    auto package = Package::open(opc::toString(smallPackagePath()), PackageAccess::Read);
    FileSystemManager manager(*package, opc::FileSystemOpsSelector());
    manager.getRoot();  // loads the manifest
    state.counters["rss_after_load_MiB"] = opcvk_bench::peakResidentMiB();
    for (int index = 0; index < kSmallCount; ++index) {
      std::uint64_t const sum =
          readBack(manager, manager.getEntry(smallPath(index)), buffer, total);
      if (sum != expected[static_cast<std::size_t>(index)]) ++mismatches;
    }
  }
  if (mismatches != 0) state.SkipWithError("small files read back differ from what was written");
  state.counters["per_file"] = benchmark::Counter(
      kSmallCount, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["content_MiB"] = static_cast<double>(total) / (1024.0 * 1024.0);
  state.counters["rss_before_MiB"] = rssBefore;
  state.counters["peak_rss_MiB"] = opcvk_bench::peakResidentMiB();
}
BENCHMARK(BM_ReadSmallFiles)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();

}  // namespace
