#include "sync/cluster_chain.h"

#include <gtest/gtest.h>

#include "common/fat_words.h"
#include "support/image_crafter.h"
#include "sync/image_context.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::ImageCrafter;

// Clusters 2, 5 and 3, in this order, filled with their numbers.
ImageCrafter ThreeClusters() {
  return ImageCrafter().Chain({2, 5, 3}).Fill(2, 2).Fill(5, 5).Fill(3, 3);
}

std::vector<std::uint8_t> Repeated(
    std::initializer_list<std::pair<std::uint8_t, std::size_t>> runs) {
  std::vector<std::uint8_t> bytes;
  for (const auto& [value, count] : runs) bytes.insert(bytes.end(), count, value);
  return bytes;
}

std::vector<std::uint8_t> Read(const ImageCrafter& crafter, std::uint16_t start,
                               std::uint32_t limit) {
  std::vector<std::uint8_t> bytes{7, 7, 7};
  EXPECT_TRUE(ReadClusterChain(ContextOf(crafter), start, bytes, limit));
  return bytes;
}

bool CanRead(const ImageCrafter& crafter, std::uint16_t start, std::uint32_t limit) {
  std::vector<std::uint8_t> bytes;
  return ReadClusterChain(ContextOf(crafter), start, bytes, limit);
}

TEST(ReadClusterChain, NoLimit_GivesTheWholeChainInOrder) {
  EXPECT_EQ(Read(ThreeClusters(), 2, 0), Repeated({{2, 512}, {5, 512}, {3, 512}}));
}

TEST(ReadClusterChain, LimitWithinAClusters_CutsThere) {
  EXPECT_EQ(Read(ThreeClusters(), 2, 513), Repeated({{2, 512}, {5, 1}}));
}

TEST(ReadClusterChain, LimitAtAClustersEnd_TakesNoByteMore) {
  EXPECT_EQ(Read(ThreeClusters(), 2, 512), Repeated({{2, 512}}));
}

TEST(ReadClusterChain, LimitOfOne_GivesOneByte) {
  EXPECT_EQ(Read(ThreeClusters(), 2, 1), Repeated({{2, 1}}));
}

TEST(ReadClusterChain, LimitBeyondTheChain_GivesAShorterResult) {
  EXPECT_EQ(Read(ThreeClusters(), 5, 0xFFFFFFFF), Repeated({{5, 512}, {3, 512}}));
}

TEST(ReadClusterChain, HundredBytesOfALargeCluster_AreExactlyHundred) {
  const auto image = ImageCrafter({.sectorsPerCluster = 8}).Chain({2}).Fill(2, 9);
  EXPECT_EQ(Read(image, 2, 100), Repeated({{9, 100}}));
}

TEST(ReadClusterChain, StartsThatLeadNowhere_AreEmptyChains) {
  for (const auto start : std::initializer_list<std::uint16_t>{0, 1, 0xFFF8, 0xFFFF}) {
    EXPECT_EQ(Read(ThreeClusters(), start, 0), Repeated({})) << start;
    EXPECT_EQ(Read(ThreeClusters(), start, 100), Repeated({})) << start;
  }
}

TEST(ReadClusterChain, EveryEndValue_EndsTheChain) {
  for (const auto end : std::initializer_list<std::uint16_t>{0, 1, 0xFFF8, 0xFFF9, 0xFFFF}) {
    EXPECT_EQ(Read(ThreeClusters().FatWord(2, end), 2, 0), Repeated({{2, 512}})) << end;
  }
}

TEST(ReadClusterChain, ReservedAndBadMarks_AreFollowedOutOfTheImage) {
  for (const auto word : std::initializer_list<std::uint16_t>{0xFFF0, 0xFFF6, 0xFFF7}) {
    EXPECT_FALSE(CanRead(ThreeClusters().FatWord(2, word), 2, 0)) << word;
  }
}

TEST(ReadClusterChain, BadMark_IsAClusterWhereTheImageHoldsIt) {
  ImageCrafter image({.sectorsPerFat = 256, .clusters = 65526});  // the last one is 0xFFF7
  image.FatWord(2, 0xFFF7).FatWord(0xFFF7, 0xFFFF).Fill(2, 2).Fill(0xFFF7, 8);
  EXPECT_EQ(Read(image, 2, 0), Repeated({{2, 512}, {8, 512}}));
}

TEST(ReadClusterChain, Loop_Fails) {
  EXPECT_FALSE(CanRead(ThreeClusters().FatWord(3, 2), 2, 0));
  EXPECT_FALSE(CanRead(ThreeClusters().FatWord(3, 2), 2, 1537));
}

TEST(ReadClusterChain, ClusterThatLeadsToItself_Fails) {
  EXPECT_FALSE(CanRead(ThreeClusters().FatWord(2, 2), 2, 0));
}

TEST(ReadClusterChain, LoopBeyondTheLimit_IsNeverMet) {
  EXPECT_EQ(Read(ThreeClusters().FatWord(3, 2), 2, 1536), Repeated({{2, 512}, {5, 512}, {3, 512}}));
}

TEST(ReadClusterChain, LastClusterOfTheImage_IsRead) {
  EXPECT_EQ(Read(ImageCrafter().Chain({91}).Fill(91, 1), 91, 0), Repeated({{1, 512}}));
}

TEST(ReadClusterChain, FirstClusterBeyondTheImage_Fails) {
  EXPECT_FALSE(CanRead(ImageCrafter(), 92, 0));
  EXPECT_FALSE(CanRead(ImageCrafter(), 92, 1));
}

TEST(ReadClusterChain, ClusterThatIsPartlyBeyondTheImage_Fails) {
  ImageCrafter image({.sectorsPerCluster = 2});
  image.Chain({91}).CutTo(image.Bytes().size() - 512);
  EXPECT_FALSE(CanRead(image, 91, 1));
}

TEST(ReadClusterChain, ClusterBeyondTheImageAfterTheLimit_IsNeverMet) {
  EXPECT_EQ(Read(ImageCrafter().FatWord(2, 92).Fill(2, 4), 2, 512), Repeated({{4, 512}}));
}

std::string PieceSizes(const ImageCrafter& crafter, std::uint16_t start, std::uint64_t wanted) {
  const FatContext context = ContextOf(crafter);
  ChainPieces chain(context, start);
  std::string sizes;
  for (auto piece = chain.Next(wanted); !piece.empty(); piece = chain.Next(wanted)) {
    sizes += std::to_string(piece.size()) + " ";
  }
  return sizes + (chain.IsBroken() ? "broken" : "end");
}

TEST(ChainPieces, NeighbouringClusters_ComeAsOnePiece) {
  EXPECT_EQ(PieceSizes(ImageCrafter().Chain({2, 3, 4, 9, 10, 7}), 2, 99999), "1536 1024 512 end");
}

TEST(ChainPieces, PieceGoesNoClusterFurtherThanWanted) {
  const ImageCrafter image = ImageCrafter().Chain({2, 3, 4, 5});
  EXPECT_EQ(PieceSizes(image, 2, 1024), "1024 1024 end");
  EXPECT_EQ(PieceSizes(image, 2, 1025), "1536 512 end");
  EXPECT_EQ(PieceSizes(image, 2, 1), "512 512 512 512 end");
}

TEST(ChainPieces, LoopIsMetAfterWhatComesBeforeIt) {
  EXPECT_EQ(PieceSizes(ImageCrafter().FatWord(2, 3).FatWord(3, 4).FatWord(4, 3), 2, 99999),
            "1536 broken");
}

TEST(ChainPieces, ClusterBeyondTheImage_BreaksTheChain) {
  EXPECT_EQ(PieceSizes(ImageCrafter().FatWord(91, 92), 91, 99999), "512 broken");
}

TEST(ChainPieces, StartThatLeadsNowhere_IsAnEmptyChain) {
  EXPECT_EQ(PieceSizes(ImageCrafter(), 0, 99999), "end");
  EXPECT_EQ(PieceSizes(ImageCrafter(), 0xFFF8, 99999), "end");
}

TEST(ReadClusterChain, FirstFat_IsTheOneThatCounts) {
  ImageCrafter image = ThreeClusters();
  image.U16(image.FatOffset(1) + 2 * 2, 0xFFFF);
  EXPECT_EQ(Read(image, 2, 0).size(), 1536u);
}

// A volume whose FAT lies at the very end of the image, so that words are beyond it.
FatContext FatAtTheEnd(std::size_t bytesOfFat) {
  FatContext context;
  context.image.Assign(std::vector<std::uint8_t>(1024 + bytesOfFat));
  context.bytesPerSector = 512;
  context.sectorsPerCluster = 1;
  context.fatStartSector = 2;
  context.dataStartSector = 0;
  return context;
}

TEST(ReadClusterChain, FatWordBeyondTheImage_EndsTheChain) {
  std::vector<std::uint8_t> bytes;
  EXPECT_TRUE(ReadClusterChain(FatAtTheEnd(0), 2, bytes, 0));
  EXPECT_EQ(bytes.size(), 512u);
}

TEST(ReadClusterChain, FatWordCutInHalf_EndsTheChain) {
  FatContext context = FatAtTheEnd(5);
  context.image[1024 + 4] = 3;
  std::vector<std::uint8_t> bytes;
  EXPECT_TRUE(ReadClusterChain(context, 2, bytes, 0));
  EXPECT_EQ(bytes.size(), 512u);
}

TEST(ReadClusterChain, LastFatWordOfTheImage_IsFollowed) {
  FatContext context = FatAtTheEnd(6);
  context.image[1024 + 4] = 3;
  std::vector<std::uint8_t> bytes;
  EXPECT_TRUE(ReadClusterChain(context, 2, bytes, 0));
  EXPECT_EQ(bytes.size(), 1024u);
}

TEST(ReadClusterChain, OffsetsAbove32Bits_AreOutsideASmallImage) {
  FatContext context = FatAtTheEnd(6);
  context.dataStartSector = 0x00800000;  // 4 GiB: the image's start, if cut to 32 bits
  std::vector<std::uint8_t> bytes;
  EXPECT_FALSE(ReadClusterChain(context, 2, bytes, 0));
}

TEST(ReadClusterChain, ClusterNumberWhoseOffsetExceeds32Bits_IsOutsideASmallImage) {
  // 32,897 clusters of 255 sectors after cluster 2: 4 GiB and 127 sectors.
  ImageCrafter image({.sectorsPerCluster = 255, .clusters = 3});
  EXPECT_FALSE(CanRead(image, 32899, 0));
  EXPECT_FALSE(ClusterBytes(ContextOf(image), 32899).has_value());
}

TEST(ReadClusterChain, SectorNumberThatExceeds32Bits_IsOutsideASmallImage) {
  FatContext context = FatAtTheEnd(6);
  context.dataStartSector = 0xFFFFFFFF;  // cluster 3 would be sector 0, if cut to 32 bits
  EXPECT_FALSE(ClusterBytes(context, 3).has_value());
}

TEST(ReadClusterChain, FatBeyond4GiB_HasNoWords) {
  FatContext context = FatAtTheEnd(6);
  context.fatStartSector = 0x00800000;  // the image's start, if cut to 32 bits
  context.image[4] = 3;
  EXPECT_TRUE(fat::IsEndOfChain(FatWord(context, 2)));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
