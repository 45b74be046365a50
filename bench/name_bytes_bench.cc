// What a name costs per byte on the way from an archive to a listing: the check of an item
// name (sixteen bytes a step against the byte-wise rule), the hash of a path in the tree's
// table, the part name made from a path and compared with a given one, and the UTF-8 of a
// path for printing.  Two kinds of names: long ASCII paths of a deep tree (about a kilobyte)
// and paths of other scripts (written as escapes in the archive).  Counters: bytes or units
// per second of the names handled.
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>

#include <opc/core/string_conversions.h>

#include "filesystem/encoded_part_name.h"
#include "filesystem/file_system_node_table.h"
#include "plain_item_name.h"

namespace {

using opc::vkservices::detail::appendEncodedPartName;
using opc::vkservices::detail::FileSystemNodeTable;
using opc::vkservices::detail::isEncodedPartNameOf;

constexpr std::size_t kNameCount = 2000;
constexpr std::uint64_t kSeed = 0x5eed2611;

// Paths of `depth` segments of 8 to 24 letters, digits and "_-".
std::vector<std::u16string> deepPaths(std::size_t depth) {
  static constexpr char16_t kChars[] = u"abcdefghijklmnopqrstuvwxyzABCDEFGHIJ0123456789_-";
  std::mt19937_64 random(kSeed);
  std::vector<std::u16string> paths;
  for (std::size_t n = 0; n < kNameCount; ++n) {
    std::u16string path;
    for (std::size_t d = 0; d < depth; ++d) {
      path += u'/';
      std::size_t const length = 8 + random() % 17;
      for (std::size_t i = 0; i < length; ++i) path += kChars[random() % (sizeof kChars / 2 - 1)];
    }
    path += u".txt";
    paths.push_back(path);
  }
  return paths;
}

// Paths of four segments mixing Latin, Greek, CJK and emoji with ASCII.
std::vector<std::u16string> intlPaths() {
  static const std::u16string kWords[] = {
      u"M\u00fcnchen",    u"\u00c5ngstr\u00f6m",
      u"Gr\u00f6\u00dfe", u"\u0395\u03bb\u03bb\u03ac\u03b4\u03b1",
      u"\uc11c\uc6b8",    u"a\u00e7\u00e3o \U0001F4C1",
      u"N\u1eb5ng",       u"report-2024"};
  std::mt19937_64 random(kSeed);
  std::vector<std::u16string> paths;
  for (std::size_t n = 0; n < kNameCount; ++n) {
    std::u16string path;
    for (int d = 0; d < 4; ++d) {
      path += u'/';
      path += kWords[random() % 8];
      path += u'_';
      path += kWords[random() % 8];
    }
    path += u".json";
    paths.push_back(path);
  }
  return paths;
}

std::vector<std::u16string> const& pathsOf(std::int64_t kind) {
  static std::vector<std::u16string> const kDeep = deepPaths(50);
  static std::vector<std::u16string> const kIntl = intlPaths();
  return kind == 0 ? kDeep : kIntl;
}

// The archive item names of the paths: the part names without their "/".
std::vector<std::string> itemNamesOf(std::vector<std::u16string> const& paths) {
  std::vector<std::string> names;
  for (std::u16string const& path : paths) {
    std::u16string encoded;
    appendEncodedPartName(path, encoded);
    names.push_back(opc::toASCIIString(encoded.substr(1)));
  }
  return names;
}

template <bool (*Check)(std::string_view)>
void BM_ItemNameCheck(benchmark::State& state) {
  std::vector<std::string> const names = itemNamesOf(pathsOf(state.range(0)));
  std::size_t bytes = 0;
  for (auto _ : state) {
    for (std::string const& name : names) {
      benchmark::DoNotOptimize(Check(name));
      bytes += name.size();
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK_TEMPLATE(BM_ItemNameCheck, opc::model::detail::isPlainItemNameBytewise)
    ->ArgName("intl")
    ->Arg(0)
    ->Arg(1);
#if defined(__SSE2__)
BENCHMARK_TEMPLATE(BM_ItemNameCheck, opc::model::detail::isPlainItemNameWide)
    ->ArgName("intl")
    ->Arg(0)
    ->Arg(1);
#endif

void BM_PathHash(benchmark::State& state) {
  std::vector<std::u16string> const& paths = pathsOf(state.range(0));
  FileSystemNodeTable const table;
  std::size_t units = 0;
  for (auto _ : state) {
    for (std::u16string const& path : paths) {
      benchmark::DoNotOptimize(table.hashOf(path));
      units += path.size();
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(units * sizeof(char16_t)));
}
BENCHMARK(BM_PathHash)->ArgName("intl")->Arg(0)->Arg(1);

void BM_EncodedPartName(benchmark::State& state) {
  std::vector<std::u16string> const& paths = pathsOf(state.range(0));
  std::u16string out;
  std::size_t units = 0;
  for (auto _ : state) {
    for (std::u16string const& path : paths) {
      out.clear();
      appendEncodedPartName(path, out);
      benchmark::DoNotOptimize(out.data());
      units += path.size();
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(units * sizeof(char16_t)));
}
BENCHMARK(BM_EncodedPartName)->ArgName("intl")->Arg(0)->Arg(1);

void BM_IsEncodedPartNameOf(benchmark::State& state) {
  std::vector<std::u16string> const& paths = pathsOf(state.range(0));
  std::vector<std::u16string> encoded;
  for (std::u16string const& path : paths) {
    encoded.emplace_back();
    appendEncodedPartName(path, encoded.back());
  }
  std::size_t units = 0;
  for (auto _ : state) {
    for (std::size_t i = 0; i < paths.size(); ++i) {
      if (!isEncodedPartNameOf(paths[i], encoded[i])) state.SkipWithError("not the path encoded");
      units += paths[i].size();
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(units * sizeof(char16_t)));
}
BENCHMARK(BM_IsEncodedPartNameOf)->ArgName("intl")->Arg(0)->Arg(1);

void BM_Utf8OfPath(benchmark::State& state) {
  std::vector<std::u16string> const& paths = pathsOf(state.range(0));
  std::size_t units = 0;
  for (auto _ : state) {
    for (std::u16string const& path : paths) {
      benchmark::DoNotOptimize(opc::detail::toUTF8String(path));
      units += path.size();
    }
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(units * sizeof(char16_t)));
}
BENCHMARK(BM_Utf8OfPath)->ArgName("intl")->Arg(0)->Arg(1);

}  // namespace
