#include "guard/guarded_pass.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "common/byte_order.h"
#include "common/host_file.h"
#include "guard/guarded_pair.h"
#include "guard/sight.h"
#include "guard/state_file.h"
#include "support/child_process.h"
#include "support/clock_ahead.h"
#include "support/deep_folder.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using enum GuardedOutcome;

class GuardedPassTest : public GuardedPair {};

TEST_F(GuardedPassTest, FreshlyBuiltDisk_IsInStepAtOnce) {
  folder.File("host/Long File Name.txt", "long")
      .File("host/a_b.txt", "1")
      .File("host/a+b.txt", "2");
  BuildImage();
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kNothingToDo) << report.message;
  EXPECT_TRUE(report.isFirstMeeting);
  EXPECT_THAT(StepsOf(report), IsEmpty());
  EXPECT_EQ(report.files, 3u);
}

TEST_F(GuardedPassTest, GuestsEdit_ReachesTheFileUnderItsOwnName) {
  folder.File("host/Long File Name.txt", "long");
  BuildAndAgree();
  GuestWrites("LONG_FIL.TXT", "edited");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_THAT(StepsOf(report), ElementsAre("write on host: Long File Name.txt = /LONG_FIL.TXT"));
  EXPECT_EQ(OnHost(), (FileTree{{"Long File Name.txt", "edited"}}));
  EXPECT_EQ(InTrash(), (FileTree{{"replaced Long File Name.txt", "long"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, HostsEdit_ReachesTheDisk) {
  folder.File("host/a.txt", "old");
  BuildAndAgree();
  folder.File("host/a.txt", "newer");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "newer"}}));
  EXPECT_THAT(InTrash(), SizeIs(1));  // the old image
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, NewFilesOnBothSides_CrossOver) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/New Folder/from host.txt", "h");
  GuestMakesFolder("GAMES");
  GuestWrites("GAMES/SAVE.DAT", "g");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnHost(),
            (FileTree{{"GAMES/SAVE.DAT", "g"}, {"New Folder/from host.txt", "h"}, {"a.txt", "a"}}));
  EXPECT_EQ(OnDisk(),
            (FileTree{{"A.TXT", "a"}, {"GAMES/SAVE.DAT", "g"}, {"NEW_FOLD/FROM_HOS.TXT", "h"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, Deletions_CrossOverAndStayInTheTrash) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b").File("host/c.txt", "c");
  BuildAndAgree();
  folder.Remove("host/a.txt");
  GuestRemoves("B.TXT");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnHost(), (FileTree{{"c.txt", "c"}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"C.TXT", "c"}}));
  EXPECT_EQ(InTrash().at("deleted b.txt"), "b");
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, Conflict_KeepsBothOnBothSides) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/a.txt", "of the host");
  GuestWrites("A.TXT", "of the guest");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  const FileTree host = OnHost();
  ASSERT_THAT(host, SizeIs(2));
  EXPECT_EQ(host.at("a.txt"), "of the host");
  EXPECT_TRUE(host.begin()->first.starts_with("a (disk 2")) << host.begin()->first;
  EXPECT_EQ(host.begin()->second, "of the guest");
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "of the host"}, {"A_(DISK_.TXT", "of the guest"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

// --- not now

TEST_F(GuardedPassTest, FileThatIsBeingWritten_IsLeftToSettle) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  options.settle = std::chrono::milliseconds(60'000);
  folder.File("host/new.txt", "n");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_EQ(report.message, "new.txt is being written just now");
}

TEST_F(GuardedPassTest, LongestTimeToSettle_IsNeverOver) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  options.settle = std::chrono::milliseconds::max();
  folder.File("host/new.txt", "n");
  EXPECT_EQ(Pass().outcome, kNotNow);
}

TEST_F(GuardedPassTest, MissingImage_IsToldWithoutWaitingForTheFolder) {
  folder.File("host/a.txt", "just written");
  options.settle = std::chrono::hours(1);
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kImageMissing));
}

// What it writes would go to the trash from then on.
TEST_F(GuardedPassTest, FileThatAProgramHasOpenForWriting_IsNeitherReplacedNorDeleted) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  for (const bool isDeleted : {false, true}) {
    isDeleted ? GuestRemoves("A.TXT") : GuestWrites("A.TXT", "of the guest");
    const std::string before = folder.Read("host/a.txt");
    {
      const Descriptor program = OpenHostPath((Host() / "a.txt").c_str(), O_RDWR);
      const GuardedReport report = Pass();
      EXPECT_EQ(report.outcome, kNotNow);
      EXPECT_EQ(report.message, "another program has a.txt open for writing");
      EXPECT_EQ(folder.Read("host/a.txt"), before);
      EXPECT_EQ(OnHost().size(), 2u);
    }
    const Descriptor reader = OpenHostPath((Host() / "a.txt").c_str(), O_RDONLY);
    EXPECT_EQ(Pass().outcome, kDone);
  }
  EXPECT_EQ(OnHost(), (FileTree{{"b.txt", "b"}}));
}

TEST_F(GuardedPassTest, FolderThatIsBeingChanged_IsLeftToSettle) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  options.settle = std::chrono::milliseconds(60'000);
  folder.Remove("host/b.txt");
  EXPECT_EQ(Pass().message, "the folder is being changed just now");
}

TEST_F(GuardedPassTest, ImageThatIsBeingChanged_IsLeftToSettle) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  // The folder itself has been quiet for long.
  const auto past = std::filesystem::file_time_type::clock::now() - std::chrono::hours(2);
  std::filesystem::last_write_time(Host(), past);
  options.settle = std::chrono::milliseconds(60'000);
  GuestWrites("NEW.TXT", "n");
  EXPECT_EQ(Pass().message, "the image is being changed just now");
}

TEST_F(GuardedPassTest, SidesInStep_AreNotWaitedFor) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  options.settle = std::chrono::milliseconds(60'000);
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, FolderThatIsReplacedMeanwhile_IsNotAgreedOn) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  GuestWrites("NEW.TXT", "n");
  const Places places = FindPlaces(Image(), Host(), {});
  KnownState known;
  known.load = LoadState(StateFolder(), known.state, known.error);
  WorkMonitor nobody;
  const Sight sight = Look(places, options, known, nobody);
  std::filesystem::rename(Host(), folder / "moved");
  folder.Folder("host");
  KeptContents kept;
  FolderLock lock;
  EXPECT_EQ(GuardedPass(places, options, sight, kept, lock, nobody).Run().result,
            Ending::Result::kBusy);
  EXPECT_THAT(HazardsOf(Pass()), testing::Contains(GuardedHazard::kFolderReplaced));
}

// The new image is made of what was looked at; what has come since is news to the next pass, also
// where neither size nor time of the content tell.
TEST_F(GuardedPassTest, EditBetweenTheLookAndTheNewImage_IsLeftForTheNextPass) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/b.txt", "looked at").File("host/c.txt", "looked at");
  const auto time = std::filesystem::last_write_time(Host() / "c.txt");
  bool wasEdited = false;
  options.onProgress = [&](const GuardedProgress& progress) {
    if (progress.work != GuardedWork::kReadDisk || std::exchange(wasEdited, true)) return;
    folder.File("host/b.txt", "edited since").File("host/c.txt", "edited on");
    std::filesystem::last_write_time(Host() / "c.txt", time);
  };
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_TRUE(wasEdited);
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "a"}, {"B.TXT", "looked at"}, {"C.TXT", "looked at"}}));
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk(),
            (FileTree{{"A.TXT", "a"}, {"B.TXT", "edited since"}, {"C.TXT", "edited on"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, NewImageThatCannotBeWritten_IsRemovedAtOnce) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/b.txt", "b");
  const int status = test::RunInChild({.fileSizeLimit = kImageBytes / 2},
                                      [&] { return Sync()->Pass().outcome == kFailed ? 0 : 1; });
  EXPECT_EQ(status, 0);
  for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
    EXPECT_FALSE(entry.path().filename().string().starts_with(".")) << entry.path();
  }
}

TEST_F(GuardedPassTest, ImageThatIsOpenedMeanwhile_LeavesNoNewOneBehind) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/b.txt", "b");
  const Places places = FindPlaces(Image(), Host(), {});
  KnownState known;
  known.load = LoadState(StateFolder(), known.state, known.error);
  WorkMonitor nobody;
  const Sight sight = Look(places, options, known, nobody);
  const Descriptor guest = OpenHostFile(Image().c_str(), O_RDWR);
  KeptContents kept;
  FolderLock lock;
  EXPECT_EQ(GuardedPass(places, options, sight, kept, lock, nobody).Run().result,
            Ending::Result::kBusy);
  for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
    EXPECT_FALSE(entry.path().filename().string().starts_with(".")) << entry.path();
  }
}

TEST_F(GuardedPassTest, NotesAboutTheDisk_AreToldInEveryReport) {
  folder.File("host/a.txt", "a");
  BuildImage();
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  const std::size_t fatBytes = std::size_t{512} * LoadU16(&bytes[512 + 22]);
  for (const std::size_t fat : {std::size_t{1024}, 1024 + fatBytes}) {
    StoreU16(&bytes[fat + 2 * 3000], 0xFFFF);  // a cluster that belongs to nothing
  }
  test::WriteBytes(Image(), bytes);
  const std::string note =
      "1 cluster is in use in 1 chain that no file and no directory begins with: not in the next "
      "image";
  for (int pass = 0; pass < 3; ++pass) {
    const GuardedReport preview = Preview();
    ASSERT_EQ(preview.notes.size(), 1u);
    EXPECT_EQ(preview.notes[0].text, note);
    const GuardedReport report = Pass();
    EXPECT_EQ(report.outcome, kNothingToDo);
    ASSERT_EQ(report.notes.size(), 1u);
    EXPECT_EQ(report.notes[0].text, note);
  }
}

// What a pass has told of its work: how far it had come with each kind in the end.
using Told = std::vector<std::tuple<GuardedWork, std::uint64_t, std::uint64_t>>;

void Note(const GuardedProgress& progress, Told& told) {
  const bool isNew = told.empty() || std::get<0>(told.back()) != progress.work;
  if (isNew) told.emplace_back();
  if (!isNew) {
    EXPECT_LE(std::get<1>(told.back()), progress.bytes);
  }
  told.back() = {progress.work, progress.bytes, progress.total};
}

TEST_F(GuardedPassTest, Work_IsToldFromItsBeginningToItsEnd) {
  folder.File("host/a.txt", std::string(5000, 'a'));
  BuildAndAgree();
  folder.File("host/b.txt", std::string(7000, 'b'));
  GuestWrites("C.TXT", std::string(300'000, 'c'));
  Told told;
  options.verify = true;
  options.onProgress = [&](const GuardedProgress& progress) { Note(progress, told); };
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  using enum GuardedWork;
  EXPECT_EQ(told, (Told{{kReadFolder, 12'000, 0},
                        {kReadDisk, 305'000, 305'000},
                        {kWriteFolder, 300'000, 300'000},
                        {kMakeDisk, 312'000, 312'000},
                        {kWriteDisk, kImageBytes, kImageBytes},
                        {kCheckDisk, 312'000, 312'000}}));
}

TEST_F(GuardedPassTest, WorkInPlace_IsToldWithTheCopyThatIsKept) {
  options.inPlace = true;
  folder.File("host/a.txt", std::string(5000, 'a'));
  BuildAndAgree();
  folder.Remove("host/a.txt");
  Told told;
  options.onProgress = [&](const GuardedProgress& progress) { Note(progress, told); };
  EXPECT_EQ(Sync()->Pass({GuardedHazard::kFolderEmpty}).outcome, kDone);
  using enum GuardedWork;
  EXPECT_EQ(told, (Told{{kReadDisk, 5000, 5000},
                        {kWriteDisk, kImageBytes, kImageBytes},
                        {kKeep, kImageBytes, kImageBytes},
                        {kWriteDisk, kImageBytes, kImageBytes}}));
}

std::ptrdiff_t ThreadsOfThisProcess() {
  std::filesystem::directory_iterator threads("/proc/self/task");
  return std::distance(begin(threads), end(threads));
}

// Asked from inside, while every kind of work is under way.
TEST_F(GuardedPassTest, Pass_HasNoThreadOfItsOwn) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/b.txt", "b");
  GuestWrites("C.TXT", "c");
  const std::ptrdiff_t before = ThreadsOfThisProcess();
  std::set<GuardedWork> seen;
  options.onProgress = [&](const GuardedProgress& progress) {
    seen.insert(progress.work);
    EXPECT_EQ(ThreadsOfThisProcess(), before);
  };
  const auto sync = Sync();
  EXPECT_EQ(sync->Pass().outcome, kDone);
  using enum GuardedWork;
  EXPECT_EQ(seen,
            (std::set{kReadFolder, kReadDisk, kWriteFolder, kMakeDisk, kWriteDisk, kCheckDisk}));
  EXPECT_EQ(ThreadsOfThisProcess(), before);
  EXPECT_EQ(sync->Preview().outcome, kNothingToDo);
  EXPECT_EQ(ThreadsOfThisProcess(), before);
}

TEST_F(GuardedPassTest, RemovedFolderThatHoldsMore_StaysAndIsTold) {
  folder.File("host/PICS/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  folder.File("host/PICS/.DS_Store", "s");
  GuestRemoves("PICS/A.TXT");
  GuestRemoves("PICS");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone);
  EXPECT_TRUE(std::any_of(report.notes.begin(), report.notes.end(), [](const GuardedNote& note) {
    return note.path == "PICS" &&
           note.text == "stays, and is on the disk again: it holds something yet";
  }));
  EXPECT_EQ(OnHost(), (FileTree{{"PICS/.DS_Store", "s"}, {"b.txt", "b"}}));
  EXPECT_TRUE(test::GuestEditor(Image()).Exists("PICS"));
}

TEST_F(GuardedPassTest, StateFolderThatIsGone_KeepsNobodyOut) {
  folder.File("host/a.txt", "a");
  BuildImage();
  const auto one = Sync();
  const auto other = Sync();
  EXPECT_EQ(one->Pass().outcome, kNothingToDo);
  EXPECT_EQ(other->Pass().outcome, kNotNow);
  std::filesystem::remove_all(StateFolder());
  EXPECT_EQ(one->Pass().outcome, kNothingToDo);
  EXPECT_EQ(other->Pass().outcome, kNotNow);
}

// The version that was kept once may be deleted in the same pass.
TEST_F(GuardedPassTest, ConflictWithWhatWasKeptBefore_KeepsBothOnceMore) {
  folder.File("host/F.TXT", "f0");
  BuildAndAgree();
  folder.File("host/F.TXT", "h1");
  GuestWrites("F.TXT", "d1");
  ASSERT_EQ(Pass().outcome, kDone);
  const FileTree settled = OnDisk();
  ASSERT_THAT(settled, SizeIs(2));
  for (const auto& [path, content] : settled) {
    if (content == "d1") GuestRemoves(path);
  }
  GuestWrites("F.TXT", "d1");
  folder.File("host/F.TXT", "h2");
  ASSERT_EQ(Pass().outcome, kDone);
  std::set<std::string> contents;
  for (const auto& [path, content] : OnHost()) contents.insert(content);
  EXPECT_EQ(contents, (std::set<std::string>{"d1", "h2"}));
  EXPECT_THAT(OnDisk(), SizeIs(2));
}

TEST(GuardedSyncOptions, Defaults_AreAsTheHeaderSays) {
  const GuardedSyncOptions options;
  EXPECT_EQ(options.onConflict, GuardedSyncOptions::ConflictRule::kKeepBoth);
  EXPECT_EQ(options.settle, std::chrono::seconds(2));
  EXPECT_EQ(options.mostDeletions, 10u);
  EXPECT_EQ(options.mostDeletedShare, 0.5);
  EXPECT_EQ(options.trashPasses, 50u);
  EXPECT_EQ(options.trashBytes, std::uint64_t{4} << 30);
  EXPECT_FALSE(options.inPlace);
  EXPECT_FALSE(options.verify);
}

// What has not changed is read by its path when the disk is made anew.
TEST_F(GuardedPassTest, FileWhosePathIsLongerThanTheSystemTakes_StaysInStep) {
  BuildImage();
  folder.Folder("top");
  const std::filesystem::path top = folder / "top";
  const int levels = static_cast<int>((PATH_MAX - 20 - top.native().size()) / 2);
  const test::DeepFolder deep(top, levels);
  const std::filesystem::path host = top / test::DeepPath(levels);
  const auto write = [&](const std::string& name) {
    const Descriptor open = OpenHostPath(host.c_str(), O_RDONLY | O_DIRECTORY);
    const Descriptor file(::openat(open.Get(), name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
    return file && ::write(file.Get(), "text", 4) == 4;
  };
  ASSERT_TRUE(write("a name that makes the path too long.txt"));
  test::secondsAhead = 10;  // so that it is not read again
  EXPECT_EQ(CreateGuardedFolderSync(Image(), host, options)->Pass().outcome, kDone);
  ASSERT_TRUE(write("B.TXT"));
  const GuardedReport again = CreateGuardedFolderSync(Image(), host, options)->Pass();
  EXPECT_EQ(again.outcome, kDone) << again.message;
  test::secondsAhead = 0;
  EXPECT_EQ(OnDisk(), (FileTree{{"A_NAME_T.TXT", "text"}, {"B.TXT", "text"}}));
}

TEST_F(GuardedPassTest, DefaultSettlingTime_IsTwoSeconds) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  options.settle = GuardedSyncOptions().settle;
  const auto change = [&](std::chrono::milliseconds ago) {
    folder.File("host/a.txt", std::to_string(ago.count()));
    test::secondsAhead = 60;
    std::filesystem::last_write_time(Host() / "a.txt",
                                     std::filesystem::file_time_type::clock::now() - ago);
    const GuardedOutcome outcome = Sync()->Pass().outcome;
    test::secondsAhead = 0;
    return outcome;
  };
  EXPECT_EQ(change(std::chrono::milliseconds(1000)), kNotNow);
  EXPECT_EQ(change(std::chrono::milliseconds(2100)), kDone);
}
}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
