// Where a load finds the volume: behind one of the four partition entries, or at byte 0.

#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

constexpr std::size_t kSecondEntry = 462;

ImageCrafter BareVolume() { return ImageCrafter({.partitioned = false}).InRoot().File("BARE.TXT"); }

TEST(VolumeLocation, Load_ImageOf511Bytes_IsTooSmall) {
  EXPECT_EQ(LoadMessage(Bytes(511)), "image too small");
}

TEST(VolumeLocation, Load_EmptyImage_IsTooSmall) {
  EXPECT_EQ(LoadMessage(Bytes{}), "image too small");
}

TEST(VolumeLocation, Load_512Zeros_IsAnInvalidBootSector) {
  EXPECT_EQ(LoadMessage(Bytes(512)), "unsupported or invalid FAT16 BPB");
}

TEST(VolumeLocation, Load_BootSectorWithoutSignature_IsABareVolume) {
  auto image = BareVolume().Byte(510, 0).Byte(511, 0);

  const auto browser = Load(image);

  EXPECT_FALSE(browser->Info().partitioned);
  EXPECT_EQ(browser->Info().volumeOffset, 0u);
  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/BARE.TXT"));
}

TEST(VolumeLocation, Load_HalfASignature_IsABareVolume) {
  // The entry would be taken if either byte alone made the sector a partition table.
  const auto table = [] { return BareVolume().Byte(446 + 4, 0x06).U32(446 + 8, 1); };

  EXPECT_THAT(AllPaths(*Load(table().Byte(510, 0x54))), testing::ElementsAre("/BARE.TXT"));
  EXPECT_THAT(AllPaths(*Load(table().Byte(511, 0xAB))), testing::ElementsAre("/BARE.TXT"));
}

TEST(VolumeLocation, Load_SignedBootSectorWithoutEntries_IsABareVolume) {
  const auto browser = Load(BareVolume());

  EXPECT_FALSE(browser->Info().partitioned);
  EXPECT_EQ(browser->Info().partitionType, 0);
  EXPECT_EQ(browser->Info().partitionStartLba, 0u);
  EXPECT_EQ(browser->Info().partitionSectorCount, 0u);
  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/BARE.TXT"));
}

TEST(VolumeLocation, Load_PartitionEntry_FillsThePartitionFields) {
  auto image = ImageCrafter({.startLba = 3}).U32(446 + 12, 0x01020304);

  const auto browser = Load(image);

  EXPECT_TRUE(browser->Info().partitioned);
  EXPECT_EQ(browser->Info().partitionType, 0x04);
  EXPECT_EQ(browser->Info().partitionStartLba, 3u);
  EXPECT_EQ(browser->Info().partitionSectorCount, 0x01020304u);
  EXPECT_EQ(browser->Info().volumeOffset, 1536u);
}

class PartitionSlot : public testing::TestWithParam<unsigned> {};

TEST_P(PartitionSlot, Load_EntryInAnySlot_IsTaken) {
  const auto browser = Load(ImageCrafter({.partitionSlot = GetParam()}).File("A.TXT"));

  EXPECT_TRUE(browser->Info().partitioned);
  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/A.TXT"));
}
INSTANTIATE_TEST_SUITE_P(Slots, PartitionSlot, testing::Range(0u, 4u));

class PartitionType : public testing::TestWithParam<std::uint8_t> {};

TEST_P(PartitionType, Load_AcceptedType_IsTaken) {
  const auto browser = Load(ImageCrafter({.partitionType = GetParam()}).File("A.TXT"));

  EXPECT_EQ(browser->Info().partitionType, GetParam());
  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/A.TXT"));
}
INSTANTIATE_TEST_SUITE_P(Accepted, PartitionType, testing::Values(0x01, 0x04, 0x06, 0x0E));

TEST(VolumeLocation, Load_EveryOtherType_IsPassedOver) {
  for (unsigned type = 0; type < 256; ++type) {
    if (type == 0x01 || type == 0x04 || type == 0x06 || type == 0x0E) continue;
    const ImageCrafter image({.partitionType = static_cast<std::uint8_t>(type)});
    EXPECT_EQ(LoadMessage(image.Bytes()), "unsupported or invalid FAT16 BPB") << type;
  }
}

TEST(VolumeLocation, Load_UnsupportedFirstEntry_UsesTheSecond) {
  auto image = ImageCrafter({.partitionSlot = 1, .partitionType = 0x06})
                   .Byte(446 + 4, 0x0B)
                   .U32(446 + 8, 1)
                   .File("SECOND.TXT");

  const auto browser = Load(image);

  EXPECT_EQ(browser->Info().partitionType, 0x06);
  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/SECOND.TXT"));
}

TEST(VolumeLocation, Load_TwoUsableEntries_TakesTheFirst) {
  auto image = ImageCrafter({.startLba = 2})
                   .Byte(kSecondEntry + 4, 0x06)
                   .U32(kSecondEntry + 8, 3)
                   .File("FIRST.TXT");

  EXPECT_EQ(Load(image)->Info().partitionStartLba, 2u);
}

TEST(VolumeLocation, Load_EntryThatStartsAtZero_IsPassedOver) {
  auto image = ImageCrafter({.partitionSlot = 1}).Byte(446 + 4, 0x06).U32(446 + 8, 0);

  EXPECT_EQ(Load(image)->Info().partitionStartLba, 1u);
}

TEST(VolumeLocation, Load_EntryThatStartsAtTheEnd_IsPassedOver) {
  auto image = ImageCrafter({.partitionSlot = 1});
  const auto sectors = static_cast<std::uint32_t>(image.Bytes().size() / 512);
  image.Byte(446 + 4, 0x06).U32(446 + 8, sectors);

  EXPECT_EQ(Load(image)->Info().partitionStartLba, 1u);
}

TEST(VolumeLocation, Load_OnlyEntryBeyondTheEnd_ReadsABareVolume) {
  auto image = ImageCrafter().U32(446 + 8, 0xFFFFFFFF);
  Fat16FsImage browser;

  EXPECT_EQ(LoadMessage(browser, image.Bytes()), "unsupported or invalid FAT16 BPB");
  EXPECT_FALSE(browser.Info().partitioned);
  EXPECT_EQ(browser.Info().partitionStartLba, 0u);
}

TEST(VolumeLocation, Load_StartWhoseByteOffsetWrapsIn32Bits_IsBeyondTheEnd) {
  // 0x00800001 sectors are 4 GiB and one sector: cut to 32 bits they would mean sector 1.
  auto image = ImageCrafter().U32(446 + 8, 0x00800001);

  EXPECT_EQ(LoadMessage(image.Bytes()), "unsupported or invalid FAT16 BPB");
}

TEST(VolumeLocation, Load_BootSectorCutAfter511Bytes_IsOutOfRange) {
  Fat16FsImage browser;

  EXPECT_EQ(LoadMessage(browser, ImageCrafter().CutTo(1023).Bytes()), "vbr offset out of range");
  EXPECT_TRUE(browser.Info().partitioned);
  EXPECT_EQ(browser.Info().volumeOffset, 512u);
  EXPECT_EQ(browser.Info().bytesPerSector, 0);
}

TEST(VolumeLocation, Load_BootSectorThatEndsWithTheImage_IsRead) {
  Fat16FsImage browser;

  EXPECT_EQ(LoadMessage(browser, ImageCrafter().CutTo(1024).Bytes()),
            "directory block out of range");
  EXPECT_EQ(browser.Info().bytesPerSector, 512);
}

TEST(VolumeLocation, Load_ChosenEntryThatDoesNotFit_IsNotReplacedByALaterOne) {
  auto image = ImageCrafter({.partitionSlot = 1, .trailingSectors = 1});
  const auto lastSector = static_cast<std::uint32_t>(image.Bytes().size() / 512) - 1;
  image.Byte(446 + 4, 0x06).U32(446 + 8, lastSector).CutTo(image.Bytes().size() - 1);

  EXPECT_EQ(LoadMessage(image.Bytes()), "vbr offset out of range");
}

}  // namespace
}  // namespace quorbix::virtdisk::test
