// Hazards that keep a pass from being carried out, from end to end, and what comes of those that
// are accepted.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/byte_order.h"
#include "guard/guarded_pair.h"
#include "guard/hazards.h"
#include "support/child_process.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using enum GuardedOutcome;

class RefusedPass : public GuardedPair {};

TEST_F(RefusedPass, FolderNamedForTheState_StaysAsItIs) {
  folder.File("host/a.txt", "a").File("mine/letter.txt", "dear aunt");
  BuildImage();
  options.stateFolder = folder / "mine";
  std::filesystem::rename(Image(), folder / "away.img");
  EXPECT_EQ(Sync()->Pass().outcome, kRefused);
  EXPECT_EQ(folder.Files("mine"), (FileTree{{"letter.txt", "dear aunt"}}));
  std::filesystem::rename(folder / "away.img", Image());
  EXPECT_EQ(Sync()->Pass().outcome, kNothingToDo);
  EXPECT_TRUE(folder.Exists("mine/state"));
}

TEST_F(RefusedPass, AnotherFolder_IsRefusedAndMergedWhenAccepted) {
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

TEST_F(RefusedPass, FileLargerThanTheImage_IsRefusedWithoutReadingIt) {
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

TEST_F(RefusedPass, FolderThatFillsTheLastCluster_FitsAndOneByteMoreDoesNot) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  const std::size_t free = test::GuestEditor(Image()).FreeClusters();
  folder.File("host/b.bin", std::string((free - 1) * 512, 'b')).Folder("host/D");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(test::GuestEditor(Image()).FreeClusters(), 0u);
  folder.File("host/b.bin", std::string((free - 1) * 512 + 1, 'b'));
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kDoesNotFit));
  folder.File("host/b.bin", std::string((free - 1) * 512, 'c')).Folder("host/E");
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kDoesNotFit));
}

TEST_F(RefusedPass, Preview_LeavesBothSidesAndTheStateAsTheyAre) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b").File("host/c.txt", "c");
  BuildAndAgree();
  folder.File("host/a.txt", "edited");
  GuestWrites("B.TXT", "of the guest");
  GuestRemoves("C.TXT");
  const auto all = [&] {
    std::map<std::string, std::pair<std::string, std::filesystem::file_time_type>> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.Path())) {
      const bool isFile = entry.is_regular_file();
      files[entry.path()] = {isFile ? test::ReadWholeFile(entry.path()) : "",
                             entry.last_write_time()};
    }
    return files;
  };
  const auto before = all();
  EXPECT_EQ(Preview().steps.size(), 3u);
  EXPECT_EQ(all(), before);
}

TEST_F(RefusedPass, DamagedState_IsRefusedAndMergedWhenAccepted) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  test::WriteWholeFile(StateFolder() / "state", "something else");
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kStateDamaged));
  EXPECT_EQ(Pass({GuardedHazard::kStateDamaged}).outcome, kNothingToDo);
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

TEST_F(RefusedPass, SomebodyElsesFileInTheLocksPlace_IsToldBeforehandAndLeftAlone) {
  folder.File("host/a.txt", "a").File("DISK.IMG.sync/lock", "mine");
  BuildImage();
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kStateNotWritable));
  EXPECT_THAT(report.message, testing::HasSubstr((StateFolder() / "lock").string() +
                                                 " is no lock of this program"));
  EXPECT_EQ(folder.Read("DISK.IMG.sync/lock"), "mine");
}

TEST_F(RefusedPass, SomebodyElsesFileInTheTrashsPlace_IsToldBeforehandAndLeftAlone) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/a.txt", "edited");
  for (const char* kind : {"file", "link"}) {
    std::filesystem::remove_all(StateFolder() / "trash");
    if (kind == std::string("file")) folder.File("DISK.IMG.sync/trash", "mine");
    if (kind == std::string("link")) {
      std::filesystem::create_symlink("nowhere", StateFolder() / "trash");
    }
    EXPECT_EQ(Sync()->Preview().outcome, kRefused) << kind;
    const GuardedReport report = Pass();
    EXPECT_EQ(report.outcome, kRefused) << kind;
    EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kStateNotWritable)) << kind;
    EXPECT_THAT(report.message,
                testing::HasSubstr((StateFolder() / "trash").string() + " is no folder"));
    EXPECT_TRUE(std::filesystem::is_symlink(StateFolder() / "trash") ||
                folder.Read("DISK.IMG.sync/trash") == "mine");
  }
  std::filesystem::remove(StateFolder() / "trash");
  EXPECT_EQ(Pass().outcome, kDone);
}

TEST_F(RefusedPass, DamagedState_IsKeptUnderAnotherName) {
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

TEST_F(RefusedPass, FileThatBothSidesHaveDeleted_IsNoReasonToAsk) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.Remove("host/a.txt");
  GuestRemoves("A.TXT");
  const GuardedReport report = Pass();
  EXPECT_THAT(report.hazards, IsEmpty());
  EXPECT_THAT(report.steps, IsEmpty());
  EXPECT_EQ(report.outcome, kNothingToDo);
}

TEST_F(RefusedPass, StateBehindALinkThatLeadsRoundAndRound_IsNotToldAsNested) {
  folder.File("host/a.txt", "a").Link("loop", "loop");
  BuildImage();
  options.stateFolder = folder / "loop/state";
  const GuardedReport report = Sync()->Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_FALSE(
      quorbix::virtdisk::internal::guard::Contains(report.hazards, GuardedHazard::kNested));
}

// A slip in its name must not cost the reading of everything.
TEST_F(RefusedPass, MissingImage_IsToldWithoutReadingTheFolder) {
  folder.File("host/large", "");
  std::filesystem::resize_file(Host() / "large", std::uint64_t{1} << 30);
  std::uint64_t read = 0;
  options.onProgress = [&](const GuardedProgress& told) { read += told.bytes; };
  EXPECT_THAT(HazardsOf(Sync()->Pass()), ElementsAre(GuardedHazard::kImageMissing));
  EXPECT_EQ(read, 0u);
}

TEST_F(RefusedPass, DirectoriesThatAreNestedDeeperThanAnySystemTakes_AreRefused) {
  BuildImage();
  test::GuestEditor guest(Image());
  std::string path = "ABCDEFGH";
  for (int depth = 0; depth < 1000 && guest.MakeFolder(path); ++depth) path += "/ABCDEFGH";
  guest.Save();
  const GuardedReport report = Pass();
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kImageCutShort));
  EXPECT_THAT(report.message, testing::HasSubstr("its directories are nested too deep"));
}

TEST_F(RefusedPass, ResizedImage_IsRefused) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  std::filesystem::resize_file(Image(), kImageBytes + 1024);
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kImageResized));
}

TEST_F(RefusedPass, DifferingFats_AreRefused) {
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
TEST_F(RefusedPass, DamagedChains_AreRefused) {
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

TEST_F(RefusedPass, StateInsideTheFolder_IsRefusedAndLeftOutWhenAccepted) {
  folder.File("host/a.txt", "a");
  BuildImage();
  options.stateFolder = Host() / "state";
  EXPECT_THAT(HazardsOf(Sync()->Pass()), ElementsAre(GuardedHazard::kNested));
  EXPECT_FALSE(folder.Exists("host/state"));
  EXPECT_EQ(Sync()->Pass({GuardedHazard::kNested}).outcome, kNothingToDo);
  EXPECT_EQ(Sync()->Pass({GuardedHazard::kNested}).files, 1u);
}

TEST_F(RefusedPass, FolderInsideTheState_IsRefusedWhateverIsAccepted) {
  folder.File("host/a.txt", "a");
  BuildImage();
  options.stateFolder = folder.Path();
  const GuardedReport report = Sync()->Pass({GuardedHazard::kNested});
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(HazardsOf(report), testing::Contains(GuardedHazard::kNested));
  EXPECT_FALSE(folder.Exists("state"));
}

TEST_F(RefusedPass, FoldersThatMayNotBeWritten_AreNamed) {
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

TEST_F(RefusedPass, WhatABrokenDirectoryHeld_IsTakenFromTheFolderWhenAccepted) {
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

TEST_F(RefusedPass, ImageInsideTheFolder_IsRefusedAndLeftOutWhenAccepted) {
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

TEST_F(RefusedPass, FolderThatIsNone_IsToldForWhatItIs) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("file").Pipe("pipe").Link("nowhere", "none").Link("link", "host");
  const auto textOf = [&](const char* name) {
    const GuardedReport report =
        CreateGuardedFolderSync(Image(), folder / name, options)
            ->Pass({GuardedHazard::kFolderReplaced, GuardedHazard::kFolderMissing});
    return report.outcome == kRefused ? report.message : "(not refused)";
  };
  EXPECT_EQ(textOf("file"), (folder / "file").string() + " is no folder. Name the folder");
  EXPECT_EQ(textOf("pipe"), (folder / "pipe").string() + " is no folder. Name the folder");
  EXPECT_EQ(textOf("nowhere"),
            (folder / "nowhere").string() + " is a link that leads nowhere. Name the folder");
  EXPECT_EQ(textOf("link"), "(not refused)");
}

TEST_F(RefusedPass, ImageThatIsNoFile_IsToldForWhatItIs) {
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

TEST_F(RefusedPass, FileThatIsNoImage_GetsNoStateFolder) {
  folder.File("host/a.txt", "a").File("DISK.IMG", "a photograph");
  EXPECT_EQ(Pass().outcome, kRefused);
  EXPECT_FALSE(folder.Exists("DISK.IMG.sync"));
}

TEST_F(RefusedPass, ManyDeletions_AreRefused) {
  for (int i = 0; i < 30; ++i) folder.File("host/F" + std::to_string(i), "x");
  BuildAndAgree();
  for (int i = 0; i < 20; ++i) folder.Remove("host/F" + std::to_string(i));
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kManyDeletions));
  EXPECT_EQ(Pass({GuardedHazard::kManyDeletions}).outcome, kDone);
  EXPECT_THAT(OnDisk(), SizeIs(10));
}

TEST_F(RefusedPass, ManyDeletions_AreAsManyAsTheOptionsSay) {
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

// Whether the file system knows files that nobody may change, and this process may make them.
bool SetFixed(const std::filesystem::path& file, bool isFixed) {
  const int opened = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  int flags = 0;
  bool isSet = ::ioctl(opened, FS_IOC_GETFLAGS, &flags) == 0;
  flags = isFixed ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
  isSet = isSet && ::ioctl(opened, FS_IOC_SETFLAGS, &flags) == 0;
  ::close(opened);
  return isSet;
}

TEST_F(RefusedPass, StateThatNobodyMayChange_IsToldBeforehand) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  folder.File("host/a.txt", "edited");
  if (!SetFixed(StateFolder() / "state", true)) GTEST_SKIP() << "this file system cannot";
  const GuardedReport report = Pass();
  SetFixed(StateFolder() / "state", false);
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kStateNotWritable));
  EXPECT_EQ(Pass().outcome, kDone);
}

TEST_F(RefusedPass, StateBelowAFile_IsToldBeforehand) {
  folder.File("host/a.txt", "a").File("program", "");
  std::filesystem::permissions(folder / "program", std::filesystem::perms{0777});
  BuildImage();
  options.stateFolder = folder / "program/state";
  EXPECT_THAT(HazardsOf(Pass()), ElementsAre(GuardedHazard::kStateNotWritable));
}

TEST_F(RefusedPass, FileThatNobodyMayChange_IsToldBeforehand) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  GuestWrites("A.TXT", "new");
  GuestWrites("B.TXT", "new");
  if (!SetFixed(Host() / "a.txt", true)) GTEST_SKIP() << "this file system cannot";
  const GuardedReport report = Pass();
  SetFixed(Host() / "a.txt", false);
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(HazardsOf(report), ElementsAre(GuardedHazard::kFolderNotWritable));
  EXPECT_THAT(report.hazards.at(0).paths, ElementsAre("a.txt"));
  EXPECT_EQ(OnHost().at("b.txt"), "b");
  EXPECT_EQ(Pass().outcome, kDone);
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

// Its entries could not be written out to the disk.
TEST_F(WithoutRights, FolderOfTheImageThatMayNotBeListed_IsRefused) {
  folder.File("host/a.txt", "a").Folder("disk");
  BuildImage();
  std::filesystem::rename(Image(), folder / "disk/DISK.IMG");
  options.stateFolder = StateFolder();
  folder.Folder("DISK.IMG.sync");
  const std::filesystem::path image = folder / "disk/DISK.IMG";
  ASSERT_EQ(CreateGuardedFolderSync(image, Host(), options)->Pass().outcome, kNothingToDo);
  folder.File("host/a.txt", "edited");
  namespace fs = std::filesystem;
  fs::permissions(image, fs::perms{0666});
  fs::permissions(folder / "disk", fs::perms{0333});
  for (const fs::path& place : {folder.Path(), StateFolder()})
    fs::permissions(place, fs::perms{0777});
  for (const auto& entry : fs::directory_iterator(StateFolder())) {
    fs::permissions(entry.path(), fs::perms{0666});
  }
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    const GuardedReport report = CreateGuardedFolderSync(image, Host(), options)->Pass();
    if (report.outcome != kRefused) return 1;
    return HazardsOf(report) == std::vector{GuardedHazard::kImageNotWritable} ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
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
TEST_F(RefusedPass, DirectoryThatLoops_IsRefusedWhateverIsAccepted) {
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

TEST_F(RefusedPass, KindClash_IsRefusedAndKeptApartWhenAccepted) {
  folder.File("host/a", "file");
  BuildAndAgree();
  GuestRemoves("A");
  GuestMakesFolder("A");
  EXPECT_THAT(HazardsOf(Pass()), testing::Contains(GuardedHazard::kKindClash));
  EXPECT_EQ(Pass({GuardedHazard::kKindClash, GuardedHazard::kImageEmpty}).outcome, kDone);
  EXPECT_EQ(OnHost().at("a"), "file");
  EXPECT_TRUE(std::filesystem::is_directory(Host() / "A (disk)"));
}

TEST_F(RefusedPass, OtherPartition_IsRefusedAndLeftOutWhenAccepted) {
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
}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
