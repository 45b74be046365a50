// The progress line of long operations: one line on standard error, redrawn in place.
#ifndef TOOLS_OPCVK_PROGRESS_H_
#define TOOLS_OPCVK_PROGRESS_H_

#include <chrono>
#include <cstdint>

namespace opcvk {

// Counts files and bytes done out of a known total and shows them, with the rate and the
// time left, on standard error.  Nothing is shown unless the line is enabled, and nothing
// before the operation has run for half a second, so that quick runs stay silent.  The line
// is redrawn with "\r" at most ten times a second and cleared when the object goes, also
// when the operation ends with an exception.
class Progress {
 public:
  // True when a progress line may be shown: standard error is a terminal and the user did
  // not ask for quiet.
  static bool wanted(bool quiet);

  Progress(bool enabled, std::uint64_t totalFiles, std::uint64_t totalBytes);
  Progress(Progress const&) = delete;
  Progress& operator=(Progress const&) = delete;
  ~Progress();

  // Sets the totals, for an operation that learns them after it began.
  void expect(std::uint64_t totalFiles, std::uint64_t totalBytes);
  // One more file (or link, or folder) done, with `bytes` of content.
  void advance(std::uint64_t bytes);
  // A last step that cannot be counted, such as writing the package: shown at once in place
  // of the rate, if the line is shown at all.
  void phase(char const* what);

 private:
  using Clock = std::chrono::steady_clock;

  void draw(Clock::time_point now);

  bool enabled_;
  bool drawn_ = false;
  std::uint64_t totalFiles_;
  std::uint64_t totalBytes_;
  std::uint64_t doneFiles_ = 0;
  std::uint64_t doneBytes_ = 0;
  Clock::time_point start_;
  Clock::time_point lastDraw_;
};

}  // namespace opcvk

#endif  // TOOLS_OPCVK_PROGRESS_H_
