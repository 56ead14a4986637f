// Partition table, boot sector and FATs.

#include "check/check_fixture.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::ImageCrafter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::size_t kEntry2 = 462;

// A second entry of the partition table.
ImageCrafter WithPartition(std::uint8_t type, std::uint32_t start, std::uint32_t count) {
  return ImageCrafter({.trailingSectors = 100})
      .U32(446 + 12, 94)
      .U16(512 + 19, 94)
      .Byte(kEntry2 + 4, type)
      .U32(kEntry2 + 8, start)
      .U32(kEntry2 + 12, count);
}

TEST(SystemArea, ImageOneByteShort_IsFound) {
  auto image = ImageCrafter();
  const std::size_t bytes = image.Bytes().size();
  const CheckReport report = Checked(image.CutTo(bytes - 1));
  EXPECT_THAT(Said(report), ElementsAre("partition 1 ends at byte 48,640, and the image ends after "
                                        "48,639",
                                        "the volume ends at byte 48,640, and the image ends after "
                                        "48,639"));
  EXPECT_EQ(bytes, 48640u);
  EXPECT_EQ(report.counts.clusters, 89u);
  EXPECT_FALSE(report.IsSound());
}

TEST(SystemArea, OtherPartition_IsARemark) {
  const CheckReport report = Checked(WithPartition(0x83, 95, 100));
  EXPECT_THAT(Said(report), ElementsAre("partition 2 of type 0x83 was not looked at"));
  EXPECT_TRUE(report.IsSound());
}

// A table alone, as of a disk whose volumes are logical ones, and a boot sector of another kind.
TEST(SystemArea, PartitionsOfOtherKindsAlone_AreNamed) {
  std::vector<std::uint8_t> image(8192);
  image[510] = 0x55;
  image[511] = 0xAA;
  image[446 + 4] = 0x05;
  image[446 + 8] = 2;
  image[446 + 12] = 14;
  const CheckReport report = Checked(image);
  EXPECT_THAT(Said(report), ElementsAre("there is no FAT16 volume in the image",
                                        "partition 1 of type 0x05 was not looked at"));
  EXPECT_FALSE(report.isPartitioned);
  image[446] = 'e';
  EXPECT_THAT(Findings(image), ElementsAre("there is no FAT16 volume in the image"));
}

TEST(SystemArea, SecondPartitionWithinTheImage_EndsWithItsLastSector) {
  EXPECT_EQ(Checked(WithPartition(6, 95, 100)).Found(FindingKind::kPartitionBeyondImage), 0u);
  EXPECT_EQ(Checked(WithPartition(6, 95, 101)).Found(FindingKind::kPartitionBeyondImage), 1u);
}

TEST(SystemArea, PartitionsThatTouch_DoNotOverlap) {
  EXPECT_EQ(Checked(WithPartition(6, 95, 5)).Found(FindingKind::kPartitionsOverlap), 0u);
  EXPECT_EQ(Checked(WithPartition(6, 94, 5)).Found(FindingKind::kPartitionsOverlap), 1u);
}

TEST(SystemArea, VolumeOneSectorLongerThanItsPartition_IsFound) {
  EXPECT_THAT(Findings(ImageCrafter().U32(446 + 12, 93)),
              ElementsAre("the volume has 94 sectors, and its partition 93"));
}

TEST(SystemArea, BareVolume_HasNoPartitionTable) {
  EXPECT_THAT(Findings(ImageCrafter({.partitioned = false})), IsEmpty());
}

// An image of more than 2 TiB: a partition table, and a volume at the last sector that has a
// number.
class FarVolume final : public ByteSource {
 public:
  std::uint64_t Size() const override { return kVolumeAt + bytes.size(); }
  const std::uint8_t* Read(std::uint64_t offset, std::size_t size,
                           std::vector<std::uint8_t>& buffer, std::string& /*err*/) override {
    buffer.assign(size, 0);
    const std::uint64_t from = offset >= kVolumeAt ? offset - kVolumeAt + 512 : offset;
    const std::uint64_t end = std::min<std::uint64_t>(bytes.size(), from + size);
    if (from < end) std::copy(bytes.data() + from, bytes.data() + end, buffer.begin());
    return buffer.data();
  }

 private:
  static constexpr std::uint64_t kVolumeAt = std::uint64_t{0xFFFFFFFF} * 512;
  const std::vector<std::uint8_t> bytes = ImageCrafter().U32(446 + 8, 0xFFFFFFFF).Bytes();
};

TEST(SystemArea, VolumeBeyondTheNumbersOfSectors_IsOneFault) {
  FarVolume source;
  CheckReport report;
  std::string err;
  EXPECT_TRUE(CheckVolume(source, report, err)) << err;
  EXPECT_EQ(report.Found(FindingKind::kBeyondSectorNumbers), 1u);
  EXPECT_EQ(report.Found(FindingKind::kNoRoom), 0u);
  EXPECT_FALSE(report.IsSound());
}

TEST(SystemArea, NoVolume_IsDamageAndNotWhole) {
  const CheckReport report = Checked(std::vector<std::uint8_t>(4096));
  EXPECT_EQ(report.Found(FindingKind::kNoVolume), 1u);
  EXPECT_FALSE(report.IsSound());
  EXPECT_FALSE(report.isWhole);
}

TEST(SystemArea, EmptyImage_HasNoVolume) {
  EXPECT_THAT(Findings(std::vector<std::uint8_t>()),
              ElementsAre("there is no FAT16 volume in the image"));
}

TEST(SystemArea, Fat32BootSector_IsNamed) {
  const auto image = ImageCrafter().U16(512 + 22, 0).U16(512 + 17, 0);
  EXPECT_THAT(Findings(image), ElementsAre("the boot sector says FAT32"));
}

TEST(SystemArea, Fat32BootSectorOfLargeSectors_IsNamedToo) {
  const auto image = ImageCrafter().U16(512 + 22, 0).U16(512 + 17, 0).U16(512 + 11, 4096);
  EXPECT_THAT(Findings(image), ElementsAre("the boot sector says FAT32"));
}

TEST(SystemArea, SectorsOfAnotherSize_AreTheReasonWhyNothingIsRead) {
  const auto withSectors = [](std::uint16_t bytes) {
    return Findings(ImageCrafter({.partitioned = false}).U16(11, bytes));
  };
  EXPECT_THAT(withSectors(4096), ElementsAre("the volume has sectors of 4,096 bytes; only those of "
                                             "512 can be read"));
  EXPECT_THAT(withSectors(1024), ElementsAre("the volume has sectors of 1,024 bytes; only those of "
                                             "512 can be read"));
  for (const std::uint16_t noSize :
       {std::uint16_t{256}, std::uint16_t{3000}, std::uint16_t{8192}}) {
    EXPECT_THAT(withSectors(noSize), ElementsAre("there is no FAT16 volume in the image"));
  }
  const CheckReport report = Checked(ImageCrafter().U16(512 + 11, 4096));
  EXPECT_FALSE(report.IsSound());
  EXPECT_FALSE(report.isWhole);
}

TEST(SystemArea, UnreadableVolumeInAPartition_IsNoReasonToPassOverTheTable) {
  const auto image = WithPartition(6, 94, 5).U16(512 + 11, 0);
  EXPECT_THAT(Findings(image), ElementsAre("partitions 1 and 2 overlap",
                                           "partition 2 of type 0x06 was not looked at",
                                           "there is no FAT16 volume in the image"));
}

TEST(SystemArea, MissingSignature_IsARemark) {
  const CheckReport report = Checked(ImageCrafter().Byte(512 + 511, 0));
  EXPECT_THAT(Said(report), ElementsAre("the boot sector does not end with 55 AA"));
  EXPECT_TRUE(report.IsSound());
}

TEST(SystemArea, ClusterOfThreeSectors_IsFound) {
  EXPECT_EQ(Checked(ImageCrafter().Byte(512 + 13, 3)).Found(FindingKind::kOddClusterSize), 1u);
}

TEST(SystemArea, Fat12_IsNotLookedIntoFurther) {
  const auto image = ImageCrafter().File("A.TXT", {.size = 9}).Byte(512 + 58, '2');
  const CheckReport report = Checked(image);
  EXPECT_THAT(Said(report), ElementsAre("the boot sector says FAT12 (90 clusters)"));
  EXPECT_FALSE(report.IsSound());
  EXPECT_FALSE(report.isWhole);
}

TEST(SystemArea, SmallVolumeThatSaysNothing_IsTakenForFat12) {
  const auto image = ImageCrafter().Byte(512 + 57, ' ').Byte(512 + 58, ' ');
  EXPECT_THAT(Findings(image), ElementsAre("the volume has 90 clusters, which makes it FAT12, and "
                                           "its boot sector does not say FAT16"));
}

TEST(SystemArea, FewerThan4085Clusters_AreARemark) {
  const CheckReport small = Checked(ImageCrafter({.sectorsPerFat = 16, .clusters = 4084}));
  EXPECT_EQ(small.Found(FindingKind::kFewClusters), 1u);
  EXPECT_TRUE(small.IsSound());
  const CheckReport enough = Checked(ImageCrafter({.sectorsPerFat = 16, .clusters = 4085}));
  EXPECT_THAT(enough.findings, IsEmpty());
}

TEST(SystemArea, MoreThan65524Clusters_AreFound) {
  EXPECT_EQ(Checked(ImageCrafter({.sectorsPerFat = 256, .clusters = 65524}))
                .Found(FindingKind::kManyClusters),
            0u);
  EXPECT_EQ(Checked(ImageCrafter({.sectorsPerFat = 256, .clusters = 65525}))
                .Found(FindingKind::kManyClusters),
            1u);
}

TEST(SystemArea, NoSectorCount_IsFound) {
  EXPECT_THAT(Findings(ImageCrafter().U16(512 + 19, 0)),
              ElementsAre("the boot sector does not tell how many sectors there are"));
}

TEST(SystemArea, VolumeWithoutRoomForAnyCluster_IsFound) {
  EXPECT_THAT(Findings(ImageCrafter().U16(512 + 19, 4)),
              ElementsAre("the FATs and the root directory take 4 sectors of 4, and none is left "
                          "for clusters"));
}

// One sector has 256 words, two of which are reserved.
TEST(SystemArea, FatOneWordShort_IsARemark) {
  EXPECT_THAT(Findings(ImageCrafter({.clusters = 254})), IsEmpty());
  const CheckReport report = Checked(ImageCrafter({.clusters = 255}));
  EXPECT_THAT(Said(report), ElementsAre("the FAT has room for 254 of the 255 clusters; other "
                                        "systems may refuse the volume"));
  EXPECT_TRUE(report.IsSound());
  EXPECT_EQ(report.counts.clusters, 254u);
}

TEST(SystemArea, WordOfOneFatOnly_IsADifference) {
  auto image = ImageCrafter({.fatCount = 3});
  image.U16(image.FatOffset(2) + 2 * 91, 0xFFFF).U16(image.FatOffset(2) + 2 * 50, 1);
  EXPECT_THAT(Findings(image), ElementsAre("FAT 3 differs from the first one in 2 words, first in "
                                           "that of cluster 50"));
}

TEST(SystemArea, WordBehindTheLastCluster_IsNoDifference) {
  auto image = ImageCrafter();
  image.U16(image.FatOffset(1) + 2 * 92, 0xFFFF);
  EXPECT_THAT(Findings(image), IsEmpty());
}

TEST(SystemArea, FirstWordWithoutTheMediaByte_IsFound) {
  EXPECT_THAT(Findings(ImageCrafter().FatWord(0, 0xFFF0)),
              ElementsAre("the FAT begins with 0xFFF0, and the boot sector's media byte is 0xF8"));
  EXPECT_THAT(Findings(ImageCrafter().FatWord(0, 0xFFF0).Byte(512 + 21, 0xF0)), IsEmpty());
}

TEST(SystemArea, FatBeyondTheImage_LeavesNoClusters) {
  auto image = ImageCrafter();
  const CheckReport report = Checked(image.CutTo(image.FatOffset()));
  EXPECT_EQ(report.counts.clusters, 0u);
  EXPECT_FALSE(report.IsSound());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
