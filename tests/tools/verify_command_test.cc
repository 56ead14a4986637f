#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "program_run.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

ProgramRun Verify(const std::vector<std::uint8_t>& image,
                  const std::vector<std::string>& options = {}) {
  TempFolder folder;
  WriteBytes(folder / "disk.img", image);
  std::vector<std::string> arguments{"verify", (folder / "disk.img").string()};
  arguments.insert(arguments.end(), options.begin(), options.end());
  return RunVirtdisk(arguments);
}

ImageCrafter FileAndHiddenFile() {
  return ImageCrafter()
      .File("A.TXT", {.firstCluster = 2, .size = 600})
      .Chain({2, 3})
      .RawSlot("        PRO", {.firstCluster = 4, .size = 5})
      .Chain({4});
}

TEST(VerifyCommand, SoundVolume_GivesZeroAndATable) {
  const ProgramRun run = Verify(FileAndHiddenFile().Bytes());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "partition table  sound\n"
            "boot sector      sound, 1 remark\n"
            "FATs             sound\n"
            "chains           sound\n"
            "directories      sound\n"
            "names            sound, 1 remark\n"
            "clusters         90 of 512 bytes: 3 used, 87 free, 0 bad, 0 lost\n"
            "entries          2 files, 0 directories, 1 of them in no listing\n"
            "\n"
            "remark:  the boot sector says FAT16, but with fewer than 4,085 clusters (90) other "
            "systems take the volume for FAT12\n"
            "remark:  /.PRO has a name without a base, and no listing shows it\n"
            "\n"
            "The volume is sound.\n");
  EXPECT_THAT(run.err, IsEmpty());
}

TEST(VerifyCommand, DamagedVolume_GivesOneAndNamesTheFile) {
  const ProgramRun run = Verify(FileAndHiddenFile().FatWord(3, 2).Bytes());
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("chains           1 fault\n"));
  EXPECT_THAT(run.out, HasSubstr("fault:   /A.TXT comes back to its cluster 2 without end\n"));
  EXPECT_THAT(run.out, HasSubstr("\nThe volume is damaged.\n"));
}

TEST(VerifyCommand, Fat12_IsDamageAndTheRestNotLookedAt) {
  const ProgramRun run = Verify(FileAndHiddenFile().Byte(512 + 58, '2').Bytes());
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("chains           not looked at\n"));
  EXPECT_THAT(run.out, HasSubstr("fault:   the boot sector says FAT12 (90 clusters)\n"));
}

TEST(VerifyCommand, ImageWithoutAVolume_HasAFaultInItsBootSector) {
  const ProgramRun run = Verify(std::vector<std::uint8_t>(1000));
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.out,
            "partition table  not used\n"
            "boot sector      1 fault\n"
            "FATs             not looked at\n"
            "chains           not looked at\n"
            "directories      not looked at\n"
            "names            not looked at\n"
            "\n"
            "fault:   there is no FAT16 volume in the image\n"
            "\n"
            "This is no FAT16 volume; the rest was not looked at.\n");
}

TEST(VerifyCommand, BareVolume_HasNoPartitionTable) {
  const ProgramRun run = Verify(ImageCrafter({.partitioned = false}).Bytes());
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, ::testing::StartsWith("partition table  not used\n"
                                             "boot sector      sound, 1 remark\n"));
}

TEST(VerifyCommand, SectorsOfAnotherSize_AreTold) {
  const ProgramRun run = Verify(ImageCrafter().U16(512 + 11, 4096).Bytes());
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.out, HasSubstr("boot sector      1 fault\n"));
  EXPECT_THAT(run.out,
              HasSubstr("fault:   the volume has sectors of 4,096 bytes; only those of 512 "
                        "can be read\n"));
  EXPECT_THAT(run.out, ::testing::EndsWith("\nThe volume cannot be read; the rest was not looked "
                                           "at.\n"));
}

TEST(VerifyCommand, NamesWithControlCharacters_ArePrintedSafely) {
  const ProgramRun run = Verify(ImageCrafter().RawSlot("A\x1B[2J      ", {}).Bytes());
  EXPECT_THAT(run.out, HasSubstr("/A\\x1B[2J has a name that other systems cannot use"));
  EXPECT_THAT(run.out, Not(HasSubstr("\x1B")));
}

TEST(VerifyCommand, Json_HasEveryFindingAndTheCounts) {
  const ProgramRun run =
      Verify(FileAndHiddenFile().File("B", {.firstCluster = 3}).Bytes(), {"--json"});
  EXPECT_EQ(run.status, 1);
  const nlohmann::json report = run.Json();
  EXPECT_EQ(report["sound"], false);
  EXPECT_EQ(report["whole"], true);
  EXPECT_EQ(report["clustersUsed"], 3);
  EXPECT_EQ(report["files"], 3);
  EXPECT_EQ(report["found"]["chainMeetsAnother"], 1);
  ASSERT_EQ(report["findings"].size(), 3u);
  EXPECT_EQ(report["findings"][2]["kind"], "chainMeetsAnother");
  EXPECT_EQ(report["findings"][2]["path"], "/B");
  EXPECT_EQ(report["findings"][2]["otherPath"], "/A.TXT");
  EXPECT_EQ(report["findings"][2]["damage"], true);
  EXPECT_EQ(report["findings"][2]["numbers"][0], 3);
  EXPECT_EQ(report["findings"][0]["path"], nullptr);
}

TEST(VerifyCommand, MissingImage_GivesOneAndAMessage) {
  TempFolder folder;
  const ProgramRun run = RunVirtdisk({"verify", (folder / "none.img").string()});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("virtdisk: cannot read "));
  EXPECT_THAT(run.out, IsEmpty());
}

TEST(VerifyCommand, MoreFaultsThanAreListed_AreCounted) {
  ImageCrafter crafter({.rootEntryCount = 1008});
  for (int i = 0; i < 1005; ++i) crafter.File("N" + std::to_string(i), {.size = 1});
  EXPECT_THAT(Verify(crafter.Bytes()).out, HasSubstr("and 5 more of the kind chainTooShort\n"));
}

}  // namespace
}  // namespace quorbix::virtdisk::test
