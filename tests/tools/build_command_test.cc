#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "build_run.h"
#include "program_run.h"
#include "support/child_process.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::BuildDisk;
using test::kMiB;
using test::ProgramRun;
using test::RunVirtdisk;
using test::TempFolder;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

TEST(BuildCommand, SmallFolder_MakesAnImageOf3MiB) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "abc");
  const ProgramRun run = BuildDisk(folder);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.err, IsEmpty());
  EXPECT_EQ(fs::file_size(folder / "disk.img"), 3 * kMiB);
}

TEST(BuildCommand, Summary_TellsTheVolume) {
  TempFolder folder;
  folder.File("DISK/A.TXT", std::string(513, 'a')).Folder("DISK/SUB").File("DISK/SUB/EMPTY");
  const std::string out = BuildDisk(folder).out;
  EXPECT_THAT(out, HasSubstr("disk.img, 3 MiB\n"));
  EXPECT_THAT(out, HasSubstr("  label           DISK\n"));
  EXPECT_THAT(out, ::testing::ContainsRegex("  volume id       [0-9A-F]{4}-[0-9A-F]{4}\n"));
  EXPECT_THAT(out, HasSubstr("  cluster size    512 bytes\n"));
  EXPECT_THAT(out, HasSubstr("  clusters used   3\n"));
  EXPECT_THAT(out, HasSubstr("  clusters free   6,059\n"));
  EXPECT_THAT(out, HasSubstr("  files           2\n"));
  EXPECT_THAT(out, HasSubstr("  directories     1\n"));
  EXPECT_THAT(out, Not(HasSubstr("left out")));
  EXPECT_THAT(out, Not(HasSubstr("names changed")));
}

TEST(BuildCommand, ChangedNames_AreRemarksAndCountedBySort) {
  TempFolder folder;
  folder.File("DISK/LongFileName.txt").File("DISK/Sub/lower.txt").File("DISK/.profile");
  const ProgramRun run = BuildDisk(folder);
  EXPECT_THAT(run.out,
              HasSubstr("  names changed   1\n  in case alone   2\n  in no listing   1\n"));
  EXPECT_THAT(run.err, HasSubstr("virtdisk: remark: 1 entry has another name:\n"
                                 "  LongFileName.txt -> LONGFILE.TXT\n"));
  EXPECT_THAT(run.err, HasSubstr("virtdisk: remark: 1 entry is in the image, but no listing shows "
                                 "it, since the short name has no base:\n  .profile\n"));
  EXPECT_THAT(run.err, Not(HasSubstr("lower.txt")));
}

TEST(BuildCommand, RemarksOfAKind_AreTheFirstTenUnlessVerbose) {
  TempFolder folder;
  for (int i = 0; i < 13; ++i) folder.File("DISK/a long name " + std::to_string(i));
  const std::string some = BuildDisk(folder).err;
  EXPECT_EQ(std::count(some.begin(), some.end(), '\n'), 12);
  EXPECT_THAT(some, HasSubstr("remark: 13 entries have another name:\n"));
  EXPECT_THAT(some, HasSubstr("\n  and 3 more; --verbose lists all\n"));
  const std::string all = BuildDisk(folder, {"--verbose"}).err;
  EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 14);
  EXPECT_THAT(all, Not(HasSubstr("more;")));
}

TEST(BuildCommand, LargeTreeOfLowerCaseNames_IsBuiltInSilence) {
  TempFolder folder;
  for (int i = 0; i < 300; ++i) folder.File("DISK/file" + std::to_string(i) + ".txt");
  const ProgramRun run = BuildDisk(folder);
  EXPECT_THAT(run.err, IsEmpty());
  EXPECT_THAT(run.out, HasSubstr("  in case alone   300\n"));
}

TEST(BuildCommand, NamesWithControlCharacters_AreMadeSafe) {
  TempFolder folder;
  folder.File("DISK/a\x1b[2J.txt");
  EXPECT_THAT(BuildDisk(folder).err, HasSubstr("  a\\x1B[2J.txt -> A__2J.TXT\n"));
}

TEST(BuildCommand, LinkToTheFolderItself_IsTold) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a").Link("DISK/LOOP", ".");
  const ProgramRun run = BuildDisk(folder);
  EXPECT_THAT(run.err, ::testing::ContainsRegex("remark: [0-9]+ entries were reached through 1 "
                                                "link:\n  LOOP is the folder itself again"));
  EXPECT_THAT(run.out, ::testing::ContainsRegex("  copied again    [0-9]+\n"));
}

TEST(BuildCommand, SkippedEntries_AreToldAndDoNotFail) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a").Link("DISK/MEM", "/proc/self/mem");
  const ProgramRun run = BuildDisk(folder);
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("  left out        1\n"));
  EXPECT_THAT(run.err,
              HasSubstr("remark: 1 entry was left out:\n  " + (folder / "DISK/MEM").string() +
                        " [transient read error \xE2\x80\x94 file may have changed]\n"));
}

TEST(BuildCommand, FileThatMayNotBeRead_IsToldAsThat) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a").Forbidden("DISK/A.TXT");
  fs::permissions(folder.Path(), fs::perms{0777});
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    const ProgramRun run = BuildDisk(folder);
    return run.err.find("A.TXT [no permission to read it]") != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(BuildCommand, StrictWithSkippedEntries_GivesStatus4) {
  TempFolder folder;
  folder.Link("DISK/MEM", "/proc/self/mem");
  EXPECT_EQ(BuildDisk(folder, {"--strict"}).status, 4);
}

TEST(BuildCommand, StrictWithoutRemarks_GivesStatus0) {
  TempFolder folder;
  folder.File("DISK/LongFileName.txt");
  EXPECT_EQ(BuildDisk(folder, {"--strict"}).status, 0);
}

TEST(BuildCommand, DroppedEmptyFile_IsARemark) {
  TempFolder folder;
  for (int i = 0; i < 512; ++i) folder.File("DISK/" + std::to_string(i));
  const ProgramRun run = BuildDisk(folder);
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: remark: Root directory is full"));
  EXPECT_THAT(run.out, HasSubstr("  files           511\n"));
  EXPECT_EQ(BuildDisk(folder, {"--strict"}).status, 4);
}

TEST(BuildCommand, WhatIsNoFile_IsNamed) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a").Pipe("DISK/PIPE").Link("DISK/SUB/GONE", "nowhere");
  const std::string disk = (folder / "DISK").string();
  const std::string image = (folder / "disk.img").string();
  const ProgramRun run = RunVirtdisk({"build", disk, image});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("\n  passed over     2\n"));
  EXPECT_THAT(run.err, HasSubstr("virtdisk: remark: 2 entries were passed over, being neither a "
                                 "file nor a folder:\n  "));
  EXPECT_THAT(run.err, HasSubstr("  PIPE\n"));
  EXPECT_THAT(run.err, HasSubstr("  SUB/GONE\n"));
  const auto names = RunVirtdisk({"build", disk, image, "--json"}).Json()["passedOver"];
  EXPECT_EQ(names.size(), 2u);
}

TEST(BuildCommand, EmptyFilesWithoutASlot_AreCounted) {
  TempFolder folder;
  for (int i = 0; i < 520; ++i) folder.File("DISK/E" + std::to_string(i));
  const std::string disk = (folder / "DISK").string();
  const std::string image = (folder / "disk.img").string();
  const ProgramRun run = RunVirtdisk({"build", disk, image});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("\n  files           511\n"));
  EXPECT_THAT(run.out, HasSubstr("\n  left out        9\n"));
  EXPECT_THAT(run.err, HasSubstr(": 9 empty files were left out of " + image + ":\n  "));
  const auto record = RunVirtdisk({"build", disk, image, "--json"}).Json();
  EXPECT_EQ(record["dropped"], 9);
  EXPECT_EQ(record["droppedFiles"].size(), 9u);
  EXPECT_THAT(RunVirtdisk({"measure", disk}).out,
              HasSubstr("files        511\ndirectories  0\nleft out     9\n"));
}

// Which ones find no slot is for the host to say, in whose order a build takes them.
TEST(BuildCommand, EmptyFilesWithoutASlot_AreNamedTenTimesUnlessVerbose) {
  TempFolder folder;
  for (int i = 0; i < 523; ++i) folder.File("DISK/E" + std::to_string(i));
  const std::string disk = (folder / "DISK").string();
  const std::string image = (folder / "disk.img").string();
  const ProgramRun few = RunVirtdisk({"build", disk, image});
  EXPECT_EQ(std::count(few.err.begin(), few.err.end(), '\n'), 12);
  EXPECT_THAT(few.err, HasSubstr("\n  and 2 more; --verbose lists all\n"));
  const ProgramRun all = RunVirtdisk({"build", disk, image, "--verbose"});
  const std::string listed = RunVirtdisk({"ls", image}).out;
  const nlohmann::json report = RunVirtdisk({"build", disk, image, "--json"}).Json();
  for (const auto& name : report["droppedFiles"]) {
    const std::string text = name.get<std::string>();
    EXPECT_THAT(all.err, HasSubstr("\n  " + text + "\n"));
    EXPECT_THAT("\n" + listed, ::testing::Not(HasSubstr("\n" + text + "\n")));
  }
}

TEST(BuildCommand, FolderMetAgainBehindALink_IsTold) {
  TempFolder folder;
  folder.File("ELSE/LEFT/A.TXT", "a").Link("ELSE/RIGHT", "LEFT").Link("DISK/LINK", "../ELSE");
  const ProgramRun run = BuildDisk(folder);
  EXPECT_THAT(run.err, HasSubstr("remark: 5 entries were reached through 1 link:\n"
                                 "  LINK (5 entries)\n"));
  EXPECT_THAT(run.err,
              ::testing::AnyOf(HasSubstr("  LINK/RIGHT is LINK/LEFT again (2 entries)\n"),
                               HasSubstr("  LINK/LEFT is LINK/RIGHT again (2 entries)\n")));
  const auto links = BuildDisk(folder, {"--json"}).Json()["links"];
  ASSERT_EQ(links.size(), 2u);
  EXPECT_EQ(links[1]["entries"], 2);
}

TEST(BuildCommand, Json_IsOneObject) {
  TempFolder folder;
  folder.File("DISK/lower.txt", "abc").Folder("DISK/SUB").Link("DISK/MEM", "/proc/self/mem");
  const auto record = BuildDisk(folder, {"--json"}).Json();
  EXPECT_EQ(record["image"], (folder / "disk.img").string());
  EXPECT_EQ(record["bytes"], 3 * kMiB);
  EXPECT_EQ(record["label"], "DISK");
  EXPECT_EQ(record["clusterBytes"], 512);
  EXPECT_EQ(record["clustersUsed"], 2);
  EXPECT_EQ(record["clustersFree"], 6060);
  EXPECT_EQ(record["files"], 1);
  EXPECT_EQ(record["directories"], 1);
  EXPECT_EQ(record["skipped"].size(), 1U);
  EXPECT_EQ(record["renamed"][0]["host"], "lower.txt");
  EXPECT_EQ(record["renamed"][0]["image"], "LOWER.TXT");
  EXPECT_EQ(record["links"].size(), 0U);
  EXPECT_TRUE(record["remark"].is_null());
}

TEST(BuildCommand, JsonWithNamesThatAreNoUtf8_IsStillJson) {
  TempFolder folder;
  folder.File("DISK/\xFF\xFE.txt");
  EXPECT_EQ(BuildDisk(folder, {"--json"}).Json()["renamed"][0]["image"], "__.TXT");
}

TEST(BuildCommand, Label_IsTakenInUpperCase) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  EXPECT_EQ(BuildDisk(folder, {"--label", "My disk 12", "--json"}).Json()["label"], "MY DISK 12");
  EXPECT_EQ(BuildDisk(folder, {"--label", "", "--json"}).Json()["label"], "");
}

TEST(BuildCommand, ExchangedArguments_AreTakenAsMeant) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  const std::string disk = (folder / "DISK").string();
  const std::string image = (folder / "NEW.IMG").string();
  for (int i = 0; i < 2; ++i) {  // then the image exists
    const ProgramRun run = RunVirtdisk({"build", image, disk});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_THAT(run.err, HasSubstr("remark: the folder comes first: " + image + " is built from"));
  }
  EXPECT_EQ(RunVirtdisk({"cat", image, "A.TXT"}).out, "a");
}

TEST(BuildCommand, SizeByHand_IsTaken) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  EXPECT_EQ(BuildDisk(folder, {"--size", "5M"}).status, 0);
  EXPECT_EQ(fs::file_size(folder / "disk.img"), 5 * kMiB);
}

TEST(BuildCommand, SizeOfFewClusters_IsBuiltWithAWarning) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  const ProgramRun run = BuildDisk(folder, {"--size", "64K"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: warning: "));
  EXPECT_THAT(run.err, HasSubstr("FAT12"));
  EXPECT_EQ(fs::file_size(folder / "disk.img"), 65536U);
}

TEST(BuildCommand, SizeWithTooShortAFat_IsBuiltWithAWarning) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  const ProgramRun run = BuildDisk(folder, {"--size", "2130944"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.err, HasSubstr("a FAT too short for its clusters"));
}

TEST(BuildCommand, SizeThatOthersRead_HasNoWarning) {
  TempFolder folder;
  folder.File("DISK/A.TXT", "a");
  EXPECT_THAT(BuildDisk(folder, {"--size", "2129920"}).err, IsEmpty());
}

TEST(BuildCommand, PathThatEndsInASeparator_HasNoLabel) {
  TempFolder folder;
  folder.Folder("DISK");
  const ProgramRun run =
      RunVirtdisk({"build", (folder / "DISK/").string(), (folder / "disk.img").string(), "--json"});
  EXPECT_EQ(run.Json()["label"], "");
}

TEST(BuildCommand, Dot_IsLabelledByTheFoldersName) {
  TempFolder folder;
  folder.File("GAMES/SUB/A.TXT", "a");
  for (const char* place : {"GAMES/.", "GAMES/SUB/.."}) {
    const ProgramRun run =
        RunVirtdisk({"build", (folder / place).string(), (folder / "disk.img").string(), "--json"});
    EXPECT_EQ(run.Json()["label"], "GAMES") << place;
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
