#include "progress.h"

#include <cinttypes>
#include <cstdio>
#include <string>
#include <unistd.h>

#include "format.h"

namespace opcvk {
namespace {

constexpr std::chrono::milliseconds kQuietStart(500);
constexpr std::chrono::milliseconds kRedrawInterval(100);

}  // namespace

bool Progress::wanted(bool quiet) { return !quiet && isatty(STDERR_FILENO) == 1; }

Progress::Progress(bool enabled, std::uint64_t totalFiles, std::uint64_t totalBytes)
    : enabled_(enabled),
      totalFiles_(totalFiles),
      totalBytes_(totalBytes),
      start_(Clock::now()),
      lastDraw_(start_) {}

Progress::~Progress() {
  // Erase the line, so that a message or the shell prompt starts on a clean line.
  if (drawn_) std::fputs("\r\033[K", stderr);
}

void Progress::expect(std::uint64_t totalFiles, std::uint64_t totalBytes) {
  totalFiles_ = totalFiles;
  totalBytes_ = totalBytes;
}

void Progress::advance(std::uint64_t bytes) {
  ++doneFiles_;
  doneBytes_ += bytes;
  if (!enabled_) return;
  Clock::time_point const now = Clock::now();
  if (now - start_ < kQuietStart || now - lastDraw_ < kRedrawInterval) return;
  draw(now);
}

void Progress::phase(char const* what) {
  if (!enabled_ || Clock::now() - start_ < kQuietStart) return;
  std::string const done = bytesText(doneBytes_);
  std::fprintf(stderr, "\r%" PRIu64 "/%" PRIu64 " files  %s  %s\033[K", doneFiles_, totalFiles_,
               done.c_str(), what);
  std::fflush(stderr);
  drawn_ = true;
}

void Progress::draw(Clock::time_point now) {
  lastDraw_ = now;
  double const elapsed = std::chrono::duration<double>(now - start_).count();
  double const rate = elapsed > 0.0 ? static_cast<double>(doneBytes_) / elapsed : 0.0;
  // What is left is judged by bytes when there are any, else by the count of entries.
  double left = 0.0;
  if (totalBytes_ > 0 && doneBytes_ > 0 && doneBytes_ <= totalBytes_) {
    left =
        elapsed * static_cast<double>(totalBytes_ - doneBytes_) / static_cast<double>(doneBytes_);
  } else if (doneFiles_ > 0 && doneFiles_ <= totalFiles_) {
    left =
        elapsed * static_cast<double>(totalFiles_ - doneFiles_) / static_cast<double>(doneFiles_);
  }
  std::string const done = bytesText(doneBytes_);
  std::string const speed = bytesText(static_cast<std::uint64_t>(rate));
  std::string const remaining = durationText(left);
  std::fprintf(stderr, "\r%" PRIu64 "/%" PRIu64 " files  %s  %s/s  %s left\033[K", doneFiles_,
               totalFiles_, done.c_str(), speed.c_str(), remaining.c_str());
  std::fflush(stderr);
  drawn_ = true;
}

}  // namespace opcvk
