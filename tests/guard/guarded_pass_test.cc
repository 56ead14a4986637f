#include "guard/guarded_pass.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "common/byte_order.h"
#include "common/host_file.h"
#include "guard/first_meeting.h"
#include "guard/guarded_pair.h"
#include "guard/sight.h"
#include "guard/state_file.h"
#include "support/child_process.h"
#include "support/clock_ahead.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using enum GuardedOutcome;

class GuardedPassTest : public GuardedPair {
 protected:
  static std::vector<std::string> NotesOf(const GuardedReport& report) {
    std::vector<std::string> notes;
    for (const GuardedNote& note : report.notes) notes.push_back(note.text);
    return notes;
  }
};

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

TEST_F(GuardedPassTest, MissingImage_IsToldWithoutWaitingForTheFolder) {
  folder.File("host/a.txt", "just written");
  options.settle = std::chrono::hours(1);
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kImageMissing));
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

// --- hazards of the sides, end to end

TEST_F(GuardedPassTest, AnotherFolder_IsRefusedAndMergedWhenAccepted) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  std::filesystem::rename(Host(), folder / "moved");
  folder.File("host/other.txt", "o");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kFolderReplaced));
  EXPECT_EQ(Pass({GuardedHazard::kFolderReplaced}).outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "a"}, {"other.txt", "o"}}));
}

// Twelve files of one beginning, whose names on the disk follow no order any more.
class ManyLongNames : public GuardedPair {
 protected:
  void SetUp() override {
    for (int i = 1; i <= 12; ++i) folder.File(Named(i), "content " + std::to_string(i));
    BuildAndAgree();
    std::filesystem::rename(folder / Named(3), folder / Named(33));
    EXPECT_EQ(Pass().outcome, kDone);
    host = OnHost();
    disk = OnDisk();
  }

  static std::string Named(int number) {
    return "host/Datei Nummer " + std::to_string(number) + ".txt";
  }

  FileTree host;
  FileTree disk;
};

TEST_F(ManyLongNames, FolderThatWasCopied_MeetsUnderTheSameNames) {
  std::filesystem::copy(Host(), folder / "copy", std::filesystem::copy_options::recursive);
  std::filesystem::remove_all(Host());
  std::filesystem::rename(folder / "copy", Host());
  const GuardedReport report = Pass({GuardedHazard::kFolderReplaced});
  EXPECT_EQ(report.outcome, kNothingToDo);
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kFolderReplaced));
  EXPECT_EQ(OnHost(), host);
  EXPECT_EQ(OnDisk(), disk);
}

TEST_F(ManyLongNames, FolderThatIsGone_ComesBackUnderTheSameNames) {
  std::filesystem::remove_all(Host());
  EXPECT_EQ(Pass({GuardedHazard::kFolderMissing}).outcome, kDone);
  EXPECT_EQ(OnHost(), host);
  EXPECT_EQ(OnDisk(), disk);
}

TEST_F(ManyLongNames, OlderImageThatIsBroughtBack_MeetsUnderTheSameNames) {
  const std::vector<std::uint8_t> older = test::ReadBytes(Image());
  folder.File(Named(7), "edited");
  EXPECT_EQ(Pass().outcome, kDone);
  test::WriteBytes(Image(), older);
  EXPECT_EQ(Pass({GuardedHazard::kImageReplaced}).outcome, kDone);
  // The older version was written by no machine: the host's stays.
  host["Datei Nummer 7.txt"] = "edited";
  EXPECT_EQ(OnHost(), host);
}

TEST_F(GuardedPassTest, NameThatOnlyAMachineGives_GetsNoTwinsAtNewMeetings) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  GuestWrites("QQQ.TXT", "q");
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  const std::string old = "QQQ     TXT";
  const auto slot = std::search(bytes.begin(), bytes.end(), old.begin(), old.end());
  ASSERT_NE(slot, bytes.end());
  std::copy_n("MY FILE TXT", 11, slot);
  test::WriteBytes(Image(), bytes);
  EXPECT_EQ(Pass().outcome, kDone);
  for (int meeting = 0; meeting < 2; ++meeting) {
    std::filesystem::remove_all(StateFolder());
    EXPECT_EQ(Pass().outcome, kNothingToDo);
  }
  EXPECT_EQ(OnHost(), (FileTree{{"MY FILE.TXT", "q"}, {"a.txt", "a"}}));
}

TEST_F(GuardedPassTest, ManyPhotosOfOneBeginning_AreAllCarried) {
  for (int i = 1000; i < 1150; ++i) {
    folder.File("host/IMG_20260101_" + std::to_string(i) + ".jpg", std::to_string(i));
  }
  BuildImage();
  EXPECT_EQ(Pass().outcome, kDone);  // a build leaves 50 out
  EXPECT_THAT(OnDisk(), SizeIs(150));
  folder.Remove("host/IMG_20260101_1073.jpg");
  EXPECT_EQ(Pass().outcome, kDone);
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kNothingToDo);
  EXPECT_THAT(report.notes, IsEmpty());
  EXPECT_THAT(OnDisk(), SizeIs(149));
}

TEST_F(GuardedPassTest, RenameInLetterCaseAlone_ChangesNothingOnTheDisk) {
  folder.File("host/note.txt", "n");
  for (int i = 0; i < 13; ++i) folder.File("host/Docs/f" + std::to_string(i), "d");
  BuildAndAgree();
  const FileTree disk = OnDisk();
  std::filesystem::rename(Host() / "note.txt", Host() / "NOTE.TXT");
  std::filesystem::rename(Host() / "Docs", Host() / "docs");
  for (int pass = 0; pass < 2; ++pass) {
    const GuardedReport report = Pass();
    EXPECT_EQ(report.outcome, kNothingToDo);
    EXPECT_THAT(report.hazards, IsEmpty());
  }
  EXPECT_EQ(OnDisk(), disk);
  GuestWrites("NOTE.TXT", "of the guest");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost().at("NOTE.TXT"), "of the guest");
}

// --- links

TEST_F(GuardedPassTest, DeletionOfWhatALinkLeadsTo_LeavesTheGuestTheFileThatItHasOfTheLink) {
  folder.File("host/a.txt", "one").File("host/c.txt", "c");
  folder.Link("host/b.txt", "a.txt").Link("host/sub/d.txt", "../b.txt");
  BuildAndAgree();
  GuestRemoves("A.TXT");
  EXPECT_EQ(Pass().outcome, kDone);
  const FileTree host{{"b.txt", "one"}, {"c.txt", "c"}, {"sub/d.txt", "one"}};
  EXPECT_EQ(OnHost(), host);
  EXPECT_EQ(OnDisk(), (FileTree{{"B.TXT", "one"}, {"C.TXT", "c"}, {"SUB/D.TXT", "one"}}));
  std::vector<TrashedItem> items;
  std::string err;
  ASSERT_TRUE(ListTrash(StateFolder(), items, err)) << err;
  ASSERT_EQ(items.size(), 3u);  // with the links
  EXPECT_EQ(items[2].path, "a.txt");
  EXPECT_EQ(test::ReadWholeFile(StateFolder() / "trash" / items[2].id), "one");
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

// The disk has nothing of its own of it yet.
TEST_F(GuardedPassTest, DeletionOfWhatANewLinkLeadsTo_LeavesItLeadingNowhere) {
  folder.File("host/a.txt", "one").File("host/c.txt", "c");
  BuildAndAgree();
  folder.Link("host/b.txt", "a.txt");
  GuestRemoves("A.TXT");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"c.txt", "c"}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"C.TXT", "c"}}));
  EXPECT_TRUE(folder.Exists("host/b.txt"));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, DeletionOnBothSidesOfALinksTwins_IsADeletionOfBoth) {
  folder.File("host/a.txt", "one").File("host/c.txt", "c").Link("host/b.txt", "a.txt");
  BuildAndAgree();
  GuestRemoves("A.TXT");
  GuestRemoves("B.TXT");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"c.txt", "c"}}));
  EXPECT_FALSE(folder.Exists("host/b.txt"));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

// Some machines store names in lower case.
TEST_F(GuardedPassTest, EditOfWhatTheGuestHadInLowerCaseAndHasDeleted_OutweighsTheDeletion) {
  folder.File("host/a.txt", "a").File("host/xbc.txt", "x").File("host/docs/b.txt", "b");
  BuildImage();
  std::string image = test::ReadWholeFile(Image());
  image.replace(image.find("XBC     TXT"), 3, "xbc");
  image.replace(image.find("DOCS       "), 4, "docs");
  test::WriteWholeFile(Image(), image);
  ASSERT_EQ(Pass().outcome, kNothingToDo);
  GuestRemoves("xbc.TXT");
  GuestRemoves("docs/B.TXT");
  folder.File("host/xbc.txt", "edited").File("host/docs/b.txt", "edited too");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_EQ(OnDisk(),
            (FileTree{{"A.TXT", "a"}, {"XBC.TXT", "edited"}, {"docs/B.TXT", "edited too"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, DeletionInAFolderRenamedInLetterCase_IsADeletion) {
  for (const char* number : {"1", "2", "3"}) {
    folder.File(std::string("host/Docs/Letter number ") + number + ".txt", number);
  }
  BuildAndAgree();
  std::filesystem::rename(Host() / "Docs", Host() / "docs");
  folder.Remove("host/docs/Letter number 2.txt");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone) << report.message;
  EXPECT_THAT(StepsOf(report), ElementsAre("delete on disk: docs/Letter number 2.txt = "
                                           "/DOCS/LETTER~2.TXT"));
  EXPECT_THAT(OnHost(), SizeIs(2));
  EXPECT_THAT(OnDisk(), SizeIs(2));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, FolderMergedIntoOneOfAnotherLetterCase_DoesNotComeBack) {
  folder.File("host/Photos/Holiday 1.jpg", "1").File("host/Photos/Holiday 2.jpg", "2");
  folder.File("host/photos/other.jpg", "3");
  BuildAndAgree();
  for (const char* name : {"Holiday 1.jpg", "Holiday 2.jpg"}) {
    std::filesystem::rename(Host() / "Photos" / name, Host() / "photos" / name);
  }
  std::filesystem::remove(Host() / "Photos");
  const FileTree host = OnHost();
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), host);
  EXPECT_FALSE(folder.Exists("host/Photos"));
  EXPECT_THAT(OnDisk(), SizeIs(3));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, NewFolderOfTheNameThatOneHad_HoldsWhatIsInItAlone) {
  folder.File("host/D/a.txt", "a");
  BuildAndAgree();
  std::filesystem::rename(Host() / "D", Host() / "d");
  folder.File("host/D/new.txt", "n");
  const FileTree host = OnHost();
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), host);
  EXPECT_THAT(OnDisk(), SizeIs(2));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, ReplacedFolderWithANewNeighbour_KeepsTheOldNames) {
  folder.File("host/a_b.txt", "agreed");
  BuildAndAgree();
  std::filesystem::rename(Host(), folder / "moved");
  folder.File("host/a_b.txt", "of the host").File("host/a+b.txt", "new");
  GuestWrites("A_B.TXT", "of the guest");
  options.onConflict = GuardedSyncOptions::ConflictRule::kTakeDisk;
  EXPECT_EQ(Pass({GuardedHazard::kFolderReplaced}).outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"a_b.txt", "of the guest"}, {"a+b.txt", "new"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, FileLargerThanTheImage_IsRefusedWithoutReadingIt) {
  BuildAndAgree();
  folder.File("host/large", "");
  std::filesystem::resize_file(Host() / "large", kImageBytes + 1);
  std::uint64_t most = 0;
  options.onProgress = [&](const GuardedProgress& progress) {
    if (progress.work == GuardedWork::kReadFolder) most = std::max(most, progress.bytes);
  };
  const GuardedReport report = Pass();
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kDoesNotFit));
  EXPECT_EQ(most, 0u);
  std::filesystem::resize_file(Host() / "large", kImageBytes / 2);
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(most, kImageBytes / 2);
}

TEST_F(GuardedPassTest, DamagedState_IsRefusedAndMergedWhenAccepted) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  test::WriteWholeFile(StateFolder() / "state", "something else");
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kStateDamaged));
  EXPECT_EQ(Pass({GuardedHazard::kStateDamaged}).outcome, kNothingToDo);
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(GuardedPassTest, SomebodyElsesFileInTheLocksPlace_IsToldBeforehandAndLeftAlone) {
  folder.File("host/a.txt", "a").File("DISK.IMG.sync/lock", "mine");
  BuildImage();
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kStateNotWritable));
  EXPECT_THAT(report.message, testing::HasSubstr((StateFolder() / "lock").string() +
                                                 " is no lock of this program"));
  EXPECT_EQ(folder.Read("DISK.IMG.sync/lock"), "mine");
}

TEST_F(GuardedPassTest, DamagedState_IsKeptUnderAnotherName) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  test::WriteWholeFile(StateFolder() / "state", "my own notes");
  EXPECT_EQ(Pass({GuardedHazard::kStateDamaged}).outcome, kNothingToDo);
  std::vector<std::string> kept;
  for (const auto& [path, content] : folder.Files("DISK.IMG.sync")) {
    if (path.starts_with("state-damaged-")) kept.push_back(content);
  }
  EXPECT_THAT(kept, ElementsAre("my own notes"));
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

TEST_F(GuardedPassTest, ResizedImage_IsRefused) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  std::filesystem::resize_file(Image(), kImageBytes + 1024);
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kImageResized));
}

TEST_F(GuardedPassTest, DifferingFats_AreRefused) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  bytes[1024 + 8] ^= 1;  // a word of the first FAT
  test::WriteBytes(Image(), bytes);
  const GuardedReport report = Pass();
  EXPECT_THAT(HazardsOf(report), testing::Contains(GuardedHazard::kImageUnsound));
  EXPECT_EQ(report.outcome, kRefused);
}

// Behind the first cluster of a file that has three.
TEST_F(GuardedPassTest, DamagedChains_AreRefused) {
  folder.File("host/a.bin", std::string(1200, 'a')).File("host/b.bin", "b");
  BuildAndAgree();
  const std::vector<std::uint8_t> sound = test::ReadBytes(Image());
  const std::size_t fatBytes = std::size_t{512} * LoadU16(&sound[512 + 22]);
  const auto firstOf = [&](const std::string& name) {
    const auto slot = std::search(sound.begin(), sound.end(), name.begin(), name.end());
    return slot == sound.end() ? std::uint16_t{0} : LoadU16(&*slot + 26);
  };
  const std::uint16_t first = firstOf("A       BIN");
  const std::uint16_t ofOther = firstOf("B       BIN");
  ASSERT_TRUE(first != 0 && ofOther != 0);
  const std::map<std::string, std::uint16_t> nexts{{"loop", first},       {"free", 0},
                                                   {"bad", 0xFFF7},       {"outside", 0xFFE0},
                                                   {"early end", 0xFFFF}, {"meets", ofOther}};
  for (const auto& [damage, next] : nexts) {
    SCOPED_TRACE(damage);
    std::vector<std::uint8_t> bytes = sound;
    for (const std::size_t fat : {std::size_t{1024}, 1024 + fatBytes}) {
      StoreU16(&bytes[fat + 2 * std::size_t{first}], next);
    }
    test::WriteBytes(Image(), bytes);
    const GuardedReport report = Pass();
    EXPECT_EQ(report.outcome, kRefused);
    EXPECT_THAT(HazardsOf(report), testing::Contains(GuardedHazard::kImageUnsound));
    EXPECT_THAT(OnHost(), SizeIs(2));
  }
}

TEST_F(GuardedPassTest, StateInsideTheFolder_IsRefusedAndLeftOutWhenAccepted) {
  folder.File("host/a.txt", "a");
  BuildImage();
  options.stateFolder = Host() / "state";
  EXPECT_THAT(HazardsOf(Sync()->Pass()), ElementsAre(GuardedHazard::kNested));
  EXPECT_FALSE(folder.Exists("host/state"));
  EXPECT_EQ(Sync()->Pass({GuardedHazard::kNested}).outcome, kNothingToDo);
  EXPECT_EQ(Sync()->Pass({GuardedHazard::kNested}).files, 1u);
}

TEST_F(GuardedPassTest, FolderInsideTheState_IsRefusedWhateverIsAccepted) {
  folder.File("host/a.txt", "a");
  BuildImage();
  options.stateFolder = folder.Path();
  const GuardedReport report = Sync()->Pass({GuardedHazard::kNested});
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(HazardsOf(report), testing::Contains(GuardedHazard::kNested));
  EXPECT_FALSE(folder.Exists("state"));
}

TEST_F(GuardedPassTest, FoldersThatMayNotBeWritten_AreNamed) {
  folder.File("host/in/a.txt", "a");
  BuildAndAgree();
  GuestWrites("IN/B.TXT", "b");
  for (const std::filesystem::path& place : {folder.Path(), Host(), StateFolder()}) {
    std::filesystem::permissions(place, std::filesystem::perms{0777});
  }
  for (const std::filesystem::path& file :
       {Image(), StateFolder() / "state", StateFolder() / "lock"}) {
    std::filesystem::permissions(file, std::filesystem::perms{0666});
  }
  std::filesystem::permissions(Host() / "in", std::filesystem::perms{0555});
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    const GuardedReport report = Sync()->Preview();
    for (const GuardedHazardReport& hazard : report.hazards) {
      const bool isIt = hazard.hazard == GuardedHazard::kFolderNotWritable;
      if (isIt && hazard.paths == std::vector<std::string>{"in"}) return 0;
    }
    return 1;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(GuardedPassTest, WhatABrokenDirectoryHeld_IsTakenFromTheFolderWhenAccepted) {
  folder.File("host/SUB/a.txt", "a").File("host/b.txt", "b").File("host/c.txt", "c");
  BuildAndAgree();
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  const std::string name = "SUB        ";
  const auto slot = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
  ASSERT_NE(slot, bytes.end());
  std::fill_n(slot + 26, 2, std::uint8_t{0});  // its first cluster
  test::WriteBytes(Image(), bytes);
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kImageUnsound));
  EXPECT_EQ(Pass({GuardedHazard::kImageUnsound}).outcome, kDone);
  ASSERT_EQ(OnHost(), (FileTree{{"SUB/a.txt", "a"}, {"b.txt", "b"}, {"c.txt", "c"}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"SUB/A.TXT", "a"}, {"B.TXT", "b"}, {"C.TXT", "c"}}));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
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

TEST_F(GuardedPassTest, ImageInsideTheFolder_IsRefusedAndLeftOutWhenAccepted) {
  folder.File("host/a.txt", "a");
  BuildImage();
  std::filesystem::rename(Image(), Host() / "DISK.IMG");
  const auto inside = CreateGuardedFolderSync(Host() / "DISK.IMG", Host(), options);
  GuardedReport report = inside->Pass();
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kNested));
  EXPECT_EQ(OnHost().size(), 2u);
  EXPECT_FALSE(folder.Exists("host/DISK.IMG.sync"));
  report = inside->Pass({GuardedHazard::kNested});
  EXPECT_EQ(report.outcome, kNothingToDo) << report.message;
  EXPECT_EQ(report.files, 1u);
}

TEST_F(GuardedPassTest, ImageThatIsNoFile_IsToldForWhatItIs) {
  folder.File("host/a.txt", "a").Pipe("DISK.IMG");
  GuardedReport report = Pass();
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kImageUnreadable));
  EXPECT_EQ(report.message,
            "the image " + Image().string() + " is a pipe and no file. Name the file");
  folder.Remove("DISK.IMG").Folder("DISK.IMG");
  report = Pass();
  EXPECT_EQ(report.message,
            "the image " + Image().string() + " is a folder and no file. Name the file");
}

TEST_F(GuardedPassTest, FileThatIsNoImage_GetsNoStateFolder) {
  folder.File("host/a.txt", "a").File("DISK.IMG", "a photograph");
  EXPECT_EQ(Pass().outcome, kRefused);
  EXPECT_FALSE(folder.Exists("DISK.IMG.sync"));
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

TEST_F(GuardedPassTest, ManyDeletions_AreRefused) {
  for (int i = 0; i < 30; ++i) folder.File("host/F" + std::to_string(i), "x");
  BuildAndAgree();
  for (int i = 0; i < 20; ++i) folder.Remove("host/F" + std::to_string(i));
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kManyDeletions));
  EXPECT_EQ(Pass({GuardedHazard::kManyDeletions}).outcome, kDone);
  EXPECT_THAT(OnDisk(), SizeIs(10));
}

TEST_F(GuardedPassTest, ManyDeletions_AreAsManyAsTheOptionsSay) {
  for (int i = 0; i < 4; ++i) folder.File("host/F" + std::to_string(i), "x");
  BuildAndAgree();
  folder.Remove("host/F0").Remove("host/F1");
  options.mostDeletions = 1;
  options.mostDeletedShare = 0.25;
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kManyDeletions));
  options.mostDeletedShare = 0.75;
  EXPECT_THAT(HazardsOf(Preview()), IsEmpty());
  options.mostDeletedShare = 0.25;
  options.mostDeletions = 2;
  EXPECT_EQ(Pass().outcome, kDone);
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

// By default a file that was changed less than two seconds ago is left to whoever is at it.
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

// As another user, who may read and write all but one thing: 0 when `what` holds there.
class WithoutRights : public GuardedPair {
 protected:
  int AsNobody(const std::function<bool()>& what) const {
    namespace fs = std::filesystem;
    for (const fs::path& place : {folder.Path(), StateFolder()}) {
      fs::permissions(place, fs::perms{0777});
    }
    for (const fs::path& file : {Image(), StateFolder() / "state", StateFolder() / "lock"}) {
      fs::permissions(file, fs::perms{0666});
    }
    return test::RunInChild({.dropRoot = true}, [&] { return what() ? 0 : 1; });
  }
};

TEST_F(WithoutRights, FolderThatMayNotBeListed_IsRefused) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  std::filesystem::permissions(Host(), std::filesystem::perms{0});
  EXPECT_EQ(AsNobody([&] {
              const GuardedReport report = Sync()->Pass({GuardedHazard::kFolderEmpty});
              return report.outcome == kRefused &&
                     HazardsOf(report) == std::vector{GuardedHazard::kFolderUnreadable};
            }),
            0);
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "a"}}));
}

TEST_F(WithoutRights, FileThatMayNotBeRead_IsRefusedAndStaysOnBothSidesWhenAccepted) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  folder.File("host/b.txt", "edited");
  std::filesystem::permissions(Host(), std::filesystem::perms{0777});
  std::filesystem::permissions(Host() / "a.txt", std::filesystem::perms{0});
  EXPECT_EQ(AsNobody([&] {
              const GuardedReport report = Sync()->Pass();
              return report.outcome == kRefused &&
                     HazardsOf(report) == std::vector{GuardedHazard::kEntryUnreadable} &&
                     report.hazards[0].paths == std::vector<std::string>{"a.txt"};
            }),
            0);
  EXPECT_EQ(
      AsNobody([&] { return Sync()->Pass({GuardedHazard::kEntryUnreadable}).outcome == kDone; }),
      0);
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "a"}, {"B.TXT", "edited"}}));
  EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "a"}, {"b.txt", "edited"}}));
}

// What lies behind the end of an index that loops is not seen: it is not taken for deleted.
TEST_F(GuardedPassTest, DirectoryThatLoops_IsRefusedWhateverIsAccepted) {
  for (int i = 0; i < 40; ++i) folder.File("host/d/f" + std::to_string(i), "x");
  BuildAndAgree();
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  const std::string name = "D          ";
  const auto slot = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
  ASSERT_NE(slot, bytes.end());
  const std::uint16_t first = LoadU16(&*slot + 26);
  const std::size_t fatBytes = std::size_t{512} * LoadU16(&bytes[512 + 22]);
  for (const std::size_t fat : {std::size_t{1024}, 1024 + fatBytes}) {
    StoreU16(&bytes[fat + 2 * std::size_t{first}], first);
  }
  test::WriteBytes(Image(), bytes);
  const GuardedReport report = Pass(
      {GuardedHazard::kImageUnsound, GuardedHazard::kManyDeletions, GuardedHazard::kImageEmpty});
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(HazardsOf(report), testing::Contains(GuardedHazard::kImageCutShort));
  EXPECT_THAT(OnHost(), SizeIs(40));
}

TEST_F(GuardedPassTest, KindClash_IsRefusedAndKeptApartWhenAccepted) {
  folder.File("host/a", "file");
  BuildAndAgree();
  GuestRemoves("A");
  GuestMakesFolder("A");
  EXPECT_THAT(HazardsOf(Pass()), testing::Contains(GuardedHazard::kKindClash));
  EXPECT_EQ(Pass({GuardedHazard::kKindClash, GuardedHazard::kImageEmpty}).outcome, kDone);
  EXPECT_EQ(OnHost().at("a"), "file");
  EXPECT_TRUE(std::filesystem::is_directory(Host() / "A (disk)"));
}

TEST_F(GuardedPassTest, OtherPartition_IsRefusedAndLeftOutWhenAccepted) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  bytes.resize(bytes.size() + 512 * 100);
  const std::size_t second = 446 + 16;
  bytes[second + 4] = 0x83;
  StoreU32(&bytes[second + 8], static_cast<std::uint32_t>(bytes.size() / 512 - 100));
  StoreU32(&bytes[second + 12], 100);
  test::WriteBytes(Image(), bytes);
  folder.File("host/a.txt", "edited");
  const GuardedReport refused = Pass();
  EXPECT_EQ(refused.outcome, kRefused);
  EXPECT_THAT(HazardsOf(refused),
              ElementsAre(GuardedHazard::kImageResized, GuardedHazard::kOtherPartitions));
  EXPECT_EQ(test::ReadBytes(Image()), bytes);
  const GuardedReport done = Pass({GuardedHazard::kImageResized, GuardedHazard::kOtherPartitions});
  EXPECT_EQ(done.outcome, kDone) << done.message;
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "edited"}}));
  EXPECT_EQ(test::ReadBytes(Image())[second + 4], 0);
  EXPECT_EQ(InTrash().at("image replaced DISK.IMG"), std::string(bytes.begin(), bytes.end()));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

// --- what a new image keeps

TEST_F(GuardedPassTest, NewImage_KeepsLabelBootCodeAndMarks) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  bytes[100] = 0x5A;        // boot code
  bytes[512 + 100] = 0xA5;  // the volume's
  test::WriteBytes(Image(), bytes);
  GuestWrites("SYS.COM", "s");
  EXPECT_EQ(Pass().outcome, kDone);
  folder.File("host/new.txt", "n");
  EXPECT_EQ(Pass().outcome, kDone);
  bytes = test::ReadBytes(Image());
  EXPECT_EQ(bytes[100], 0x5A);
  EXPECT_EQ(bytes[512 + 100], 0xA5);
  const std::string text(bytes.begin(), bytes.end());
  EXPECT_EQ(text.substr(512 + 43, 11), "HOST       ");
  const std::size_t slot = text.find("SYS     COM");
  ASSERT_NE(slot, text.npos);
  EXPECT_EQ(bytes[slot + 24], 0x75);  // the date
  EXPECT_EQ(bytes[slot + 25], 0x5D);
}

TEST_F(GuardedPassTest, VolumeThatBeginsElsewhere_IsToldUntilItIsMadeAnew) {
  folder.File("host/a.txt", "a");
  BuildImage();
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  StoreU32(&bytes[446 + 8], 2048);
  bytes.insert(bytes.begin() + 512, 2047 * 512, 0);
  test::WriteBytes(Image(), bytes);
  EXPECT_THAT(NotesOf(Pass()),
              ElementsAre("the volume begins in sector 2048: in sector 1 of the next image"));
  EXPECT_THAT(NotesOf(Preview()), SizeIs(1));
  folder.File("host/b.txt", "b");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(LoadU32(&test::ReadBytes(Image())[446 + 8]), 1u);
  EXPECT_THAT(NotesOf(Pass()), IsEmpty());
}

TEST_F(GuardedPassTest, SizeThatIsNoWholeNumberOfSectors_IsToldUntilItIs) {
  folder.File("host/a.txt", "a");
  BuildImage();
  std::filesystem::resize_file(Image(), kImageBytes + 100);
  const std::string note =
      "the image has 3145828 bytes, no whole number of sectors: 3145728 in the next one";
  EXPECT_THAT(NotesOf(Pass()), ElementsAre(note));
  EXPECT_THAT(NotesOf(Preview()), ElementsAre(note));
  folder.File("host/b.txt", "b");
  options.inPlace = true;
  EXPECT_THAT(NotesOf(Pass()), IsEmpty());
  EXPECT_EQ(std::filesystem::file_size(Image()), kImageBytes + 100);
  options.inPlace = false;
  folder.File("host/c.txt", "c");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(std::filesystem::file_size(Image()), kImageBytes);
  EXPECT_THAT(NotesOf(Pass()), IsEmpty());
}

TEST_F(GuardedPassTest, ImageInPlace_KeepsItsInode) {
  folder.File("host/a.txt", "a");
  options.inPlace = true;
  BuildAndAgree();
  struct ::stat before;
  struct ::stat after;
  ASSERT_EQ(::stat(Image().c_str(), &before), 0);
  folder.File("host/a.txt", "new");
  EXPECT_EQ(Pass().outcome, kDone);
  ASSERT_EQ(::stat(Image().c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(OnDisk().at("A.TXT"), "new");
}

TEST_F(GuardedPassTest, NewImage_HasTheOldOnesModeAndOwner) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  ASSERT_EQ(::chmod(Image().c_str(), 0640), 0);
  ASSERT_EQ(::chown(Image().c_str(), 65534, 65534), 0);
  folder.File("host/a.txt", "new");
  EXPECT_EQ(Pass().outcome, kDone);
  struct ::stat after;
  ASSERT_EQ(::stat(Image().c_str(), &after), 0);
  EXPECT_EQ(after.st_mode & 07777u, 0640u);
  EXPECT_EQ(after.st_uid, 65534u);
}

TEST_F(GuardedPassTest, ImageBehindALink_IsReplacedItself) {
  folder.File("host/a.txt", "a");
  BuildImage();
  std::filesystem::rename(Image(), folder / "real.img");
  folder.Link("DISK.IMG", "real.img");
  EXPECT_EQ(Sync()->Pass().outcome, kNothingToDo);
  folder.File("host/a.txt", "new");
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_TRUE(std::filesystem::is_symlink(Image()));
  EXPECT_EQ(OnDisk().at("A.TXT"), "new");
  EXPECT_TRUE(folder.Exists("real.img.sync/state"));
}

// --- the first meeting

TEST_F(GuardedPassTest, StateFolder_LiesBesideTheImageItself) {
  folder.File("host/a.txt", "a").Folder("links");
  folder.Link("links/disk", Image());
  EXPECT_EQ(DefaultStateFolder(Image()), StateFolder());  // of an image that is not there yet
  BuildImage();
  EXPECT_EQ(DefaultStateFolder(folder / "links/disk"), StateFolder());
  EXPECT_EQ(DefaultStateFolder(folder / "links/.." / "DISK.IMG"), StateFolder());
  const auto sync = CreateGuardedFolderSync(folder / "links/disk", Host(), options);
  EXPECT_EQ(sync->Pass().outcome, kNothingToDo);
  EXPECT_TRUE(std::filesystem::exists(StateFolder() / "state"));
  folder.Remove("DISK.IMG");
  EXPECT_EQ(DefaultStateFolder(folder / "links/disk"), StateFolder());
}

TEST_F(GuardedPassTest, OldBuild_GivesWayToTheHostsVersion) {
  folder.File("host/a.txt", "old");
  BuildImage();
  folder.File("host/a.txt", "new");
  const GuardedReport report = Pass();
  EXPECT_TRUE(report.isFirstMeeting);
  EXPECT_EQ(report.outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "new"}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "new"}}));
}

TEST_F(GuardedPassTest, FileThatAMachineHasWritten_IsAConflictAtTheFirstMeeting) {
  folder.File("host/a.txt", "old");
  BuildImage();
  GuestWrites("A.TXT", "of the guest");
  folder.File("host/a.txt", "of the host");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_THAT(OnHost(), SizeIs(2));
}

// A link to a folder takes no part, and can lead to any number of files that a build has copied.
TEST_F(GuardedPassTest, FirstMeetingThatIsStopped_DoesNotFollowLinksToTheirEnd) {
  folder.File("host/a.txt", "a").Folder("elsewhere").Link("host/link", "../elsewhere");
  BuildImage();
  std::atomic<bool> stop = false;
  WorkMonitor monitor(&stop, {});
  const Observation seen{.host = {{"a.txt", {}}}, .disk = {{"A.TXT", {}}}, .hostLeftOut = {"link"}};
  EXPECT_EQ(MeetFirst(Host(), seen, monitor).names.size(), 1u);
  stop = true;
  EXPECT_TRUE(MeetFirst(Host(), seen, monitor).names.empty());
}

TEST_F(GuardedPassTest, EmptyFolder_IsFilledFromTheDisk) {
  folder.File("host/a.txt", "a").File("host/SUB/b.txt", "b");
  BuildImage();
  folder.Remove("host/a.txt").Remove("host/SUB");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "a"}, {"SUB/B.TXT", "b"}}));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
