#include "browser/chain_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace quorbix::virtdisk::internal {
namespace {

// A volume of one-sector clusters whose FAT begins in sector 2 and whose cluster 2 is sector 0: no
// boot sector describes one, but so its words can lie beyond the image's end.
Fat16FsInfo FatAfterItsClusters() {
  Fat16FsInfo info;
  info.bytesPerSector = 512;
  info.sectorsPerCluster = 1;
  info.fatStartSector = 2;
  return info;
}

std::uint64_t LengthWithFatBytes(const std::vector<std::uint8_t>& fat) {
  std::vector<std::uint8_t> image(1024);
  image.insert(image.end(), fat.begin(), fat.end());
  MemorySource source(image);
  ChainTable chains;
  std::string err;
  EXPECT_TRUE(chains.Measure(source, FatAfterItsClusters(), err)) << err;
  return chains.Length(2);
}

TEST(ChainTable, WordBeyondTheImage_EndsTheChain) {
  EXPECT_EQ(LengthWithFatBytes({}), 1u);
  EXPECT_EQ(LengthWithFatBytes({0, 0, 0, 0}), 1u);
}

TEST(ChainTable, WordCutInHalf_EndsTheChain) { EXPECT_EQ(LengthWithFatBytes({0, 0, 0, 0, 3}), 1u); }

TEST(ChainTable, LastWordOfTheImage_IsFollowed) {
  EXPECT_EQ(LengthWithFatBytes({0, 0, 0, 0, 3, 0}), 2u);
}

class UnreadableSource final : public ByteSource {
 public:
  std::uint64_t Size() const override { return 10240; }
  const std::uint8_t* Read(std::uint64_t, std::size_t, std::vector<std::uint8_t>&,
                           std::string& err) override {
    err = "unreadable";
    return nullptr;
  }
};

TEST(ChainTable, FatThatCannotBeRead_IsToldAndLeavesNoChain) {
  UnreadableSource source;
  ChainTable chains;
  std::string err;

  EXPECT_FALSE(chains.Measure(source, FatAfterItsClusters(), err));

  EXPECT_EQ(err, "unreadable");
  EXPECT_EQ(chains.Length(2), 0u);
  EXPECT_FALSE(chains.Check(2, err));
}

TEST(ChainTable, Clear_ForgetsTheChainsAndTheImage) {
  std::vector<std::uint8_t> image(1536);
  image[1024 + 4] = 3;
  MemorySource source(image);
  ChainTable chains;
  std::string err;
  ASSERT_TRUE(chains.Measure(source, FatAfterItsClusters(), err)) << err;
  ASSERT_EQ(chains.Next(2), 3);

  chains.Clear();

  EXPECT_EQ(chains.Next(2), ChainTable::kNoNextCluster);
  EXPECT_EQ(chains.Length(2), 0u);
}

TEST(ChainTable, Collect_GivesTheClustersInOrderOrNothing) {
  std::vector<std::uint8_t> image(1024 + 512);
  image[1024 + 4] = 4;
  image[1024 + 6] = 3;
  MemorySource source(image);
  ChainTable chains;
  std::string err;
  ASSERT_TRUE(chains.Measure(source, FatAfterItsClusters(), err)) << err;
  std::vector<std::uint16_t> chain = {9};

  EXPECT_TRUE(chains.Collect(2, chain, err));
  EXPECT_THAT(chain, testing::ElementsAre(2, 4));
  EXPECT_TRUE(chains.Collect(0, chain, err));
  EXPECT_THAT(chain, testing::IsEmpty());
  EXPECT_FALSE(chains.Collect(3, chain, err));
  EXPECT_EQ(err, "cluster loop detected");
  EXPECT_FALSE(chains.Collect(5, chain, err));
  EXPECT_EQ(err, "cluster offset out of range");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
