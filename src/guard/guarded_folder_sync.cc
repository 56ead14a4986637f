#include "quorbix/virtdisk/guarded_folder_sync.h"

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>

#include "guard/folder_lock.h"
#include "guard/guarded_pass.h"
#include "guard/memory.h"
#include "guard/quiet_sides.h"
#include "guard/room.h"
#include "guard/sight.h"
#include "guard/state_file.h"
#include "guard/trash.h"

namespace quorbix::virtdisk {
namespace internal::guard {
namespace {

GuardedReport ReportOf(const Sight& sight) {
  GuardedReport report;
  report.message = sight.message;
  report.hazards = sight.hazards;
  report.steps = sight.plan.steps;
  report.notes = sight.notes;
  report.isFirstMeeting = sight.isFirstMeeting;
  report.lastReadInFull = sight.state.lastReadInFull;
  for (const Pair& pair : sight.plan.after.pairs) {
    if (pair.type != EntryType::kFile || !pair.agreed) continue;
    ++report.files;
    report.bytes += pair.agreed->size;
  }
  return report;
}

GuardedOutcome OutcomeOf(Sight::Result result) {
  switch (result) {
    case Sight::Result::kComplete:
      return GuardedOutcome::kDone;
    case Sight::Result::kNotNow:
      return GuardedOutcome::kNotNow;
    case Sight::Result::kStopped:
      return GuardedOutcome::kStopped;
  }
  return GuardedOutcome::kFailed;
}

GuardedOutcome OutcomeOf(Ending::Result result) {
  switch (result) {
    case Ending::Result::kDone:
      return GuardedOutcome::kDone;
    case Ending::Result::kBusy:
      return GuardedOutcome::kNotNow;
    case Ending::Result::kFailed:
      return GuardedOutcome::kFailed;
    case Ending::Result::kStopped:
      return GuardedOutcome::kStopped;
  }
  return GuardedOutcome::kFailed;
}

// What a sight comes to before anything is done.
GuardedOutcome OutcomeBefore(const Sight& sight, const std::vector<GuardedHazard>& accepted,
                             std::string& message) {
  // A side that is not quiet may show a hazard that is gone in a moment.
  if (sight.result != Sight::Result::kComplete) return OutcomeOf(sight.result);
  if (StandsInTheWay(sight.hazards, accepted)) {
    const auto first = std::find_if(
        sight.hazards.begin(), sight.hazards.end(),
        [&](const GuardedHazardReport& report) { return StandsInTheWay({report}, accepted); });
    message = first->text;
    return GuardedOutcome::kRefused;
  }
  const bool isInStep = sight.plan.IsEmpty() && !sight.hasToMend;
  return isInStep ? GuardedOutcome::kNothingToDo : GuardedOutcome::kDone;
}

// Whatever folder the process goes to afterwards, a pair stays the pair that was named.
std::filesystem::path Absolute(const std::filesystem::path& path) {
  std::error_code failed;
  std::filesystem::path absolute = std::filesystem::absolute(path, failed);
  return failed ? path : absolute;
}

GuardedReport OutOfMemory() {
  GuardedReport report;
  report.outcome = GuardedOutcome::kFailed;
  report.message = kNoMemory;
  return report;
}

class GuardedFolderSync final : public IGuardedFolderSync {
 public:
  GuardedFolderSync(const std::filesystem::path& imagePath, const std::filesystem::path& folderPath,
                    GuardedSyncOptions itsOptions)
      : image(Absolute(imagePath)), folder(Absolute(folderPath)), options(std::move(itsOptions)) {
    if (!options.stateFolder.empty()) options.stateFolder = Absolute(options.stateFolder);
  }

  GuardedReport Preview(const std::vector<GuardedHazard>& accepted) override {
    return WithinMemory([&] { return LookAhead(accepted); }, OutOfMemory);
  }

  GuardedReport Pass(const std::vector<GuardedHazard>& accepted) override {
    return WithinMemory([&] { return LookAndCarryOut(accepted); }, OutOfMemory);
  }

 private:
  GuardedReport LookAhead(const std::vector<GuardedHazard>& accepted) {
    const Places places = FindPlaces(image, folder, options.stateFolder);
    WorkMonitor monitor(options.stop, options.onProgress);
    KnownState known = Recall(places);
    std::string holder;
    const bool isFree = LookAtLocks(places, known.lockError, holder);
    const Sight sight = Look(places, options, known, monitor);
    GuardedReport report = ReportOf(sight);
    report.outcome = OutcomeBefore(sight, accepted, report.message);
    if (!isFree) {
      report.outcome = GuardedOutcome::kNotNow;
      report.message = holder;
    }
    return report;
  }

  GuardedReport LookAndCarryOut(const std::vector<GuardedHazard>& accepted) {
    const Places places = FindPlaces(image, folder, options.stateFolder);
    const bool isFirst = !lock.IsHeld();
    GuardedReport locked;
    std::string lockError;
    if (!TakeLockIfKnown(places, lockError, locked)) return locked;
    if (!folderLock.Take(places.folder, locked.message)) {
      locked.outcome = GuardedOutcome::kNotNow;
      return locked;
    }
    if (isFirst && !options.verify) quiet = QuietSides::Load(places);
    if (quiet && lock.IsHeld() && IsUsable(places) && quiet->AreStill(places)) {
      return quiet->Report();
    }
    quiet.reset();
    KnownState known = Recall(places);
    known.lockError = lockError;
    // Nothing is remembered of what lies there: that is no first meeting.
    if (lock.IsHeld() && !lock.IsHeldIn(places.stateFolder)) {
      locked.message = "the folder " + places.stateFolder.string() + " has gone just now";
      locked.outcome = GuardedOutcome::kNotNow;
      return locked;
    }
    WorkMonitor monitor(options.stop, options.onProgress);
    KeptContents kept;
    const Sight sight = Look(places, options, known, monitor, &kept);
    GuardedReport report = ReportOf(sight);
    report.outcome = OutcomeBefore(sight, accepted, report.message);
    const bool isToBeDone =
        report.outcome == GuardedOutcome::kDone || report.outcome == GuardedOutcome::kNothingToDo;
    if (isToBeDone && (lock.IsHeld() || TakeLockForTheFirstTime(places, report))) {
      CarryOut(places, sight, kept, monitor, report);
    }
    const bool isQuiet = report.outcome == GuardedOutcome::kNothingToDo && report.hazards.empty();
    if (isQuiet && !options.verify) {
      quiet = QuietSides::Take(places, sight, report);
      if (quiet && lock.IsHeld()) quiet->Save(places);
    }
    return report;
  }

  // Whether nothing stands in the way of a pass that would have something to do.
  static bool IsUsable(const Places& places) {
    return MayRemember(places.stateFolder) && WhyTrashIsUnusable(places.stateFolder).empty() &&
           !NestingOf(places).IsAny();
  }

  static KnownState Recall(const Places& places) {
    KnownState known;
    known.load = LoadState(places.stateFolder, known.state, known.error);
    return known;
  }

  // False: somebody else has one of them, and `holder` says who.
  bool LookAtLocks(const Places& places, std::string& lockError, std::string& holder) const {
    std::string text;
    const Locking locking = lock.Look(places.stateFolder, text);
    if (locking == Locking::kHeld) holder = text;
    if (locking == Locking::kFailed) lockError = text;
    return locking != Locking::kHeld && folderLock.Look(places.folder, holder);
  }

  // False: somebody else has it, and `report` says who. One that cannot be had is a hazard. Where
  // nothing was ever kept nothing is made for it either: the pass may be refused.
  bool TakeLockIfKnown(const Places& places, std::string& lockError, GuardedReport& report) {
    if (!HoldsState(places.stateFolder)) {
      lock = StateLock();
      return true;
    }
    const Locking result = lock.Take(places.stateFolder, report.message);
    if (result == Locking::kFailed) lockError = report.message;
    report.outcome = GuardedOutcome::kNotNow;
    return result != Locking::kHeld;
  }

  // After the look, which knew of nothing: whatever another process has done since is not in it.
  bool TakeLockForTheFirstTime(const Places& places, GuardedReport& report) {
    const GuardedOutcome planned = std::exchange(report.outcome, GuardedOutcome::kFailed);
    if (!MakeStateFolder(places.stateFolder, report.message)) return false;
    const Locking result = lock.Take(places.stateFolder, report.message);
    if (result == Locking::kFailed) return false;
    State ignored;
    const StateLoad load = LoadState(places.stateFolder, ignored, report.message);
    if (result == Locking::kTaken && load == StateLoad::kNone) {
      report.outcome = planned;
      return true;
    }
    report.outcome = GuardedOutcome::kNotNow;
    if (result == Locking::kTaken) {
      report.message = "another process has just begun to keep this pair in step";
    }
    return false;
  }

  void CarryOut(const Places& places, const Sight& sight, KeptContents& kept, WorkMonitor& monitor,
                GuardedReport& report) {
    GuardedPass pass(places, options, sight, kept, folderLock, monitor);
    const Ending ending =
        WithinMemory([&] { return pass.Run(); }, [] { return Ending::Failed(kNoMemory); });
    for (GuardedStep& step : report.steps) step.isDone = pass.IsDone(step);
    if (!ending.IsDone()) {
      report.outcome = OutcomeOf(ending.result);
      report.message = ending.text;
      return;
    }
    report.lastReadInFull = pass.After().lastReadInFull;
  }

  const std::filesystem::path image;
  const std::filesystem::path folder;
  GuardedSyncOptions options;
  StateLock lock;
  FolderLock folderLock;
  std::optional<QuietSides> quiet;  // after a pass that had nothing to do
};

}  // namespace
}  // namespace internal::guard

std::unique_ptr<IGuardedFolderSync> CreateGuardedFolderSync(const std::filesystem::path& image,
                                                            const std::filesystem::path& folder,
                                                            const GuardedSyncOptions& options) {
  return std::make_unique<internal::guard::GuardedFolderSync>(image, folder, options);
}

}  // namespace quorbix::virtdisk
