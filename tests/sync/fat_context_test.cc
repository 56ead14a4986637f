#include "sync/fat_context.h"

#include <gtest/gtest.h>

#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::ImageCrafter;
using test::TempFolder;
using test::VolumeShape;

std::string LoadError(const std::filesystem::path& path) {
  ByteBuffer bytes;
  std::string error = "earlier text";
  EXPECT_FALSE(LoadImageBytes(path, bytes, error));
  return error;
}

std::string ParseError(const std::vector<std::uint8_t>& image) {
  FatContext context;
  context.image.Assign(image);
  std::string error = "earlier text";
  EXPECT_FALSE(ParseLoadedImage(context, error));
  return error;
}

bool Parses(const ImageCrafter& crafter, FatContext& context) {
  context.image.Assign(crafter.Bytes());
  std::string error;
  return ParseLoadedImage(context, error);
}

TEST(LoadImageBytes, WholeSectors_AreReadCompletely) {
  TempFolder folder;
  std::vector<std::uint8_t> written(1024);
  written[0] = 1;
  written[1023] = 0xFE;
  folder.File("DISK.IMG", written);
  ByteBuffer bytes(3);
  std::string error;

  ASSERT_TRUE(LoadImageBytes(folder / "DISK.IMG", bytes, error));

  EXPECT_EQ(std::vector<std::uint8_t>(bytes.Span().begin(), bytes.Span().end()), written);
}

TEST(LoadImageBytes, MissingFile_CannotBeOpened) {
  TempFolder folder;
  const std::filesystem::path path = folder / "NONE.IMG";
  EXPECT_EQ(LoadError(path), "Cannot open image: " + path.native());
}

TEST(LoadImageBytes, PathAsPassed_EndsTheMessage) {
  EXPECT_EQ(LoadError("./no//such/./disk.img"), "Cannot open image: ./no//such/./disk.img");
}

TEST(LoadImageBytes, EmptyFile_HasNoValidSize) {
  TempFolder folder;
  folder.File("DISK.IMG");
  const std::filesystem::path path = folder / "DISK.IMG";
  EXPECT_EQ(LoadError(path), "Invalid image size: " + path.native());
}

TEST(LoadImageBytes, HalfASector_HasNoValidSize) {
  TempFolder folder;
  folder.File("A.IMG", std::string(511, 'x')).File("B.IMG", std::string(513, 'x'));
  EXPECT_EQ(LoadError(folder / "A.IMG"), "Invalid image size: " + (folder / "A.IMG").native());
  EXPECT_EQ(LoadError(folder / "B.IMG"), "Invalid image size: " + (folder / "B.IMG").native());
}

TEST(LoadImageBytes, Folder_IsNoImage) {
  TempFolder folder;
  EXPECT_NE(LoadError(folder.Path()), "earlier text");
}

TEST(LoadImageBytes, FileThatEndsBeforeItsSize_CannotBeRead) {
  // Claims a page and holds a few bytes.
  constexpr char kShortFile[] = "/sys/kernel/fscaps";
  if (!std::filesystem::exists(kShortFile)) GTEST_SKIP() << kShortFile << " is not there";
  EXPECT_EQ(LoadError(kShortFile), "Cannot read image: /sys/kernel/fscaps");
}

TEST(ParseFatContext, LoadFailure_KeepsItsMessage) {
  TempFolder folder;
  folder.File("DISK.IMG", "short");
  FatContext context;
  std::string error;
  EXPECT_FALSE(ParseFatContext(folder / "DISK.IMG", context, error));
  EXPECT_EQ(error, "Invalid image size: " + (folder / "DISK.IMG").native());
}

TEST(ParseFatContext, FileOnTheHost_IsLoadedAndParsed) {
  TempFolder folder;
  folder.File("DISK.IMG", ImageCrafter().Bytes());
  FatContext context;
  std::string error;
  ASSERT_TRUE(ParseFatContext(folder / "DISK.IMG", context, error));
  EXPECT_EQ(std::vector<std::uint8_t>(context.image.Span().begin(), context.image.Span().end()),
            ImageCrafter().Bytes());
}

TEST(ParseFatContext, LessThanASector_IsTooSmall) {
  EXPECT_EQ(ParseError(std::vector<std::uint8_t>(511)), "Image too small");
  EXPECT_EQ(ParseError({}), "Image too small");
}

TEST(ParseFatContext, OneEmptySector_HasNoPartition) {
  EXPECT_EQ(ParseError(std::vector<std::uint8_t>(512)), "No supported FAT partition in MBR");
}

TEST(ParseFatContext, BareBootSector_HasNoPartition) {
  EXPECT_EQ(ParseError(ImageCrafter({.partitioned = false}).Bytes()),
            "No supported FAT partition in MBR");
}

TEST(ParseFatContext, SupportedTypes_AreFour) {
  for (unsigned type = 0; type < 256; ++type) {
    FatContext context;
    const bool supported = type == 0x01 || type == 0x04 || type == 0x06 || type == 0x0E;
    EXPECT_EQ(Parses(ImageCrafter({.partitionType = static_cast<std::uint8_t>(type)}), context),
              supported)
        << type;
  }
}

TEST(ParseFatContext, ThirdEntry_IsUsedWhereTheFirstHasAnotherType) {
  FatContext context;
  const VolumeShape shape{.partitionSlot = 2, .startLba = 5};
  ASSERT_TRUE(Parses(ImageCrafter(shape).Byte(446 + 4, 0x83), context));
  EXPECT_EQ(context.partitionStartLba, 5u);
}

TEST(ParseFatContext, LastEntry_IsUsed) {
  FatContext context;
  EXPECT_TRUE(Parses(ImageCrafter({.partitionSlot = 3}), context));
}

TEST(ParseFatContext, FirstSupportedEntry_Wins) {
  FatContext context;
  // Entry 2 would be valid as well, with a start that is beyond the image.
  ASSERT_TRUE(Parses(ImageCrafter().Byte(446 + 16 + 4, 0x06).U32(446 + 16 + 8, 0xFFFFFF), context));
  EXPECT_EQ(context.partitionStartLba, 1u);
}

TEST(ParseFatContext, FirstSupportedEntryThatIsBroken_IsNotPassedOver) {
  const auto image = ImageCrafter({.partitionSlot = 1}).Byte(446 + 4, 0x06).U32(446 + 8, 0xFFFFFF);
  EXPECT_EQ(ParseError(image.Bytes()), "VBR offset out of range");
}

TEST(ParseFatContext, StatusAndSignature_AreNotLookedAt) {
  FatContext context;
  EXPECT_TRUE(Parses(ImageCrafter().Byte(446, 0x7F).U16(510, 0).U16(512 + 510, 0), context));
}

TEST(ParseFatContext, BootSectorAtTheLastSector_IsWithinTheImage) {
  ImageCrafter crafter;
  const auto sectors = static_cast<std::uint32_t>(crafter.Bytes().size() / 512);
  crafter.U32(446 + 8, sectors - 1);
  EXPECT_EQ(ParseError(crafter.Bytes()), "Unsupported or invalid FAT BPB");
}

TEST(ParseFatContext, BootSectorJustBeyondTheImage_IsOutOfRange) {
  ImageCrafter crafter;
  const auto sectors = static_cast<std::uint32_t>(crafter.Bytes().size() / 512);
  crafter.U32(446 + 8, sectors);
  EXPECT_EQ(ParseError(crafter.Bytes()), "VBR offset out of range");
}

TEST(ParseFatContext, LargestStartSector_IsOutOfRange) {
  EXPECT_EQ(ParseError(ImageCrafter().U32(446 + 8, 0xFFFFFFFF).Bytes()), "VBR offset out of range");
}

TEST(ParseFatContext, StartSectorThatWrapsIn32Bits_IsOutOfRange) {
  // 0x00800001 sectors are 512 bytes and 4 GiB: sector 1 again, if the product were cut.
  EXPECT_EQ(ParseError(ImageCrafter().U32(446 + 8, 0x00800001).Bytes()), "VBR offset out of range");
}

TEST(ParseFatContext, OtherSectorSizes_AreUnsupported) {
  for (const auto size : std::initializer_list<std::uint16_t>{0, 256, 511, 513, 1024, 4096}) {
    EXPECT_EQ(ParseError(ImageCrafter().U16(512 + 11, size).Bytes()),
              "Unsupported or invalid FAT BPB")
        << size;
  }
}

TEST(ParseFatContext, ZeroSectorsPerCluster_IsUnsupported) {
  EXPECT_EQ(ParseError(ImageCrafter().Byte(512 + 13, 0).Bytes()), "Unsupported or invalid FAT BPB");
}

TEST(ParseFatContext, NoFat_IsUnsupported) {
  EXPECT_EQ(ParseError(ImageCrafter().Byte(512 + 16, 0).Bytes()), "Unsupported or invalid FAT BPB");
}

TEST(ParseFatContext, ZeroSectorsPerFat_IsUnsupported) {
  EXPECT_EQ(ParseError(ImageCrafter().U16(512 + 22, 0).Bytes()), "Unsupported or invalid FAT BPB");
}

TEST(ParseFatContext, EverythingElseOfTheBootSector_IsNotLookedAt) {
  ImageCrafter crafter;
  for (std::size_t offset = 0; offset < 512; ++offset) {
    const bool read = (offset >= 11 && offset <= 18) || offset == 22 || offset == 23;
    if (!read) crafter.Byte(512 + offset, 0xA5);
  }
  FatContext context;
  EXPECT_TRUE(Parses(crafter, context));
}

TEST(ParseFatContext, ClusterSizeThatIsNoPowerOfTwo_IsAccepted) {
  FatContext context;
  ASSERT_TRUE(Parses(ImageCrafter({.sectorsPerCluster = 3}), context));
  EXPECT_EQ(context.sectorsPerCluster, 3u);
}

TEST(ParseFatContext, ZeroRootEntries_AreAccepted) {
  FatContext context;
  ASSERT_TRUE(Parses(ImageCrafter({.rootEntryCount = 0}), context));
  EXPECT_EQ(context.rootDirSectors, 0u);
}

TEST(ParseFatContext, Fields_AreSectorsOfTheImageFile) {
  FatContext context;
  const VolumeShape shape{.startLba = 63,
                          .sectorsPerCluster = 4,
                          .reservedSectors = 7,
                          .fatCount = 3,
                          .rootEntryCount = 17,
                          .sectorsPerFat = 5};
  ASSERT_TRUE(Parses(ImageCrafter(shape), context));
  EXPECT_EQ(context.partitionStartLba, 63u);
  EXPECT_EQ(context.bytesPerSector, 512u);
  EXPECT_EQ(context.sectorsPerCluster, 4u);
  EXPECT_EQ(context.reservedSectors, 7u);
  EXPECT_EQ(context.fatCount, 3u);
  EXPECT_EQ(context.rootEntryCount, 17u);
  EXPECT_EQ(context.sectorsPerFat, 5u);
  EXPECT_EQ(context.rootDirSectors, 2u);       // 17 slots need a second sector
  EXPECT_EQ(context.fatStartSector, 70u);      // 63 + 7
  EXPECT_EQ(context.rootDirStartSector, 85u);  // 70 + 3 * 5
  EXPECT_EQ(context.dataStartSector, 87u);     // 85 + 2
}

TEST(ParseFatContext, RootDirSectors_RoundUp) {
  const std::uint16_t counts[] = {1, 16, 17, 512, 65535};
  const std::uint32_t sectors[] = {1, 1, 2, 32, 4096};
  for (std::size_t i = 0; i < std::size(counts); ++i) {
    FatContext context;
    ASSERT_TRUE(Parses(ImageCrafter().U16(512 + 17, counts[i]), context));
    EXPECT_EQ(context.rootDirSectors, sectors[i]);
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
