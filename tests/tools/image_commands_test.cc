#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "program_run.h"
#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::ImageCrafter;
using test::ProgramRun;
using test::RunVirtdisk;
using test::TempFolder;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// A file with a date, one without, and a directory with a file.
ImageCrafter DatedDisk() {
  ImageCrafter crafter({.label = "CRAFTED"});
  crafter.File(
      "DATED.TXT",
      {.attributes = 0x21, .firstCluster = 2, .size = 5, .writeTime = 0x6C47, .writeDate = 0x5A71});
  crafter.Chain({2}).Data(2, "dated").File("EMPTY");
  crafter.Directory("SUB", 3).Chain({3}).InCluster(3).DotEntries(3, 0);
  crafter.File("B.TXT", {.firstCluster = 4, .size = 600}).Chain({4, 6});
  crafter.Fill(4, 'b').Fill(6, 'c');
  return crafter;
}

class ImageCommands : public ::testing::Test {
 protected:
  ImageCommands() { Write(DatedDisk()); }

  void Write(const ImageCrafter& crafter) {
    test::WriteBytes(folder / "disk.img", crafter.Bytes());
  }
  std::string Image() const { return (folder / "disk.img").string(); }

  TempFolder folder;
};

using InfoCommand = ImageCommands;
using LsCommand = ImageCommands;
using FindCommand = ImageCommands;
using CatCommand = ImageCommands;
using MapCommand = ImageCommands;

TEST_F(InfoCommand, Volume_IsDescribed) {
  const ProgramRun run = RunVirtdisk({"info", Image()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "image        " + Image() +
                         ", 48,640 bytes\n"
                         "partition    type 0x04, sectors from 1, 94 of them\n"
                         "label        CRAFTED\n"
                         "volume id    1234-ABCD\n"
                         "file system  FAT16\n"
                         "clusters     90 of 512 bytes: 4 used, 86 free\n"
                         "full         4 %, 2 KiB of 45 KiB; largest free run 42.5 KiB\n"
                         "fragments    1 of 3 files and directories lie in several parts, 2 of "
                         "them in all\n"
                         "FATs         2 of 1 sector\n"
                         "root         16 entries\n"
                         "files        3, 605 bytes\n"
                         "directories  1\n"
                         "note         with fewer than 4,085 clusters (90), other systems take "
                         "the volume for FAT12\n");
}

TEST_F(InfoCommand, HiddenEntries_AreCounted) {
  ImageCrafter crafter = DatedDisk();
  crafter.InRoot().RawSlot("        PRO", {.firstCluster = 8, .size = 9}).Chain({8});
  crafter.RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 9}).Chain({9});
  crafter.InCluster(9).DotEntries(9, 0).File("HEAD");
  Write(crafter);
  EXPECT_THAT(RunVirtdisk({"info", Image()}).out,
              HasSubstr("hidden       2 files and 1 directory, 9 bytes, that only `ls --all` "
                        "lists\n"));
  const auto record = RunVirtdisk({"info", Image(), "--json"}).Json();
  EXPECT_EQ(record["hiddenFiles"], 2);
  EXPECT_EQ(record["hiddenDirectories"], 1);
  EXPECT_EQ(record["hiddenBytes"], 9);
  EXPECT_EQ(record["files"], 3);
}

TEST_F(InfoCommand, Fat12_IsNamedAndNotRefused) {
  Write(DatedDisk().Byte(512 + 58, '2'));
  const ProgramRun run = RunVirtdisk({"info", Image()});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("note         the volume says FAT12; read as FAT16, its files "));
  EXPECT_EQ(RunVirtdisk({"info", Image(), "--json"}).Json()["takenFor"], "FAT12");
}

TEST_F(InfoCommand, OtherPartitions_AreTold) {
  EXPECT_TRUE(RunVirtdisk({"info", Image(), "--json"}).Json()["otherPartitions"].empty());
  Write(ImageCrafter({.trailingSectors = 100})
            .Byte(462 + 4, 0x83)
            .U32(462 + 8, 95)
            .U32(462 + 12, 60)
            .Byte(478 + 4, 0x0E)
            .U32(478 + 8, 155)
            .U32(478 + 12, 40));
  EXPECT_THAT(RunVirtdisk({"info", Image()}).out,
              ::testing::EndsWith(
                  "\nnote         other partitions are not looked into: type 0x83, type 0x0E\n"));
  const auto others = RunVirtdisk({"info", Image(), "--json"}).Json()["otherPartitions"];
  ASSERT_EQ(others.size(), 2U);
  EXPECT_EQ(others[1]["type"], 14);
  EXPECT_EQ(others[1]["startSector"], 155);
  EXPECT_EQ(others[1]["sectors"], 40);
}

// 12-bit words, so that a sector of the FAT has some for more clusters than 16-bit ones would be
// for.
TEST_F(InfoCommand, Fat12_HasNoNumbersThatCannotBeKnown) {
  ImageCrafter crafter({.clusters = 300});
  crafter.Directory("SUB", 3).Byte(512 + 58, '2');
  Write(crafter);
  const std::string text = RunVirtdisk({"info", Image()}).out;
  EXPECT_THAT(text, HasSubstr("\nclusters     300 of 512 bytes\nFATs         2 of 1 sector\n"
                              "root         16 entries\nnote "));
  const auto record = RunVirtdisk({"info", Image(), "--json"}).Json();
  EXPECT_EQ(record["clusters"], 300);
  for (const char* unknown : {"clustersUsed", "clustersFree", "clustersBad", "largestFreeRun",
                              "fragmented", "fragments", "slackBytes", "files", "directories",
                              "fileBytes", "hiddenFiles", "hiddenDirectories", "hiddenBytes"}) {
    EXPECT_TRUE(record.at(unknown).is_null()) << unknown;
  }
}

// 70,000 clusters of 512 bytes behind 32 sectors and two FATs of 547; what is in them is not there.
std::vector<std::uint8_t> Fat32Boot() {
  std::vector<std::uint8_t> bytes(1024 * 2);
  const auto put = [&](std::size_t offset, std::vector<std::uint8_t> field) {
    std::copy(field.begin(), field.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
  };
  put(11, {0x00, 0x02});              // bytes per sector
  put(13, {1});                       // sectors per cluster
  put(14, {32, 0});                   // reserved sectors
  put(16, {2});                       // FATs
  put(32, {0xD6, 0x15, 0x01, 0x00});  // 71,126 sectors
  put(36, {0x23, 0x02, 0, 0});        // sectors per FAT
  put(48, {1, 0});                    // where the free clusters are counted
  put(66, {0x29, 0xCD, 0xAB, 0x34, 0x12});
  put(71, {'B', 'I', 'G', ' ', 'D', 'I', 'S', 'K', ' ', ' ', ' '});
  put(82, {'F', 'A', 'T', '3', '2', ' ', ' ', ' '});
  put(510, {0x55, 0xAA});
  put(512 + 484, {'r', 'r', 'A', 'a'});
  put(512 + 488, {0x70, 0x11, 0x01, 0});  // 70,000 free
  return bytes;
}

TEST_F(InfoCommand, RealFat32_IsToldAsFarAsItSays) {
  test::WriteBytes(Image(), Fat32Boot());
  const ProgramRun run = RunVirtdisk({"info", Image()});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "image        " + Image() +
                         ", 2,048 bytes\n"
                         "partition    none: the volume begins with the image\n"
                         "label        BIG DISK\n"
                         "volume id    1234-ABCD\n"
                         "file system  FAT32\n"
                         "sectors      71,126 of 512 bytes\n"
                         "clusters     70,000 of 512 bytes: 0 used, 70,000 free, as they were "
                         "counted last\n"
                         "FATs         2 of 547 sectors\n"
                         "note         the volume is FAT32, and virtdisk looks into FAT16 only; "
                         "mtools and 7-Zip read others\n");
  const auto record = RunVirtdisk({"info", Image(), "--json"}).Json();
  EXPECT_EQ(record["takenFor"], "FAT32");
  EXPECT_EQ(record["clusters"], 70000);
  EXPECT_EQ(record["clustersFree"], 70000);
  EXPECT_TRUE(record["files"].is_null());
}

TEST_F(InfoCommand, RealFat32InAPartition_IsFound) {
  std::vector<std::uint8_t> bytes(512);
  bytes[446 + 4] = 0x0C;
  bytes[446 + 8] = 1;
  bytes[446 + 13] = 0x10;  // 4,096 sectors
  bytes[510] = 0x55;
  bytes[511] = 0xAA;
  const std::vector<std::uint8_t> volume = Fat32Boot();
  bytes.insert(bytes.end(), volume.begin(), volume.end());
  test::WriteBytes(Image(), bytes);
  EXPECT_THAT(RunVirtdisk({"info", Image()}).out,
              HasSubstr("partition    type 0x0C, sectors from 1, 4,096 of them\nlabel        BIG"));
}

TEST_F(InfoCommand, Fat32ThatNobodyHasCounted_TellsNoNumbers) {
  std::vector<std::uint8_t> bytes = Fat32Boot();
  for (std::size_t i = 0; i < 4; ++i) bytes[512 + 488 + i] = 0xFF;
  test::WriteBytes(Image(), bytes);
  EXPECT_THAT(RunVirtdisk({"info", Image()}).out, HasSubstr("clusters     70,000 of 512 bytes\n"));
  EXPECT_TRUE(RunVirtdisk({"info", Image(), "--json"}).Json()["clustersFree"].is_null());
}

TEST_F(InfoCommand, VolumeOfEnoughClusters_HasNoNote) {
  Write(ImageCrafter({.sectorsPerFat = 16, .clusters = 4085}));
  const ProgramRun run = RunVirtdisk({"info", Image()});
  EXPECT_THAT(run.out, Not(HasSubstr("note")));
  EXPECT_THAT(run.out,
              HasSubstr("full         0 %, 0 bytes of 2.0 MiB; largest free run 2.0 MiB\n"));
  EXPECT_THAT(run.out, HasSubstr("fragments    none: everything lies in one part\n"));
}

TEST_F(InfoCommand, OneClusterOfThousands_IsNotNothing) {
  ImageCrafter crafter({.sectorsPerFat = 16, .clusters = 4085});
  Write(crafter.File("A", {.firstCluster = 2, .size = 1}).Chain({2}));
  EXPECT_THAT(RunVirtdisk({"info", Image()}).out, HasSubstr("full         less than 1 %, "));
}

TEST_F(InfoCommand, BareVolume_HasNoPartition) {
  Write(ImageCrafter({.partitioned = false}));
  EXPECT_THAT(RunVirtdisk({"info", Image()}).out, HasSubstr("partition    none"));
  EXPECT_TRUE(RunVirtdisk({"info", Image(), "--json"}).Json()["partition"].is_null());
}

TEST_F(InfoCommand, Json_IsOneObject) {
  const auto record = RunVirtdisk({"info", Image(), "--json"}).Json();
  EXPECT_EQ(record["bytes"], 48640);
  EXPECT_EQ(record["partition"]["type"], 4);
  EXPECT_EQ(record["partition"]["startSector"], 1);
  EXPECT_EQ(record["partition"]["sectors"], 94);
  EXPECT_EQ(record["label"], "CRAFTED");
  EXPECT_EQ(record["volumeId"], "1234-ABCD");
  EXPECT_EQ(record["clusters"], 90);
  EXPECT_EQ(record["clustersUsed"], 4);
  EXPECT_EQ(record["clustersFree"], 86);
  EXPECT_EQ(record["clustersBad"], 0);
  EXPECT_EQ(record["files"], 3);
  EXPECT_EQ(record["directories"], 1);
  EXPECT_EQ(record["fileBytes"], 605);
  EXPECT_EQ(record["takenFor"], "small FAT16");
  EXPECT_EQ(record["fragmented"], 1);
  EXPECT_EQ(record["fragments"], 2);
  EXPECT_EQ(record["largestFreeRun"], 85);
  EXPECT_EQ(record["slackBytes"], 507 + 424);
}

TEST_F(InfoCommand, LabelWithControlCharacters_IsMadeSafe) {
  Write(ImageCrafter({.label = "A\x1b[2J"}));
  EXPECT_THAT(RunVirtdisk({"info", Image()}).out, HasSubstr("label        A\\x1B[2J\n"));
}

TEST_F(InfoCommand, LabelThatIsNoUtf8_IsStillJson) {
  Write(ImageCrafter({.label = "\xFF\xFE"}));
  EXPECT_EQ(RunVirtdisk({"info", Image(), "--json"}).Json()["label"], "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST_F(InfoCommand, MissingImage_IsToldWithItsPath) {
  const ProgramRun run = RunVirtdisk({"info", "/nonexistent/disk.img"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, IsEmpty());
  EXPECT_THAT(run.err, HasSubstr("virtdisk: cannot read /nonexistent/disk.img: No such file"));
}

TEST_F(InfoCommand, FileThatIsNoImage_FailsWithTheLibrarysMessage) {
  folder.File("tiny", "no disk").File("zeros", std::string(512, '\0'));
  const ProgramRun tiny = RunVirtdisk({"info", (folder / "tiny").string()});
  EXPECT_EQ(tiny.status, 1);
  EXPECT_THAT(tiny.err, HasSubstr("virtdisk: image too small\n"));
  EXPECT_THAT(tiny.err, HasSubstr((folder / "tiny").string()));
  const ProgramRun zeros = RunVirtdisk({"info", (folder / "zeros").string()});
  EXPECT_EQ(zeros.status, 1);
  EXPECT_THAT(zeros.err, HasSubstr("virtdisk: unsupported or invalid FAT16 BPB\n"));
}

TEST_F(LsCommand, Root_ListsDirectoriesFirst) {
  EXPECT_EQ(RunVirtdisk({"ls", Image()}).out, "SUB/\nDATED.TXT\nEMPTY\n");
}

TEST_F(LsCommand, Details_ShowAttributesSizeAndDate) {
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "-l"}).out,
            "d----           0                       SUB/\n"
            "-r--a           5  2025-03-17 13:34:14  DATED.TXT\n"
            "----a           0                       EMPTY\n");
}

TEST_F(LsCommand, Recursive_ShowsFullPaths) {
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "-R"}).out, "/SUB/\n/SUB/B.TXT\n/DATED.TXT\n/EMPTY\n");
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "sub", "-R"}).out, "/SUB/B.TXT\n");
}

TEST_F(LsCommand, File_ListsItself) {
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "\\sub\\b.txt"}).out, "B.TXT\n");
}

TEST_F(LsCommand, MissingPath_FailsWithTheLibrarysMessage) {
  const ProgramRun run = RunVirtdisk({"ls", Image(), "/NOPE"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: directory not found\n"));
  EXPECT_THAT(run.err, HasSubstr("/NOPE in " + Image()));
}

TEST_F(LsCommand, Json_IsOneObjectALine) {
  const auto lines = RunVirtdisk({"ls", Image(), "--json"}).JsonLines();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0]["type"], "directory");
  EXPECT_EQ(lines[0]["path"], "/SUB");
  EXPECT_EQ(lines[1]["name"], "DATED.TXT");
  EXPECT_EQ(lines[1]["type"], "file");
  EXPECT_EQ(lines[1]["size"], 5);
  EXPECT_EQ(lines[1]["modified"], "2025-03-17 13:34:14");
  EXPECT_EQ(lines[1]["attributes"], 0x21);
  EXPECT_EQ(lines[1]["firstCluster"], 2);
  EXPECT_TRUE(lines[2]["modified"].is_null());
}

TEST_F(LsCommand, HostileNames_AreMadeSafeAndStayJson) {
  ImageCrafter crafter;
  crafter.RawSlot("A\x1b[2J\x9b\xff TXT", {.writeDate = 0xFFFF});
  Write(crafter);
  EXPECT_EQ(RunVirtdisk({"ls", Image()}).out, "A\\x1B[2J\\x9B\\xFF.TXT\n");
  EXPECT_THAT(RunVirtdisk({"ls", Image(), "-l"}).out, HasSubstr("invalid date"));
  EXPECT_TRUE(RunVirtdisk({"ls", Image(), "--json"}).JsonLines()[0]["modified"].is_null());
}

TEST_F(LsCommand, Colour_MarksDirectoriesOnlyOnATerminal) {
  EXPECT_THAT(RunVirtdisk({"ls", Image()}, true).out, HasSubstr("\x1b[1;34mSUB\x1b[0m/\n"));
  EXPECT_THAT(RunVirtdisk({"ls", Image()}).out, Not(HasSubstr("\x1b")));
}

TEST_F(FindCommand, Text_FindsPathsInAnyCase) {
  const ProgramRun run = RunVirtdisk({"find", Image(), "b"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "/SUB/\n/SUB/B.TXT\n");
}

TEST_F(FindCommand, NoMatch_IsDoneWithoutOutput) {
  const ProgramRun run = RunVirtdisk({"find", Image(), "ZZZ"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, IsEmpty());
}

TEST_F(FindCommand, EmptyText_FailsWithTheLibrarysMessage) {
  const ProgramRun run = RunVirtdisk({"find", Image(), ""});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: empty query\n"));
}

TEST_F(FindCommand, Json_IsOneObjectALine) {
  const auto lines = RunVirtdisk({"find", Image(), "txt", "--json"}).JsonLines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[1]["path"], "/SUB/B.TXT");
}

ImageCrafter DiskWithADotFolder() {
  ImageCrafter crafter;
  crafter.File("CONFIG.SYS", {.firstCluster = 2, .size = 1}).Chain({2});
  crafter.RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 3}).Chain({3});
  crafter.InCluster(3).DotEntries(3, 0).File("CONFIG", {.firstCluster = 4, .size = 1}).Chain({4});
  return crafter;
}

TEST_F(FindCommand, HiddenEntries_AreFoundUnderAllOnly) {
  Write(DiskWithADotFolder());
  EXPECT_EQ(RunVirtdisk({"find", Image(), "Conf"}).out, "/CONFIG.SYS\n");
  EXPECT_EQ(RunVirtdisk({"find", Image(), "Conf", "--all"}).out, "/.GIT/CONFIG\n/CONFIG.SYS\n");
  EXPECT_EQ(RunVirtdisk({"find", Image(), "git/C", "-a"}).out, "/.GIT/CONFIG\n");
  const auto lines = RunVirtdisk({"find", Image(), "conf", "--all", "--json"}).JsonLines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0]["hidden"], true);
  EXPECT_EQ(lines[1]["hidden"], false);
  EXPECT_THAT(RunVirtdisk({"find", Image(), "", "--all"}).err, HasSubstr("empty query\n"));
}

TEST_F(LsCommand, HiddenEntries_AreListedUnderAllOnly) {
  Write(DiskWithADotFolder());
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "-R"}).out, "/CONFIG.SYS\n");
  EXPECT_EQ(RunVirtdisk({"ls", Image(), "-R", "--all"}).out, "/.GIT/\n/.GIT/CONFIG\n/CONFIG.SYS\n");
}

TEST_F(MapCommand, HiddenEntries_AreNoDamage) {
  Write(DiskWithADotFolder());
  const auto record = RunVirtdisk({"map", Image(), "--json"}).Json();
  EXPECT_EQ(record["hidden"], 2);
  EXPECT_EQ(record["lostOrBroken"], 0);
}

TEST_F(CatCommand, HiddenFile_IsToldWithTheWayToIt) {
  Write(DiskWithADotFolder());
  const ProgramRun run = RunVirtdisk({"cat", Image(), "/.git/config"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "virtdisk: file not found\n  /.git/config in " + Image() +
                         " is in no listing: `virtdisk get --all` copies it.\n");
}

TEST_F(CatCommand, MissingFileBesideHiddenOnes_IsToldWithAll) {
  Write(DiskWithADotFolder());
  EXPECT_THAT(RunVirtdisk({"cat", Image(), "/NOPE"}).err,
              HasSubstr(": `virtdisk find --all` and `virtdisk ls --all` show what there is.\n"));
  Write(DatedDisk());
  EXPECT_THAT(RunVirtdisk({"cat", Image(), "/NOPE"}).err,
              HasSubstr(": `virtdisk find` and `virtdisk ls` show what there is.\n"));
}

TEST_F(CatCommand, Root_IsADirectory) {
  for (const char* root : {"/", "\\", "//"}) {
    const ProgramRun run = RunVirtdisk({"cat", Image(), root});
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("virtdisk: path is a directory\n"));
  }
}

TEST_F(CatCommand, File_IsWrittenByteForByte) {
  const ProgramRun run = RunVirtdisk({"cat", Image(), "/sub/b.txt"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, std::string(512, 'b') + std::string(88, 'c'));
}

TEST_F(CatCommand, Json_HasTheContentInBase64) {
  const ProgramRun run = RunVirtdisk({"cat", Image(), "/sub/b.txt", "--json"});
  EXPECT_EQ(run.status, 0);
  const auto record = run.Json();
  EXPECT_EQ(record["path"], "/SUB/B.TXT");
  EXPECT_EQ(record["size"], 600);
  EXPECT_EQ(record["bytes"], 600);
  // 512 is two more than three times 170.
  std::string expected;
  for (int i = 0; i < 170; ++i) expected += "YmJi";
  expected += "YmJj";
  for (int i = 0; i < 29; ++i) expected += "Y2Nj";
  EXPECT_EQ(record["contentBase64"], expected);
  EXPECT_TRUE(record["error"].is_null());
}

TEST_F(CatCommand, MissingFile_FailsWithTheLibrarysMessage) {
  const ProgramRun run = RunVirtdisk({"cat", Image(), "/NOPE"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: file not found\n"));
}

TEST_F(CatCommand, Directory_FailsWithTheLibrarysMessage) {
  const ProgramRun run = RunVirtdisk({"cat", Image(), "/SUB"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: path is a directory\n"));
  EXPECT_THAT(run.err, HasSubstr("`virtdisk get`"));
}

TEST_F(CatCommand, LoopingChain_FailsWithTheLibrarysMessage) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 2000}).FatWord(2, 2);
  Write(crafter);
  EXPECT_THAT(RunVirtdisk({"cat", Image(), "/A.TXT"}).err, HasSubstr("cluster loop detected\n"));
}

TEST_F(MapCommand, Console_ShowsTheDisk) {
  const ProgramRun run = RunVirtdisk({"map", Image()});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, HasSubstr("CRAFTED: 47.5 KiB, 90 clusters of 512 bytes\n"));
  EXPECT_THAT(run.out, HasSubstr("  ====%ADB.B...."));
}

TEST_F(MapCommand, Picture_IsWrittenAsAFile) {
  const ProgramRun run = RunVirtdisk({"map", Image(), "-o", (folder / "disk.svg").string()});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, IsEmpty());
  EXPECT_THAT(folder.Read("disk.svg"), ::testing::StartsWith("<svg "));
}

TEST_F(MapCommand, PictureToTheStandardOutput_IsData) {
  EXPECT_THAT(RunVirtdisk({"map", Image(), "-o", "-"}).out, ::testing::StartsWith("<svg "));
  // In place of the picture before.
  EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", (folder / "disk.svg").string()}).status, 0);
  folder.File("letter.svg", "Dear aunt,").Link("null.svg", "/dev/null");
  const std::string letter = (folder / "letter.svg").string();
  const std::string device = (folder / "null.svg").string();
  for (const std::string& place : {letter, device}) {
    EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", place}).status, 3) << place;
  }
  EXPECT_EQ(folder.Read("letter.svg"), "Dear aunt,");
  EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", device, "--force"}).status, 3);
  EXPECT_EQ(std::filesystem::read_symlink(device), "/dev/null");
  EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", letter, "--force"}).status, 0);
  EXPECT_THAT(folder.Read("letter.svg"), ::testing::StartsWith("<svg "));
}

TEST_F(MapCommand, PictureOrPageOfSomebodyElse_IsRefusedUnlessForced) {
  const std::vector<std::string> documents{
      "<?xml version=\"1.0\"?>\n<letter>Dear aunt,</letter>\n",
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<title>Letter",
      "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 1 1\"></svg>\n", "<html>", "<svg"};
  for (const char* name : {"letter.svg", "letter.html"}) {
    const std::string letter = (folder / name).string();
    for (const std::string& document : documents) {
      folder.File(name, document);
      const ProgramRun run = RunVirtdisk({"map", Image(), "-o", letter});
      EXPECT_EQ(run.status, 3) << document;
      EXPECT_THAT(run.err, HasSubstr(letter + " exists, and `virtdisk map` did not draw it\n"));
      EXPECT_EQ(folder.Read(name), document);
    }
    EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", letter, "--force"}).status, 0);
  }
}

// By what it begins with, which later versions have to keep.
TEST_F(MapCommand, PictureOrPageThatItDrew_IsReplaced) {
  folder.File("disk.svg",
              "<svg xmlns=\"http://www.w3.org/2000/svg\" data-drawn-by=\"virtdisk map\" ");
  folder.File("disk.html",
              "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
              "<meta name=\"generator\" content=\"virtdisk map\">\n");
  for (const char* name : {"disk.svg", "disk.html"}) {
    const std::string place = (folder / name).string();
    EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", place}).status, 0) << name;
    EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", place}).status, 0) << name;
    EXPECT_THAT(folder.Read(name), HasSubstr("CRAFTED"));
  }
}

TEST_F(MapCommand, WriteProtectedPicture_IsRefusedUnlessForced) {
  std::filesystem::permissions(folder.Path(), std::filesystem::perms{0777});
  const std::string picture = (folder / "disk.svg").string();
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    if (RunVirtdisk({"map", Image(), "-o", picture}).status != 0) return 9;
    std::filesystem::permissions(picture, std::filesystem::perms{0444});
    const ProgramRun run = RunVirtdisk({"map", Image(), "-o", picture});
    if (run.err.find("disk.svg is write-protected") == std::string::npos) return 8;
    const int forced = RunVirtdisk({"map", Image(), "-o", picture, "--force"}).status;
    return forced == 0 ? run.status : 7;
  });
  EXPECT_EQ(status, 3);
}

TEST_F(MapCommand, NameOfNoPicture_GivesStatus2AndTheEndingsThereAre) {
  for (const char* name : {"disk.png", "disk", "disk.svg.bak", "svg"}) {
    const ProgramRun run = RunVirtdisk({"map", Image(), "-o", (folder / name).string(), "--force"});
    EXPECT_EQ(run.status, 2) << name;
    EXPECT_THAT(run.err, HasSubstr(std::string(name) + " is no name of a picture"));
    EXPECT_THAT(run.err, HasSubstr(".svg is a picture, in .html or .htm a page"));
    EXPECT_FALSE(std::filesystem::exists(folder / name));
  }
}

TEST_F(MapCommand, EndingOfAPicture_MayBeInCapitals) {
  EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", (folder / "DISK.SVG").string()}).status, 0);
  EXPECT_THAT(folder.Read("DISK.SVG"), ::testing::StartsWith("<svg "));
}

TEST_F(MapCommand, PictureBehindALink_IsReplacedThere) {
  folder.File("real.svg").Link("link.svg", "real.svg").Link("dangling.svg", "new.svg");
  for (const char* place : {"link.svg", "dangling.svg"}) {
    EXPECT_EQ(RunVirtdisk({"map", Image(), "-o", (folder / place).string()}).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(folder / place)) << place;
  }
  EXPECT_THAT(folder.Read("real.svg"), ::testing::StartsWith("<svg "));
  EXPECT_THAT(folder.Read("new.svg"), ::testing::StartsWith("<svg "));
}

TEST_F(MapCommand, PictureThatCannotBeWritten_Fails) {
  const ProgramRun run = RunVirtdisk({"map", Image(), "-o", "/nonexistent/disk.svg"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: cannot write /nonexistent/disk.svg"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
