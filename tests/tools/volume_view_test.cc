#include "disk/volume_view.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "support/image_crafter.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::ImageCrafter;

// What the library says of an image, whether or not it could read all of it.
Fat16FsInfo Describe(const std::vector<std::uint8_t>& bytes) {
  Fat16FsImage image;
  std::string err;
  image.LoadFromBytes(bytes, err);
  return image.Info();
}

VolumeView View(const ImageCrafter& crafter) {
  return VolumeView(Describe(crafter.Bytes()), crafter.Bytes());
}

TEST(VolumeView, CraftedVolume_HasItsClusters) {
  const ImageCrafter crafter;
  const VolumeView view = View(crafter);
  EXPECT_EQ(view.ClusterCount(), 90U);
  EXPECT_EQ(view.ClusterBytes(), 512U);
  EXPECT_EQ(view.SystemSectors(), 4U);
  EXPECT_EQ(view.RootSectors(), 1U);
}

TEST(VolumeView, HasCluster_EndsAtTheLastOne) {
  const ImageCrafter crafter;
  const VolumeView view = View(crafter);
  EXPECT_FALSE(view.HasCluster(1));
  EXPECT_TRUE(view.HasCluster(2));
  EXPECT_TRUE(view.HasCluster(91));
  EXPECT_FALSE(view.HasCluster(92));
}

TEST(VolumeView, FatWord_IsReadLittleEndian) {
  ImageCrafter crafter;
  crafter.FatWord(5, 0x1234);
  EXPECT_EQ(View(crafter).FatWord(5), 0x1234);
  EXPECT_EQ(View(crafter).FatWord(92), 0);
}

TEST(VolumeView, CountClusters_TellsUsedFreeAndBad) {
  ImageCrafter crafter;
  crafter.Chain({2, 3, 4}).FatWord(10, 0xFFF7);
  const ClusterCounts counts = View(crafter).CountClusters();
  EXPECT_EQ(counts.used, 3U);
  EXPECT_EQ(counts.bad, 1U);
  EXPECT_EQ(counts.free, 86U);
}

TEST(VolumeView, VolumeShorterThanTheImage_EndsWithTheVolume) {
  ImageCrafter crafter;
  crafter.U16(crafter.VolumeOffset() + 19, 4 + 50);
  EXPECT_EQ(View(crafter).ClusterCount(), 50U);
}

TEST(VolumeView, VolumeThatTellsNoLength_EndsWithTheImage) {
  ImageCrafter crafter;
  crafter.U16(crafter.VolumeOffset() + 19, 0);
  EXPECT_EQ(View(crafter).ClusterCount(), 90U);
}

TEST(VolumeView, ImageShorterThanTheVolume_EndsWithTheImage) {
  ImageCrafter crafter;
  crafter.CutTo(crafter.ClusterOffset(12) + 100);
  EXPECT_EQ(View(crafter).ClusterCount(), 10U);
}

TEST(VolumeView, FatShorterThanTheVolume_EndsWithTheFat) {
  const ImageCrafter crafter({.clusters = 300});
  EXPECT_EQ(View(crafter).ClusterCount(), 254U);
}

TEST(VolumeView, ClustersBeyond16Bits_DoNotExist) {
  const ImageCrafter crafter({.sectorsPerFat = 300, .clusters = 70000});
  EXPECT_EQ(View(crafter).ClusterCount(), 0xFFF7U - 2);
}

TEST(VolumeView, AbsurdBootSector_HasNoClusters) {
  ImageCrafter crafter;
  const std::size_t boot = crafter.VolumeOffset();
  crafter.U16(boot + 14, 0xFFFF)
      .Byte(boot + 16, 0xFF)
      .U16(boot + 17, 0xFFFF)
      .U16(boot + 22, 0xFFFF);
  const VolumeView view = View(crafter);
  EXPECT_EQ(view.ClusterCount(), 0U);
  EXPECT_EQ(view.CountClusters().free, 0U);
}

TEST(VolumeView, FatThatEndsOutsideTheImage_StopsThere) {
  ImageCrafter crafter;
  crafter.CutTo(crafter.FatOffset() + 21);
  EXPECT_EQ(View(crafter).ClusterCount(), 0U);
}

TEST(VolumeView, EmptyDescription_HasNoClusters) {
  const VolumeView view(Fat16FsInfo{}, {});
  EXPECT_EQ(view.ClusterCount(), 0U);
  EXPECT_EQ(view.VolumeId(), std::nullopt);
}

TEST(VolumeView, BeginningOfAnImage_TellsTheWholeVolume) {
  ImageCrafter crafter;
  crafter.Chain({2, 3});
  const std::span<const std::uint8_t> all(crafter.Bytes());
  const VolumeView view(Describe(crafter.Bytes()), all.first(crafter.RootOffset()), all.size());
  EXPECT_EQ(view.ClusterCount(), 90U);
  EXPECT_EQ(view.CountClusters().used, 2U);
}

TEST(VolumeView, VolumeId_IsReadWhereItsMarkStands) {
  ImageCrafter crafter;
  EXPECT_EQ(View(crafter).VolumeId(), 0x1234ABCDU);
  crafter.Byte(crafter.VolumeOffset() + 38, 0x28);
  EXPECT_EQ(View(crafter).VolumeId(), std::nullopt);
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
