#include "guard/host_view.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <ctime>
#include <ios>
#include <limits>
#include <sstream>

#include "guard/clock.h"
#include "guard/vocabulary.h"
#include "support/child_process.h"
#include "support/deep_folder.h"
#include "support/temp_folder.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using test::RunInChild;
using test::TempFolder;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Key;
using testing::UnorderedElementsAre;

constexpr std::int64_t kSecond = 1'000'000'000;

HostView Look(const HostLook& look) {
  WorkMonitor nobody;
  return LookAtHost(look, nobody);
}

HostView Look(const fs::path& folder) { return Look(HostLook{.folder = folder}); }

std::string NoteOn(const HostView& view, const std::string& path) {
  for (const GuardedNote& note : view.notes) {
    if (note.path == path) return note.text;
  }
  return {};
}

// Sets both times of a file to `ago` before now.
void Age(const fs::path& path, std::int64_t ago) {
  fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::nanoseconds(ago));
}

TEST(LookAtHost, FilesAndFolders_AreSeenWithTheirContents) {
  TempFolder folder;
  folder.File("Sub/My file.txt", "abc").Folder("empty").File("zero");
  const HostView view = Look(folder.Path());
  EXPECT_EQ(view.result, HostView::Result::kComplete);
  EXPECT_THAT(view.items,
              UnorderedElementsAre(Key("Sub"), Key("Sub/My file.txt"), Key("empty"), Key("zero")));
  EXPECT_EQ(view.items.at("Sub/My file.txt").content, ContentOf("abc"));
  EXPECT_EQ(view.items.at("zero").content, ContentOf(""));
  EXPECT_EQ(view.items.at("empty").type, EntryType::kFolder);
  EXPECT_THAT(view.notes, IsEmpty());
  EXPECT_TRUE(view.wasAllRead);
}

TEST(LookAtHost, LongFile_IsHashedWhole) {
  TempFolder folder;
  const std::string text(1'000'003, 'x');
  folder.File("long", text);
  EXPECT_EQ(Look(folder.Path()).items.at("long").content, ContentOf(text));
}

TEST(LookAtHost, WhatTakesNoPart_IsToldWithItsReason) {
  TempFolder folder;
  folder.File("top/.hidden").File("top/.git/config").Pipe("top/pipe").Link("top/nowhere", "none");
  folder.File("outside/f").Link("top/folder", "../outside").Link("top/out", "../outside/f");
  folder.File("top/notes.txt.quorbix_tmp").Link("top/device", "/dev/null");
  const HostView view = Look(folder / "top");
  EXPECT_THAT(view.items, IsEmpty());
  EXPECT_THAT(view.leftOut, UnorderedElementsAre(".hidden", ".git", "pipe", "nowhere", "folder",
                                                 "out", "notes.txt.quorbix_tmp", "device"));
  EXPECT_EQ(NoteOn(view, ".git"), "takes no part: its name begins with \".\"");
  EXPECT_EQ(NoteOn(view, "pipe"), "takes no part: neither a file nor a folder");
  EXPECT_EQ(NoteOn(view, "device"), "takes no part: neither a file nor a folder");
  EXPECT_EQ(NoteOn(view, "nowhere"), "takes no part: a link that leads nowhere");
  EXPECT_EQ(NoteOn(view, "folder"), "takes no part: a link to a folder");
  EXPECT_EQ(NoteOn(view, "out"), "takes no part: a link that leads out of the folder");
  EXPECT_EQ(NoteOn(view, "notes.txt.quorbix_tmp"), "takes no part: a temporary file");
}

TEST(LookAtHost, LinkToAFileInside_IsThatFile) {
  TempFolder folder;
  folder.File("sub/f", "abc").Link("link", "sub/f").Link("sub/up", "../link");
  const HostView view = Look(folder.Path());
  EXPECT_EQ(view.items.at("link").content, ContentOf("abc"));
  EXPECT_EQ(view.items.at("sub/up").content, ContentOf("abc"));
}

TEST(LookAtHost, NeighbourWhoseNameBeginsAlike_IsOutside) {
  TempFolder folder;
  folder.File("disk2/f", "abc").Link("disk/link", "../disk2/f");
  EXPECT_THAT(Look(folder / "disk").items, IsEmpty());
}

TEST(LookAtHost, FolderNamedByALink_IsLookedInto) {
  TempFolder folder;
  folder.File("real/f", "abc").Link("real/inner", "f").Link("link", "real");
  EXPECT_THAT(Look(folder / "link").items, UnorderedElementsAre(Key("f"), Key("inner")));
}

TEST(LookAtHost, ImageAndState_TakeNoPart) {
  TempFolder folder;
  folder.File("disk.img", "x").File("disk.img.sync/state", "x").File("a", "x");
  std::vector<Identity> own;
  for (const char* name : {"disk.img", "disk.img.sync"}) {
    struct ::stat status;
    ASSERT_EQ(::stat((folder / name).c_str(), &status), 0);
    own.push_back(StampOf(status).identity);
  }
  folder.Link("to image", "disk.img").Link("to state", "disk.img.sync/state");
  const HostView view = Look(HostLook{.folder = folder.Path(), .leftOut = own});
  EXPECT_THAT(view.items, ElementsAre(Key("a")));
  EXPECT_EQ(NoteOn(view, "to image"), "takes no part: it belongs to the synchroniser");
  EXPECT_EQ(NoteOn(view, "to state"), "takes no part: it belongs to the synchroniser");
  EXPECT_EQ(NoteOn(view, "disk.img"), "takes no part: it belongs to the synchroniser");
}

TEST(LookAtHost, LeftoverOfACutOffPass_IsCollected) {
  TempFolder folder;
  folder.File("d/.quorbix-1-7fffffff-3.tmp", "x");
  const HostView view = Look(folder.Path());
  EXPECT_THAT(view.leftovers, ElementsAre("d/.quorbix-1-7fffffff-3.tmp"));
  EXPECT_THAT(view.leftOut, IsEmpty());  // it keeps no folder alive
}

TEST(LookAtHost, MissingFolder_IsUnreadable) {
  TempFolder folder;
  const HostView view = Look(folder / "none");
  EXPECT_EQ(view.result, HostView::Result::kUnreadable);
  EXPECT_EQ(view.error, "No such file or directory");
}

TEST(LookAtHost, UnreadableFileAndFolder_AreSeenAsSuch) {
  TempFolder folder;
  folder.File("secret", "x").Forbidden("secret").File("closed/a").Forbidden("closed").File("a");
  const int status = RunInChild({.dropRoot = true}, [&] {
    const HostView view = Look(folder.Path());
    if (view.items.at("secret").isReadable || view.items.at("closed").isReadable) return 1;
    if (!view.items.at("a").isReadable || view.items.contains("closed/a")) return 2;
    return NoteOn(view, "secret") == "cannot be read: Permission denied" ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
}

TEST(LookAtHost, FileThatIsTooLarge_IsNotRead) {
  TempFolder folder;
  folder.File("fits", "0123456789").File("large", "0123456789a");
  const HostView view = Look(HostLook{.folder = folder.Path(), .mostBytes = 10});
  EXPECT_EQ(view.items.at("large").content, (Content{.hash = 0, .size = 11}));
  EXPECT_TRUE(view.items.at("large").isReadable);
  EXPECT_THAT(view.seen, ElementsAre(Key("fits")));
  EXPECT_EQ(view.items.at("fits").content, ContentOf("0123456789"));
  EXPECT_FALSE(view.wasAllRead);
}

TEST(LookAtHost, WithoutWhatCannotBeRead_NotAllIsRead) {
  TempFolder folder;
  folder.File("file/secret").Forbidden("file/secret").File("folder/closed/a");
  folder.Forbidden("folder/closed").File("third/half/a").File("whole/a");
  folder.Link("links/l", "../folder/closed/a");
  fs::permissions(folder / "third/half", fs::perms(0744));
  const int status = RunInChild({.dropRoot = true}, [&] {
    if (Look(folder / "file").wasAllRead) return 1;
    if (Look(folder / "folder").wasAllRead) return 2;
    if (Look(folder / "third").wasAllRead) return 3;
    if (Look(folder / "links").wasAllRead) return 4;
    return Look(folder / "whole").wasAllRead ? 0 : 5;
  });
  EXPECT_EQ(status, 0);
}

TEST(LookAtHost, FolderThatMayBeListedAndNotEntered_IsUnreadableNotEmpty) {
  TempFolder folder;
  folder.File("half/a").File("b").Link("link", "half/a");
  fs::permissions(folder / "half", fs::perms(0744));
  const int status = RunInChild({.dropRoot = true}, [&] {
    const HostView view = Look(folder.Path());
    if (view.items.at("half").isReadable || !view.items.at("b").isReadable) return 1;
    if (view.items.at("link").isReadable || view.leftOut.contains("link")) return 2;
    return NoteOn(view, "half") == "cannot be listed: Permission denied" ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
}

TEST(LookAtHost, TopThatMayBeListedAndNotEntered_IsUnreadable) {
  TempFolder folder;
  folder.File("half/a");
  fs::permissions(folder / "half", fs::perms(0744));
  const int status = RunInChild({.dropRoot = true}, [&] {
    return Look(folder / "half").result == HostView::Result::kUnreadable ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(LookAtHost, FolderWithTheNameOfALeftover_TakesNoPart) {
  TempFolder folder;
  folder.File(".quorbix-mine.tmp/letter", "dear");
  const HostView view = Look(folder.Path());
  EXPECT_THAT(view.leftovers, IsEmpty());
  EXPECT_THAT(view.leftOut, ElementsAre(".quorbix-mine.tmp"));
  EXPECT_EQ(NoteOn(view, ".quorbix-mine.tmp"), "takes no part: its name begins with \".\"");
}

TEST(LookAtHost, KnownFileWithTheSameStamp_IsNotReadAgain) {
  TempFolder folder;
  folder.File("a", "abc");
  HostView first = Look(folder.Path());
  first.seen["a"].content = ContentOf("something else");
  first.seen["a"].taken += 10 * kSecond;  // as if it had been read later
  const HostView second = Look(HostLook{.folder = folder.Path(), .known = &first.seen});
  EXPECT_EQ(second.items.at("a").content, ContentOf("something else"));
  EXPECT_FALSE(second.wasAllRead);
  const HostView whole =
      Look(HostLook{.folder = folder.Path(), .known = &first.seen, .readsEverything = true});
  EXPECT_EQ(whole.items.at("a").content, ContentOf("abc"));
  EXPECT_TRUE(whole.wasAllRead);
}

TEST(LookAtHost, KnownFileReadRightAfterAChange_IsReadAgain) {
  TempFolder folder;
  folder.File("a", "abc");
  HostView first = Look(folder.Path());
  first.seen["a"].content = ContentOf("something else");
  EXPECT_EQ(Look(HostLook{.folder = folder.Path(), .known = &first.seen}).items.at("a").content,
            ContentOf("abc"));
}

TEST(LookAtHost, KnownFileOfAnotherInode_IsReadAgain) {
  TempFolder folder;
  folder.File("a", "abc");
  HostView first = Look(folder.Path());
  first.seen["a"].taken += 10 * kSecond;
  folder.File("b", "xyz");
  fs::last_write_time(folder / "b", fs::last_write_time(folder / "a"));
  fs::rename(folder / "b", folder / "a");
  EXPECT_EQ(Look(HostLook{.folder = folder.Path(), .known = &first.seen}).items.at("a").content,
            ContentOf("xyz"));
}

TEST(LookAtHost, FileThatChangedJustNow_IsBusy) {
  TempFolder folder;
  folder.File("a", "abc");
  const HostView view = Look(HostLook{.folder = folder.Path(), .settleNanoseconds = 600 * kSecond});
  EXPECT_EQ(view.result, HostView::Result::kBusy);
  EXPECT_EQ(view.busyPath, "a");
}

TEST(LookAtHost, KnownFile_MayHaveChangedJustNow) {
  TempFolder folder;
  folder.File("a", "abc");
  HostView first = Look(folder.Path());
  first.seen["a"].taken += 10 * kSecond;
  EXPECT_EQ(
      Look(HostLook{
               .folder = folder.Path(), .known = &first.seen, .settleNanoseconds = 600 * kSecond})
          .result,
      HostView::Result::kComplete);
}

TEST(LookAtHost, FileStampedInTheFuture_IsNotWaitedFor) {
  TempFolder folder;
  folder.File("a", "abc");
  Age(folder / "a", -1000 * kSecond);
  // Its other time is that of the change of the first.
  const ::timespec second{0, 20'000'000};
  ::nanosleep(&second, nullptr);
  EXPECT_EQ(Look(HostLook{.folder = folder.Path(), .settleNanoseconds = 1}).result,
            HostView::Result::kComplete);
}

TEST(LookAtHost, TemporaryFileOfARunningProcess_IsNoLeftover) {
  TempFolder folder;
  // The second number is the process's, in hexadecimal digits.
  std::ostringstream name;
  name << ".quorbix-1a2b-" << std::hex << ::getppid() << "-1.tmp";
  folder.File(name.str()).File(".quorbix-1a2b-7fffffff-1.tmp");
  const HostView view = Look(folder.Path());
  EXPECT_THAT(view.leftOut, ElementsAre(name.str()));
  EXPECT_THAT(view.leftovers, ElementsAre(".quorbix-1a2b-7fffffff-1.tmp"));
}

TEST(LookAtHost, StopFlag_EndsIt) {
  TempFolder folder;
  folder.File("a", "abc");
  const std::atomic<bool> stop = true;
  WorkMonitor monitor(&stop, {});
  EXPECT_EQ(LookAtHost({.folder = folder.Path()}, monitor).result, HostView::Result::kStopped);
}

TEST(LookAtHost, DeepFolders_TakeFewDescriptors) {
  TempFolder folder;
  const test::DeepFolder deep(folder.Path(), 1500);
  folder.File(test::DeepPath(1500) / "F", "deep");
  const int status = RunInChild({.openFileLimit = 64},
                                [&] { return Look(folder.Path()).items.size() == 1501 ? 0 : 1; });
  EXPECT_EQ(status, 0);
}

TEST(LookAtHost, FoldersDeeperThanPathsReach_AreUnreadableNotGone) {
  TempFolder folder;
  const test::DeepFolder deep(folder.Path(), 2200);
  const HostView view = Look(folder.Path());
  EXPECT_EQ(view.result, HostView::Result::kComplete);
  EXPECT_FALSE(view.items.rbegin()->second.isReadable);
}

// File systems know times that do not fit into 64 bits of nanoseconds, and differences of others
// that do not.
TEST(ToNanoseconds, TimesFarAway_AreAtMostThreeCenturiesAway) {
  constexpr std::int64_t kYear2400 = 13'569'465'600;
  constexpr std::int64_t kYear1901 = -2'147'483'648;
  EXPECT_EQ(ToNanoseconds({.tv_sec = 1'795'000'000, .tv_nsec = 5}), 1'795'000'000'000'000'005);
  EXPECT_EQ(ToNanoseconds({.tv_sec = kYear1901, .tv_nsec = 0}), kYear1901 * 1'000'000'000);
  const std::int64_t latest = ToNanoseconds({.tv_sec = kYear2400, .tv_nsec = 999'999'999});
  const std::int64_t earliest = ToNanoseconds({.tv_sec = -kYear2400, .tv_nsec = 0});
  EXPECT_GT(latest, 4'600'000'000'000'000'000);
  EXPECT_LT(earliest, -4'600'000'000'000'000'000);
  EXPECT_LE(latest / 2 - earliest / 2, std::numeric_limits<std::int64_t>::max() / 2);
  EXPECT_EQ(ToNanoseconds({.tv_sec = std::numeric_limits<std::time_t>::max(), .tv_nsec = 0}),
            ToNanoseconds({.tv_sec = kYear2400, .tv_nsec = 0}));
}

TEST(LocalTimeText, Time_IsThatOfTheZone) {
  ::setenv("TZ", "UTC", 1);
  ::tzset();
  EXPECT_EQ(LocalTimeText(1763745605 * kSecond), "2025-11-21 17.20.05");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
