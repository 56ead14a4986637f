// A pass that is killed at any of its calls of the system, or in the middle of a write, loses
// nothing, and the next one goes on by itself; so does one that is refused any of these calls. The
// cutting off waits for the pass, not for time: the process counts its calls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <random>
#include <string>

#include "guard/contents.h"
#include "guard/cut_off.h"
#include "guard/cut_off_pair.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/child_process.h"
#include "support/search_effort.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using namespace test;
using enum GuardedOutcome;

constexpr auto kTakeDisk = GuardedSyncOptions::ConflictRule::kTakeDisk;
constexpr auto kTakeHost = GuardedSyncOptions::ConflictRule::kTakeHost;

// Ends the process then, wherever it is.
void KillAfter(std::chrono::microseconds time) {
  ::sigevent event{};
  event.sigev_notify = SIGEV_SIGNAL;
  event.sigev_signo = SIGKILL;
  ::timer_t timer;
  ASSERT_EQ(::timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
  ::itimerspec when{};
  when.it_value.tv_sec = time.count() / 1'000'000;
  when.it_value.tv_nsec = time.count() % 1'000'000 * 1000;
  ASSERT_EQ(::timer_settime(timer, 0, &when, nullptr), 0);
}

class CutOffPass : public PairToCutOff {};

// Half of every write is one more moment.
TEST_P(CutOffPass, KilledAtAnyCall_LosesNothingAndIsEndedByTheNext) {
  EXPECT_GE(CutAtEveryCall(Die), 50);
}

// Not at calls but at any moment, also between two instructions.
TEST_P(CutOffPass, KilledAtAnyMoment_LosesNothingAndIsEndedByTheNext) {
  std::mt19937 random(static_cast<unsigned>(GetParam().number));
  Begin();
  const auto began = std::chrono::steady_clock::now();
  ASSERT_TRUE(PassToTheEnd(kNeverCut, Die));
  std::chrono::microseconds whole = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - began);
  ExpectMended();
  const int kills = test::IsWholeSearch() ? 60 : 6;
  int killed = 0;
  for (int attempt = 0; killed < kills && attempt < 20 * kills && !HasFailure(); ++attempt) {
    const std::chrono::microseconds moment(1 +
                                           random() % static_cast<unsigned long>(whole.count()));
    SCOPED_TRACE("killed after " + std::to_string(moment.count()) + " microseconds");
    Begin();
    const int status = test::RunInChild({}, [&] {
      KillAfter(moment);
      canExchange = GetParam().canExchange;
      Pass();
      return 0;
    });
    EXPECT_TRUE(status == 0 || status == 256 + SIGKILL) << status;
    ExpectMended();
    if (status != 0) ++killed;
    // The machine was busier when the time was taken.
    if (status == 0) whole = moment;
  }
  EXPECT_EQ(killed, kills);
}

TEST_P(CutOffPass, FullDiskAtAnyCall_LosesNothingAndIsEndedByTheNext) {
  EXPECT_GE(CutAtEveryCall([] { return ENOSPC; }), 50);
}

TEST_P(CutOffPass, NoPermissionAtAnyCall_LosesNothingAndIsEndedByTheNext) {
  EXPECT_GE(CutAtEveryCall([] { return EACCES; }), 50);
}

TEST_P(CutOffPass, DiskThatIsFullFromAnyCallOn_LosesNothingAndIsEndedByTheNext) {
  refusesFromThenOn = true;
  EXPECT_GE(CutAtEveryCall([] { return ENOSPC; }), 50);
}

// As the system makes a disk that fails.
TEST_P(CutOffPass, DiskThatGetsReadOnlyAtAnyCall_LosesNothingAndIsEndedByTheNext) {
  refusesFromThenOn = true;
  EXPECT_GE(CutAtEveryCall([] { return EROFS; }), 50);
}

bool TellsOfSomethingUnread(const GuardedReport& report) {
  return std::any_of(report.notes.begin(), report.notes.end(),
                     [](const GuardedNote& note) { return note.text.starts_with("cannot be "); });
}

// One that has been refused something that it can do without is a whole one; what is new and cannot
// be read is left for the next.
TEST_P(CutOffPass, NoPermissionAtAnyOpening_IsNoDeletion) {
  constexpr int kEnded = 0;
  constexpr int kGaveUp = 1;
  constexpr int kDidAll = 2;
  options.trashPasses = 3;
  countsOpenings = true;
  int calls = FirstCall();
  int gaveUp = 0;
  for (int status = -1; status != kEnded && !HasFailure(); calls += Step()) {
    SCOPED_TRACE("refused at call " + std::to_string(calls));
    Begin();
    status = test::RunInChild({}, [&] {
      callsBeforeTheEnd = calls;
      atThatCall = [] { return EACCES; };
      canExchange = GetParam().canExchange;
      const GuardedReport report = Pass();
      if (callsBeforeTheEnd >= 0) return kEnded;
      return report.outcome == kDone && !TellsOfSomethingUnread(report) ? kDidAll : kGaveUp;
    });
    ASSERT_LE(status, kDidAll);
    ExpectOnlyPlannedDeletions();
    if (status == kGaveUp) ++gaveUp;
    if (status == kDidAll) {
      EXPECT_EQ(Pass().outcome, kNothingToDo);
    }
    ExpectMended();
  }
  EXPECT_GE(calls, 100);
  EXPECT_GE(gaveUp, 10);
}

TEST_P(CutOffPass, StopAtAnyCall_LosesNothingAndIsEndedByTheNext) {
  std::atomic<bool> stop = false;
  options.stop = &stop;
  EXPECT_GE(CutAtEveryCall([&] {
              stop = true;
              return 0;
            }),
            50);
}

// As on a stick that is pulled out: it is back before the next pass.
TEST_P(CutOffPass, FolderThatVanishesAtAnyCall_LosesNothing) { VanishAtEveryCall(Host()); }

TEST_P(CutOffPass, ImagesFolderThatVanishesAtAnyCall_LosesNothing) {
  options.stateFolder = Root() / "state";
  VanishAtEveryCall(Image().parent_path());
}

TEST_P(CutOffPass, StatesFolderThatVanishesAtAnyCall_LosesNothing) {
  VanishAtEveryCall(StateFolder());
}

TEST_P(CutOffPass, ImageAndStateThatVanishAtAnyCall_LoseNothing) {
  VanishAtEveryCall(Image().parent_path());
}

TEST_P(CutOffPass, EditsAtAnyCall_AreLeftForTheNextPass) {
  options.trashPasses = 3;  // the edits that come last are carried over by passes of their own
  int calls = FirstCall();
  for (bool ended = false; !ended && !HasFailure(); calls += Step()) {
    SCOPED_TRACE("edited at call " + std::to_string(calls));
    Begin();
    ended = PassToTheEnd(calls, [&] {
      EditEverything();
      return 0;
    });
    Contents edits;
    AddFolder(Host(), edits);
    // What the editor has overwritten is its own affair.
    Contents kept = edits;
    kept.insert({"c3", "g2", "m1"});
    for (int pass = 0; pass < 3; ++pass) Pass();
    EXPECT_EQ(Pass().outcome, kNothingToDo);
    Contents after = Sides();
    AddTrash(StateFolder(), after);
    ExpectAllIn(kept, after);
    if (options.onConflict == kTakeDisk) continue;
    for (const std::string& content : edits) {
      EXPECT_TRUE(!content.starts_with("edited") || Sides().contains(content)) << content;
    }
  }
  EXPECT_GE(calls, 50);
}

INSTANTIATE_TEST_SUITE_P(
    Ways, CutOffPass,
    testing::Values(
        Way{.number = 0, .name = "Renamed"}, Way{.number = 1, .name = "InPlace", .inPlace = true},
        Way{.number = 2, .name = "WithoutExchange", .canExchange = false},
        Way{.number = 3, .name = "TakingTheDisks", .onConflict = kTakeDisk},
        Way{.number = 4, .name = "TakingTheHosts", .inPlace = true, .onConflict = kTakeHost}),
    [](const auto& way) { return way.param.name; });

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
