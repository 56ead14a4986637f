// Following the FAT: where a chain ends, how it breaks, and how many bytes an entry owns, which
// shows in what a rewrite accepts.

#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

// A volume of 90 one-sector clusters, 2 to 91, with one file that claims more than it owns.
ImageCrafter OneFileAt(std::uint16_t firstCluster) {
  return ImageCrafter().File("A", {.firstCluster = firstCluster, .size = 0xFFFFFFFF});
}

// The bytes that the file owns: the longest content that a rewrite does not refuse as too long.
std::size_t AllocatedBytes(const ImageCrafter& image, std::size_t atMost = 100 * 512) {
  for (std::size_t length = atMost + 512; length > 0; length -= 512) {
    const auto browser = Load(image);
    if (WriteMessage(*browser, "/A", Bytes(length)) !=
        "new file content exceeds allocated cluster chain") {
      return length;
    }
  }
  return 0;
}

std::size_t ReadLength(const ImageCrafter& image) { return ReadText(*Load(image), "/A").size(); }

TEST(ClusterChain, Chain_IsFollowedToItsEndMark) {
  const auto image = OneFileAt(5).Chain({5, 9, 3}).Fill(5, 'a').Fill(9, 'b').Fill(3, 'c');

  EXPECT_EQ(ReadText(*Load(image), "/A"),
            std::string(512, 'a') + std::string(512, 'b') + std::string(512, 'c'));
  EXPECT_EQ(AllocatedBytes(image), 3u * 512);
}

TEST(ClusterChain, EveryEndMark_EndsTheChain) {
  for (unsigned word = 0xFFF8; word <= 0xFFFF; ++word) {
    const auto image = OneFileAt(2).FatWord(2, static_cast<std::uint16_t>(word));
    EXPECT_EQ(ReadLength(image), 512u) << word;
  }
}

TEST(ClusterChain, FreeAndReservedWords_EndTheChain) {
  EXPECT_EQ(ReadLength(OneFileAt(2).FatWord(2, 0)), 512u);
  EXPECT_EQ(ReadLength(OneFileAt(2).FatWord(2, 1)), 512u);
}

TEST(ClusterChain, StartBelowTwoOrAtAnEndMark_IsAnEmptyChain) {
  for (const std::uint16_t start : Words{0x0000, 0x0001, 0xFFF8, 0xFFFF}) {
    EXPECT_EQ(ReadLength(OneFileAt(start)), 0u) << start;
    EXPECT_EQ(AllocatedBytes(OneFileAt(start)), 0u) << start;
  }
}

TEST(ClusterChain, LoopToTheFirstCluster_IsDetected) {
  const auto image = OneFileAt(2).Chain({2, 3, 4}).FatWord(4, 2);

  EXPECT_EQ(ReadMessage(*Load(image), "/A"), "cluster loop detected");
  EXPECT_EQ(AllocatedBytes(image), 0u);
}

TEST(ClusterChain, ClusterThatFollowsItself_IsDetected) {
  EXPECT_EQ(ReadMessage(*Load(OneFileAt(2).FatWord(2, 2)), "/A"), "cluster loop detected");
}

TEST(ClusterChain, TailThatRunsIntoALoop_IsDetected) {
  const auto image = OneFileAt(2).Chain({2, 3, 4, 5}).FatWord(5, 4);

  EXPECT_EQ(ReadMessage(*Load(image), "/A"), "cluster loop detected");
}

TEST(ClusterChain, StartBeyondTheImage_IsOutOfRange) {
  EXPECT_EQ(ReadMessage(*Load(OneFileAt(92)), "/A"), "cluster offset out of range");
  EXPECT_EQ(ReadMessage(*Load(OneFileAt(0xFFF7)), "/A"), "cluster offset out of range");
  EXPECT_EQ(AllocatedBytes(OneFileAt(92)), 0u);
}

TEST(ClusterChain, ChainThatLeavesTheImage_IsOutOfRange) {
  const auto image = OneFileAt(2).Chain({2, 3, 4}).FatWord(4, 92);

  EXPECT_EQ(ReadMessage(*Load(image), "/A"), "cluster offset out of range");
  EXPECT_EQ(AllocatedBytes(image), 0u);
}

TEST(ClusterChain, LastClusterOfTheImage_IsInRange) { EXPECT_EQ(ReadLength(OneFileAt(91)), 512u); }

TEST(ClusterChain, ClusterCutByTheImagesEnd_IsOutOfRange) {
  auto image = OneFileAt(91);
  image.CutTo(image.Bytes().size() - 1);

  EXPECT_EQ(ReadMessage(*Load(image), "/A"), "cluster offset out of range");
}

TEST(ClusterChain, ClustersBeyondTheVolumesCount_AreDeliberatelyAccepted) {
  auto image = ImageCrafter({.trailingSectors = 4}).U16(512 + 19, 20);
  image.File("A", {.firstCluster = 92, .size = 4096}).Chain({92, 95});

  EXPECT_EQ(ReadLength(image), 1024u);
}

TEST(ClusterChain, BadClusterMark_IsDeliberatelyFollowedLikeANumber) {
  EXPECT_EQ(ReadMessage(*Load(OneFileAt(2).FatWord(2, 0xFFF7)), "/A"),
            "cluster offset out of range");
}

TEST(ClusterChain, BadClusterMark_IsAClusterWhereTheImageIsLargeEnough) {
  auto image = ImageCrafter({.sectorsPerFat = 256, .clusters = 0xFFF6});
  image.File("A", {.firstCluster = 2, .size = 4096}).FatWord(2, 0xFFF7).FatWord(0xFFF7, 0xFFFF);
  image.Fill(2, 'a').Fill(0xFFF7, 'z');

  EXPECT_EQ(ReadText(*Load(image), "/A"), std::string(512, 'a') + std::string(512, 'z'));
}

TEST(ClusterChain, OnlyTheFirstFat_IsRead) {
  auto image = OneFileAt(2).Chain({2, 3, 4});
  image.U16(image.FatOffset(1) + 2 * 2, 0xFFFF);

  EXPECT_EQ(ReadLength(image), 3u * 512);
}

TEST(ClusterChain, WordBeyondTheFat_IsReadFromWhateverLiesThere) {
  // One FAT sector has words up to 255; word 256 + n lies n words into the root directory.
  auto image = ImageCrafter({.fatCount = 1, .clusters = 300});
  image.RawSlot(std::string_view("\x03\x00      TXT", 11), {.firstCluster = 256, .size = 4096});

  const Names paths = AllPaths(*Load(image));

  ASSERT_EQ(paths, Names{"/\x03.TXT"});
  EXPECT_EQ(ReadText(*Load(image), paths[0]).size(), 1024u);  // 256, then 3
}

TEST(ClusterChain, SharedTail_CountsForEachChainInFull) {
  auto image = ImageCrafter().Chain({2, 3, 4, 5}).Chain({10, 11}).FatWord(11, 4);
  image.File("A", {.firstCluster = 10, .size = 9999}).File("B", {.firstCluster = 2, .size = 9999});
  image.File("C", {.firstCluster = 4, .size = 9999});
  const auto browser = Load(image);

  EXPECT_EQ(ReadText(*browser, "/A").size(), 4u * 512);  // 10, 11, 4, 5
  EXPECT_EQ(ReadText(*browser, "/B").size(), 4u * 512);
  EXPECT_EQ(ReadText(*browser, "/C").size(), 2u * 512);
}

TEST(ClusterChain, LargeClusters_AreAddressedInFull) {
  auto image = ImageCrafter({.sectorsPerCluster = 128, .clusters = 3});
  image.File("A", {.firstCluster = 4, .size = 65536}).Chain({4}).Fill(4, 'q');

  EXPECT_EQ(ReadText(*Load(image), "/A"), std::string(65536, 'q'));
  EXPECT_EQ(AllocatedBytes(image, 65536), 65536u);
}

TEST(ClusterChain, OddClusterSize_IsAddressedInFull) {
  auto image = ImageCrafter({.sectorsPerCluster = 3, .clusters = 5});
  image.File("A", {.firstCluster = 6, .size = 5000}).Chain({6, 2}).Fill(6, 'x').Fill(2, 'y');

  EXPECT_EQ(ReadText(*Load(image), "/A"), std::string(1536, 'x') + std::string(1536, 'y'));
}

TEST(ClusterChain, LongestChain_TakesEveryCluster) {
  auto image = ImageCrafter({.sectorsPerFat = 256, .clusters = 0xFFF6});
  image.File("A", {.firstCluster = 0xFFF7, .size = 0xFFFFFFFF});
  auto chain = Clusters(2, 0xFFF7);
  std::reverse(chain.begin(), chain.end());
  image.Chain(chain);

  EXPECT_EQ(ReadLength(image), std::size_t{0xFFF6} * 512);
}

TEST(ClusterChain, LongestLoop_IsDetected) {
  auto image = ImageCrafter({.sectorsPerFat = 256, .clusters = 0xFFF6});
  image.File("A", {.firstCluster = 2, .size = 1}).Chain(Clusters(2, 0xFFF7)).FatWord(0xFFF7, 2);

  EXPECT_EQ(ReadMessage(*Load(image), "/A"), "cluster loop detected");
}

}  // namespace
}  // namespace quorbix::virtdisk::test
