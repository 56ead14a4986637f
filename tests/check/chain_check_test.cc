// Chains of clusters that are not what an entry says.

#include "check/check_fixture.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::ImageCrafter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A.TXT of 1,024 bytes in clusters 2 and 3.
ImageCrafter TwoClusters() {
  return ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 1024}).Chain({2, 3});
}

TEST(ChainCheck, FileThatFillsItsChain_IsSound) {
  const CheckReport report = Checked(TwoClusters());
  EXPECT_THAT(Said(report), IsEmpty());
  EXPECT_TRUE(report.IsSound());
  EXPECT_TRUE(report.isWhole);
}

TEST(ChainCheck, EmptyFileWithoutACluster_IsSound) {
  EXPECT_THAT(Findings(ImageCrafter().File("A.TXT")), IsEmpty());
}

TEST(ChainCheck, ChainOneByteShort_IsFound) {
  const auto image = ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 1025}).Chain({2, 3});
  const CheckReport report = Checked(image);
  EXPECT_THAT(Said(report), ElementsAre("/A.TXT has clusters for 1,024 of its 1,025 bytes"));
  EXPECT_FALSE(report.IsSound());
}

TEST(ChainCheck, SizeWithoutACluster_IsFound) {
  EXPECT_THAT(Findings(ImageCrafter().File("A.TXT", {.size = 1})),
              ElementsAre("/A.TXT has clusters for 0 of its 1 byte"));
}

TEST(ChainCheck, ChainOneClusterLong_IsFound) {
  const auto image = ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 512}).Chain({2, 3});
  EXPECT_THAT(Findings(image), ElementsAre("/A.TXT has 2 clusters and needs 1"));
}

TEST(ChainCheck, ClusterWithoutASize_IsFound) {
  const auto image = ImageCrafter().File("A.TXT", {.firstCluster = 2}).Chain({2});
  EXPECT_THAT(Findings(image), ElementsAre("/A.TXT has 1 cluster and needs 0"));
}

TEST(ChainCheck, ChainThatComesBack_IsALoop) {
  EXPECT_THAT(Findings(TwoClusters().FatWord(3, 2)),
              ElementsAre("/A.TXT comes back to its cluster 2 without end"));
}

TEST(ChainCheck, ChainInAFreeCluster_IsFoundAndLeavesItFree) {
  const CheckReport report = Checked(TwoClusters().FatWord(3, 0));
  EXPECT_THAT(Said(report), ElementsAre("/A.TXT goes on in cluster 3, which is free"));
  EXPECT_EQ(report.counts.usedClusters, 1u);
  EXPECT_EQ(report.counts.freeClusters, 89u);
}

TEST(ChainCheck, ChainInABadCluster_IsFoundAndCountsAsBad) {
  const CheckReport report = Checked(TwoClusters().FatWord(3, 0xFFF7));
  EXPECT_THAT(Said(report), ElementsAre("/A.TXT goes on in cluster 3, which is marked bad"));
  EXPECT_EQ(report.counts.badClusters, 1u);
  EXPECT_EQ(report.counts.usedClusters, 1u);
}

// 90 clusters: the last one is 91.
TEST(ChainCheck, LastCluster_IsInTheVolume) {
  const auto image = ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 1024}).Chain({2, 91});
  EXPECT_THAT(Findings(image), IsEmpty());
}

TEST(ChainCheck, ClusterBehindTheLast_IsNotEvenWhenTheImageHasIt) {
  const auto image = ImageCrafter({.trailingSectors = 8})
                         .File("A.TXT", {.firstCluster = 2, .size = 1024})
                         .Chain({2, 92})
                         .U16(512 + 19, 1 + 2 + 1 + 90);
  EXPECT_THAT(
      Findings(image),
      ElementsAre("/A.TXT goes on from cluster 2 to 92, which is no cluster, instead of ending"));
}

TEST(ChainCheck, WordsThatAreNoCluster_EndNoChain) {
  EXPECT_THAT(
      Findings(TwoClusters().FatWord(3, 1)),
      ElementsAre("/A.TXT goes on from cluster 3 to 1, which is no cluster, instead of ending"));
  EXPECT_THAT(
      Findings(TwoClusters().FatWord(3, 0xFFF6)),
      ElementsAre(
          "/A.TXT goes on from cluster 3 to 65,526, which is no cluster, instead of ending"));
}

TEST(ChainCheck, LowestEndMark_EndsAChain) {
  EXPECT_THAT(Findings(TwoClusters().FatWord(3, 0xFFF8)), IsEmpty());
}

TEST(ChainCheck, StartThatIsNoCluster_IsFound) {
  const auto startingAt = [](std::uint16_t start) {
    return Findings(ImageCrafter().File("A.TXT", {.firstCluster = start, .size = 9}));
  };
  EXPECT_THAT(startingAt(1), ElementsAre("/A.TXT begins in cluster 1, which does not exist"));
  EXPECT_THAT(startingAt(92), ElementsAre("/A.TXT begins in cluster 92, which does not exist"));
  EXPECT_THAT(startingAt(0xFFF7),
              ElementsAre("/A.TXT begins in cluster 65,527, which does not exist"));
  EXPECT_THAT(startingAt(0xFFF8),
              ElementsAre("/A.TXT begins in cluster 65,528, which does not exist"));
  EXPECT_THAT(startingAt(0xFFFF),
              ElementsAre("/A.TXT begins in cluster 65,535, which does not exist"));
}

TEST(ChainCheck, StartInAFreeCluster_IsFound) {
  EXPECT_THAT(Findings(ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 9})),
              ElementsAre("/A.TXT goes on in cluster 2, which is free"));
}

TEST(ChainCheck, ChainsThatMeet_NameBothPathsAndTheFirstCommonCluster) {
  const auto image =
      TwoClusters().File("B.TXT", {.firstCluster = 5, .size = 1536}).FatWord(5, 6).FatWord(6, 3);
  const CheckReport report = Checked(image);
  EXPECT_THAT(Said(report), ElementsAre("/B.TXT shares its clusters from 3 on with /A.TXT"));
  ASSERT_FALSE(report.findings.empty());
  const Finding& finding = report.findings.back();
  EXPECT_EQ(finding.kind, FindingKind::kChainMeetsAnother);
  EXPECT_EQ(finding.path, "/B.TXT");
  EXPECT_EQ(finding.otherPath, "/A.TXT");
  EXPECT_EQ(finding.numbers[0], 3u);
  EXPECT_TRUE(finding.isDamage);
}

TEST(ChainCheck, ChainInADirectory_MeetsTheDirectory) {
  const auto image = ImageCrafter()
                         .Directory("SUB", 2)
                         .File("B.TXT", {.firstCluster = 2, .size = 512})
                         .Chain({2})
                         .InCluster(2)
                         .DotEntries(2, 0);
  EXPECT_THAT(Findings(image), ElementsAre("/B.TXT shares its clusters from 2 on with /SUB"));
}

TEST(ChainCheck, LostClusters_AreCountedByChain) {
  // Chains 10-11-12 and 20-21, of which 21 leads into the first, and a ring of 30 and 31.
  const auto image = TwoClusters()
                         .Chain({10, 11, 12})
                         .Chain({20, 21})
                         .FatWord(21, 11)
                         .FatWord(30, 31)
                         .FatWord(31, 30);
  const CheckReport report = Checked(image);
  EXPECT_THAT(Said(report), ElementsAre("7 clusters are in use in 3 chains that no file and no "
                                        "directory begins with"));
  EXPECT_EQ(report.counts.lostClusters, 7u);
  EXPECT_EQ(report.counts.usedClusters, 9u);
}

TEST(ChainCheck, BadClusters_AreNotLost) {
  const CheckReport report = Checked(ImageCrafter().FatWord(9, 0xFFF7));
  EXPECT_THAT(Said(report), IsEmpty());
  EXPECT_EQ(report.counts.badClusters, 1u);
}

TEST(ChainCheck, RestOfABrokenChain_IsLost) {
  const auto image =
      ImageCrafter().File("A.TXT", {.firstCluster = 2, .size = 512}).Chain({2}).Chain({3, 4});
  EXPECT_EQ(Checked(image).counts.lostClusters, 2u);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
