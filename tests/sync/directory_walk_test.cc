#include "sync/directory_walk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/image_crafter.h"
#include "sync/image_context.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::ImageCrafter;
using testing::ElementsAre;
using testing::IsEmpty;

FileVersion OnlyVersion(const ImageCrafter& crafter) {
  std::vector<DiskFile> files;
  EXPECT_TRUE(WalkDirectory(ContextOf(crafter), files));
  EXPECT_EQ(files.size(), 1u);
  return files.at(0).version;
}

TEST(WalkDirectory, Files_ComeInDirectoryOrderDepthFirst) {
  const auto image = ImageCrafter()
                         .File("Z.TXT")
                         .Directory("SUB", 2)
                         .File("A.TXT")
                         .InCluster(2)
                         .DotEntries(2, 0)
                         .File("S1.TXT")
                         .Directory("DEEP", 3)
                         .File("S2.TXT")
                         .InCluster(3)
                         .DotEntries(3, 2)
                         .File("D.TXT")
                         .Chain({2})
                         .Chain({3});
  EXPECT_THAT(WalkedPaths(image),
              ElementsAre("Z.TXT", "SUB/S1.TXT", "SUB/DEEP/D.TXT", "SUB/S2.TXT", "A.TXT"));
}

TEST(WalkDirectory, FoundFiles_AreAppended) {
  std::vector<DiskFile> files(1);
  EXPECT_TRUE(WalkDirectory(ContextOf(ImageCrafter().File("A.TXT")), files));
  EXPECT_EQ(files.size(), 2u);
}

TEST(WalkDirectory, NeverUsedSlot_EndsTheDirectory) {
  EXPECT_THAT(WalkedPaths(ImageCrafter().File("A").EndSlot().File("B")), ElementsAre("A"));
}

TEST(WalkDirectory, NeverUsedSlotOfASubdirectory_DoesNotEndTheParent) {
  const auto image =
      ImageCrafter().Directory("SUB", 2).File("A").InCluster(2).EndSlot().File("B").Chain({2});
  EXPECT_THAT(WalkedPaths(image), ElementsAre("A"));
}

TEST(WalkDirectory, DeletedSlot_IsSkipped) {
  EXPECT_THAT(WalkedPaths(ImageCrafter().DeletedSlot().File("B")), ElementsAre("B"));
}

TEST(WalkDirectory, FirstByte05_IsTakenLiterally) {
  EXPECT_THAT(WalkedPaths(ImageCrafter().RawSlot("\x05"
                                                 "BC        ",
                                                 {})),
              ElementsAre("\x05"
                          "BC"));
}

TEST(WalkDirectory, LongNameAndLabelSlots_AreSkipped) {
  const auto image = ImageCrafter()
                         .Label("MYDISK     ")
                         .LongNameSlot()
                         .File("L.TXT", {.attributes = 0x28})
                         .File("M.TXT", {.attributes = 0x18})
                         .File("N.TXT", {.attributes = 0x1F})
                         .File("B");
  EXPECT_THAT(WalkedPaths(image), ElementsAre("B"));
}

TEST(WalkDirectory, HiddenAndSystemFiles_AreListed) {
  const auto image = ImageCrafter().File("H", {.attributes = 0x02}).File("S", {.attributes = 0x07});
  EXPECT_THAT(WalkedPaths(image), ElementsAre("H", "S"));
}

TEST(WalkDirectory, AttributeZero_IsAFile) {
  EXPECT_THAT(WalkedPaths(ImageCrafter().File("A", {.attributes = 0})), ElementsAre("A"));
}

TEST(WalkDirectory, Names_EndAtTheFirstBlank) {
  const auto image = ImageCrafter()
                         .RawSlot("README  TXT", {})
                         .RawSlot("MAKEFILE   ", {})
                         .RawSlot("A B     C  ", {})
                         .RawSlot("ABCDEFGHI J", {});
  EXPECT_THAT(WalkedPaths(image), ElementsAre("README.TXT", "MAKEFILE", "A.C", "ABCDEFGH.I"));
}

TEST(WalkDirectory, Names_AreNeitherRecasedNorTranslated) {
  EXPECT_THAT(WalkedPaths(ImageCrafter().RawSlot("aB\xE9.:*  t\xFF ", {})),
              ElementsAre("aB\xE9.:*.t\xFF"));
}

TEST(WalkDirectory, EmptyBase_IsSkippedEvenWithAnExtension) {
  EXPECT_THAT(WalkedPaths(ImageCrafter().RawSlot(" BC     TXT", {}).File("B")), ElementsAre("B"));
}

TEST(WalkDirectory, DotNames_AreSkipped) {
  const auto image = ImageCrafter()
                         .RawSlot(".          ", {})
                         .RawSlot("..         ", {})
                         .RawSlot("...        ", {});
  EXPECT_THAT(WalkedPaths(image), ElementsAre("..."));
}

TEST(WalkDirectory, NamesWithASeparatorOrNul_AreSkipped) {
  const auto image = ImageCrafter()
                         .RawSlot("../../X    ", {})
                         .RawSlot("/etc/x     ", {})
                         .RawSlot("A/B        ", {})
                         .RawSlot("AB      /  ", {})
                         .RawSlot("AB      C/D", {})
                         .RawSlot(std::string_view("A\0B        ", 11), {})
                         .RawSlot(std::string_view("AB      \0\0\0", 11), {})
                         .File("B");
  EXPECT_THAT(WalkedPaths(image), ElementsAre("B"));
}

TEST(WalkDirectory, DirectoriesNamedOutOfTheFolder_AreSkippedWithAllBelow) {
  const auto image = ImageCrafter()
                         .RawSlot("../../X    ", {.attributes = 0x10, .firstCluster = 2})
                         .RawSlot("/          ", {.attributes = 0x10, .firstCluster = 2})
                         .RawSlot("..         ", {.attributes = 0x10, .firstCluster = 2})
                         .InCluster(2)
                         .File("A")
                         .Chain({2});
  EXPECT_THAT(WalkedPaths(image), IsEmpty());
}

TEST(WalkDirectory, SizeAndCluster_AreTheSlots) {
  const FileVersion version =
      OnlyVersion(ImageCrafter().File("A", {.firstCluster = 0xABCD, .size = 0x89ABCDEF}));
  EXPECT_EQ(version.contentHash, 0u);
  EXPECT_EQ(version.size, 0x89ABCDEFu);
  EXPECT_EQ(version.firstCluster, 0xABCDu);
}

TEST(WalkDirectory, Stamp_PacksDateAndTime) {
  // 29 February 2024, 23:58:46; two-second count 23.
  const FileVersion version =
      OnlyVersion(ImageCrafter().File("A", {.writeTime = 0xBF57, .writeDate = 0x585D}));
  EXPECT_EQ(version.modifiedStamp,
            (2024ull << 26) | (2u << 22) | (29u << 17) | (23u << 12) | (58u << 6) | 23u);
}

TEST(WalkDirectory, ZeroDateAndTime_ArePackedAs1980) {
  EXPECT_EQ(OnlyVersion(ImageCrafter().File("A")).modifiedStamp, 1980ull << 26);
}

TEST(WalkDirectory, AllBitsOfDateAndTime_LeaveBit5Clear) {
  const FileVersion version =
      OnlyVersion(ImageCrafter().File("A", {.writeTime = 0xFFFF, .writeDate = 0xFFFF}));
  EXPECT_EQ(version.modifiedStamp, (2107ull << 26) + 0x3FFFFDFu);
}

TEST(WalkDirectory, LongDirectory_IsFollowedAlongItsChain) {
  ImageCrafter image;
  image.Chain({2, 7}).Directory("SUB", 2).InCluster(2).DotEntries(2, 0);
  for (char name = 'A'; name < 'A' + 20; ++name) image.File(std::string(1, name));
  EXPECT_EQ(WalkedPaths(image).size(), 20u);
  EXPECT_EQ(WalkedPaths(image).back(), "SUB/T");
}

TEST(WalkDirectory, FullDirectory_NeedsNoEndSlot) {
  ImageCrafter image;  // 16 root slots
  for (char name = 'A'; name < 'A' + 16; ++name) image.File(std::string(1, name));
  EXPECT_EQ(WalkedPaths(image).size(), 16u);
}

TEST(WalkDirectory, DirectoryLoop_IsWalkedOnce) {
  const auto image =
      ImageCrafter().Directory("SUB", 2).InCluster(2).File("A").Directory("AGAIN", 2).Chain({2});
  EXPECT_THAT(WalkedPaths(image), ElementsAre("SUB/A"));
}

TEST(WalkDirectory, TwoEntriesForOneDirectory_GiveItsFilesOnce) {
  const auto image =
      ImageCrafter().Directory("ONE", 2).Directory("TWO", 2).InCluster(2).File("A").Chain({2});
  EXPECT_THAT(WalkedPaths(image), ElementsAre("ONE/A"));
}

TEST(WalkDirectory, SubdirectoryInClusterZero_IsTakenForEmpty) {
  const auto image = ImageCrafter().File("A").Directory("ROOT", 0).File("B");
  EXPECT_THAT(WalkedPaths(image), ElementsAre("A", "B"));
}

TEST(WalkDirectory, SubdirectoryWithoutACluster_IsEmpty) {
  const auto image = ImageCrafter()
                         .Directory("ONE", 1)
                         .Directory("END", 0xFFF8)
                         .Directory("EOC", 0xFFFF)
                         .File("B");
  EXPECT_THAT(WalkedPaths(image), ElementsAre("B"));
}

TEST(WalkDirectory, DirectoryWithALoopingChain_ContributesNothing) {
  const auto image =
      ImageCrafter().Directory("SUB", 2).File("B").InCluster(2).File("A").Chain({2, 3}).FatWord(3,
                                                                                                2);
  EXPECT_THAT(WalkedPaths(image), ElementsAre("B"));
}

TEST(WalkDirectory, DirectoryWhoseChainLeavesTheImage_ContributesNothing) {
  const auto image =
      ImageCrafter().Directory("SUB", 2).File("B").InCluster(2).File("A").FatWord(2, 92);
  EXPECT_THAT(WalkedPaths(image), ElementsAre("B"));
}

TEST(WalkDirectory, DirectoryOnASeenBadChain_ContributesNothing) {
  const auto image = ImageCrafter()
                         .Directory("BAD", 2)
                         .Directory("INTO", 4)
                         .InCluster(4)
                         .File("A")
                         .FatWord(2, 3)
                         .FatWord(3, 3)
                         .FatWord(4, 2);
  EXPECT_THAT(WalkedPaths(image), IsEmpty());
}

TEST(WalkDirectory, DirectoryOnTheTailOfASeenGoodChain_IsWalked) {
  const auto image = ImageCrafter()
                         .Directory("LONG", 2)
                         .Directory("TAIL", 3)
                         .InCluster(2)
                         .EndSlot()
                         .InCluster(3)
                         .File("A")
                         .Chain({2, 3});
  EXPECT_THAT(WalkedPaths(image), ElementsAre("TAIL/A"));
}

TEST(WalkDirectory, DirectorySize_IsNotLookedAt) {
  const auto image = ImageCrafter()
                         .File("SUB", {.attributes = 0x10, .firstCluster = 2, .size = 0xFFFFFFFF})
                         .InCluster(2)
                         .File("A")
                         .Chain({2});
  EXPECT_THAT(WalkedPaths(image), ElementsAre("SUB/A"));
}

TEST(WalkDirectory, NoRootEntries_GiveNoFiles) {
  EXPECT_THAT(WalkedPaths(ImageCrafter({.rootEntryCount = 0})), IsEmpty());
}

TEST(WalkDirectory, RootThatRunsPastTheImage_GivesNoFiles) {
  ImageCrafter image({.clusters = 1});
  image.File("A").CutTo(image.RootOffset() + 511);
  EXPECT_THAT(WalkedPaths(image), IsEmpty());
}

TEST(WalkDirectory, RootThatEndsWithTheImage_IsWalked) {
  ImageCrafter image({.clusters = 1});
  image.File("A").CutTo(image.RootOffset() + 512);
  EXPECT_THAT(WalkedPaths(image), ElementsAre("A"));
}

// Each level is a directory of one cluster that holds the next and a file.
ImageCrafter Nested(std::uint16_t levels) {
  ImageCrafter image({.sectorsPerFat = 256, .clusters = levels});
  image.Directory("D", 2);
  for (std::uint16_t cluster = 2; cluster < levels + 2; ++cluster) {
    image.InCluster(cluster);
    if (cluster + 1 < levels + 2) image.Directory("D", static_cast<std::uint16_t>(cluster + 1));
    image.File("F").Chain({cluster});
  }
  return image;
}

TEST(WalkDirectory, ThirtyOneLevelsOnAFullDisk_AreAllWalked) {
  const std::vector<std::string> paths = WalkedPaths(Nested(31));
  EXPECT_EQ(paths.size(), 31u);
  EXPECT_EQ(paths.front().size(), 2u * 31 + 1);  // the innermost comes first
}

TEST(WalkDirectory, TwoThousandLevels_AreAllWalked) {
  const std::vector<std::string> paths = WalkedPaths(Nested(2000));
  EXPECT_EQ(paths.size(), 2000u);
  EXPECT_EQ(paths.front().size(), 2u * 2000 + 1);
}

TEST(WalkDirectory, NestingAsDeepAsTheDisk_EndsWherePathsGetLongerThanTheHostCanName) {
  std::vector<DiskFile> files;
  EXPECT_TRUE(WalkDirectory(ContextOf(Nested(60000)), files));
  ASSERT_EQ(files.size(), 2048u);
  EXPECT_EQ(files.front().relPath.size(), 4097u);
}

// A long directory at the bottom of 60 others: more names and more depth than the number of slots
// that the image has room for would allow, were depth counted.
TEST(WalkDirectory, ThreeThousandFilesSixtyLevelsDown_AreAllWalked) {
  constexpr std::uint16_t kLevels = 60;
  constexpr std::uint16_t kLast = kLevels + 1 + 187;  // 3,000 slots, 16 to a cluster
  ImageCrafter image({.clusters = 254});
  image.Directory("D", 2);
  for (std::uint16_t cluster = 2; cluster <= kLevels; ++cluster) {
    image.InCluster(cluster).Directory("D", static_cast<std::uint16_t>(cluster + 1));
    image.Chain({cluster});
  }
  std::vector<std::uint16_t> chain;
  for (std::uint16_t cluster = kLevels + 1; cluster <= kLast; ++cluster) chain.push_back(cluster);
  image.Chain(chain).InCluster(kLevels + 1);
  for (int i = 0; i < 3000; ++i) image.File("F" + std::to_string(i));
  std::vector<DiskFile> files;
  EXPECT_TRUE(WalkDirectory(ContextOf(image), files));
  EXPECT_EQ(files.size(), 3000u);
}

// 60,000 directories, each beginning one cluster further on in the same chain of 60,000 clusters:
// without a bound 3e10 slots.
ImageCrafter OverlappingDirectories() {
  constexpr std::uint16_t kClusters = 60000;
  ImageCrafter image({.sectorsPerFat = 256, .clusters = kClusters});
  image.Directory("D", 2);
  for (std::uint16_t cluster = 2; cluster < kClusters + 2; ++cluster) {
    image.InCluster(cluster);
    image.Directory("D", static_cast<std::uint16_t>(cluster + 1));
    for (char name = 'A'; name < 'A' + 15; ++name) image.File(std::string(1, name));
    image.FatWord(cluster, static_cast<std::uint16_t>(cluster + 1));
  }
  return image.FatWord(kClusters + 1, 0xFFFF);
}

// 36,000 files, each behind a path of nearly 4,000 bytes: a disk of 2 MB that would list as 140 MB.
TEST(WalkDirectory, ManyFilesAtTheEndOfLongPaths_CutTheWalkShort) {
  constexpr std::uint16_t kLevels = 1980;
  constexpr std::uint16_t kFiles = 36000;
  constexpr std::uint16_t kFilesPerCluster = 16;
  ImageCrafter image({.sectorsPerFat = 17, .clusters = 4240});
  image.Directory("D", 2);
  for (std::uint16_t cluster = 2; cluster < kLevels + 1; ++cluster) {
    image.Chain({cluster}).InCluster(cluster);
    image.Directory("D", static_cast<std::uint16_t>(cluster + 1));
  }
  std::vector<std::uint16_t> innermost;
  for (std::uint16_t i = 0; i < kFiles / kFilesPerCluster; ++i) {
    innermost.push_back(static_cast<std::uint16_t>(kLevels + 1 + i));
  }
  image.Chain(innermost).InCluster(innermost[0]);
  for (std::uint16_t i = 0; i < kFiles; ++i) image.File("F" + std::to_string(i));
  std::vector<DiskFile> files;

  EXPECT_FALSE(WalkDirectory(ContextOf(image), files));

  EXPECT_GT(files.size(), 30'000u);
  EXPECT_LT(files.size(), kFiles);
}

TEST(WalkDirectory, DirectoriesThatShareAChain_CostNoMoreThanTheImageHolds) {
  const FatContext context = ContextOf(OverlappingDirectories());
  std::vector<DiskFile> files;
  EXPECT_FALSE(WalkDirectory(context, files));
  EXPECT_LE(files.size(), context.image.size() / 32);
}

// 200 directories side by side that begin in one chain of 1,000 clusters: 3 million files, were all
// listed, in an image with room for 17,000 slots.
TEST(WalkDirectory, DirectoriesSideBySideOnOneChain_CostNoMoreThanTheImageHolds) {
  constexpr std::uint16_t kClusters = 1000;
  ImageCrafter image({.rootEntryCount = 208, .sectorsPerFat = 4, .clusters = kClusters});
  for (std::uint16_t i = 0; i < 200; ++i) {
    image.Directory("D" + std::to_string(i), static_cast<std::uint16_t>(2 + i));
  }
  for (std::uint16_t cluster = 2; cluster < kClusters + 2; ++cluster) {
    image.InCluster(cluster);
    for (char name = 'A'; name < 'A' + 16; ++name) image.File(std::string(1, name));
    image.FatWord(cluster, static_cast<std::uint16_t>(cluster + 1));
  }
  image.FatWord(kClusters + 1, 0xFFFF);
  const std::size_t found = WalkedPaths(image).size();
  EXPECT_GE(found, 16u * kClusters);  // the first directory is whole
  EXPECT_LE(found, image.Bytes().size() / 32);
}

// Eight sectors, so 128 slots. Four directories begin in 5, in 4, in 3 and in 2 and go on to 5,
// which has five slots of some kind: four times 5 visits, three times 16, twice 16, 16. The root
// adds its directories and its files; ends do not count.
ImageCrafter ImageOf128Slots(int filesInRoot, const test::SlotMaker& putSlot) {
  ImageCrafter image({.fatCount = 1, .clusters = 4});
  image.Directory("ONE", 5).Directory("TWO", 4).Directory("THREE", 3).Directory("FOUR", 2);
  for (int i = 0; i < filesInRoot; ++i) image.File("R" + std::to_string(i));
  for (std::uint16_t cluster = 2; cluster <= 5; ++cluster) {
    image.InCluster(cluster);
    for (int i = 0; i < 5; ++i) putSlot(image);
    for (int i = 0; i < 11 && cluster != 5; ++i) image.File("F" + std::to_string(i));
  }
  return image.Chain({2, 3, 4, 5});
}

// What a slot holds makes no difference to what a visit costs.
TEST(WalkDirectory, AsManyVisitsAsSlots_AreAllowed) {
  for (const auto& [kind, putSlot] : test::SlotsOfEveryKind()) {
    const ImageCrafter image = ImageOf128Slots(8, putSlot);
    ASSERT_EQ(image.Bytes().size(), 128u * 32);
    std::vector<DiskFile> files;
    EXPECT_TRUE(WalkDirectory(ContextOf(image), files)) << kind;
  }
}

TEST(WalkDirectory, OneVisitMoreThanSlots_CutsTheWalkShort) {
  for (const auto& [kind, putSlot] : test::SlotsOfEveryKind()) {
    std::vector<DiskFile> files;
    EXPECT_FALSE(WalkDirectory(ContextOf(ImageOf128Slots(9, putSlot)), files)) << kind;
  }
}

TEST(WalkDirectory, RootBeyond4GiB_IsNotSoughtAtItsRemainder) {
  // The root is said to begin at sector 2^23 + 4: 4 GiB after the place where it does.
  ImageCrafter image;
  image.File("A.TXT").U16(512 + 14, 131).Byte(512 + 16, 128).U16(512 + 22, 65535);
  EXPECT_EQ(ContextOf(image).rootDirStartSector, 0x00800004u);
  EXPECT_THAT(WalkedPaths(image), IsEmpty());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
