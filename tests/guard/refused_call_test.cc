// Calls of the system that fail under a pass, one kind at a time.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "guard/contents.h"
#include "guard/refusals.h"
#include "support/guest_editor.h"
#include "support/search_effort.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using namespace test;
using testing::HasSubstr;
using testing::UnorderedElementsAre;
using enum GuardedOutcome;

struct Refusal {
  const char* name;
  const char* call;
  int error;
  bool isBeforeAnything = true;  // otherwise the files have been written by then
};

// Something of every sort is to be done.
class CopyToTheHost : public RefusedCall, public testing::WithParamInterface<Refusal> {
 protected:
  void SetUp() override {
    folder.File("host/edit.txt", "c").File("host/drop.txt", "d").File("host/sub/gone", "s");
    folder.File("host/mine.txt", "m").File("host/gone.txt", "g");
    BuildAndAgree();
    GuestWrites("EDIT.TXT", "of the guest");
    GuestWrites("NEW.TXT", "new");
    GuestRemoves("DROP.TXT");
    GuestRemoves("SUB/GONE");
    GuestRemoves("SUB");
    folder.File("host/mine.txt", "of the host").Remove("host/gone.txt");
  }
};

TEST_P(CopyToTheHost, ThatFails_KeepsEverythingFromBeingDeletedAndTheImageFromBeingMade) {
  const FileTree host = OnHost();
  const auto image = test::ReadBytes(Image());
  answer = [&](std::string_view call, const std::string& path) {
    return call == GetParam().call && IsOfHost(path) ? GetParam().error : 0;
  };
  const GuardedReport report = Sync()->Pass();
  answer = nullptr;
  EXPECT_EQ(report.outcome, kFailed) << report.message;
  for (const GuardedStep& step : report.steps) {
    const bool isWritten = step.kind == GuardedStep::Kind::kWriteOnHost;
    EXPECT_EQ(step.isDone, isWritten && !GetParam().isBeforeAnything) << step.hostPath;
  }
  EXPECT_EQ(test::ReadBytes(Image()), image);
  FileTree expected = host;
  if (!GetParam().isBeforeAnything) {
    expected["edit.txt"] = "of the guest";
    expected["NEW.TXT"] = "new";
  }
  EXPECT_EQ(OnHost(), expected);
  EXPECT_THAT(NamesIn(folder.Path()), UnorderedElementsAre("host", "DISK.IMG", "DISK.IMG.sync"));
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(
      OnHost(),
      (FileTree{{"edit.txt", "of the guest"}, {"NEW.TXT", "new"}, {"mine.txt", "of the host"}}));
  EXPECT_EQ(
      OnDisk(),
      (FileTree{{"EDIT.TXT", "of the guest"}, {"MINE.TXT", "of the host"}, {"NEW.TXT", "new"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

INSTANTIATE_TEST_SUITE_P(Refusals, CopyToTheHost,
                         testing::Values(Refusal{"MakingIt", "openat", ENOSPC},
                                         Refusal{"FullDisk", "write", ENOSPC},
                                         Refusal{"FailingDisk", "write", EIO},
                                         Refusal{"FlushOfTheFile", "fdatasync", EIO},
                                         Refusal{"Naming", "renameat2", EIO},
                                         Refusal{"FlushOfTheFolder", "fsync", EIO, false}),
                         [](const auto& refusal) { return refusal.param.name; });

TEST_F(RefusedCall, FlushOfOneOfManyFiles_KeepsAllTheirNamesAsTheyWere) {
  folder.File("host/a.txt", "a").File("host/drop.txt", "d");
  BuildAndAgree();
  for (int i = 10; i < 30; ++i) GuestWrites("F" + std::to_string(i), "f");
  GuestRemoves("DROP.TXT");
  int flushed = 0;
  answer = [&](std::string_view call, const std::string& path) {
    const bool isFlush = call == "fdatasync" && IsOfHost(path);
    return isFlush && ++flushed == 15 ? EIO : 0;
  };
  const GuardedReport report = Sync()->Pass();
  answer = nullptr;
  EXPECT_EQ(flushed, 15);
  EXPECT_EQ(report.outcome, kFailed);
  EXPECT_THAT(report.message, HasSubstr("cannot write out"));
  EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "a"}, {"drop.txt", "d"}}));
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost().size(), 21u);
}

// --- flushes, wherever they are

// He would write into what lies in the trash by then.
TEST_F(RefusedCall, WhoOpensTheImageJustBeforeItIsReplaced_KeepsIt) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/a.txt", "edited");
  struct ::stat before {};
  struct ::stat after {};
  ASSERT_EQ(::stat(Image().c_str(), &before), 0);
  int writer = -1;
  answer = [&](std::string_view call, const std::string& path) {
    if (call == "renameat2" && path == Image() && writer < 0) {
      writer = ::open(Image().c_str(), O_RDWR | O_CLOEXEC);
    }
    return 0;
  };
  const GuardedReport report = Sync()->Pass();
  answer = nullptr;
  ASSERT_GE(writer, 0);
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_THAT(report.message, HasSubstr("has the image open for writing"));
  ASSERT_EQ(::stat(Image().c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_THAT(NamesIn(folder.Path()), UnorderedElementsAre("host", "DISK.IMG", "DISK.IMG.sync"));
  EXPECT_EQ(InTrash(), FileTree());
  ::close(writer);
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "edited"}}));
}

TEST_F(RefusedCall, WhoOpensAFileJustBeforeItIsTakenAway_KeepsIt) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  for (const bool isDeleted : {false, true}) {
    isDeleted ? GuestRemoves("A.TXT") : GuestWrites("A.TXT", "of the guest");
    const std::string before = folder.Read("host/a.txt");
    int writer = -1;
    answer = [&](std::string_view call, const std::string&) {
      if (call == "renameat2" && writer < 0) {
        writer = ::open((Host() / "a.txt").c_str(), O_RDWR | O_APPEND | O_CLOEXEC);
      }
      return 0;
    };
    EXPECT_EQ(Sync()->Pass().outcome, kNotNow);
    answer = nullptr;
    ASSERT_GE(writer, 0);
    EXPECT_EQ(::write(writer, "!", 1), 1);
    ::close(writer);
    EXPECT_EQ(folder.Read("host/a.txt"), before + "!");
    EXPECT_EQ(OnHost().size(), 2u);
    options.onConflict = GuardedSyncOptions::ConflictRule::kTakeDisk;
    EXPECT_EQ(Pass().outcome, kDone);
  }
}

// The next one has nothing to mend, and whoever does not make one has no large file lying about.
TEST_F(RefusedCall, ImageThatIsChangedOrCannotBeReplaced_LeavesNoNewOneBehind) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/a.txt", "edited");
  for (const bool inPlace : {false, true}) {
    options.inPlace = inPlace;
    for (const int error : {0, ENOSPC}) {
      answer = [&](std::string_view call, const std::string& path) {
        const bool isTrash = call == "openat" && path.ends_with("/manifest");
        if (isTrash && error == 0) test::GuestEditor(Image()).Save();
        return isTrash ? error : 0;
      };
      const GuardedReport report = Sync()->Pass();
      answer = nullptr;
      EXPECT_EQ(report.outcome, error == 0 ? kNotNow : kFailed) << report.message;
      EXPECT_THAT(NamesIn(folder.Path()),
                  UnorderedElementsAre("host", "DISK.IMG", "DISK.IMG.sync"));
      for (const std::string& name : NamesIn(StateFolder())) {
        EXPECT_FALSE(name.starts_with(".quorbix")) << name;
      }
      EXPECT_THAT(Sync()->Preview().notes, testing::IsEmpty());
    }
  }
}

// The flush at its end would take as long as the disk needs for all of it, and no signal end it.
TEST_F(RefusedCall, WhatIsLarge_IsWrittenOutWhileItIsWritten) {
  folder.File("host/a.txt", "a");
  BuildImage(std::uint64_t{40} << 20);
  ASSERT_EQ(Pass().outcome, kNothingToDo);
  folder.File("host/b.txt", "b");
  GuestWrites("LARGE.BIN", std::string(std::size_t{9} << 20, 'l'));
  for (const bool inPlace : {false, true}) {
    options.inPlace = inPlace;
    std::map<std::string, int> begun;
    answer = [&](std::string_view call, const std::string& path) {
      if (call == "sync_file_range") ++begun[path];
      return 0;
    };
    EXPECT_EQ(Sync()->Pass().outcome, kDone);
    answer = nullptr;
    std::set<int> counts;
    for (const auto& [path, count] : begun) counts.insert(count);
    // Of the image ten pieces are begun, and six of them waited for; of the file two, and the rest.
    EXPECT_TRUE(counts.contains(16));
    if (!inPlace) {
      EXPECT_TRUE(counts.contains(3)) << "the large file";
    }
    EXPECT_EQ(begun.size(), inPlace ? 3u : 2u) << "with the copy of the image in the trash";
    folder.File("host/b.txt", "c");
  }
}

// What a crash of the machine leaves is what was written out.
TEST_F(RefusedCall, EverythingThatIsRenamed_IsWrittenOutBeforeAndItsFolderAfterwards) {
  folder.File("host/edit.txt", "e1").File("host/drop.txt", "d").File("host/mine.txt", "m1");
  BuildAndAgree();
  GuestWrites("EDIT.TXT", "e2");
  GuestRemoves("DROP.TXT");
  folder.File("host/mine.txt", "m2");
  std::vector<std::string> calls;
  answer = [&](std::string_view call, const std::string& path) {
    const std::string place = path.starts_with(folder.Path().string())
                                  ? path.substr(folder.Path().string().size())
                                  : path;
    const bool isTemporary =
        place.find("/.quorbix-") != std::string::npos && !place.ends_with("/.quorbix-state.tmp");
    const std::string shown =
        isTemporary ? place.substr(0, place.rfind('/')) + "/TEMPORARY" : place;
    const bool isPass = shown.find("/trash/") != std::string::npos;
    if (call == "sync_file_range" || call == "write" || call == "openat" || call == "open")
      return 0;
    const std::string name = fs::path(shown).filename();
    calls.push_back(std::string(call) + ' ' + (isPass ? "PASS" : shown) +
                    (isPass && name.size() == 1 ? "/" + name : ""));
    return 0;
  };
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  answer = nullptr;
  const auto expectInOrder = [&](const std::vector<std::string>& wanted) {
    auto from = calls.begin();
    for (const std::string& call : wanted) {
      from = std::find(from, calls.end(), call);
      ASSERT_NE(from, calls.end()) << call << " in " << testing::PrintToString(calls);
      ++from;
    }
  };
  // The state is on the disk before anything is touched, and again at the end.
  const std::vector<std::string> state{"fdatasync /DISK.IMG.sync/.quorbix-state.tmp",
                                       "rename /DISK.IMG.sync/state", "fsync /DISK.IMG.sync"};
  expectInOrder(
      {state[0], state[1], state[2], "renameat2 /host/edit.txt", state[0], state[1], state[2]});
  // The file of the disk, the one that it replaces, and their folders.
  expectInOrder({"fdatasync /host/TEMPORARY", "renameat2 /host/edit.txt", "renameat PASS/1",
                 "fsync PASS", "fsync /host"});
  // The new image, the old one, and their folders.
  expectInOrder({"fsync /TEMPORARY", "renameat2 /DISK.IMG", "fsync ", "renameat PASS/3",
                 "fsync PASS", "fsync "});
}

class RefusedFlush : public RefusedCall, public testing::WithParamInterface<bool> {};

TEST_P(RefusedFlush, AtEveryPlace_LosesNothingAndIsEndedByTheNextPass) {
  options.inPlace = GetParam();
  // In the short form some of them.
  const int step = test::IsWholeSearch() ? 1 : 3;
  int place = 0;
  for (bool wasRefused = true; wasRefused && !HasFailure(); place += step) {
    SCOPED_TRACE("at flush " + std::to_string(place));
    fs::remove_all(folder.Path());
    folder.File("host/edit.txt", "c1").File("host/drop.txt", "d").File("host/mine.txt", "m1");
    BuildAndAgree();
    GuestWrites("EDIT.TXT", "c2");
    GuestRemoves("DROP.TXT");
    folder.File("host/mine.txt", "m2");
    Contents before{"c1", "c2", "d", "m1", "m2"};
    int flushes = 0;
    answer = [&](std::string_view call, const std::string&) {
      const bool isFlush = call == "fsync" || call == "fdatasync";
      return isFlush && flushes++ == place ? EIO : 0;
    };
    const GuardedReport report = Sync()->Pass();
    answer = nullptr;
    wasRefused = flushes > place;
    EXPECT_EQ(report.outcome, wasRefused ? kFailed : kDone) << report.message;
    const GuardedReport next = Pass();
    EXPECT_TRUE(next.outcome == kDone || next.outcome == kNothingToDo) << next.message;
    EXPECT_EQ(Pass().outcome, kNothingToDo);
    EXPECT_EQ(OnHost(), (FileTree{{"edit.txt", "c2"}, {"mine.txt", "m2"}}));
    EXPECT_EQ(OnDisk(), (FileTree{{"EDIT.TXT", "c2"}, {"MINE.TXT", "m2"}}));
    EXPECT_THAT(NamesIn(folder.Path()), UnorderedElementsAre("host", "DISK.IMG", "DISK.IMG.sync"));
    Contents after;
    AddFolder(Host(), after);
    AddTrash(StateFolder(), after);
    ExpectAllIn(before, after);
  }
  EXPECT_GE(place, 10);
}

INSTANTIATE_TEST_SUITE_P(Ways, RefusedFlush, testing::Bool(),
                         [](const auto& way) { return way.param ? "InPlace" : "Renamed"; });

// --- the trash

// As when the process has too many files open for a moment.
TEST_F(RefusedCall, TrashThatCannotBeOpenedAtAnyTime_IsNotTakenForEmpty) {
  int refused = 0;
  for (bool wasRefused = true; wasRefused && !HasFailure();) {
    SCOPED_TRACE("after " + std::to_string(refused) + " openings");
    fs::remove_all(folder.Path());
    folder.File("host/a.txt", "a").File("host/drop.txt", "d").File("host/edit.txt", "e1");
    BuildAndAgree();
    GuestRemoves("DROP.TXT");
    GuestWrites("EDIT.TXT", "e2");
    folder.File("host/a.txt", "a2");
    int openings = 0;
    answer = [&](std::string_view call, const std::string& path) {
      const bool isTrash = call == "open" && path.find(".sync/trash") != std::string::npos;
      return isTrash && openings++ == refused ? EMFILE : 0;
    };
    Sync()->Pass();
    answer = nullptr;
    wasRefused = openings > refused++;
    const GuardedReport next = Pass();
    EXPECT_TRUE(next.outcome == kDone || next.outcome == kNothingToDo) << next.message;
    EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "a2"}, {"edit.txt", "e2"}}));
    Contents after;
    AddTrash(StateFolder(), after);
    ExpectAllIn({"a", "d", "e1"}, after);
  }
  EXPECT_GE(refused, 5);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
