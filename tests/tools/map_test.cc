#include "disk/map.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "map_fixture.h"
#include "support/image_crafter.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::ImageCrafter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// One letter for each of the first clusters: f file, d directory, h hidden, . free, ! lost, x bad.
std::string Letters(const DiskMap& map, std::size_t count) {
  std::string letters;
  for (std::size_t i = 0; i < count; ++i) {
    letters += "=%dfh.!x"[static_cast<std::size_t>(map.clusters.at(i).area)];
  }
  return letters;
}

std::string Runs(const Owner& owner) {
  std::string text;
  for (const ClusterRun& run : owner.runs) {
    text += std::to_string(run.first) + "x" + std::to_string(run.count) + " ";
  }
  return text;
}

TEST(MapVolume, EmptyDisk_IsFree) {
  const DiskMap map = Map(ImageCrafter());
  EXPECT_EQ(map.clusters.size(), 90U);
  EXPECT_EQ(Letters(map, 90), std::string(90, '.'));
  EXPECT_EQ(map.systemSectors, 4U);
  EXPECT_EQ(map.rootSectors, 1U);
}

TEST(MapVolume, FilesAndDirectories_OwnTheirChains) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 3, .size = 600}).Chain({3, 4});
  crafter.Directory("SUB", 6).Chain({6}).InCluster(6);
  const DiskMap map = Map(crafter);
  EXPECT_EQ(Letters(map, 6), ".ff.d.");
  EXPECT_EQ(map.owners.at(0).path, "/A.TXT");
  EXPECT_EQ(map.owners.at(1).path, "/SUB");
  EXPECT_EQ(map.clusters.at(1).owner, 0U);
  EXPECT_EQ(map.clusters.at(4).owner, 1U);
}

TEST(MapVolume, FragmentedFile_HasItsRunsInOrder) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 8, .size = 3000}).Chain({8, 9, 3, 4, 5, 12});
  EXPECT_EQ(Runs(Map(crafter).owners.at(0)), "8x2 3x3 12x1 ");
}

TEST(MapVolume, EmptyFile_OwnsNothing) {
  ImageCrafter crafter;
  crafter.File("A.TXT");
  EXPECT_THAT(Map(crafter).owners, IsEmpty());
}

TEST(MapVolume, ChainWithoutAnEntry_IsLost) {
  ImageCrafter crafter;
  crafter.Chain({2, 3}).FatWord(5, 0xFFF7);
  EXPECT_EQ(Letters(Map(crafter), 5), "!!.x.");
}

TEST(MapVolume, Loop_IsBrokenWhereItCloses) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 1500}).Chain({2, 3, 4}).FatWord(4, 2);
  EXPECT_EQ(Letters(Map(crafter), 4), "ff!.");
}

TEST(MapVolume, ChainIntoAnotherFile_IsBrokenWhereItCrosses) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 1000}).Chain({2, 3});
  crafter.File("B.TXT", {.firstCluster = 5, .size = 1000}).FatWord(5, 3);
  EXPECT_EQ(Letters(Map(crafter), 5), "ff.!.");
}

TEST(MapVolume, TwoEntriesOnOneChain_AreBrokenAtItsStart) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 1000}).Chain({2, 3});
  crafter.File("B.TXT", {.firstCluster = 2, .size = 1000});
  EXPECT_EQ(Letters(Map(crafter), 3), "!f.");
}

TEST(MapVolume, ChainIntoAFreeCluster_IsBroken) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 1000}).FatWord(2, 3);
  crafter.File("B.TXT", {.firstCluster = 6, .size = 100});
  EXPECT_EQ(Letters(Map(crafter), 6), "f!..!.");
}

TEST(MapVolume, ChainBeyondTheDisk_IsBroken) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 1000}).FatWord(2, 92);
  crafter.File("B.TXT", {.firstCluster = 4, .size = 1000}).FatWord(4, 1);
  crafter.File("C.TXT", {.firstCluster = 500, .size = 1000});
  EXPECT_EQ(Letters(Map(crafter), 4), "!.!.");
}

TEST(MapVolume, ManyEntriesOnOneLongChain_AreMappedOnce) {
  ImageCrafter crafter({.rootEntryCount = 16384, .sectorsPerFat = 240, .clusters = 60000});
  std::vector<std::uint16_t> chain;
  for (std::uint32_t i = 2; i < 60002; ++i) chain.push_back(static_cast<std::uint16_t>(i));
  crafter.Chain(chain);
  for (int i = 0; i < 16000; ++i) {
    crafter.File("F" + std::to_string(i), {.firstCluster = 2, .size = 0xFFFFFFFF});
  }
  const DiskMap map = Map(crafter);
  EXPECT_EQ(map.owners.size(), 1U);
  EXPECT_EQ(map.owners.at(0).runs.at(0).count, 60000U);
}

// A.TXT, ".PRO", and "HEAD" in the directory ".GIT".
DiskMap MapWithHiddenEntries() {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 3}).Chain({2});
  crafter.RawSlot("        PRO", {.firstCluster = 3, .size = 600}).Chain({3, 4});
  crafter.RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 6}).Chain({6});
  crafter.InCluster(6).DotEntries(6, 0).File("HEAD", {.firstCluster = 7, .size = 512});
  crafter.Chain({7});
  internal::MemorySource source(crafter.Bytes());
  internal::VolumeIndex index(source);
  std::string err;
  EXPECT_TRUE(index.Parse(err, internal::VolumeIndex::Hidden::kCollect)) << err;
  return MapVolume(VolumeView(index.Info(), crafter.Bytes()), ImageTree(index));
}

TEST(MapVolume, HiddenEntries_AreNotLost) {
  const DiskMap map = MapWithHiddenEntries();
  EXPECT_EQ(Letters(map, 7), "fhh.hh.");
  EXPECT_EQ(map.owners.at(1).path, "/.PRO");
  EXPECT_TRUE(map.owners.at(1).isHidden);
  EXPECT_EQ(map.owners.at(3).path, "/.GIT/HEAD");
}

TEST(MapVolume, HiddenEntriesThatNobodyCollected_AreLost) {
  ImageCrafter crafter;
  crafter.RawSlot("        PRO", {.firstCluster = 3, .size = 600}).Chain({3, 4});
  EXPECT_EQ(Letters(Map(crafter), 3), ".!!");
}

TEST(SlackBytes, FilesLastClusters_CountDirectoriesDoNot) {
  EXPECT_EQ(SlackBytes(MapWithHiddenEntries()), 509u + 424u + 0u);
}

TEST(DrawCells, Slack_IsAShareOfTheLastCell) {
  const Drawing drawing = DrawCells(MapWithHiddenEntries(), 1000);
  EXPECT_DOUBLE_EQ(drawing.cells.at(5).slack, 509.0 / 512);
  EXPECT_DOUBLE_EQ(drawing.cells.at(6).slack, 0);
  EXPECT_DOUBLE_EQ(drawing.cells.at(7).slack, 424.0 / 512);
}

TEST(DrawCells, BadCluster_AlwaysShows) {
  ImageCrafter crafter;
  crafter.File("B.TXT", {.firstCluster = 2, .size = 1500}).Chain({2, 3, 4}).FatWord(5, 0xFFF7);
  EXPECT_EQ(DrawCells(Map(crafter), 30).cells.at(2).area, Area::kBad);
}

TEST(CountAreas, Clusters_AreCountedByUse) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 3, .size = 600}).Chain({3, 4}).Chain({10});
  crafter.Directory("SUB", 6).Chain({6}).InCluster(6);
  EXPECT_THAT(CountAreas(Map(crafter)), ElementsAre(0, 0, 1, 2, 0, 86, 1, 0));
}

TEST(DrawCells, DrawnDisk_HasACellPerCluster) {
  const Drawing drawing = DrawCells(Map(ImageCrafter()), 1000);
  EXPECT_EQ(drawing.clustersPerCell, 1U);
  ASSERT_EQ(drawing.cells.size(), 4U + 1 + 90);
  EXPECT_EQ(drawing.cells.at(3).area, Area::kSystem);
  EXPECT_EQ(drawing.cells.at(4).area, Area::kRoot);
  EXPECT_EQ(drawing.cells.at(5).area, Area::kFree);
  EXPECT_EQ(drawing.cells.at(5).first, 2U);
}

TEST(DrawCells, FewerCells_GroupClustersByPowersOfTwo) {
  const Drawing drawing = DrawCells(Map(ImageCrafter()), 30);
  EXPECT_EQ(drawing.clustersPerCell, 4U);
  EXPECT_EQ(drawing.cells.size(), 1U + 1 + 23);
}

TEST(DrawCells, Group_ShowsWhatHasTheMostOfIt) {
  ImageCrafter crafter;
  crafter.File("A.TXT", {.firstCluster = 2, .size = 1}).Chain({2});
  crafter.File("B.TXT", {.firstCluster = 3, .size = 1000}).Chain({3, 4});
  const DiskMap map = Map(crafter);
  const Cell cell = DrawCells(map, 30).cells.at(2);
  EXPECT_EQ(cell.area, Area::kFile);
  EXPECT_EQ(map.owners.at(cell.owner).path, "/B.TXT");
  EXPECT_DOUBLE_EQ(cell.filled, 0.75);
}

TEST(DrawCells, LostCluster_AlwaysShows) {
  ImageCrafter crafter;
  crafter.File("B.TXT", {.firstCluster = 2, .size = 1500}).Chain({2, 3, 4}).Chain({5});
  EXPECT_EQ(DrawCells(Map(crafter), 30).cells.at(2).area, Area::kLost);
}

TEST(DrawCells, AbsurdFats_DoNotMakeAnAbsurdDrawing) {
  ImageCrafter crafter;
  const std::size_t boot = crafter.VolumeOffset();
  crafter.Byte(boot + 16, 0xFF).U16(boot + 17, 0xFFFF).U16(boot + 22, 0xFFFF);
  EXPECT_LE(DrawCells(Map(crafter), 100).cells.size(), 200U);
}

TEST(DrawCells, NoVolume_HasNoCells) { EXPECT_THAT(DrawCells(DiskMap(), 100).cells, IsEmpty()); }

}  // namespace
}  // namespace quorbix::virtdisk::tool
