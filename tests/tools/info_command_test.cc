#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "image_commands_fixture.h"
#include "program_run.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::DatedDisk;
using test::ImageCrafter;
using test::ProgramRun;
using test::RunVirtdisk;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

using InfoCommand = test::ImageCommands;

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

}  // namespace
}  // namespace quorbix::virtdisk::tool
