#ifndef QUORBIX_VIRTDISK_TOOL_PROGRESS_H_
#define QUORBIX_VIRTDISK_TOOL_PROGRESS_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

enum class ProgressUnit { kBytes, kEntries };

// How far work has come after so much time.
struct ProgressState {
  std::string what;         // "copying"
  std::uint64_t done = 0;   // in units
  std::uint64_t total = 0;  // in units; 0 when nobody knows
  ProgressUnit unit = ProgressUnit::kBytes;
  std::chrono::milliseconds elapsed{0};
};

// "copying: 1.5 GiB of 2 GiB, 75 %, 512 MiB/s, 1 s left", without its last parts where it does not
// fit into `columns`.
std::string FormatProgress(const ProgressState& state, std::size_t columns);

// Shows, on one line of the terminal, how far work has come that takes more than half a second; the
// line goes with the object. Shows nothing when the console wants no progress.
//
//   Progress progress(console, "copying", totalBytes);
//   while (...) progress.Add(CopyPiece());
//
// Fail, Warn and Remark take the line away before they print, and the next Add shows it again; who
// prints in another way meanwhile calls EraseProgress before. For one thread at a time.
class Progress {
 public:
  using Clock = std::chrono::steady_clock;

  Progress(Console& theConsole, std::string what, std::uint64_t total,
           ProgressUnit unit = ProgressUnit::kBytes,
           std::function<Clock::time_point()> theNow = Clock::now);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Goes on with another kind of work, counted anew, on the same line. The half second of silence
  // counts from the beginning of the first one.
  void Turn(std::string what, std::uint64_t total, ProgressUnit unit = ProgressUnit::kBytes);

  // Goes on with the same work under another name.
  void Rename(const std::string& what) { state.what = what; }

  // Quick enough to be called for each file and each piece of one.
  void Add(std::uint64_t amount);

 private:
  void Show(Clock::time_point time);

  Console& console;
  ProgressState state;
  const std::function<Clock::time_point()> now;
  Clock::time_point begin;  // of this kind of work
  Clock::time_point nextShow;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_PROGRESS_H_
