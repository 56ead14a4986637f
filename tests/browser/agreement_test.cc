// The library's browser against PlainBrowser, on thousands of small images that were damaged in
// the places that matter.

#include "browser/agreement.h"

#include <random>

#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

ImageCrafter SmallTree() {
  auto image = ImageCrafter({.rootEntryCount = 16, .clusters = 24});
  image.Directory("A", 2).File("B.TXT", {.firstCluster = 5, .size = 700}).Label("LABEL      ");
  image.Directory("a", 9).File("C", {.firstCluster = 8, .size = 10}).LongNameSlot();
  image.Chain({2, 3}).Chain({5, 7, 6}).Chain({8}).Chain({9}).Chain({11, 12}).Chain({14, 13});
  image.InCluster(2).DotEntries(2, 0).Directory("DEEP", 11);
  for (int i = 0; i < 15; ++i) image.File("F" + std::to_string(i), {.firstCluster = 20, .size = 1});
  image.InCluster(9).DotEntries(9, 0).File("D.TXT", {.firstCluster = 14, .size = 1024});
  image.InCluster(11).DotEntries(11, 2).File("E", {.firstCluster = 10, .size = 1});
  return image;
}

// Changes a few bytes of the boot sector, the FAT, or the slots.
Bytes Damaged(const ImageCrafter& image, std::mt19937& random) {
  Bytes bytes = image.Bytes();
  const auto below = [&](std::size_t n) { return random() % n; };
  const std::size_t directories[] = {image.RootOffset(), image.ClusterOffset(2),
                                     image.ClusterOffset(3), image.ClusterOffset(9),
                                     image.ClusterOffset(11)};
  const std::uint8_t marks[] = {0, 1, 2, 5, 0x10, 0x20, 0x5C, 0x2F, 0xE5, 0xF7, 0xF8, 0xFF};
  for (std::size_t changes = 1 + below(6); changes > 0; --changes) {
    const auto value = static_cast<std::uint8_t>(below(2) ? marks[below(12)] : below(28));
    switch (below(8)) {
      case 0:
        bytes[512 + 11 + below(25)] = value;
        break;
      case 1:
      case 2:
      case 3:
        bytes[image.FatOffset() + 4 + below(48)] = value;
        break;
      default:
        bytes[directories[below(5)] + below(512)] = value;
    }
  }
  if (below(20) == 0) bytes.resize(below(bytes.size()));
  return bytes;
}

TEST(Agreement, RightOutcomes_AreNotWrong) {
  EXPECT_EQ(FindWrongOutcome("listing", true, "", ""), "");
  EXPECT_EQ(FindWrongOutcome("listing", false, "not found", "not found"), "");
}

TEST(Agreement, ResultThatBeliesItsMessage_IsWrong) {
  EXPECT_EQ(FindWrongOutcome("listing", false, "", ""), "listing: false with the message \"\"");
  EXPECT_EQ(FindWrongOutcome("listing", true, "not found", "not found"),
            "listing: true with the message \"not found\"");
}

TEST(Agreement, OtherMessage_IsWrong) {
  EXPECT_EQ(FindWrongOutcome("listing", false, "loop", "not found"),
            "listing: \"loop\" instead of \"not found\"");
}

TEST(Agreement, UndamagedTree_IsSeenAlike) {
  EXPECT_EQ(FindDisagreement(SmallTree().Bytes(), 100, 100), "");
}

class DamagedTrees : public testing::TestWithParam<unsigned> {};

TEST_P(DamagedTrees, AreSeenAlike) {
  const ImageCrafter tree = SmallTree();
  for (unsigned i = 0; i < 250; ++i) {
    std::mt19937 random(GetParam() * 1000 + i);
    ASSERT_EQ(FindDisagreement(Damaged(tree, random), 100, 2), "")
        << "seed " << GetParam() * 1000 + i;
  }
}
INSTANTIATE_TEST_SUITE_P(Seeds, DamagedTrees, testing::Range(0u, 8u));

}  // namespace
}  // namespace quorbix::virtdisk::test
