// UDEToUTF8Transform over a large text: what recoding costs, and that memory stays bounded.
//
//  - BM_RecodeUtf8Text: 100 MiB of well-formed UTF-8 text (ASCII with a two-, three- and
//    four-byte character on every line), made as it is read, recoded and read out in 64 KiB
//    pieces.  Text that is already UTF-8 is passed on without being held, so the peak resident
//    memory must stay within a few MiB of what the process had before, whatever the size.
//  - BM_RecodeUtf8TextWholeBuffer: the same text through a class derived from the transform,
//    which takes the road that holds the whole text (and a copy of it) in memory: the figure
//    to compare with.
//
// Each is meant to run in a process of its own (--benchmark_filter), so that the peak
// resident memory (VmHWM) is its own.  The spool goes to $TMPDIR, else /tmp.  Every byte read
// out is checked against the text; a difference fails the run.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include <opc/core/input_stream.h>
#include <opc/model/content_type.h>
#include <opc/vkservices/content_sources.h>
#include <opc/vkservices/ude_to_utf8_transform.h>

#include "heap_in_use.h"

namespace {

using opc::vkservices::IContentSource;
using opc::vkservices::UDEToUTF8Transform;
using opcvk_bench::peakResidentMiB;

constexpr std::uint64_t kTextSize = std::uint64_t{100} << 20;  // 100 MiB
constexpr std::size_t kPiece = std::size_t{64} << 10;

// One line of the text; the text repeats it and is cut at kTextSize on a line's end.
std::string const kLine =
    "2026-11-24 05:40:00 server: request served in 12 ms, caf\xC3\xA9 \xE2\x82\xAC "
    "\xF0\x9F\x98\x80\n";

std::uint64_t textSize() { return kTextSize - kTextSize % kLine.size(); }

// The text, made as it is read: nothing of it is held.
class GeneratedText : public opc::InputStream {
 public:
  void open() override {}
  std::size_t read(unsigned char* buffer, std::size_t count) override {
    std::size_t const n =
        static_cast<std::size_t>(std::min<std::uint64_t>(count, textSize() - position_));
    for (std::size_t i = 0; i < n; ++i) {
      buffer[i] = static_cast<unsigned char>(kLine[(position_ + i) % kLine.size()]);
    }
    position_ += n;
    return n;
  }
  bool isDone() const override { return position_ == textSize(); }
  void close() override {}

 private:
  std::uint64_t position_ = 0;
};

class GeneratedSource : public IContentSource {
 public:
  opc::model::ContentType getContentType() override {
    return opc::model::ContentType(u"text/plain");
  }
  opc::InputStream& getInputStream() override { return text_; }

 private:
  GeneratedText text_;
};

class WholeBufferRecoding : public UDEToUTF8Transform {
 public:
  using UDEToUTF8Transform::UDEToUTF8Transform;
};

// Reads the transform out in pieces and checks every byte against the text.
template <class Transform>
void recode(benchmark::State& state) {
  double const before = peakResidentMiB();
  // The detector's remark would land in the benchmark's output.
  std::ostringstream remarks;
  std::streambuf* const previous = std::cout.rdbuf(remarks.rdbuf());
  std::vector<unsigned char> piece(kPiece);
  for (auto _ : state) {
    Transform transform(std::make_unique<GeneratedSource>());
    opc::InputStream& stream = transform.getInputStream();
    std::uint64_t position = 0;
    while (!stream.isDone()) {
      std::size_t const n = stream.read(piece.data(), piece.size());
      for (std::size_t i = 0; i < n; ++i) {
        if (piece[i] != static_cast<unsigned char>(kLine[(position + i) % kLine.size()])) {
          std::cout.rdbuf(previous);
          state.SkipWithError("recoded text differs from the original");
          return;
        }
      }
      position += n;
    }
    if (position != textSize()) {
      std::cout.rdbuf(previous);
      state.SkipWithError("recoded text has another size");
      return;
    }
  }
  std::cout.rdbuf(previous);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * textSize()));
  state.counters["text_MiB"] = static_cast<double>(textSize()) / (1 << 20);
  state.counters["peak_MiB"] = peakResidentMiB();
  state.counters["peak_growth_MiB"] = peakResidentMiB() - before;
}

void BM_RecodeUtf8Text(benchmark::State& state) { recode<UDEToUTF8Transform>(state); }
BENCHMARK(BM_RecodeUtf8Text)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_RecodeUtf8TextWholeBuffer(benchmark::State& state) { recode<WholeBufferRecoding>(state); }
BENCHMARK(BM_RecodeUtf8TextWholeBuffer)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->UseRealTime();

}  // namespace
