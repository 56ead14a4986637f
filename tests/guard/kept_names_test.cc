// Names of both sides that find each other, at the first meeting and later, and stay what they are.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "guard/first_meeting.h"
#include "guard/guarded_pair.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using enum GuardedOutcome;

class KeptNames : public GuardedPair {};

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

TEST_F(KeptNames, NameThatOnlyAMachineGives_GetsNoTwinsAtNewMeetings) {
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

TEST_F(KeptNames, ManyPhotosOfOneBeginning_AreAllCarried) {
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

TEST_F(KeptNames, RenameInLetterCaseAlone_ChangesNothingOnTheDisk) {
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

TEST_F(KeptNames, DeletionOfWhatALinkLeadsTo_LeavesTheGuestTheFileThatItHasOfTheLink) {
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

TEST_F(KeptNames, NewLinkThroughALinkWhoseFileIsDeleted_LeadsToWhatComesThere) {
  folder.File("host/a.txt", "one").Link("host/b.txt", "a.txt");
  BuildAndAgree();
  folder.Link("host/c.txt", "b.txt");
  GuestRemoves("A.TXT");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk(), (FileTree{{"B.TXT", "one"}, {"C.TXT", "one"}}));
  EXPECT_FALSE(std::filesystem::is_symlink(Host() / "b.txt"));
  EXPECT_EQ(folder.Read("host/c.txt"), "one");
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

// The disk has nothing of its own of it yet.
TEST_F(KeptNames, DeletionOfWhatANewLinkLeadsTo_LeavesItLeadingNowhere) {
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

TEST_F(KeptNames, DeletionOnBothSidesOfALinksTwins_IsADeletionOfBoth) {
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
TEST_F(KeptNames, EditOfWhatTheGuestHadInLowerCaseAndHasDeleted_OutweighsTheDeletion) {
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

TEST_F(KeptNames, DeletionInAFolderRenamedInLetterCase_IsADeletion) {
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

TEST_F(KeptNames, FolderMergedIntoOneOfAnotherLetterCase_DoesNotComeBack) {
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

TEST_F(KeptNames, NewFolderOfTheNameThatOneHad_HoldsWhatIsInItAlone) {
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

TEST_F(KeptNames, ReplacedFolderWithANewNeighbour_KeepsTheOldNames) {
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

TEST_F(KeptNames, StateFolder_LiesBesideTheImageItself) {
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

TEST_F(KeptNames, OldBuild_GivesWayToTheHostsVersion) {
  folder.File("host/a.txt", "old");
  BuildImage();
  folder.File("host/a.txt", "new");
  const GuardedReport report = Pass();
  EXPECT_TRUE(report.isFirstMeeting);
  EXPECT_EQ(report.outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "new"}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "new"}}));
}

TEST_F(KeptNames, NameOfTheGuestBeyondAscii_IsReadableOnTheHostAndMeetsItsOwnAgain) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  GuestMakesFolder("M\x81LL");
  GuestWrites("M\x81LL/CAF\x82.TXT", "c");
  EXPECT_EQ(Pass().outcome, kDone);
  const FileTree host{{"M\xC3\xBCLL/CAF\xC3\xA9.TXT", "c"}, {"a.txt", "a"}};
  EXPECT_EQ(OnHost(), host);
  folder.File("host/M\xC3\xBCLL/CAF\xC3\xA9.TXT", "of the host");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "a"}, {"M\x81LL/CAF\x82.TXT", "of the host"}}));
  // Also when nothing is remembered.
  std::filesystem::remove_all(StateFolder());
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(KeptNames, FileThatAMachineHasWritten_IsAConflictAtTheFirstMeeting) {
  folder.File("host/a.txt", "old");
  BuildImage();
  GuestWrites("A.TXT", "of the guest");
  folder.File("host/a.txt", "of the host");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_THAT(OnHost(), SizeIs(2));
}

// A link to a folder takes no part, and can lead to any number of files that a build has copied.
TEST_F(KeptNames, FirstMeetingThatIsStopped_DoesNotFollowLinksToTheirEnd) {
  folder.File("host/a.txt", "a").Folder("elsewhere").Link("host/link", "../elsewhere");
  BuildImage();
  std::atomic<bool> stop = false;
  WorkMonitor monitor(&stop, {});
  const Observation seen{
      .host = {{"a.txt", {}}}, .disk = {{DiskKey("A.TXT"), {}}}, .hostLeftOut = {"link"}};
  EXPECT_EQ(MeetFirst(Host(), seen, monitor).names.size(), 1u);
  stop = true;
  EXPECT_TRUE(MeetFirst(Host(), seen, monitor).names.empty());
}

// One that asked a build for its image would be without them.
TEST_F(KeptNames, FilesForWhichABuildHasNoNameLeft_AreCarriedAllTheSame) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  for (int n = 0; n < 102; ++n) folder.File("host/The same name " + std::to_string(n), "n");
  const auto builder = CreateFat16Builder();
  ASSERT_TRUE(builder->Build(Host(), folder / "BUILT.IMG", kImageBytes));
  EXPECT_THAT(builder->SkippedFiles(), SizeIs(2));
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk().size(), 103u);
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

// As a source checkout has them beside what a build makes.
TEST_F(KeptNames, LinkThatLedNowhere_IsAFileOfItsOwnAsSoonAsAPassMakesWhatItNames) {
  folder.File("host/a.txt", "a");
  folder.Link("host/link", "NEW.TXT").Link("host/to the link", "link").Link("host/deep", "D/E.TXT");
  folder.Link("host/.dot", "NEW.TXT").Link("host/by a dot", ".dot");
  folder.Link("host/round", "round").Link("host/never", "none");
  BuildAndAgree();
  GuestWrites("NEW.TXT", "new");
  GuestMakesFolder("D");
  GuestWrites("D/E.TXT", "deep");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone);
  EXPECT_EQ(report.notes.size(), 3u);  // of the dot and the last two links
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "a"},
                                {"BY_A_DOT", "new"},
                                {"NEW.TXT", "new"},
                                {"D/E.TXT", "deep"},
                                {"DEEP", "deep"},
                                {"LINK", "new"},
                                {"TO_THE_L", "new"}}));
  EXPECT_TRUE(std::filesystem::is_symlink(Host() / "link"));
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(KeptNames, EmptyFolder_IsFilledFromTheDisk) {
  folder.File("host/a.txt", "a").File("host/SUB/b.txt", "b");
  BuildImage();
  folder.Remove("host/a.txt").Remove("host/SUB");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "a"}, {"SUB/B.TXT", "b"}}));
}
}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
