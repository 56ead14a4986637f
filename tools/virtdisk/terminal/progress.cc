#include "terminal/progress.h"

#include <algorithm>
#include <array>
#include <utility>

#include "host/stop_signals.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::chrono::milliseconds kSilence{500};
constexpr std::chrono::milliseconds kShowEvery{100};

std::string Amount(std::uint64_t amount, ProgressUnit unit) {
  return unit == ProgressUnit::kBytes ? FormatBytes(amount) : GroupDigits(amount);
}

std::string TimeLeft(std::uint64_t seconds) {
  if (seconds < 60) return std::to_string(seconds) + " s left";
  if (seconds < 3600) {
    return std::to_string(seconds / 60) + " min " + std::to_string(seconds % 60) + " s left";
  }
  return std::to_string(seconds / 3600) + " h " + std::to_string(seconds / 60 % 60) + " min left";
}

// What follows the amount, each part dispensable.
std::array<std::string, 4> Parts(const ProgressState& state) {
  const double seconds = std::max(static_cast<double>(state.elapsed.count()) / 1000, 0.001);
  const double speed = static_cast<double>(state.done) / seconds;
  const auto perSecond = static_cast<std::uint64_t>(speed);
  std::array<std::string, 4> parts;
  if (state.unit == ProgressUnit::kBytes) parts[2] = ", " + FormatBytes(perSecond) + "/s";
  if (state.total == 0) return parts;
  // Files may grow meanwhile.
  const std::uint64_t done = std::min(state.done, state.total);
  const double share = static_cast<double>(done) / static_cast<double>(state.total);
  parts[0] = " of " + Amount(state.total, state.unit);
  parts[1] = ", " + std::to_string(static_cast<unsigned>(share * 100)) + " %";
  if (perSecond == 0) return parts;
  parts[3] =
      ", " + TimeLeft(static_cast<std::uint64_t>(static_cast<double>(state.total - done) / speed));
  return parts;
}

}  // namespace

std::string FormatProgress(const ProgressState& state, std::size_t columns) {
  std::string line = Printable(state.what) + ": " + Amount(state.done, state.unit);
  for (const std::string& part : Parts(state)) {
    if (line.size() + part.size() > columns) break;
    line += part;
  }
  // One column per byte at most: what is shown is never wider than this.
  line.resize(std::min(line.size(), columns));
  return line;
}

Progress::Progress(Console& theConsole, std::string what, std::uint64_t total, ProgressUnit unit,
                   std::function<Clock::time_point()> theNow)
    : console(theConsole),
      state{std::move(what), 0, total, unit, {}},
      now(std::move(theNow)),
      begin(now()),
      nextShow(begin + kSilence) {}

Progress::~Progress() { EraseProgress(console); }

void Progress::Turn(std::string what, std::uint64_t total, ProgressUnit unit) {
  state = {std::move(what), 0, total, unit, {}};
  begin = now();
}

void Progress::Add(std::uint64_t amount) {
  state.done += amount;
  if (!console.errIsTerminal || console.quiet) return;
  const Clock::time_point time = now();
  if (time >= nextShow) Show(time);
}

void Progress::Show(Clock::time_point time) {
  nextShow = time + kShowEvery;
  state.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(time - begin);
  // A full line would make some terminals go on to the next one.
  const std::string line = FormatProgress(state, std::max(console.errWidth, 2U) - 1);
  const std::size_t before = std::exchange(console.progressColumns, line.size());
  EraseOnSignals(static_cast<unsigned>(std::max(before, line.size())));
  const std::string rest(before > line.size() ? before - line.size() : 0, ' ');
  console.err << "\r" << line << rest << std::flush;
  console.progressColumns = std::max(before, line.size());
}

}  // namespace quorbix::virtdisk::tool
