// Volumes with some words, slots and fields changed at random: reports that say sound are right.

#include "check/soundness.h"

#include <gtest/gtest.h>

#include <random>

#include "support/image_crafter.h"

namespace quorbix::virtdisk::test {
namespace {

ImageCrafter Disk() {
  ImageCrafter crafter({.clusters = 40});
  crafter.File("A.TXT", {.firstCluster = 2, .size = 1200}).Chain({2, 3, 9});
  crafter.RawSlot("        PRO", {.firstCluster = 12, .size = 100}).Chain({12});
  crafter.RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 14}).Chain({14});
  crafter.Directory("SUB", 5).Chain({5, 6}).InCluster(5).DotEntries(5, 0);
  for (int i = 0; i < 18; ++i) crafter.File("F" + std::to_string(i));
  crafter.Directory("IN", 8).Chain({8}).InCluster(8).DotEntries(8, 5);
  crafter.File("E", {.firstCluster = 16, .size = 512}).Chain({16});
  crafter.InCluster(14).DotEntries(14, 0).File("HEAD", {.firstCluster = 15, .size = 4});
  return crafter.Chain({15});
}

void Corrupt(std::vector<std::uint8_t>& bytes, std::mt19937& random) {
  static const std::uint8_t values[] = {0, 1, 2, 3, 5, 8, 9, 12, '.', '/', 0x10, 0x20, 0xE5, 0xFF};
  // The partition table, the boot sector, the FATs and the root lie in the first five sectors.
  const std::size_t places[] = {446 + random() % 66, 512 + random() % 64, 1024 + random() % 40,
                                2048 + random() % 512, random() % bytes.size()};
  bytes[places[random() % 5]] = values[random() % sizeof values];
}

TEST(Soundness, OfCorruptedVolumes_IsToldRightly) {
  const ImageCrafter disk = Disk();
  unsigned soundOnes = 0;
  for (unsigned seed = 1; seed <= 4000; ++seed) {
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes = disk.Bytes();
    for (unsigned i = 0; i <= seed % 3; ++i) Corrupt(bytes, random);
    if (seed % 50 == 0) bytes.resize(random() % bytes.size());
    bool sound = false;
    ASSERT_EQ(FindFalseReport(bytes, sound), "") << "seed " << seed;
    soundOnes += sound ? 1 : 0;
  }
  EXPECT_GT(soundOnes, 200u);
  EXPECT_LT(soundOnes, 3800u);
}

}  // namespace
}  // namespace quorbix::virtdisk::test
