// How the file-system manifest scales: 100,000 entries (files, links and empty folders under
// 1,000 folders, permissions and times mostly known) written to memory and read back into a
// new tree, as the manager does at save and load, each alone and the two together.  Compare
// the CPU column: it is what a save and a load cost whatever else the machine runs.
// Counters: time per entry, size of the document, peak resident memory (VmHWM) while the
// operation ran and how much of it the operation added, and the heap that the tree read
// holds per entry (malloc's own overhead included).
#include <algorithm>
#include <cstddef>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>
#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <opc/core/input_stream.h>
#include <opc/core/output_stream.h>
#include <opc/core/perms.h>

#include "filesystem/file_system_manifest_xml.h"
#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"
#include "heap_in_use.h"

namespace {

using opc::vkservices::FileSystemManifestXml;
using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemTree;
using opcvk_bench::heapInUseBytes;

constexpr std::size_t kEntries = 100000;

std::u16string number(std::size_t value) {
  std::string const text = std::to_string(value);
  return std::u16string(text.begin(), text.end());
}

void fill(FileSystemTree& tree) {
  boost::posix_time::ptime const base(boost::gregorian::date(2023, 1, 1));
  for (std::size_t i = 0; i < kEntries; ++i) {
    std::u16string const folder = u"/dir" + number(i / 1000) + u"/sub" + number(i / 100 % 10);
    auto const permissions = static_cast<opc::Perms::Perms_tag>(i % 7 == 0 ? 0xFFFF : 0644);
    boost::posix_time::ptime const time =
        base + boost::posix_time::microseconds(static_cast<long>(i) * 1000003);
    if (i % 50 == 0) {
      tree.addNode(
          FileSystemNode::makeFolderNode(folder + u"/empty" + number(i), permissions, time));
    } else if (i % 10 == 0) {
      tree.addNode(FileSystemNode::makeLinkNode(folder + u"/link" + number(i),
                                                u"../file" + number(i - 1), permissions, time));
    } else {
      tree.addNode(FileSystemNode::makeFileNode(folder + u"/file" + number(i) + u".txt",
                                                u"/fsroot/" + number(i), permissions, time));
    }
  }
}

FileSystemTree const& sourceTree() {
  static FileSystemTree const tree = [] {
    FileSystemTree made;
    fill(made);
    return made;
  }();
  return tree;
}

// Plain memory streams: what is measured is the manifest, not a stream.
class StringOutput : public opc::OutputStream {
 public:
  void write(unsigned char const* buffer, std::size_t count) override {
    bytes.append(reinterpret_cast<char const*>(buffer), count);
  }
  void flush() override {}
  void close() override {}
  std::string bytes;
};

class StringInput : public opc::InputStream {
 public:
  explicit StringInput(std::string const& bytes) : bytes_(bytes) {}
  void open() override { position_ = 0; }
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t const n = std::min(count, bytes_.size() - position_);
    std::copy_n(bytes_.data() + position_, n, buffer);
    position_ += n;
    return n;
  }
  bool isDone() const override { return position_ == bytes_.size(); }
  void close() override {}

 private:
  std::string const& bytes_;
  std::size_t position_ = 0;
};

std::string const& document() {
  static std::string const text = [] {
    FileSystemManifestXml manifest;
    StringOutput output;
    manifest.write(sourceTree(), output);
    return output.bytes;
  }();
  return text;
}

// A field of /proc/self/status ("VmHWM", "VmRSS") in MiB.
double statusMiB(char const* field) {
  std::ifstream status("/proc/self/status");
  std::string const key = std::string(field) + ":";
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(key, 0) == 0) return std::stod(line.substr(key.size())) / 1024.0;
  }
  return 0.0;
}

// Sets the peak resident memory back to the current one, so that the peak measured after an
// operation is that of the operation (Linux 4.0 and later; elsewhere the peak stays).
void resetPeak() { std::ofstream("/proc/self/clear_refs") << "5"; }

// Call before the timed loop, with everything the loop reads already made.
double startMemory() {
  resetPeak();
  return statusMiB("VmRSS");
}

void report(benchmark::State& state, double residentBefore) {
  state.counters["per_entry"] = benchmark::Counter(
      static_cast<double>(kEntries),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["document_MiB"] = static_cast<double>(document().size()) / (1024.0 * 1024.0);
  double const peak = statusMiB("VmHWM");
  // The process's peak while the operation ran, and how far above the memory held before
  // (source tree and document text) it went.
  state.counters["peak_rss_MiB"] = peak;
  state.counters["peak_added_MiB"] = peak - residentBefore;
}

void BM_WriteManifest(benchmark::State& state) {
  FileSystemTree const& tree = sourceTree();
  std::size_t const size = document().size();
  FileSystemManifestXml manifest;
  double const before = startMemory();
  for (auto _ : state) {
    StringOutput output;
    output.bytes.reserve(size);
    manifest.write(tree, output);
    benchmark::DoNotOptimize(output.bytes.data());
  }
  report(state, before);
}
BENCHMARK(BM_WriteManifest)->Unit(benchmark::kMillisecond)->UseRealTime();

// Reads the document into a new tree, whose destruction is timed too, from a source that can
// be given again as the manager's is (`validating`: through the parser alone).
void readManifest(benchmark::State& state, bool validating) {
  std::string const& text = document();
  FileSystemManifestXml manifest;
  double const before = startMemory();
  double treeBytes = 0.0;
  for (auto _ : state) {
    double const heapBefore = heapInUseBytes();
    FileSystemTree tree;
    StringInput input(text);
    StringInput again(text);
    if (validating) {
      manifest.readValidating(input, tree);
    } else {
      manifest.read(input, tree, [&]() -> opc::InputStream& { return again; });
    }
    state.PauseTiming();
    treeBytes = heapInUseBytes() - heapBefore;
    benchmark::DoNotOptimize(tree);
    state.ResumeTiming();
  }
  report(state, before);
  state.counters["tree_bytes_per_entry"] = treeBytes / static_cast<double>(kEntries);
  state.counters["parser_reads"] = static_cast<double>(manifest.parserReads());
}

void BM_ReadManifest(benchmark::State& state) { readManifest(state, false); }
BENCHMARK(BM_ReadManifest)->Unit(benchmark::kMillisecond)->UseRealTime();

// Parsing, validation and filling a new tree: the road of every document that the reader
// without the parser leaves to it.
void BM_ReadManifestThroughTheParser(benchmark::State& state) { readManifest(state, true); }
BENCHMARK(BM_ReadManifestThroughTheParser)->Unit(benchmark::kMillisecond)->UseRealTime();

// A save and the next load: the tree written, and the text read back into a new tree.
void BM_WriteThenReadManifest(benchmark::State& state) {
  FileSystemTree const& tree = sourceTree();
  FileSystemManifestXml manifest;
  double const before = startMemory();
  for (auto _ : state) {
    StringOutput output;
    manifest.write(tree, output);
    FileSystemTree back;
    StringInput input(output.bytes);
    StringInput again(output.bytes);
    manifest.read(input, back, [&]() -> opc::InputStream& { return again; });
    benchmark::DoNotOptimize(back);
  }
  report(state, before);
}
BENCHMARK(BM_WriteThenReadManifest)->Unit(benchmark::kMillisecond)->UseRealTime();

// What a manager pays once, at the first document that needs the parser: making it and
// compiling both schemas.  The document has one entry, so that the rest is small beside it.
void BM_FirstReadThroughTheParser(benchmark::State& state) {
  FileSystemTree one;
  one.addNode(FileSystemNode::makeFileNode(
      u"/a.txt", u"/fsroot/a.txt", static_cast<opc::Perms::Perms_tag>(0644),
      boost::posix_time::ptime(boost::gregorian::date(2023, 1, 1))));
  StringOutput document;
  FileSystemManifestXml().write(one, document);
  for (auto _ : state) {
    FileSystemManifestXml manifest;
    FileSystemTree tree;
    StringInput input(document.bytes);
    manifest.readValidating(input, tree);
    benchmark::DoNotOptimize(tree);
  }
}
BENCHMARK(BM_FirstReadThroughTheParser)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace
