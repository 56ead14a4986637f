// A pass that is killed at any of its calls of the system, or in the middle of a write, loses
// nothing, and the next one goes on by itself; so does one that is refused any of these calls. The
// cutting off waits for the pass, not for time: the process counts its calls.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "guard/contents.h"
#include "quorbix/virtdisk/fat_image_builder.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/child_process.h"
#include "support/memory_folder.h"
#include "support/next_function.h"
#include "support/opening.h"
#include "support/search_effort.h"

namespace {

using quorbix::virtdisk::test::NextOf;

int callsBeforeTheEnd = -1;       // negative: nothing happens
std::function<int()> atThatCall;  // what happens then; an error, with which the call fails, or 0
bool canExchange = true;
bool canLink = true;
bool countsOpenings = false;  // those that make nothing as well

// Whether this call is the one that fails.
bool IsRefused() {
  if (callsBeforeTheEnd < 0 || callsBeforeTheEnd-- != 0) return false;
  const int error = atThatCall();
  if (error != 0) errno = error;
  return error != 0;
}

int Die() {
  ::raise(SIGKILL);
  return 0;
}

}  // namespace

int quorbix::virtdisk::test::InPlaceOf(const Opening& opening) {
  const bool isCounted = (opening.flags & O_CREAT) != 0 || countsOpenings;
  return isCounted && IsRefused() ? -1 : opening.Next();
}

// These stand in front of the C library's functions for the whole program, the C++ library
// included.

extern "C" ssize_t write(int file, const void* bytes, size_t size) {
  static const auto next = NextOf<ssize_t(int, const void*, size_t)>("write");
  if (IsRefused()) return -1;
  if (callsBeforeTheEnd != 0) return next(file, bytes, size);
  const ssize_t half = next(file, bytes, size / 2);
  if (half < 0 || IsRefused()) return -1;
  const ssize_t rest =
      next(file, static_cast<const char*>(bytes) + half, size - static_cast<size_t>(half));
  return rest < 0 ? rest : half + rest;
}

extern "C" int fsync(int file) { return IsRefused() ? -1 : NextOf<int(int)>("fsync")(file); }
extern "C" int fdatasync(int file) {
  return IsRefused() ? -1 : NextOf<int(int)>("fdatasync")(file);
}

extern "C" int fchmod(int file, mode_t mode) noexcept {
  return IsRefused() ? -1 : NextOf<int(int, mode_t)>("fchmod")(file, mode);
}

extern "C" int mkdirat(int folder, const char* path, mode_t mode) noexcept {
  return IsRefused() ? -1 : NextOf<int(int, const char*, mode_t)>("mkdirat")(folder, path, mode);
}

extern "C" int mkdir(const char* path, mode_t mode) noexcept {
  return IsRefused() ? -1 : NextOf<int(const char*, mode_t)>("mkdir")(path, mode);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  return IsRefused() ? -1 : NextOf<int(const char*, const char*)>("rename")(from, to);
}

extern "C" int renameat(int fromFolder, const char* from, int toFolder, const char* to) noexcept {
  if (IsRefused()) return -1;
  return NextOf<int(int, const char*, int, const char*)>("renameat")(fromFolder, from, toFolder,
                                                                     to);
}

extern "C" int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
                         unsigned flags) noexcept {
  if (IsRefused()) return -1;
  if (!canExchange && flags == RENAME_EXCHANGE) {
    errno = EINVAL;
    return -1;
  }
  return NextOf<int(int, const char*, int, const char*, unsigned)>("renameat2")(
      fromFolder, from, toFolder, to, flags);
}

extern "C" int link(const char* from, const char* to) noexcept {
  if (!canLink) {
    errno = EPERM;
    return -1;
  }
  return IsRefused() ? -1 : NextOf<int(const char*, const char*)>("link")(from, to);
}

extern "C" int unlink(const char* path) noexcept {
  return IsRefused() ? -1 : NextOf<int(const char*)>("unlink")(path);
}

extern "C" int unlinkat(int folder, const char* path, int flags) noexcept {
  return IsRefused() ? -1 : NextOf<int(int, const char*, int)>("unlinkat")(folder, path, flags);
}

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using test::GuestEditor;
using enum GuardedOutcome;

constexpr int kNeverCut = 1'000'000;
constexpr int kShortStep = 8;

struct Way {
  int number;
  const char* name;
  bool inPlace = false;
  bool canExchange = true;
  GuardedSyncOptions::ConflictRule onConflict = GuardedSyncOptions::ConflictRule::kKeepBoth;
};

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

// A pair on which everything a pass can do is to be done.
class CutOffPass : public testing::TestWithParam<Way> {
 protected:
  void SetUp() override {
    countsOpenings = false;
    options.settle = std::chrono::milliseconds(0);
    options.inPlace = GetParam().inPlace;
    options.trashPasses = 1;  // what is cut off, and what ends it, count as one
    options.onConflict = GetParam().onConflict;
  }

  void Begin() {
    fs::remove_all(Root());
    fs::create_directories(Host() / "gone");
    fs::create_directories(Image().parent_path());
    Write("changed by the host", "h1");
    Write("changed by the guest", "g1");
    Write("conflict", "c1");
    Write("deleted by the host", "d1");
    Write("deleted by the guest", "e1");
    Write("gone/inside", "i1");
    ASSERT_TRUE(CreateFat16Builder()->Build(Host(), Image(), 64 * 1024));
    ASSERT_EQ(Pass().outcome, kNothingToDo);
    Write("changed by the host", "h2");
    Write("conflict", "c2");
    fs::remove(Host() / "deleted by the host");
    fs::create_directories(Host() / "new folder");
    Write("new folder/new", "n1");
    GuestEditor guest(Image());
    for (const auto& [path, content] : guest.Files()) {
      const bool isKept = content != "e1" && content != "i1";
      if (!isKept) guest.Remove(path);
      if (content == "g1") guest.Write(path, "g2");
      if (content == "c1") guest.Write(path, "c3");
    }
    ASSERT_TRUE(guest.Remove("GONE"));
    ASSERT_TRUE(guest.MakeFolder("MADE"));
    ASSERT_TRUE(guest.Write("MADE/NEW.DAT", "m1"));
    guest.Save();
    before = Sides();
  }

  GuardedReport Pass() {
    return CreateGuardedFolderSync(Image(), Host(), options)->Pass({GuardedHazard::kImageNotFat16});
  }

  using AtCall = std::function<int()>;

  // Whether the pass ended before the call at which something was to happen.
  bool PassToTheEnd(int calls, const AtCall& atCall) {
    const int status = test::RunInChild({}, [&] {
      callsBeforeTheEnd = calls;
      atThatCall = atCall;
      canExchange = GetParam().canExchange;
      Pass();
      return callsBeforeTheEnd >= 0 ? 0 : 1;
    });
    EXPECT_TRUE(status == 0 || status == 1 || status == 256 + SIGKILL) << status;
    return status == 0;
  }

  // As an editor does that writes into the file itself.
  void EditEverything() const {
    std::vector<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(Host())) {
      if (entry.is_regular_file() && !entry.path().filename().string().starts_with(".")) {
        files.push_back(entry.path());
      }
    }
    for (const fs::path& file : files) {
      test::WriteWholeFile(file, "edited " + file.filename().string());
    }
  }

  // Nothing is gone, and the next passes end what was begun.
  void ExpectMended() {
    Contents after;
    AddFolder(Root(), after);
    AddDisk(Image(), after);
    AddTrash(StateFolder(), after);
    AddImagesUnderWay(after);
    ExpectAllIn(before, after);
    GuardedReport report = Pass();
    EXPECT_TRUE(report.outcome == kDone || report.outcome == kNothingToDo) << report.message;
    report = Pass();
    EXPECT_EQ(report.outcome, kNothingToDo) << report.message;
    after = Sides();
    AddTrash(StateFolder(), after);
    ExpectAllIn(before, after);
    Contents host;
    AddFolder(Host(), host);
    Contents disk;
    AddDisk(Image(), disk);
    EXPECT_EQ(host, disk);
    Contents expected{"h2", "g2", "n1", "m1"};
    if (options.onConflict != kTakeDisk) expected.insert("c2");
    if (options.onConflict != kTakeHost) expected.insert("c3");
    EXPECT_EQ(host, expected);
    EXPECT_FALSE(fs::exists(Host() / "gone"));
    EXPECT_TRUE(GuestEditor(Image()).Exists("NEW_FOLD"));
    ExpectOwnNamesInTrash();
    ExpectTidy();
  }

  // What was replaced or deleted, wherever its pass was cut off: "left over" is what was new.
  void ExpectOwnNamesInTrash() const {
    std::vector<TrashedItem> items;
    std::string err;
    ASSERT_TRUE(ListTrash(StateFolder(), items, err)) << err;
    for (const TrashedItem& item : items) {
      const std::string content = test::ReadWholeFile(StateFolder() / "trash" / item.id);
      const bool isOld = content == "g1" || content == "c2" || content == "e1" || content == "i1";
      EXPECT_TRUE(!isOld || item.why != "left over") << content << " as " << item.path;
    }
  }

  // The old image has a temporary name between its two places.
  void AddImagesUnderWay(Contents& contents) const {
    for (const auto& entry : fs::directory_iterator(Image().parent_path())) {
      const bool isImage = entry.path().filename().string().starts_with(".quorbix") &&
                           entry.file_size() == fs::file_size(Image());
      if (isImage) AddDisk(entry.path(), contents);
    }
  }

  // No temporary file is left on either side, and beside the image nothing but the state.
  void ExpectTidy() {
    for (const auto& entry : fs::recursive_directory_iterator(Host())) {
      EXPECT_FALSE(entry.path().filename().string().starts_with(".")) << entry.path();
    }
    for (const auto& entry : fs::directory_iterator(Image().parent_path())) {
      const std::string name = entry.path().filename();
      EXPECT_TRUE(name == "DISK.IMG" || name == "DISK.IMG.sync") << name;
    }
    for (const auto& entry : fs::directory_iterator(StateFolder())) {
      const std::string name = entry.path().filename();
      EXPECT_TRUE(name == "state" || name == "quiet" || name == "lock" || name == "trash" ||
                  name == ".quorbix-state.tmp")
          << name;
    }
  }

  // Every call, or in the short form some of them; each way takes its own.
  static int FirstCall() { return test::IsWholeSearch() ? 0 : GetParam().number % kShortStep; }
  static int Step() { return test::IsWholeSearch() ? 1 : kShortStep; }

  int CutAtEveryCall(const AtCall& atCall, const std::function<void()>& afterwards = {}) {
    int calls = FirstCall();
    for (bool ended = false; !ended && !HasFailure() && calls < kNeverCut; calls += Step()) {
      SCOPED_TRACE("cut off at call " + std::to_string(calls));
      Begin();
      ended = PassToTheEnd(calls, atCall);
      if (afterwards) afterwards();
      ExpectMended();
    }
    return calls;
  }

  // Looks count as well: it may vanish before anything was done.
  void VanishAtEveryCall(const fs::path& place) {
    const fs::path away = Root() / "away";
    std::error_code ignored;
    countsOpenings = true;
    const int calls = CutAtEveryCall(
        [&] {
          fs::rename(place, away, ignored);
          return 0;
        },
        [&] {
          EXPECT_FALSE(fs::exists(place) && fs::exists(away)) << "made anew: " << place;
          if (fs::exists(away)) fs::rename(away, place);
        });
    EXPECT_GE(calls, 50);
  }

  // The pass deletes what one side has deleted, and nothing that could not be read just then.
  void ExpectOnlyPlannedDeletions() const {
    Contents host;
    AddFolder(Host(), host);
    Contents disk;
    AddDisk(Image(), disk);
    const auto holdsOneOf = [](const Contents& side, const Contents& versions) {
      return std::any_of(versions.begin(), versions.end(),
                         [&](const std::string& version) { return side.contains(version); });
    };
    for (const Contents& file : {Contents{"h1", "h2"}, {"g1", "g2"}, {"c2", "c3"}}) {
      EXPECT_TRUE(holdsOneOf(host, file)) << *file.begin() << " is gone from the folder";
      EXPECT_TRUE(holdsOneOf(disk, file)) << *file.begin() << " is gone from the disk";
    }
    EXPECT_TRUE(host.contains("n1"));
    EXPECT_TRUE(disk.contains("m1"));
  }

  fs::path Root() const { return memory.Path() / "pair"; }
  fs::path Host() const { return Root() / "host"; }
  fs::path Image() const { return Root() / "disk/DISK.IMG"; }
  fs::path StateFolder() const {
    return options.stateFolder.empty() ? Root() / "disk/DISK.IMG.sync" : options.stateFolder;
  }

  void Write(const std::string& path, const std::string& content) const {
    test::WriteWholeFile(Host() / path, content);
  }

  Contents Sides() const {
    Contents all;
    AddFolder(Host(), all);
    AddDisk(Image(), all);
    return all;
  }

  test::MemoryFolder memory = test::MemoryFolder::OrOnDisk();
  GuardedSyncOptions options;
  Contents before;
};

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

// --- restoring over what is there

// A file of the trash in the place of another one, with and without a file system that can exchange
// names, and where the trash cannot have a second name for it.
struct Restoration {
  const char* name;
  bool canExchange = true;
  bool canLink = true;
};

class CutOffRestore : public testing::TestWithParam<Restoration> {
 protected:
  void Begin() {
    fs::remove_all(Root());
    fs::create_directories(Root() / "state/trash/2026-11-21_17.20.05");
    const fs::path trash = Root() / "state/trash/2026-11-21_17.20.05";
    test::WriteWholeFile(trash / "manifest", "item 1 folder deleted a.txt\n");
    test::WriteWholeFile(trash / "1", "of the trash");
    fs::create_directories(Root() / "host");
    test::WriteWholeFile(Target(), "there");
  }

  // Whether it ended before the call at which something was to happen.
  bool RestoreToTheEnd(int calls, const std::function<int()>& atCall) {
    const int status = test::RunInChild({}, [&] {
      callsBeforeTheEnd = calls;
      atThatCall = atCall;
      canExchange = GetParam().canExchange;
      canLink = GetParam().canLink;
      static_cast<void>(Restore());
      return callsBeforeTheEnd >= 0 ? 0 : 1;
    });
    EXPECT_TRUE(status == 0 || status == 1 || status == 256 + SIGKILL) << status;
    return status == 0;
  }

  bool Restore() const {
    std::string ignored;
    return RestoreTrashedOver(Root() / "state", "2026-11-21_17.20.05/1", Target(), ignored);
  }

  int EndAtEveryCall(const std::function<int()>& atCall) {
    countsOpenings = true;
    int calls = 0;
    for (bool ended = false; !ended && !HasFailure(); ++calls) {
      SCOPED_TRACE("at call " + std::to_string(calls));
      Begin();
      ended = RestoreToTheEnd(calls, atCall);
      const std::string now = test::ReadWholeFile(Target());
      EXPECT_TRUE(now == "there" || now == "of the trash") << now;
      EXPECT_TRUE(!ended || now == "of the trash");
      ExpectNothingGone(now);
      RestoreToTheEnd(kNeverCut, atCall);
      EXPECT_EQ(test::ReadWholeFile(Target()), "of the trash");
      ExpectNothingGone(now);
    }
    return calls;
  }

  // What is left beside the file can be deleted, as the docs say.
  void ExpectNothingGone(const std::string& now) {
    for (const auto& entry : fs::directory_iterator(Root() / "host")) {
      if (entry.path() != Target()) fs::remove(entry.path());
    }
    Contents after{now};
    AddFolder(Root() / "host", after);
    AddTrash(Root() / "state", after);
    ExpectAllIn({"there", "of the trash"}, after);
  }

  fs::path Root() const { return memory.Path() / "restore"; }
  fs::path Target() const { return Root() / "host/a.txt"; }

  test::MemoryFolder memory = test::MemoryFolder::OrOnDisk();
};

TEST_P(CutOffRestore, KilledAtAnyCall_LosesNothing) { EXPECT_GE(EndAtEveryCall(Die), 20); }

TEST_P(CutOffRestore, FullDiskAtAnyCall_LosesNothing) {
  EXPECT_GE(EndAtEveryCall([] { return ENOSPC; }), 20);
}

TEST_P(CutOffRestore, NoPermissionAtAnyCall_LosesNothing) {
  EXPECT_GE(EndAtEveryCall([] { return EACCES; }), 20);
}

INSTANTIATE_TEST_SUITE_P(Ways, CutOffRestore,
                         testing::Values(Restoration{.name = "Exchanged"},
                                         Restoration{.name = "WithoutExchange",
                                                     .canExchange = false},
                                         Restoration{.name = "WithoutLinks", .canLink = false}),
                         [](const auto& way) { return way.param.name; });

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
