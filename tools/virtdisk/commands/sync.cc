#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include <quorbix/virtdisk/guarded_folder_sync.h>

#include "commands/commands.h"
#include "commands/sync_report.h"
#include "commands/work_line.h"
#include "common/host_file.h"
#include "host/change_watch.h"
#include "host/host_file.h"
#include "host/output_place.h"
#include "host/stop_flag.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr milliseconds kPatience{10'000};  // for both sides to be quiet
constexpr milliseconds kLookEvery{5'000};  // where the kernel does not tell of changes
constexpr milliseconds kRetryAfter{500};
constexpr milliseconds kLongestRetry{30'000};
constexpr std::size_t kMostNotes = 10;

// The two paths the right way round: an image is never a folder, nor a folder a file.
std::pair<fs::path, fs::path> InOrder(Console& console, const SyncOptions& options) {
  std::error_code unknown;
  const bool isExchanged =
      (fs::is_directory(options.image, unknown) && !fs::is_directory(options.folder, unknown)) ||
      (fs::is_regular_file(options.folder, unknown) && !fs::exists(options.image, unknown));
  if (!isExchanged) return {options.image, options.folder};
  Remark(console, "took " + options.folder.string() + " for the image and " +
                      options.image.string() + " for the folder");
  return {options.folder, options.image};
}

// Whether a hazard is one event that was meant, not a state of things that lasts.
bool IsEvent(GuardedHazard hazard) {
  using enum GuardedHazard;
  constexpr std::array kEvents{kFolderMissing, kFolderReplaced, kFolderEmpty,
                               kImageReplaced, kImageEmpty,     kImageUnsound,
                               kImageResized,  kManyDeletions,  kStateDamaged};
  return std::find(kEvents.begin(), kEvents.end(), hazard) != kEvents.end();
}

std::ptrdiff_t StepsDone(const GuardedReport& report) {
  return std::count_if(report.steps.begin(), report.steps.end(),
                       [](const GuardedStep& step) { return step.isDone; });
}

class Synchroniser {
 public:
  Synchroniser(Console& theConsole, const SyncOptions& theOptions)
      : console(theConsole), options(theOptions), accepted(theOptions.accepted) {
    std::tie(image, folder) = InOrder(console, options);
    GuardedSyncOptions guarded = options.guarded;
    guarded.stop = &StopFlag::Flag();
    guarded.onProgress = [this](const GuardedProgress& told) { line->Show(told); };
    sync = CreateGuardedFolderSync(image, folder, guarded);
  }

  // A status is written again and again: nothing else must be lost by it.
  bool IsStatusAcceptable() {
    if (options.status.empty()) return true;
    if (HaveSamePlace(options.status, image)) {
      return Refuse(options.status.string() + " is the image's path",
                    "The status would take its place. Give another path.");
    }
    if (LiesWithin(options.status, StateFolder())) {
      return Refuse(options.status.string() + " lies inside " + StateFolder().string(),
                    "What is remembered of the two lies there. Give another path.");
    }
    if (LiesWithin(options.status, folder)) {
      return Refuse(options.status.string() + " lies inside " + folder.string(),
                    "The status would be carried to the disk. Give another path.");
    }
    std::string err;
    std::vector<std::uint8_t> bytes;
    const OutputKind kind = LookAtOutput(options.status);
    if (kind == OutputKind::kNothing) return true;
    const bool isFile = kind == OutputKind::kOtherFile || kind == OutputKind::kDiskImage;
    std::uint64_t size = 0;
    if (isFile && HostFileBytes(options.status, size, err) && size == 0) return true;
    if (kind == OutputKind::kOtherFile && ReadHostFile(options.status, bytes, err) &&
        Json::parse(bytes, nullptr, false).contains("stepsDone")) {
      return true;
    }
    return Refuse(options.status.string() + " exists, and holds no status of an earlier sync",
                  "Give another path, or remove it first.");
  }

  // What it says would be carried to the disk, and that told in turn, without an end.
  bool IsOutputElsewhere() {
    for (const char* output : {"/proc/self/fd/1", "/proc/self/fd/2"}) {
      std::error_code unknown;
      const fs::path leadsTo = fs::read_symlink(output, unknown);
      if (!fs::is_regular_file(leadsTo, unknown) || !LiesWithin(leadsTo, folder)) continue;
      return Refuse("the output goes to " + leadsTo.string() + ", inside " + folder.string(),
                    "It would be carried to the disk, and that told in turn. Send it elsewhere.");
    }
    return true;
  }

  int Preview() {
    line.emplace(console);
    const GuardedReport report = sync->Preview(accepted);
    line.reset();
    Tell(report);
    return StatusAfter(report);
  }

  // Waits for quiet, but not for ever.
  int Once() {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    GuardedReport report = Pass();
    while (report.outcome == GuardedOutcome::kNotNow && !StopFlag::IsSet() &&
           std::chrono::steady_clock::now() < deadline) {
      TellWhatWasDone(report);
      StopFlag::WaitFor(-1, kRetryAfter);
      report = Pass();
    }
    Tell(report);
    return StatusAfter(report);
  }

  int KeepInStep() {
    if (!console.quiet) {
      PrintToErr(console, "Keeping " + Printable(image.string()) + " and " +
                              Printable(folder.string()) + " in step; Ctrl-C ends it.\n");
    }
    while (!StopFlag::IsSet() && console.out.good()) {
      // Before the look, so that nothing falls between the two.
      BeginWatch();
      const GuardedReport report = Pass();
      Tell(report);
      if (StatusOf(report) == kDone) {
        wasInStep = true;
        std::erase_if(accepted, IsEvent);
      }
      if (StopFlag::IsSet()) break;
      if (IsInVain(report)) {
        WaitToRetry();
      } else {
        retryAfter = kRetryAfter;
        Wait();
      }
    }
    return StopFlag::IsSet() ? StopFlag::ExitStatus() : kFailed;
  }

 private:
  fs::path StateFolder() const {
    const fs::path& given = options.guarded.stateFolder;
    return given.empty() ? DefaultStateFolder(image) : given;
  }

  GuardedReport Pass() {
    line.emplace(console);
    GuardedReport report = sync->Pass(accepted);
    line.reset();
    return report;
  }

  bool Refuse(const std::string& message, const char* hint) {
    Fail(console, message, hint);
    return false;
  }

  static int StatusOf(const GuardedReport& report) {
    switch (report.outcome) {
      case GuardedOutcome::kNothingToDo:
      case GuardedOutcome::kDone:
        return kDone;
      case GuardedOutcome::kRefused:
      case GuardedOutcome::kNotNow:
        return kRefused;
      case GuardedOutcome::kFailed:
      case GuardedOutcome::kStopped:
        return kFailed;
    }
    return kFailed;
  }

  static int StatusAfter(const GuardedReport& report) {
    return StopFlag::IsSet() ? StopFlag::ExitStatus() : StatusOf(report);
  }

  void BeginWatch() {
    std::string err;
    std::error_code unknown;
    const bool isWatched =
        fs::is_directory(folder, unknown) && watch.Begin(folder, image, StateFolder(), err);
    if (!isWatched && !err.empty() && !toldOfWatch) {
      Warn(console, "the kernel does not tell of changes (" + err + "): looking every 5 s");
      toldOfWatch = true;
    }
  }

  static bool IsInVain(const GuardedReport& report) {
    return report.outcome == GuardedOutcome::kNotNow || report.outcome == GuardedOutcome::kFailed;
  }

  milliseconds Interval() const { return milliseconds(options.intervalMs); }
  milliseconds TimeToRetry() const { return std::min(Interval(), retryAfter); }
  milliseconds TimeWithoutWatch() const { return std::min(Interval(), kLookEvery); }

  // By when the next pass begins at the latest; 0: there is none.
  milliseconds NextLookWithin(const GuardedReport& report) const {
    if (!IsKeptInStep() || StopFlag::IsSet()) return milliseconds(0);
    if (IsInVain(report)) return TimeToRetry();
    return watch.Descriptor() < 0 ? TimeWithoutWatch() : Interval() + options.guarded.settle;
  }

  // Twice as long each time that it was in vain: a machine may have the image open for hours, and a
  // disk stay full. What changes meanwhile is no reason to hurry: a pass that fails half way
  // changes the folder itself.
  void WaitToRetry() {
    StopFlag::WaitFor(-1, TimeToRetry());
    retryAfter = std::min(2 * retryAfter, kLongestRetry);
  }

  // Until something changes and both sides have settled, or it is time for a look anyway.
  void Wait() {
    if (watch.Descriptor() < 0) {
      StopFlag::WaitFor(-1, TimeWithoutWatch());
      return;
    }
    const auto deadline = std::chrono::steady_clock::now() + Interval();
    bool isNews = false;
    while (!isNews && !StopFlag::IsSet() && std::chrono::steady_clock::now() < deadline) {
      const auto left =
          std::chrono::duration_cast<milliseconds>(deadline - std::chrono::steady_clock::now());
      isNews = StopFlag::WaitFor(watch.Descriptor(), left) && watch.TakeNews();
    }
    if (isNews) StopFlag::WaitFor(-1, options.guarded.settle);
  }

  // Of a try that another one follows, which does not do it again.
  void TellWhatWasDone(const GuardedReport& report) {
    if (StepsDone(report) == 0) return;
    if (options.json) {
      console.out << OneLine(ReportObject(report, DateAndClockText())) << std::endl;
    } else {
      TellSteps(report);
    }
    WriteStatus(report);
  }

  void Tell(const GuardedReport& report) {
    if (options.json) {
      console.out << OneLine(ReportObject(report, DateAndClockText())) << std::endl;
    } else {
      TellPeople(report);
    }
    WriteStatus(report);
  }

  void TellSteps(const GuardedReport& report) {
    const std::string time = ClockText();
    for (const GuardedStep& step : report.steps) {
      if (step.isDone || options.dryRun) console.out << StepLine(step, time) << "\n";
    }
    console.out.flush();
  }

  void TellPeople(const GuardedReport& report) {
    TellSteps(report);
    if (options.dryRun && report.outcome == GuardedOutcome::kNothingToDo) {
      console.out << ClockText() << "  nothing to do" << std::endl;
    }
    if (report.outcome != GuardedOutcome::kNotNow) TellNotes(report);
    TellTrouble(report);
  }

  // Each once: what takes no part does so in every pass.
  void TellNotes(const GuardedReport& report) {
    const bool isMeeting =
        report.outcome == GuardedOutcome::kDone && report.isFirstMeeting && !report.steps.empty();
    if (isMeeting) {
      Remark(console,
             "nothing is remembered of these two: they meet for the first time, and nothing "
             "is deleted");
    }
    std::size_t shown = 0;
    std::size_t more = 0;
    for (const GuardedNote& note : report.notes) {
      if (!toldNotes.emplace(note.path, note.text).second) continue;
      if (++shown > kMostNotes) {
        ++more;
      } else {
        Remark(console, (note.path.empty() ? "" : note.path + " ") + note.text);
      }
    }
    if (more == 0) return;
    Remark(console, Count(more, "more entry", "more entries") + " like these; --json lists all");
  }

  // The same trouble is told once.
  void TellTrouble(const GuardedReport& report) {
    const bool isTrouble = report.outcome == GuardedOutcome::kRefused ||
                           report.outcome == GuardedOutcome::kFailed ||
                           report.outcome == GuardedOutcome::kNotNow;
    if (report.outcome != GuardedOutcome::kNotNow) waitsSince.reset();
    if (report.outcome == GuardedOutcome::kNotNow && IsToBeWaitedFor()) return;
    const std::string trouble = isTrouble ? report.message : std::string();
    const bool isNew = trouble != toldTrouble;
    toldTrouble = trouble;
    if (!isTrouble || !isNew) return;
    if (report.outcome == GuardedOutcome::kRefused) return PrintRefusal(console, report, accepted);
    if (report.outcome == GuardedOutcome::kFailed) {
      Fail(console, report.message,
           "Nothing is lost: what was replaced is in the trash, see `virtdisk restore`, or comes "
           "there with the next pass.");
    } else if (IsKeptInStep()) {
      Remark(console, "waiting: " + report.message);
    } else {
      Fail(console, report.message, "Nothing is lost. Try again when that is over.");
    }
  }

  bool IsKeptInStep() const { return !options.once && !options.dryRun; }

  // Whoever is just saving something is done in a moment: that is no news, except at the beginning.
  bool IsToBeWaitedFor() {
    if (!IsKeptInStep() || !wasInStep) return false;
    const auto now = std::chrono::steady_clock::now();
    if (!waitsSince) waitsSince = now;
    return now - *waitsSince < kPatience;
  }

  void WriteStatus(const GuardedReport& report) {
    if (options.status.empty() || options.dryRun) return;
    // What is there, and where the path leads, may have changed since.
    if (!IsStatusAcceptable()) return;
    Json object = ReportObject(report, DateAndClockText());
    object["stepsDone"] = StepsDone(report);
    object["nextLookWithinMs"] = NextLookWithin(report).count();
    const std::string text = OneLine(object) + "\n";
    std::string err;
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    if (!WriteHostFile(internal::FollowLinks(options.status), bytes, err)) Warn(console, err);
  }

  Console& console;
  const SyncOptions& options;
  const StopFlag stop;
  std::vector<GuardedHazard> accepted;
  fs::path image;
  fs::path folder;
  std::unique_ptr<IGuardedFolderSync> sync;
  std::optional<WorkLine> line;  // of the pass that is under way
  ChangeWatch watch;
  bool toldOfWatch = false;
  std::set<std::pair<std::string, std::string>> toldNotes;
  std::string toldTrouble;
  bool wasInStep = false;
  milliseconds retryAfter = kRetryAfter;
  std::optional<std::chrono::steady_clock::time_point> waitsSince;
};

}  // namespace

int RunSync(Console& console, const SyncOptions& options) {
  Synchroniser synchroniser(console, options);
  if (!synchroniser.IsStatusAcceptable()) return kRefused;
  if (options.dryRun) return synchroniser.Preview();
  if (options.once) return synchroniser.Once();
  return synchroniser.IsOutputElsewhere() ? synchroniser.KeepInStep() : kRefused;
}

}  // namespace quorbix::virtdisk::tool
