// Directories and the names of entries.

#include "check/check_fixture.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::ImageCrafter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

// SUB in cluster 2, which still wants its slots.
ImageCrafter InSub() { return ImageCrafter().Directory("SUB", 2).Chain({2}).InCluster(2); }

TEST(DirectoryCheck, DirectoriesInEachOther_AreSound) {
  const auto image = InSub()
                         .DotEntries(2, 0)
                         .Directory("DEEP", 3)
                         .Chain({3})
                         .InCluster(3)
                         .DotEntries(3, 2)
                         .File("A.TXT", {.firstCluster = 4, .size = 1})
                         .Chain({4});
  const CheckReport report = Checked(image);
  EXPECT_THAT(Said(report), IsEmpty());
  EXPECT_EQ(report.counts.directories, 2u);
  EXPECT_EQ(report.counts.files, 1u);
  EXPECT_EQ(report.counts.usedClusters, 3u);
}

TEST(DirectoryCheck, MissingDots_AreFound) {
  EXPECT_THAT(Findings(InSub().File("A.TXT")),
              ElementsAre("/SUB does not begin with an entry \".\"",
                          "/SUB has no entry \"..\" in its second place"));
}

TEST(DirectoryCheck, DotThatLeadsElsewhere_IsFound) {
  EXPECT_THAT(Findings(InSub().DotEntries(3, 0)),
              ElementsAre("/SUB has a \".\" that leads to cluster 3 instead of its own, 2"));
}

TEST(DirectoryCheck, DotDotThatLeadsElsewhere_IsFound) {
  EXPECT_THAT(Findings(InSub().DotEntries(2, 2)),
              ElementsAre("/SUB has a \"..\" that leads to cluster 2 instead of that of the "
                          "directory above, 0"));
}

TEST(DirectoryCheck, DotsThatAreFiles_AreMissing) {
  const auto image = InSub().RawSlot(".          ", {}).RawSlot("..         ", {});
  const CheckReport report = Checked(image);
  EXPECT_EQ(report.Found(FindingKind::kNoDot), 1u);
  EXPECT_EQ(report.Found(FindingKind::kNoDotDot), 1u);
}

TEST(DirectoryCheck, DotInTheRoot_IsAnUnusableName) {
  EXPECT_THAT(Findings(ImageCrafter().DotEntries(0, 0)),
              ElementsAre("/. has a name that other systems cannot use",
                          "/.. has a name that other systems cannot use"));
}

TEST(DirectoryCheck, DirectoryWithASize_IsFound) {
  const auto image = ImageCrafter()
                         .RawSlot("SUB        ", {.attributes = 0x10, .firstCluster = 2, .size = 7})
                         .Chain({2})
                         .InCluster(2)
                         .DotEntries(2, 0);
  EXPECT_THAT(Findings(image), ElementsAre("/SUB is a directory with a size: 7 bytes"));
}

TEST(DirectoryCheck, DirectoryWithoutAChain_IsFound) {
  EXPECT_THAT(Findings(ImageCrafter().Directory("SUB", 0)),
              ElementsAre("/SUB is a directory without a cluster"));
}

TEST(DirectoryCheck, DirectoryMetTwice_IsReadOnceAndShared) {
  const auto image = ImageCrafter()
                         .Directory("ONE", 2)
                         .Directory("TWO", 2)
                         .Chain({2})
                         .InCluster(2)
                         .DotEntries(2, 0)
                         .File("A.TXT");
  const CheckReport report = Checked(image);
  EXPECT_THAT(Said(report), ElementsAre("/TWO shares its clusters from 2 on with /ONE"));
  EXPECT_EQ(report.counts.files, 1u);
}

TEST(DirectoryCheck, DirectoryThatLeadsToItsOwnParent_EndsTheWalk) {
  const auto image = InSub().DotEntries(2, 0).Directory("UP", 2);
  EXPECT_THAT(Findings(image), ElementsAre("/SUB/UP shares its clusters from 2 on with /SUB"));
}

// The readers show what lies behind an empty slot in a later cluster, and so it is looked at.
TEST(DirectoryCheck, ClusterAfterAnEmptySlot_IsRead) {
  const auto image = ImageCrafter()
                         .Directory("SUB", 2)
                         .Chain({2, 3})
                         .InCluster(2)
                         .DotEntries(2, 0)
                         .InCluster(3)
                         .File("LATE.TXT", {.size = 5});
  EXPECT_THAT(Findings(image), ElementsAre("/SUB/LATE.TXT has clusters for 0 of its 5 bytes"));
}

TEST(DirectoryCheck, BrokenDirectory_IsReadAsFarAsItGoes) {
  const auto image = InSub().DotEntries(2, 0).File("A.TXT", {.size = 5}).FatWord(2, 0xFFF7 - 1);
  const CheckReport report = Checked(image);
  EXPECT_EQ(report.Found(FindingKind::kChainLeavesVolume), 1u);
  EXPECT_EQ(report.Found(FindingKind::kChainTooShort), 1u);
  EXPECT_TRUE(report.isWhole);
}

TEST(DirectoryCheck, SameNameInAnyCase_IsFoundOnce) {
  const auto image = ImageCrafter().File("A.TXT").File("a.txt").File("A.Txt").File("B.TXT");
  EXPECT_THAT(Findings(image), ElementsAre("/A.TXT is the name of 3 entries"));
}

TEST(DirectoryCheck, SameNameInTwoDirectories_IsSound) {
  EXPECT_THAT(Findings(InSub().DotEntries(2, 0).File("A.TXT").InRoot().File("A.TXT")), IsEmpty());
}

TEST(DirectoryCheck, SameNameAsADeletedEntryALongNameOrTheLabel_IsSound) {
  const auto image = ImageCrafter()
                         .Label("DISK       ")
                         .RawSlot("DISK       ", {})
                         .RawSlot("\xE5ISK       ", {})
                         .RawSlot("DISK       ", {.attributes = 0x0F});
  EXPECT_THAT(Findings(image), IsEmpty());
}

TEST(DirectoryCheck, NamesWithControlCharactersOrSeparators_AreUnusable) {
  for (const std::string name :
       {"A\x1F         ", "A\x7F         ", "A/B        ", "A\\B        ", "A:B        ",
        "A.B        ", "A*         ", "A?      TXT", "A       T/T"}) {
    const CheckReport report = Checked(ImageCrafter().RawSlot(name, {}));
    EXPECT_EQ(report.Found(FindingKind::kUnusableName), 1u) << name;
    EXPECT_FALSE(report.IsSound());
  }
  const std::string withNul("A\0B        ", 11);
  EXPECT_EQ(Checked(ImageCrafter().RawSlot(withNul, {})).Found(FindingKind::kUnusableName), 1u);
}

TEST(DirectoryCheck, BlanksInNamesAndTheStandInFor0xE5_AreUsable) {
  const auto image = ImageCrafter()
                         .RawSlot("A B   ~1C D", {})
                         .RawSlot(
                             "\x05"
                             "BC        ",
                             {})
                         .RawSlot("\xC4\x80_-!#$%&'(", {});
  EXPECT_THAT(Findings(image), IsEmpty());
}

TEST(DirectoryCheck, BlankBase_IsARemark) {
  const auto image =
      ImageCrafter().RawSlot("        PRO", {.firstCluster = 2, .size = 5}).Chain({2});
  const CheckReport report = Checked(image);
  EXPECT_THAT(Said(report),
              ElementsAre("/.PRO has a name without a base, and no listing shows it"));
  EXPECT_TRUE(report.IsSound());
  EXPECT_EQ(report.counts.hiddenEntries, 1u);
  EXPECT_EQ(report.counts.lostClusters, 0u);
}

TEST(DirectoryCheck, NameThatBeginsWithABlank_IsARemark) {
  const CheckReport report = Checked(ImageCrafter().RawSlot("   A    BIN", {}));
  EXPECT_THAT(Said(report), ElementsAre("/   A.BIN has a name that begins with a blank; other "
                                        "systems may refuse it, and repairs rename it"));
  EXPECT_TRUE(report.IsSound());
  EXPECT_EQ(report.counts.hiddenEntries, 0u);
}

TEST(DirectoryCheck, UnusableNameThatBeginsWithABlank_IsBoth) {
  const CheckReport report = Checked(ImageCrafter().RawSlot(" A?        ", {}));
  EXPECT_EQ(report.Found(FindingKind::kLeadingBlank), 1u);
  EXPECT_EQ(report.Found(FindingKind::kUnusableName), 1u);
}

TEST(DirectoryCheck, BlankLabel_IsARemark) {
  const CheckReport report = Checked(ImageCrafter().Label("           "));
  EXPECT_THAT(Said(report), ElementsAre("the label in the root directory is blank, which other "
                                        "systems do not write; repairs remove it"));
  EXPECT_TRUE(report.IsSound());
}

TEST(DirectoryCheck, LabelThatOthersDoNotWrite_IsARemark) {
  EXPECT_THAT(
      Findings(ImageCrafter().Label(" DISK      ")),
      ElementsAre("the label in the root directory begins with a blank, which other systems "
                  "do not write; repairs remove it"));
  EXPECT_THAT(
      Findings(ImageCrafter().Label("MY.DISK    ")),
      ElementsAre("the label in the root directory has the byte 0x2E, which other systems do "
                  "not write; repairs remove it"));
  EXPECT_EQ(Checked(ImageCrafter().Label("D\xC4SK       ")).Found(FindingKind::kOddLabel), 1u);
  EXPECT_THAT(Findings(ImageCrafter().Label("my disk_ 1&")), IsEmpty());
}

TEST(DirectoryCheck, LabelsOfDirectoriesAndLaterOnes_AreNotLookedAt) {
  auto image = ImageCrafter().Label("DISK       ").Label("A.B        ").Directory("SUB", 2);
  EXPECT_THAT(Findings(image.Chain({2}).InCluster(2).DotEntries(2, 0).Label("A.B        ")),
              IsEmpty());
}

TEST(DirectoryCheck, EntriesBelowAHiddenDirectory_AreCheckedAndCountedAsHidden) {
  const auto image = ImageCrafter()
                         .RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 2})
                         .Chain({2})
                         .InCluster(2)
                         .DotEntries(2, 0)
                         .File("CONFIG", {.size = 3});
  const CheckReport report = Checked(image);
  EXPECT_THAT(Said(report), ElementsAre("/.GIT has a name without a base, and no listing shows it",
                                        "/.GIT/CONFIG has clusters for 0 of its 3 bytes"));
  EXPECT_EQ(report.counts.hiddenEntries, 2u);
  EXPECT_EQ(report.counts.files, 1u);
}

TEST(DirectoryCheck, RootBeyondTheImage_LeavesTheRestUnchecked) {
  auto image = ImageCrafter();
  image.CutTo(image.RootOffset() + 511);
  const CheckReport report = Checked(image);
  EXPECT_EQ(report.Found(FindingKind::kRootBeyondImage), 1u);
  EXPECT_FALSE(report.isWhole);
  EXPECT_FALSE(report.IsSound());
}

// 65,536 slots of 32 bytes are 2 MiB: 64 clusters of 32 KiB.
ImageCrafter LongDirectory(std::uint16_t clusters) {
  auto image = ImageCrafter({.sectorsPerCluster = 64, .clusters = 70});
  std::vector<std::uint16_t> chain;
  for (std::uint16_t i = 0; i < clusters; ++i) chain.push_back(static_cast<std::uint16_t>(2 + i));
  image.Directory("SUB", 2).Chain(chain);
  for (const std::uint16_t cluster : chain) image.Fill(cluster, 0xE5);
  return std::move(image.InCluster(2).DotEntries(2, 0));
}

TEST(DirectoryCheck, LongestDirectoryOfOtherSystems_IsSound) {
  EXPECT_EQ(Checked(LongDirectory(64)).Found(FindingKind::kDirectoryTooLong), 0u);
}

TEST(DirectoryCheck, DirectoryBeyondThat_IsFound) {
  EXPECT_EQ(Checked(LongDirectory(66)).Found(FindingKind::kDirectoryTooLong), 1u);
}

TEST(CheckReport, FindingsBeyondTheBound_AreCountedOnly) {
  auto image = ImageCrafter({.rootEntryCount = 1008});
  for (int i = 0; i < 1001; ++i) image.File("N" + std::to_string(i), {.size = 1});
  const CheckReport report = Checked(image);
  EXPECT_EQ(report.Found(FindingKind::kChainTooShort), 1001u);
  EXPECT_EQ(Said(report).size(), 1000u);
}

TEST(CheckReport, LongPath_KeepsItsEnd) {
  auto image = ImageCrafter({.clusters = 250});
  image.Directory("LONGNAME.EXT", 2);
  for (std::uint16_t cluster = 2; cluster < 100; ++cluster) {
    image.Chain({cluster}).InCluster(cluster);
    image.DotEntries(cluster, cluster == 2 ? std::uint16_t{0} : std::uint16_t(cluster - 1));
    image.Directory("LONGNAME.EXT", static_cast<std::uint16_t>(cluster + 1));
  }
  image.Chain({100}).InCluster(100).DotEntries(100, 99).File("A", {.size = 1});
  const CheckReport report = Checked(image);
  ASSERT_EQ(report.findings.size(), 2u);
  const std::string& path = report.findings.back().path;
  EXPECT_THAT(path, StartsWith("..."));
  EXPECT_EQ(path.size(), 3 + CheckReport::kMostPathBytes);
  EXPECT_TRUE(path.ends_with("/LONGNAME.EXT/LONGNAME.EXT/A"));
}

TEST(DirectoryCheck, FileOfTheRootNamedAsTheDirectoryAbove_HasItsClusters) {
  const CheckReport report = Checked(
      ImageCrafter().RawSlot("..         ", {.firstCluster = 2, .size = 600}).Chain({2, 3}));
  EXPECT_EQ(report.Found(FindingKind::kUnusableName), 1u);
  EXPECT_EQ(report.Found(FindingKind::kLostClusters), 0u);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
