#include "browser/content_reader.h"

#include "browser/browser_fixture.h"
#include "browser/volume_index.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::ImageCrafter;

// The pieces of a chain, as text; the message, if any, comes last.
test::Names PiecesOf(const ImageCrafter& image, std::uint16_t start, std::uint64_t limit) {
  MemorySource source(image.Bytes());
  VolumeIndex index(source);
  std::string err;
  EXPECT_TRUE(index.Parse(err)) << err;
  ContentReader reader = index.Open(start, limit);
  test::Names pieces;
  std::span<const std::uint8_t> piece;
  std::uint64_t given = 0;
  while (reader.Next(piece, err) && !piece.empty()) {
    pieces.emplace_back(piece.begin(), piece.end());
    given += piece.size();
  }
  EXPECT_EQ(given, reader.Total());
  if (!err.empty()) pieces.push_back(err);
  return pieces;
}

constexpr std::uint64_t kWhole = ~std::uint64_t{0};

TEST(ContentReader, ClustersSideBySide_ComeInOnePiece) {
  const auto image = ImageCrafter().Chain({2, 3, 4, 9, 8}).Fill(2, 'a').Fill(3, 'b').Fill(4, 'c');

  EXPECT_EQ(PiecesOf(image, 2, kWhole),
            (test::Names{std::string(512, 'a') + std::string(512, 'b') + std::string(512, 'c'),
                         std::string(512, '\xDB'), std::string(512, '\xDB')}));
}

TEST(ContentReader, Limit_EndsTheLastPiece) {
  const auto image = ImageCrafter().Chain({2, 3, 7}).Fill(2, 'a').Fill(3, 'b').Fill(7, 'c');

  EXPECT_EQ(PiecesOf(image, 2, 1), test::Names{"a"});
  EXPECT_EQ(PiecesOf(image, 2, 512), test::Names{std::string(512, 'a')});
  EXPECT_EQ(PiecesOf(image, 2, 513), test::Names{std::string(512, 'a') + "b"});
  EXPECT_EQ(PiecesOf(image, 2, 1025),
            (test::Names{std::string(512, 'a') + std::string(512, 'b'), "c"}));
  EXPECT_EQ(PiecesOf(image, 2, 0), test::Names{});
}

TEST(ContentReader, ChainThatEndsEarly_GivesFewerBytesThanTheLimit) {
  const auto image = ImageCrafter().Chain({2, 3});

  MemorySource source(image.Bytes());
  VolumeIndex index(source);
  std::string err;
  ASSERT_TRUE(index.Parse(err)) << err;
  EXPECT_EQ(index.Open(2, 5000).Total(), 1024u);
}

TEST(ContentReader, StartThatLeadsNowhere_IsEmpty) {
  EXPECT_EQ(PiecesOf(ImageCrafter(), 0, 100), test::Names{});
  EXPECT_EQ(PiecesOf(ImageCrafter(), 1, 100), test::Names{});
  EXPECT_EQ(PiecesOf(ImageCrafter(), 0xFFF8, 100), test::Names{});
}

TEST(ContentReader, BrokenChain_IsToldBeforeTheFirstPiece) {
  EXPECT_EQ(PiecesOf(ImageCrafter().Chain({2, 3}).FatWord(3, 2), 2, 100),
            test::Names{"cluster loop detected"});
  EXPECT_EQ(PiecesOf(ImageCrafter().Chain({2, 3}).FatWord(3, 92), 2, 100),
            test::Names{"cluster offset out of range"});
  EXPECT_EQ(PiecesOf(ImageCrafter(), 92, 100), test::Names{"cluster offset out of range"});
}

TEST(ContentReader, LongRun_IsCutIntoPiecesOf256KiB) {
  auto image = ImageCrafter({.sectorsPerFat = 5, .clusters = 1200});
  image.Chain(test::Clusters(2, 1101));

  const test::Names pieces = PiecesOf(image, 2, 1100 * 512 - 1);

  ASSERT_EQ(pieces.size(), 3u);
  EXPECT_EQ(pieces[0].size(), 256u * 1024);
  EXPECT_EQ(pieces[1].size(), 256u * 1024);
  EXPECT_EQ(pieces[2].size(), (1100u - 1024) * 512 - 1);
}

TEST(ContentReader, LargestClusters_ComeTwoAtATime) {
  auto image = ImageCrafter({.sectorsPerCluster = 255, .clusters = 3}).Chain({2, 3, 4});

  const test::Names pieces = PiecesOf(image, 2, kWhole);

  ASSERT_EQ(pieces.size(), 2u);
  EXPECT_EQ(pieces[0].size(), 2u * 255 * 512);
  EXPECT_EQ(pieces[1].size(), 255u * 512);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
