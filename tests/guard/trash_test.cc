#include "guard/trash.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "common/host_file.h"
#include "guard/host_view.h"
#include "guard/paths.h"
#include "guard/renames.h"
#include "guard/rights.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/child_process.h"
#include "support/memory_folder.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using test::TempFolder;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kWhen[] = "2026-11-21 17.20.05";

class Trash : public testing::Test {
 protected:
  Trash() { folder.Folder("state"); }

  fs::path StateFolder() const { return folder / "state"; }

  // Moves a file of the folder to the trash of a pass at `when`.
  void Throw(const std::string& name, const std::string& when = kWhen) {
    TrashRun run(StateFolder(), when);
    std::vector<fs::path> places;
    std::string err;
    ASSERT_TRUE(run.Announce({{"folder", name, "deleted"}}, places, err)) << err;
    const Descriptor top = OpenHostPath(folder.Path().c_str(), O_RDONLY | O_DIRECTORY);
    const Ending moved = MoveToTrash(top.Get(), name, places.at(0), nobody, "a");
    ASSERT_TRUE(moved.IsDone()) << moved.text;
    ASSERT_TRUE(run.Flush(err)) << err;
  }

  std::vector<TrashedItem> Listed() const {
    std::vector<TrashedItem> items;
    std::string err;
    EXPECT_TRUE(ListTrash(StateFolder(), items, err)) << err;
    return items;
  }

  std::vector<std::string> ListedPaths() const {
    std::vector<std::string> paths;
    for (const TrashedItem& item : Listed()) paths.push_back(item.path);
    return paths;
  }

  TempFolder folder;
  WorkMonitor nobody;
};

// A pass under a clock that was ahead must not be the last one to go.
TEST_F(Trash, PassAfterOneOfTheFuture_ComesAfterItAndIsListedUnderItsOwnTime) {
  folder.File("a", "a").File("b", "b").File("c", "c");
  Throw("a", "2036-05-25 20.36.46");
  Throw("b");
  Throw("c", "2026-11-21 17.20.06");
  const std::vector<TrashedItem> items = Listed();
  ASSERT_EQ(items.size(), 3u);
  EXPECT_EQ(items[0].time, "2036-05-25 20.36.46");
  EXPECT_EQ(items[1].id, "2036-05-25_20.36.46#2/1");
  EXPECT_EQ(items[1].time, kWhen);
  EXPECT_EQ(items[2].path, "c");
  EXPECT_EQ(items[2].time, "2026-11-21 17.20.06");
}

TEST_F(Trash, WhatIsThrownAway_IsListed) {
  folder.File("My letter.txt", "dear");
  Throw("My letter.txt");
  EXPECT_FALSE(folder.Exists("My letter.txt"));
  const auto items = Listed();
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(items[0].path, "My letter.txt");
  EXPECT_EQ(items[0].time, kWhen);
  EXPECT_EQ(items[0].side, "folder");
  EXPECT_EQ(items[0].why, "deleted");
  EXPECT_EQ(items[0].bytes, 4u);
}

TEST_F(Trash, NothingThrownAway_MakesNoFolder) {
  TrashRun run(StateFolder(), kWhen);
  std::vector<fs::path> places;
  std::string err;
  EXPECT_TRUE(run.Announce({}, places, err));
  EXPECT_TRUE(run.Flush(err));
  EXPECT_FALSE(folder.Exists("state/trash"));
  EXPECT_THAT(Listed(), IsEmpty());
}

TEST_F(Trash, StateFolderThatIsGone_IsNotMadeAnew) {
  folder.Remove("state");
  TrashRun run(StateFolder(), kWhen);
  std::vector<fs::path> places;
  std::string err;
  EXPECT_FALSE(run.Announce({{"folder", "a", "deleted"}}, places, err));
  EXPECT_EQ(err, "cannot make the trash " + (StateFolder() / "trash").string() +
                     " (No such file or directory)");
  EXPECT_FALSE(folder.Exists("state"));
}

TEST_F(Trash, AnnouncedAndNeverMoved_IsNotListed) {
  TrashRun run(StateFolder(), kWhen);
  std::vector<fs::path> places;
  std::string err;
  ASSERT_TRUE(run.Announce({{"folder", "a", "deleted"}, {"disk", "b", "replaced"}}, places, err));
  test::WriteWholeFile(places.at(1), "b");
  EXPECT_THAT(ListedPaths(), ElementsAre("b"));
}

TEST_F(Trash, SeveralAnnouncements_GoOnCounting) {
  TrashRun run(StateFolder(), kWhen);
  std::vector<fs::path> first, second;
  std::string err;
  ASSERT_TRUE(run.Announce({{"folder", "a", "x"}}, first, err));
  ASSERT_TRUE(run.Announce({{"folder", "b", "x"}}, second, err));
  EXPECT_NE(first.at(0), second.at(0));
  EXPECT_EQ(first.at(0).parent_path(), second.at(0).parent_path());
}

TEST_F(Trash, TwoPassesInOneSecond_HaveFoldersOfTheirOwn) {
  folder.File("a", "1");
  Throw("a");
  folder.File("a", "2");
  Throw("a");
  const auto items = Listed();
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[1].time, kWhen);
  EXPECT_NE(items[0].id, items[1].id);
}

TEST_F(Trash, CutManifest_StillListsWhatIsWhole) {
  folder.File("a", "1");
  Throw("a");
  const fs::path manifest = StateFolder() / "trash" / "2026-11-21_17.20.05" / "manifest";
  test::WriteWholeFile(manifest, test::ReadWholeFile(manifest) + "item 2 fol");
  EXPECT_THAT(ListedPaths(), ElementsAre("a"));
}

TEST_F(Trash, ManifestLargerThanAny_ListsNothingAndHidesNoOther) {
  folder.File("a").File("b");
  Throw("a", "2026-11-21 17.20.01");
  Throw("b", "2026-11-21 17.20.02");
  fs::resize_file(StateFolder() / "trash/2026-11-21_17.20.01/manifest", std::uintmax_t{1} << 40);
  EXPECT_THAT(ListedPaths(), ElementsAre("b"));
}

TEST_F(Trash, Restored_IsACopyUnderAnotherName) {
  folder.File("a", "content");
  fs::permissions(folder / "a", fs::perms{0640});
  Throw("a");
  std::string err;
  ASSERT_TRUE(RestoreTrashed(StateFolder(), Listed()[0].id, folder / "b", err)) << err;
  EXPECT_EQ(folder.Read("b"), "content");
  EXPECT_EQ(static_cast<unsigned>(fs::status(folder / "b").permissions()), 0640u);
  EXPECT_EQ(Listed().size(), 1u);
}

TEST_F(Trash, Restoring_TellsHowFarItIs) {
  folder.File("a", std::string(1'000'000, 'x'));
  Throw("a");
  std::vector<std::uint64_t> told;
  std::string err;
  ASSERT_TRUE(RestoreTrashed(StateFolder(), Listed()[0].id, folder / "b", err, nullptr,
                             [&](const GuardedProgress& progress) {
                               EXPECT_EQ(progress.work, GuardedWork::kRestore);
                               EXPECT_EQ(progress.total, 1'000'000u);
                               told.push_back(progress.bytes);
                             }));
  EXPECT_GT(told.size(), 1u);
  EXPECT_TRUE(std::is_sorted(told.begin(), told.end()));
  EXPECT_EQ(told.back(), 1'000'000u);
}

TEST_F(Trash, RestoringThatIsStopped_LeavesNothing) {
  folder.File("a", std::string(1'000'000, 'x'));
  Throw("a");
  const auto before = folder.Files();
  std::atomic<bool> stop = false;
  std::string err;
  EXPECT_FALSE(RestoreTrashed(StateFolder(), Listed()[0].id, folder / "b", err, &stop,
                              [&](const GuardedProgress&) { stop = true; }));
  EXPECT_EQ(err, "it was stopped");
  EXPECT_EQ(folder.Files(), before);
}

TEST_F(Trash, RestoringIntoAFolderThatIsLookedAt_IsLeftAlone) {
  folder.File("a", std::string(1'000'000, 'x')).Folder("host");
  Throw("a");
  HostView view;
  std::string err;
  ASSERT_TRUE(RestoreTrashed(StateFolder(), Listed()[0].id, folder / "host/b", err, nullptr,
                             [&](const GuardedProgress&) {
                               view = LookAtHost({.folder = folder / "host"}, nobody);
                               EXPECT_THAT(view.leftovers, IsEmpty());
                               ASSERT_EQ(view.notes.size(), 1u);
                               EXPECT_EQ(view.notes[0].text, "takes no part: a temporary file");
                             }))
      << err;
  EXPECT_EQ(view.notes.size(), 1u);
  EXPECT_EQ(LookAtHost({.folder = folder / "host"}, nobody).notes.size(), 0u);
}

TEST_F(Trash, RestoringIntoFoldersThatAreGone_MakesThem) {
  folder.File("a", "content");
  Throw("a");
  std::string err;
  ASSERT_TRUE(RestoreTrashed(StateFolder(), Listed()[0].id, folder / "x/y/b", err)) << err;
  EXPECT_EQ(folder.Read("x/y/b"), "content");
}

TEST_F(Trash, RestoringThatFails_LeavesNoFolderThatItMade) {
  folder.File("a", std::string(1'000'000, 'x')).Folder("there");
  Throw("a");
  std::atomic<bool> stop = false;
  std::string err;
  EXPECT_FALSE(RestoreTrashed(StateFolder(), Listed()[0].id, folder / "there/x/y/b", err, &stop,
                              [&](const GuardedProgress&) { stop = true; }));
  EXPECT_TRUE(folder.Exists("there"));
  EXPECT_FALSE(folder.Exists("there/x"));
}

TEST_F(Trash, RestoringBelowAFile_IsRefused) {
  folder.File("a", "content").File("b", "b");
  Throw("a");
  std::string err;
  EXPECT_FALSE(RestoreTrashed(StateFolder(), Listed()[0].id, folder / "b/c/d", err));
  EXPECT_THAT(err, testing::HasSubstr("Not a directory"));
  EXPECT_EQ(folder.Read("b"), "b");
}

TEST_F(Trash, RestoringOverAFile_IsRefused) {
  folder.File("a", "content");
  Throw("a");
  folder.File("a", "new");
  std::string err;
  EXPECT_FALSE(RestoreTrashed(StateFolder(), Listed()[0].id, folder / "a", err));
  EXPECT_EQ(err, (folder / "a").string() + " exists, and is not replaced");
  EXPECT_EQ(folder.Read("a"), "new");
  for (const auto& [path, content] : folder.Files()) EXPECT_FALSE(IsTemporaryName(path)) << path;
}

TEST_F(Trash, RestoringWhatIsNotThere_IsRefused) {
  folder.File("a", "1").File("secret", "s");
  Throw("a");
  std::string err;
  for (const char* id : {"nothing", "../../secret", "2026-11-21_17.20.05/manifest", ""}) {
    EXPECT_FALSE(RestoreTrashed(StateFolder(), id, folder / "b", err)) << id;
    EXPECT_FALSE(folder.Exists("b"));
  }
}

TEST_F(Trash, OnAnotherFileSystem_FilesAreCopiedWithModeAndTime) {
  const test::MemoryFolder memory;
  if (!memory.Usable()) GTEST_SKIP() << "no memory file system to write to";
  folder.File("a", std::string(100'000, 'x'));
  fs::permissions(folder / "a", fs::perms{0604});
  const auto time = fs::file_time_type::clock::now() - std::chrono::hours(50);
  fs::last_write_time(folder / "a", time);
  TrashRun run(memory.Path(), kWhen);
  std::vector<fs::path> places;
  std::string err;
  ASSERT_TRUE(run.Announce({{"folder", "a", "deleted"}}, places, err)) << err;
  const Descriptor top = OpenHostPath(folder.Path().c_str(), O_RDONLY | O_DIRECTORY);
  const Ending moved = MoveToTrash(top.Get(), "a", places.at(0), nobody, "a");
  ASSERT_TRUE(moved.IsDone()) << moved.text;
  EXPECT_FALSE(folder.Exists("a"));
  EXPECT_EQ(test::ReadWholeFile(places[0]), std::string(100'000, 'x'));
  EXPECT_EQ(static_cast<unsigned>(fs::status(places[0]).permissions()), 0604u);
  EXPECT_EQ(fs::last_write_time(places[0]), time);
}

// A group that may not run the file: a change of owner would take the bit away from the others.
TEST_F(Trash, RestoredProgramWithSpecialRights_HasThemNoMore) {
  folder.File("a", "content");
  fs::permissions(folder / "a", fs::perms{02604});
  Throw("a");
  std::string err;
  ASSERT_TRUE(RestoreTrashed(StateFolder(), Listed()[0].id, folder / "b", err)) << err;
  EXPECT_EQ(static_cast<unsigned>(fs::status(folder / "b").permissions()), 0604u);
}

TEST_F(Trash, OnAFullFileSystem_TheFileStaysWhereItIs) {
  const test::MemoryFolder memory;
  if (!memory.Usable()) GTEST_SKIP() << "no memory file system to write to";
  folder.File("a", std::string(100'000, 'x'));
  TrashRun run(memory.Path(), kWhen);
  std::vector<fs::path> places;
  std::string err;
  ASSERT_TRUE(run.Announce({{"folder", "a", "deleted"}}, places, err)) << err;
  const int status = test::RunInChild({.fileSizeLimit = 50'000}, [&] {
    const Descriptor top = OpenHostPath(folder.Path().c_str(), O_RDONLY | O_DIRECTORY);
    const Ending moved = MoveToTrash(top.Get(), "a", places.at(0), nobody, "a");
    return moved.result == Ending::Result::kFailed ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(folder.Read("a").size(), 100'000u);
  EXPECT_FALSE(fs::exists(places[0]));
}

TEST_F(Trash, StoppedWhileItIsCopied_TheFileStaysWhereItIs) {
  const test::MemoryFolder memory;
  if (!memory.Usable()) GTEST_SKIP() << "no memory file system to write to";
  folder.File("a", std::string(1'000'000, 'x'));
  TrashRun run(memory.Path(), kWhen);
  std::vector<fs::path> places;
  std::string err;
  ASSERT_TRUE(run.Announce({{"folder", "a", "deleted"}}, places, err)) << err;
  const Descriptor top = OpenHostPath(folder.Path().c_str(), O_RDONLY | O_DIRECTORY);
  std::atomic<bool> stop = false;
  WorkMonitor monitor(&stop, [&](const GuardedProgress&) { stop = true; });
  EXPECT_EQ(MoveToTrash(top.Get(), "a", places.at(0), monitor, "a").result,
            Ending::Result::kStopped);
  EXPECT_EQ(folder.Read("a"), std::string(1'000'000, 'x'));
  EXPECT_FALSE(fs::exists(places[0]));
  EXPECT_FALSE(fs::exists(PartOf(places[0])));
}

TEST_F(Trash, LinkOnAnotherFileSystem_StaysALink) {
  const test::MemoryFolder memory;
  if (!memory.Usable()) GTEST_SKIP() << "no memory file system to write to";
  folder.Link("a", "target");
  TrashRun run(memory.Path(), kWhen);
  std::vector<fs::path> places;
  std::string err;
  ASSERT_TRUE(run.Announce({{"folder", "a", "deleted"}}, places, err)) << err;
  const Descriptor top = OpenHostPath(folder.Path().c_str(), O_RDONLY | O_DIRECTORY);
  const Ending moved = MoveToTrash(top.Get(), "a", places.at(0), nobody, "a");
  ASSERT_TRUE(moved.IsDone()) << moved.text;
  EXPECT_EQ(fs::read_symlink(places[0]), "target");
}

TEST_F(Trash, TooManyPasses_LoseTheOldest) {
  for (int i = 1; i <= 5; ++i) {
    folder.File("a" + std::to_string(i), "12345");
    Throw("a" + std::to_string(i), "2026-11-21 17.20.0" + std::to_string(i));
  }
  TrimTrash(StateFolder(), {3, 1'000'000});
  EXPECT_THAT(ListedPaths(), ElementsAre("a3", "a4", "a5"));
}

TEST_F(Trash, TooManyBytes_LoseTheOldestButNeverTheLatest) {
  for (int i = 1; i <= 4; ++i) {
    folder.File("a" + std::to_string(i), std::string(1000, 'x'));
    Throw("a" + std::to_string(i), "2026-11-21 17.20.0" + std::to_string(i));
  }
  TrimTrash(StateFolder(), {50, 3000});  // the manifests count as well
  EXPECT_THAT(ListedPaths(), ElementsAre("a3", "a4"));
  TrimTrash(StateFolder(), {50, 10});
  EXPECT_THAT(ListedPaths(), ElementsAre("a4"));
}

TEST_F(Trash, PassesThatCameToNothing_TakeNobodysPlace) {
  folder.File("a", "12345");
  Throw("a", "2026-11-21 17.20.01");
  for (int i = 2; i <= 5; ++i) {
    // As a kill leaves it, with a copy that was not whole yet.
    TrashRun run(StateFolder(), "2026-11-21 17.20.0" + std::to_string(i));
    std::vector<fs::path> places;
    std::string err;
    ASSERT_TRUE(run.Announce({{"folder", "b", "deleted"}}, places, err)) << err;
    test::WriteWholeFile(PartOf(places.at(0)), std::string(100'000, 'x'));
  }
  EXPECT_GT(MeasureTrash(StateFolder(), {1, 10}).spare, 100'000u);
  TrimTrash(StateFolder(), {1, 10});
  EXPECT_THAT(ListedPaths(), ElementsAre("a"));
  EXPECT_EQ(LatestPassIn(StateFolder()), "2026-11-21_17.20.01");
}

TEST_F(Trash, RunThatCameToNothing_LeavesNothing) {
  TrashRun run(StateFolder(), kWhen);
  run.DropIfEmpty();
  std::vector<fs::path> places;
  std::string err;
  ASSERT_TRUE(run.Announce({{"folder", "a", "deleted"}}, places, err)) << err;
  EXPECT_TRUE(fs::exists(places.at(0).parent_path()));
  run.DropIfEmpty();
  EXPECT_FALSE(fs::exists(places.at(0).parent_path()));
}

TEST_F(Trash, RunThatHoldsSomething_Stays) {
  TrashRun run(StateFolder(), kWhen);
  std::vector<fs::path> places;
  std::string err;
  ASSERT_TRUE(run.Announce({{"folder", "a", "deleted"}}, places, err)) << err;
  test::WriteWholeFile(places.at(0), "a");
  run.DropIfEmpty();
  EXPECT_THAT(ListedPaths(), ElementsAre("a"));
}

TEST_F(Trash, WhatAnUnfinishedPassHasThrownAway_Stays) {
  for (int i = 1; i <= 4; ++i) {
    folder.File("a" + std::to_string(i), "12345");
    Throw("a" + std::to_string(i), "2026-11-21 17.20.0" + std::to_string(i));
  }
  TrimTrash(StateFolder(), {1, 10, "2026-11-21_17.20.02"});
  EXPECT_THAT(ListedPaths(), ElementsAre("a3", "a4"));
  TrimTrash(StateFolder(), {1, 10, ""});
  EXPECT_THAT(ListedPaths(), ElementsAre("a3", "a4"));
  EXPECT_EQ(MeasureTrash(StateFolder(), {1, 10, ""}).spare, 0u);
  TrimTrash(StateFolder(), {1, 10});
  EXPECT_THAT(ListedPaths(), ElementsAre("a4"));
}

TEST_F(Trash, Size_IsWhatAFileSystemWouldGetBack) {
  EXPECT_EQ(MeasureTrash(StateFolder(), {50, 10}).held, 0u);
  for (int i = 1; i <= 3; ++i) {
    folder.File("a" + std::to_string(i), std::string(100'000, 'x'));
    Throw("a" + std::to_string(i), "2026-11-21 17.20.0" + std::to_string(i));
  }
  EXPECT_EQ(MeasureTrash(StateFolder(), {50, 1'000'000}).spare, 0u);
  const TrashSize before = MeasureTrash(StateFolder(), {50, 10});
  EXPECT_GE(before.spare, 200'000u);
  EXPECT_GE(before.held, before.spare + 100'000);
  TrimTrash(StateFolder(), {50, 10});
  EXPECT_EQ(MeasureTrash(StateFolder(), {50, 10}).held, before.held - before.spare);
  EXPECT_EQ(MeasureTrash(StateFolder(), {50, 10}).spare, 0u);
}

TEST_F(Trash, FileThatHasAnotherNameToo_GivesNothingBack) {
  folder.File("a", std::string(100'000, 'x')).File("b", "b");
  fs::create_hard_link(folder / "a", folder / "other");
  Throw("a");
  EXPECT_LT(MeasureTrash(StateFolder(), {50, 1'000'000}).held, 100'000u);
}

TEST_F(Trash, PassAfterTheClockWasSetBack_IsTheLatest) {
  folder.File("old", "12345");
  Throw("old", "2026-11-21 17.20.05");
  folder.File("new", "12345");
  Throw("new", "2026-11-21 16.20.05");
  EXPECT_THAT(ListedPaths(), ElementsAre("old", "new"));
  TrimTrash(StateFolder(), {1, 1'000'000});
  EXPECT_THAT(ListedPaths(), ElementsAre("new"));
}

TEST_F(Trash, PassInTheSecondOfOneThatIsGone_IsTheLatest) {
  for (const char* name : {"a", "b"}) {
    folder.File(name, "1");
    Throw(name);
  }
  TrimTrash(StateFolder(), {1, 1'000'000});
  folder.File("c", "1");
  Throw("c");
  TrimTrash(StateFolder(), {1, 1'000'000});
  EXPECT_THAT(ListedPaths(), ElementsAre("c"));
}

TEST_F(Trash, MoreThanNinePassesInOneSecond_StayInTheirOrder) {
  for (int i = 1; i <= 11; ++i) {
    folder.File("a" + std::to_string(i), "12345");
    Throw("a" + std::to_string(i));
  }
  TrimTrash(StateFolder(), {2, 1'000'000});
  EXPECT_THAT(ListedPaths(), ElementsAre("a10", "a11"));
}

TEST_F(Trash, FoldersOfOtherNames_AreNeitherListedNorTrimmed) {
  for (int i = 1; i <= 2; ++i) {
    folder.File("a" + std::to_string(i), "12345");
    Throw("a" + std::to_string(i), "2026-11-21 17.20.0" + std::to_string(i));
  }
  folder.File("state/trash/2026/photo", "x").File("state/trash/a/photo", "x");
  folder.File("state/trash/2026-11-21_17.20.05#x/photo", "x");
  TrimTrash(StateFolder(), {1, 1'000'000});
  EXPECT_THAT(ListedPaths(), ElementsAre("a2"));
  EXPECT_TRUE(folder.Exists("state/trash/2026/photo"));
  EXPECT_TRUE(folder.Exists("state/trash/a/photo"));
  EXPECT_TRUE(folder.Exists("state/trash/2026-11-21_17.20.05#x/photo"));
}

TEST_F(Trash, ManifestThatPointsElsewhere_ListsNothing) {
  folder.File("secret", "x").File("state/trash/2026-11-21_17.20.05/1", "x");
  folder.File("state/trash/2026-11-21_17.20.05/manifest",
              "item ../../../secret folder deleted a\n"
              "item 1 folder deleted ../a\n"
              "item 1 folder deleted /a\n");
  EXPECT_THAT(Listed(), IsEmpty());
}

class Renames : public testing::Test {
 protected:
  Descriptor Top() const { return OpenHostPath(folder.Path().c_str(), O_RDONLY | O_DIRECTORY); }
  TempFolder folder;
};

TEST_F(Renames, FreeName_IsTaken) {
  folder.File("a", "1");
  const Descriptor top = Top();
  EXPECT_TRUE(RenameIfFree(top.Get(), "a", top.Get(), "b"));
  EXPECT_EQ(folder.Read("b"), "1");
  EXPECT_FALSE(folder.Exists("a"));
}

TEST_F(Renames, NameOfSomebodyElse_IsLeftAlone) {
  folder.File("a", "1").File("b", "2");
  const Descriptor top = Top();
  EXPECT_FALSE(RenameIfFree(top.Get(), "a", top.Get(), "b"));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(folder.Read("b"), "2");
}

// In a folder that all may write, a file of somebody else's can get a second name and not lose one.
TEST_F(Renames, FileOfAnotherUserInAStickyFolder_GetsNoSecondName) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs another user";
  folder.File("a", "1");
  fs::permissions(folder / "a", fs::perms{0666});
  fs::permissions(folder.Path(), fs::perms{01777});
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    const Descriptor top = Top();
    if (MayTakeAway(top.Get(), "a") || MayTakeAway(AT_FDCWD, folder / "a")) return 1;
    if (RenameIfFree(top.Get(), "a", top.Get(), "b")) return 2;
    test::WriteWholeFile(folder / "own", "2");
    return MayTakeAway(top.Get(), "own") ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
  EXPECT_FALSE(folder.Exists("b"));
  EXPECT_EQ(folder.Read("a"), "1");
}

TEST_F(Renames, Exchange_SwapsBoth) {
  folder.File("a", "1").File("b", "2").File("x").File("y");
  const Descriptor top = Top();
  if (::renameat2(top.Get(), "x", top.Get(), "y", RENAME_EXCHANGE) != 0) {
    GTEST_SKIP() << "this file system cannot";
  }
  ASSERT_TRUE(ExchangeNames(top.Get(), "a", "b"));
  EXPECT_EQ(folder.Read("a"), "2");
  EXPECT_EQ(folder.Read("b"), "1");
}

TEST_F(Renames, ExchangeWithNothing_Fails) {
  folder.File("a", "1");
  EXPECT_FALSE(ExchangeNames(Top().Get(), "a", "b"));
  EXPECT_EQ(folder.Read("a"), "1");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
