// What a load makes of the boot sector, and what an image leaves behind in the browser.

#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

constexpr std::size_t kBoot = 512;  // of the default partitioned volume

void ExpectNothing(const Fat16FsInfo& info) {
  EXPECT_FALSE(info.partitioned);
  EXPECT_EQ(info.partitionType, 0);
  EXPECT_EQ(info.partitionStartLba, 0u);
  EXPECT_EQ(info.partitionSectorCount, 0u);
  EXPECT_EQ(info.bytesPerSector, 0);
  EXPECT_EQ(info.sectorsPerCluster, 0);
  EXPECT_EQ(info.reservedSectors, 0);
  EXPECT_EQ(info.fatCount, 0);
  EXPECT_EQ(info.rootEntryCount, 0);
  EXPECT_EQ(info.sectorsPerFat, 0);
  EXPECT_EQ(info.totalSectors, 0u);
  EXPECT_EQ(info.fileSystemType, "");
  EXPECT_EQ(info.volumeLabel, "");
  EXPECT_EQ(info.volumeOffset, 0u);
  EXPECT_EQ(info.fatStartSector, 0u);
  EXPECT_EQ(info.rootDirStartSector, 0u);
  EXPECT_EQ(info.dataStartSector, 0u);
  EXPECT_EQ(info.rootDirSectors, 0u);
}

TEST(Loading, NewBrowser_HoldsNothing) {
  const Fat16FsImage browser;

  ExpectNothing(browser.Info());
  EXPECT_TRUE(browser.ImageBytes().empty());
  EXPECT_EQ(ListMessage(browser, "/"), "directory not found");
  EXPECT_TRUE(AllPaths(browser).empty());
  EXPECT_EQ(ReadMessage(browser, "/A.TXT"), "file not found");
}

TEST(Loading, Info_HoldsTheBootSectorsFields) {
  auto image = ImageCrafter({.startLba = 4,
                             .sectorsPerCluster = 2,
                             .reservedSectors = 3,
                             .fatCount = 2,
                             .rootEntryCount = 48,
                             .sectorsPerFat = 5,
                             .label = "MY DISK"});

  const Fat16FsInfo info = Load(image)->Info();

  EXPECT_EQ(info.bytesPerSector, 512);
  EXPECT_EQ(info.sectorsPerCluster, 2);
  EXPECT_EQ(info.reservedSectors, 3);
  EXPECT_EQ(info.fatCount, 2);
  EXPECT_EQ(info.rootEntryCount, 48);
  EXPECT_EQ(info.sectorsPerFat, 5);
  EXPECT_EQ(info.totalSectors, 3u + 10 + 3 + 180);
  EXPECT_EQ(info.fileSystemType, "FAT16");
  EXPECT_EQ(info.volumeLabel, "MY DISK");
}

TEST(Loading, Info_GeometryCountsFromTheStartOfTheImage) {
  const Fat16FsInfo info = Load(ImageCrafter({.startLba = 4,
                                              .reservedSectors = 3,
                                              .fatCount = 2,
                                              .rootEntryCount = 48,
                                              .sectorsPerFat = 5}))
                               ->Info();

  EXPECT_EQ(info.volumeOffset, 2048u);
  EXPECT_EQ(info.fatStartSector, 7u);
  EXPECT_EQ(info.rootDirStartSector, 17u);
  EXPECT_EQ(info.rootDirSectors, 3u);
  EXPECT_EQ(info.dataStartSector, 20u);
}

TEST(Loading, Info_GeometryOfABareVolumeCountsFromZero) {
  const Fat16FsInfo info = Load(ImageCrafter({.partitioned = false}))->Info();

  EXPECT_EQ(info.fatStartSector, 1u);
  EXPECT_EQ(info.rootDirStartSector, 3u);
  EXPECT_EQ(info.dataStartSector, 4u);
}

TEST(Loading, Info_RootThatEndsInsideASectorTakesTheWholeSector) {
  EXPECT_EQ(Load(ImageCrafter({.rootEntryCount = 16}))->Info().rootDirSectors, 1u);
  EXPECT_EQ(Load(ImageCrafter({.rootEntryCount = 17}))->Info().rootDirSectors, 2u);
}

TEST(Loading, Info_TotalSectors_PrefersThe16BitCount) {
  auto image = ImageCrafter().U16(kBoot + 19, 90).U32(kBoot + 32, 70000);

  EXPECT_EQ(Load(image)->Info().totalSectors, 90u);
}

TEST(Loading, Info_TotalSectors_FallsBackToThe32BitCount) {
  auto image = ImageCrafter().U16(kBoot + 19, 0).U32(kBoot + 32, 0x01020304);

  EXPECT_EQ(Load(image)->Info().totalSectors, 0x01020304u);
}

TEST(Loading, Info_TextFields_EndAtANulAndLoseTrailingBlanks) {
  auto image = ImageCrafter({.label = "AB CD"});
  image.Byte(kBoot + 54 + 3, 0);  // "FAT" NUL "6   "
  image.Byte(kBoot + 54 + 2, ' ');

  const auto browser = Load(image);

  EXPECT_EQ(browser->Info().fileSystemType, "FA");
  EXPECT_EQ(browser->Info().volumeLabel, "AB CD");
}

TEST(Loading, Info_TextFields_AreNotConverted) {
  auto image = ImageCrafter({.label = "\x84z\xE5"}).Byte(kBoot + 54, 0x01);

  const auto browser = Load(image);

  EXPECT_EQ(browser->Info().volumeLabel, "\x84z\xE5");
  EXPECT_EQ(browser->Info().fileSystemType,
            "\x01"
            "AT16");
}

TEST(Loading, Info_FullTextFields_StopAtTheirWidth) {
  auto image = ImageCrafter({.label = "ELEVENBYTES"});
  image.Byte(kBoot + 54 + 5, 'x').Byte(kBoot + 54 + 6, 'y').Byte(kBoot + 54 + 7, 'z');

  const auto browser = Load(image);

  EXPECT_EQ(browser->Info().volumeLabel, "ELEVENBYTES");
  EXPECT_EQ(browser->Info().fileSystemType, "FAT16xyz");
}

TEST(Loading, ZeroGeometryField_IsRefused) {
  EXPECT_EQ(LoadMessage(ImageCrafter().Byte(kBoot + 13, 0).Bytes()),
            "unsupported or invalid FAT16 BPB");
  EXPECT_EQ(LoadMessage(ImageCrafter().Byte(kBoot + 16, 0).Bytes()),
            "unsupported or invalid FAT16 BPB");
  EXPECT_EQ(LoadMessage(ImageCrafter().U16(kBoot + 17, 0).Bytes()),
            "unsupported or invalid FAT16 BPB");
  EXPECT_EQ(LoadMessage(ImageCrafter().U16(kBoot + 22, 0).Bytes()),
            "unsupported or invalid FAT16 BPB");
}

TEST(Loading, SectorSizeOtherThan512_IsRefused) {
  for (const std::uint16_t size : Words{0, 256, 511, 513, 1024, 4096}) {
    EXPECT_EQ(LoadMessage(ImageCrafter().U16(kBoot + 11, size).Bytes()),
              "unsupported or invalid FAT16 BPB")
        << size;
  }
}

TEST(Loading, RefusedBootSector_StillFillsItsFieldsButNoGeometry) {
  Fat16FsImage browser;

  LoadMessage(browser, ImageCrafter({.label = "ODD"}).U16(kBoot + 11, 4096).Bytes());

  EXPECT_TRUE(browser.Info().partitioned);
  EXPECT_EQ(browser.Info().bytesPerSector, 4096);
  EXPECT_EQ(browser.Info().rootEntryCount, 16);
  EXPECT_EQ(browser.Info().volumeLabel, "ODD");
  EXPECT_EQ(browser.Info().fatStartSector, 0u);
  EXPECT_EQ(browser.Info().dataStartSector, 0u);
  EXPECT_EQ(browser.Info().rootDirSectors, 0u);
}

TEST(Loading, FieldsThatAreNotChecked_MayBeAbsurd) {
  auto image = ImageCrafter({.sectorsPerCluster = 3}).File("A.TXT");
  image.Byte(kBoot, 0).Byte(kBoot + 510, 0).Byte(kBoot + 511, 0);
  image.U16(kBoot + 19, 0).U32(kBoot + 32, 0);
  for (std::size_t i = 0; i < 8; ++i) image.Byte(kBoot + 54 + i, '?');

  EXPECT_THAT(AllPaths(*Load(image)), testing::ElementsAre("/A.TXT"));
}

TEST(Loading, NoReservedSectors_PutsTheFatOverTheBootSector) {
  auto image = ImageCrafter().U16(kBoot + 14, 0);
  Fat16FsImage browser;

  LoadMessage(browser, image.Bytes());

  EXPECT_EQ(browser.Info().fatStartSector, 1u);
}

TEST(Loading, ImageBytes_AreTheLoadedBytes) {
  const Bytes image = ImageCrafter().File("A.TXT").Bytes();

  EXPECT_EQ(Load(image)->ImageBytes(), image);
}

TEST(Loading, FailedLoad_KeepsTheRejectedBytes) {
  const Bytes rejected(600, 0x77);
  const auto browser = Load(ImageCrafter().File("A.TXT"));

  EXPECT_EQ(LoadMessage(*browser, rejected), "unsupported or invalid FAT16 BPB");

  EXPECT_EQ(browser->ImageBytes(), rejected);
}

TEST(Loading, TooSmallImage_ForgetsTheEarlierOne) {
  const auto browser = Load(ImageCrafter().File("A.TXT"));

  EXPECT_EQ(LoadMessage(*browser, Bytes(100)), "image too small");

  ExpectNothing(browser->Info());
  EXPECT_TRUE(AllPaths(*browser).empty());
  EXPECT_TRUE(ListPaths(*browser, "/").empty());  // the root is known once a load has begun
  EXPECT_EQ(ReadMessage(*browser, "/A.TXT"), "file not found");
}

// The volume begins 511 bytes before the image's end.
Bytes BootSectorCutShort() {
  ImageCrafter image({.startLba = 3});
  return image.CutTo(3 * 512 + 511).Bytes();
}

void ExpectOnlyTheRejectedImage(const Fat16FsImage& browser, const Bytes& rejected) {
  EXPECT_EQ(browser.ImageBytes(), rejected);
  EXPECT_TRUE(AllPaths(browser).empty());
  EXPECT_TRUE(ListPaths(browser, "/").empty());
  EXPECT_EQ(ListMessage(browser, "/D"), "directory not found");
  EXPECT_EQ(ReadMessage(browser, "/A.TXT"), "file not found");
}

TEST(Loading, RefusedBootSector_ForgetsTheEarlierImage) {
  const auto browser = Load(ImageCrafter().File("A.TXT").Directory("D", 5).InCluster(5));
  const Bytes rejected(600, 0x77);

  EXPECT_EQ(LoadMessage(*browser, rejected), "unsupported or invalid FAT16 BPB");

  ExpectOnlyTheRejectedImage(*browser, rejected);
  EXPECT_EQ(browser->Info().bytesPerSector, 0x7777);
}

TEST(Loading, BootSectorCutShort_ForgetsTheEarlierImageAndTellsThePartition) {
  const auto browser = Load(ImageCrafter().File("A.TXT").Directory("D", 5).InCluster(5));
  const Bytes rejected = BootSectorCutShort();

  EXPECT_EQ(LoadMessage(*browser, rejected), "vbr offset out of range");

  ExpectOnlyTheRejectedImage(*browser, rejected);
  EXPECT_TRUE(browser->Info().partitioned);
  EXPECT_EQ(browser->Info().partitionType, 0x04);
  EXPECT_EQ(browser->Info().partitionStartLba, 3u);
  EXPECT_EQ(browser->Info().bytesPerSector, 0u);
}

TEST(Loading, SecondImage_ReplacesTheFirst) {
  const auto browser =
      Load(ImageCrafter({.label = "ONE"}).File("A.TXT").Directory("D", 5).InCluster(5));

  EXPECT_EQ(LoadMessage(*browser, ImageCrafter().File("B.TXT").Bytes()), "");

  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/B.TXT"));
  EXPECT_EQ(ListMessage(*browser, "/D"), "directory not found");
  EXPECT_EQ(browser->Info().volumeLabel, "");
}

TEST(Loading, SecondImage_ForgetsARecordWithTheRootsKey) {
  const auto browser = Load(ImageCrafter().File("/"));
  ASSERT_EQ(ReadMessage(*browser, "/"), "");

  LoadMessage(*browser, ImageCrafter().File("A").Bytes());

  EXPECT_EQ(ReadMessage(*browser, "/"), "file not found");
}

TEST(Loading, FailedWalk_KeepsWhatItFoundBefore) {
  Fat16FsImage browser;
  auto image = ImageCrafter({.label = "KEPT"})
                   .File("BEFORE.TXT")
                   .Directory("LOOP", 2)
                   .File("AFTER.TXT")
                   .FatWord(2, 2);

  EXPECT_EQ(LoadMessage(browser, image.Bytes()), "cluster loop detected");

  EXPECT_EQ(browser.Info().volumeLabel, "KEPT");
  EXPECT_EQ(browser.Info().dataStartSector, 5u);
  EXPECT_THAT(AllPaths(browser), testing::ElementsAre("/BEFORE.TXT", "/LOOP"));
  EXPECT_THAT(ListPaths(browser, "/LOOP"), testing::IsEmpty());
  EXPECT_EQ(browser.ImageBytes(), image.Bytes());
}

TEST(Loading, References_FollowLaterLoads) {
  const auto browser = Load(ImageCrafter({.label = "ONE"}));
  const Fat16FsInfo& info = browser->Info();
  const Bytes& bytes = browser->ImageBytes();
  const Bytes larger = ImageCrafter({.clusters = 2000, .label = "TWO"}).Bytes();

  LoadMessage(*browser, larger);

  EXPECT_EQ(&info, &browser->Info());
  EXPECT_EQ(&bytes, &browser->ImageBytes());
  EXPECT_EQ(info.volumeLabel, "TWO");
  EXPECT_EQ(bytes, larger);
}

TEST(Loading, OwnImageBytes_LoadAgain) {
  const Bytes image = ImageCrafter().File("A.TXT").Bytes();
  const auto browser = Load(image);

  EXPECT_EQ(LoadMessage(*browser, browser->ImageBytes()), "");

  EXPECT_EQ(browser->ImageBytes(), image);
  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/A.TXT"));
}

TEST(Loading, CallersImage_IsCopied) {
  Bytes image = ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 3}).Data(2, "abc").Bytes();
  const auto browser = Load(image);

  std::fill(image.begin(), image.end(), std::uint8_t{0});

  EXPECT_EQ(ReadText(*browser, "/A.TXT"), "abc");
}

}  // namespace
}  // namespace quorbix::virtdisk::test
