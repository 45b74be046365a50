// How FileSystemTree scales to a large package: 1,000,000 paths of a realistic tree (depth 3
// to 8, 10 to 30 entries per folder, names of 5 to 20 characters, fixed seed), inserted and
// then queried.  Insertion times include making the node, as the manager does.  Counters:
// time per insert or lookup, peak resident memory (VmHWM) and heap bytes per stored node.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <random>
#include <string>
#include <unordered_set>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/date_time/gregorian/gregorian_types.hpp>
#include <boost/date_time/posix_time/posix_time_types.hpp>

#include <opc/core/perms.h>

#include "filesystem/file_system_node.h"
#include "filesystem/file_system_tree.h"
#include "heap_in_use.h"

namespace {

using opc::vkservices::FileSystemNode;
using opc::vkservices::FileSystemTree;
using opcvk_bench::heapInUseBytes;

constexpr std::size_t kPathCount = 1000000;
constexpr int kMinLeafDepth = 3;
constexpr int kMaxDepth = 8;
constexpr double kSubfolderChance = 0.12;  // below the minimum depth every entry is a folder
constexpr std::uint64_t kSeed = 0x5eed2024;

struct Entry {
  std::u16string path;
  bool isFolder;
};

// Entries in the order of a walk over a real folder: each folder before what it holds.
struct Corpus {
  std::vector<Entry> entries;
  std::vector<std::u16string> folders;
  std::vector<std::u16string> shuffled;  // every path, in random order
  std::vector<std::u16string> absent;    // paths that are not in the tree
};

class Generator {
 public:
  explicit Generator(Corpus& corpus) : corpus_(corpus), random_(kSeed) {}

  void run() {
    // Folders at the top until there are enough paths; the walk stops at the count.
    std::unordered_set<std::u16string> topNames;
    while (corpus_.entries.size() < kPathCount) {
      std::u16string const path = u"/" + uniqueName(topNames, false);
      addEntry(path, true);
      fill(path, 1);
    }
  }

 private:
  void fill(std::u16string const& folder, int depth) {
    std::unordered_set<std::u16string> names;
    int const count = std::uniform_int_distribution<int>(10, 30)(random_);
    for (int i = 0; i < count && corpus_.entries.size() < kPathCount; ++i) {
      bool const isFolder = depth + 1 < kMinLeafDepth ||
                            (depth + 1 < kMaxDepth && chance_(random_) < kSubfolderChance);
      std::u16string const path = folder + u"/" + uniqueName(names, !isFolder);
      addEntry(path, isFolder);
      if (isFolder) fill(path, depth + 1);
    }
  }

  void addEntry(std::u16string const& path, bool isFolder) {
    corpus_.entries.push_back(Entry{path, isFolder});
    if (isFolder) corpus_.folders.push_back(path);
  }

  std::u16string uniqueName(std::unordered_set<std::u16string>& taken, bool isFile) {
    static char const kChars[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
    static char const* const kExtensions[] = {".txt", ".xml", ".png", ".bin", ".dat"};
    for (;;) {
      int const length = std::uniform_int_distribution<int>(5, 20)(random_);
      std::u16string name;
      for (int i = 0; i < length; ++i) {
        name += static_cast<char16_t>(kChars[pick_(random_) % (sizeof(kChars) - 1)]);
      }
      if (isFile && length >= 9) {
        char const* extension = kExtensions[pick_(random_) % 5];
        name.replace(name.size() - 4, 4, std::u16string(extension, extension + 4));
      }
      if (taken.insert(name).second) return name;
    }
  }

  Corpus& corpus_;
  std::mt19937_64 random_;
  std::uniform_real_distribution<double> chance_{0.0, 1.0};
  std::uniform_int_distribution<unsigned> pick_{0, 1u << 30};
};

Corpus const& corpus() {
  static Corpus const made = [] {
    Corpus c;
    Generator(c).run();
    std::mt19937_64 random(kSeed + 1);
    for (Entry const& entry : c.entries) c.shuffled.push_back(entry.path);
    std::shuffle(c.shuffled.begin(), c.shuffled.end(), random);
    c.absent.reserve(c.shuffled.size());
    for (std::u16string const& path : c.shuffled) c.absent.push_back(path + u"~");
    return c;
  }();
  return made;
}

boost::posix_time::ptime const kTime{boost::gregorian::date(2024, 6, 11),
                                     boost::posix_time::hours(10)};

FileSystemNode makeNode(Entry const& entry, std::size_t index) {
  if (entry.isFolder) {
    return FileSystemNode::makeFolderNode(entry.path, opc::Perms::Perms_tag(0755), kTime);
  }
  return FileSystemNode::makeFileNode(entry.path,
                                      u"/fsroot/f" + std::u16string(1, u'0' + index % 10),
                                      opc::Perms::Perms_tag(0644), kTime);
}

void fillTree(FileSystemTree& tree, std::vector<Entry> const& entries) {
  std::size_t index = 0;
  for (Entry const& entry : entries) tree.addNode(makeNode(entry, index++));
}

// Peak resident set of the process so far, in bytes.
double peakResidentBytes() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) * 1024.0;
  }
  return 0.0;
}

void reportMemory(benchmark::State& state) {
  state.counters["peak_rss_MiB"] = peakResidentBytes() / (1024.0 * 1024.0);
}

// Explicit folders first, as a walk over a real folder adds them.
void BM_InsertWalkOrder(benchmark::State& state) {
  Corpus const& c = corpus();
  double bytesPerNode = 0.0;
  for (auto _ : state) {
    double const before = heapInUseBytes();
    FileSystemTree tree;
    fillTree(tree, c.entries);
    state.PauseTiming();
    bytesPerNode = (heapInUseBytes() - before) / static_cast<double>(c.entries.size() + 1);
    benchmark::DoNotOptimize(tree);
    state.ResumeTiming();
    // The tree goes at the end of the scope, inside the timing: freeing is part of the cost.
  }
  state.counters["per_insert"] = benchmark::Counter(
      static_cast<double>(c.entries.size()),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["heap_bytes_per_node"] = bytesPerNode;
  state.counters["nodes"] = static_cast<double>(c.entries.size() + 1);
  reportMemory(state);
}
BENCHMARK(BM_InsertWalkOrder)->Unit(benchmark::kMillisecond)->UseRealTime();

// Files alone: every folder is made on the way by the tree.
void BM_InsertFilesOnly(benchmark::State& state) {
  Corpus const& c = corpus();
  std::vector<Entry> files;
  for (Entry const& entry : c.entries) {
    if (!entry.isFolder) files.push_back(entry);
  }
  for (auto _ : state) {
    FileSystemTree tree;
    fillTree(tree, files);
    benchmark::DoNotOptimize(tree);
  }
  state.counters["per_insert"] = benchmark::Counter(
      static_cast<double>(files.size()),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["files"] = static_cast<double>(files.size());
  reportMemory(state);
}
BENCHMARK(BM_InsertFilesOnly)->Unit(benchmark::kMillisecond)->UseRealTime();

FileSystemTree const& filledTree() {
  static FileSystemTree const tree = [] {
    FileSystemTree made;
    fillTree(made, corpus().entries);
    return made;
  }();
  return tree;
}

void lookupCounter(benchmark::State& state, std::size_t perIteration) {
  state.counters["per_lookup"] = benchmark::Counter(
      static_cast<double>(perIteration),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  reportMemory(state);
}

// Present paths in random order, so that each lookup reaches a cold part of the tree.
void BM_HasNodePresent(benchmark::State& state) {
  FileSystemTree const& tree = filledTree();
  std::vector<std::u16string> const& paths = corpus().shuffled;
  for (auto _ : state) {
    std::size_t found = 0;
    for (std::u16string const& path : paths) found += tree.hasNode(path) ? 1 : 0;
    if (found != paths.size()) state.SkipWithError("a present path was not found");
  }
  lookupCounter(state, paths.size());
}
BENCHMARK(BM_HasNodePresent)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same paths in the order of a walk: neighbours in the tree are visited one after the
// other, as when a folder's entries are read together.
void BM_HasNodeWalkOrder(benchmark::State& state) {
  FileSystemTree const& tree = filledTree();
  std::vector<Entry> const& entries = corpus().entries;
  for (auto _ : state) {
    std::size_t found = 0;
    for (Entry const& entry : entries) found += tree.hasNode(entry.path) ? 1 : 0;
    if (found != entries.size()) state.SkipWithError("a present path was not found");
  }
  lookupCounter(state, entries.size());
}
BENCHMARK(BM_HasNodeWalkOrder)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_HasNodeAbsent(benchmark::State& state) {
  FileSystemTree const& tree = filledTree();
  std::vector<std::u16string> const& paths = corpus().absent;
  for (auto _ : state) {
    std::size_t found = 0;
    for (std::u16string const& path : paths) found += tree.hasNode(path) ? 1 : 0;
    if (found != 0) state.SkipWithError("an absent path was found");
  }
  lookupCounter(state, paths.size());
}
BENCHMARK(BM_HasNodeAbsent)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_FindNode(benchmark::State& state) {
  FileSystemTree const& tree = filledTree();
  std::vector<std::u16string> const& paths = corpus().shuffled;
  for (auto _ : state) {
    for (std::u16string const& path : paths) {
      FileSystemNode const node = tree.findNode(path);
      benchmark::DoNotOptimize(node);
    }
  }
  lookupCounter(state, paths.size());
}
BENCHMARK(BM_FindNode)->Unit(benchmark::kMillisecond)->UseRealTime();

// One call per folder; the counter is per call, each copying all children of the folder.
void BM_ChildNodes(benchmark::State& state) {
  FileSystemTree const& tree = filledTree();
  std::vector<std::u16string> const& folders = corpus().folders;
  std::size_t children = 0;
  for (auto _ : state) {
    children = 0;
    for (std::u16string const& folder : folders) children += tree.childNodes(folder).size();
  }
  lookupCounter(state, folders.size());
  state.counters["folders"] = static_cast<double>(folders.size());
  state.counters["children"] = static_cast<double>(children);
}
BENCHMARK(BM_ChildNodes)->Unit(benchmark::kMillisecond)->UseRealTime();

// Every leaf in key order without copying it, as the manifest writer walks the tree at save;
// the counter is per leaf.
void BM_VisitLeaves(benchmark::State& state) {
  FileSystemTree const& tree = filledTree();
  std::size_t leaves = 0;
  for (auto _ : state) {
    leaves = 0;
    std::size_t units = 0;
    tree.visitLeaves([&](FileSystemTree::LeafView const& leaf) {
      ++leaves;
      units += leaf.getPathName().size();
    });
    benchmark::DoNotOptimize(units);
  }
  state.counters["per_leaf"] = benchmark::Counter(
      static_cast<double>(leaves),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["leaves"] = static_cast<double>(leaves);
  reportMemory(state);
}
BENCHMARK(BM_VisitLeaves)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
