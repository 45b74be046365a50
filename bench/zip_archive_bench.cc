// The ZIP container at package scale: 100,000 small items written (one and two compression
// threads) and read back, and one large item written to a file and read back.  Counters: items
// or bytes per second, and peak resident memory (VmHWM), which must stay flat whatever the
// large item's size.
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

#include <benchmark/benchmark.h>

#include "heap_in_use.h"
#include "zip/zip_archive.h"

namespace {

using opc::interfaces::CompressionType;
using opc::model::PackageLimits;
using opc::model::detail::ZipArchive;
using opc::model::detail::ZipContentReader;
using opc::model::detail::ZipWriter;

// Text-like content of `size` bytes, generated as it is read.
ZipContentReader generated(std::uint64_t size, std::uint64_t seed) {
  auto left = std::make_shared<std::uint64_t>(size);
  auto counter = std::make_shared<std::uint64_t>(seed);
  return [left, counter](unsigned char* buffer, std::size_t n) {
    std::size_t const count = static_cast<std::size_t>(std::min<std::uint64_t>(n, *left));
    for (std::size_t i = 0; i < count; ++i) {
      std::uint64_t const c = (*counter)++;
      buffer[i] =
          static_cast<unsigned char>("<w:p>text of a part</w:p>\n"[(c * 7 + c / 4096) % 26]);
    }
    *left -= count;
    return count;
  };
}

std::vector<unsigned char> writeSmallItems(unsigned threads, std::size_t count) {
  std::vector<unsigned char> bytes;
  auto writer = ZipWriter::toBuffer(bytes, threads);
  for (std::size_t i = 0; i < count; ++i) {
    writer->add("fsroot/f" + std::to_string(i) + ".txt", CompressionType::DeflateContent, 2000,
                generated(2000, i));
  }
  writer->commit();
  return bytes;
}

void BM_Write100kSmallItems(benchmark::State& state) {
  for (auto _ : state) {
    auto bytes = writeSmallItems(static_cast<unsigned>(state.range(0)), 100000);
    benchmark::DoNotOptimize(bytes.data());
  }
  state.counters["items/s"] = benchmark::Counter(100000.0 * static_cast<double>(state.iterations()),
                                                 benchmark::Counter::kIsRate);
  state.counters["peak_MiB"] = opcvk_bench::peakResidentMiB();
}
BENCHMARK(BM_Write100kSmallItems)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_OpenAndRead100kSmallItems(benchmark::State& state) {
  auto bytes = std::make_shared<std::vector<unsigned char> const>(writeSmallItems(2, 100000));
  std::vector<unsigned char> buffer(65536);
  for (auto _ : state) {
    auto archive = ZipArchive::open(opc::model::detail::openBufferSource(bytes), PackageLimits());
    for (auto const& entry : archive->entries()) {
      auto stream = archive->openEntry(entry);
      while (!stream->isDone()) stream->read(buffer.data(), buffer.size());
    }
  }
  state.counters["items/s"] = benchmark::Counter(100000.0 * static_cast<double>(state.iterations()),
                                                 benchmark::Counter::kIsRate);
}
BENCHMARK(BM_OpenAndRead100kSmallItems)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_WriteAndReadLargeItem(benchmark::State& state) {
  std::uint64_t const size = static_cast<std::uint64_t>(state.range(0)) << 20;
  std::string const path = "/tmp/opcvk-zip-bench-" + std::to_string(::getpid()) + ".zip";
  std::vector<unsigned char> buffer(1 << 20);
  for (auto _ : state) {
    auto writer = ZipWriter::toFile(path, 1);
    writer->add("fsroot/large.bin", CompressionType::DeflateContent, size, generated(size, 0));
    writer->commit();
    writer.reset();
    auto archive = ZipArchive::open(opc::model::detail::openFileSource(path), PackageLimits());
    auto stream = archive->openEntry(archive->entries()[0]);
    while (!stream->isDone()) stream->read(buffer.data(), buffer.size());
  }
  ::unlink(path.c_str());
  state.counters["MiB/s"] = benchmark::Counter(
      static_cast<double>(state.range(0)) * static_cast<double>(state.iterations()),
      benchmark::Counter::kIsRate);
  state.counters["peak_MiB"] = opcvk_bench::peakResidentMiB();
}
BENCHMARK(BM_WriteAndReadLargeItem)
    ->Arg(256)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(1);

}  // namespace
