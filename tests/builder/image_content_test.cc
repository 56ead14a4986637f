#include "builder/image_content.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <string>
#include <vector>

#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::kMiB;
using test::TempFolder;

class Takings : public BuildObserver {
 public:
  void OnBytes(std::uint64_t bytes) override { told.push_back(bytes); }
  std::vector<std::uint64_t> told;
};

TEST(LabelFor, Folder_GivesElevenBytesOfItsLastName) {
  EXPECT_EQ(LabelFor("/data/Holiday Photos"), "Holiday Pho");
  EXPECT_EQ(LabelFor("/data/MyDisk/"), "");
}

TEST(FillImage, Label_IsTheOneGiven) {
  TempFolder folder;
  folder.File("A.TXT", "a");
  Fat16Image image;
  std::string err;
  std::vector<std::string> skipped;
  ASSERT_TRUE(FillImage(image, 65536, "Choir", folder.Path(), err, skipped)) << err;
  const auto* bytes = reinterpret_cast<const char*>(image.Bytes().data());
  EXPECT_EQ(std::string(bytes + 512 + 43, 11), "CHOIR      ");
}

TEST(FillImage, Observer_IsToldTheBytesOfEachFile) {
  TempFolder folder;
  folder.File("A.TXT", "abc").File("SUB/B.TXT", "12345");
  Fat16Image image;
  Takings takings;
  std::string err;
  std::vector<std::string> skipped;
  ASSERT_TRUE(FillImage(image, 65536, "", folder.Path(), err, skipped, &takings)) << err;
  EXPECT_THAT(takings.told, ::testing::UnorderedElementsAre(3, 5));
}

TEST(FillImage, Observer_IsToldOfLargeFilesPieceByPiece) {
  TempFolder folder;
  folder.File("LARGE.BIN", std::string(9 * kMiB, 'x'));
  Fat16Image image;
  Takings takings;
  std::string err;
  std::vector<std::string> skipped;
  ASSERT_TRUE(FillImage(image, 40 * kMiB, "", folder.Path(), err, skipped, &takings)) << err;
  EXPECT_EQ(std::accumulate(takings.told.begin(), takings.told.end(), std::uint64_t{0}), 9 * kMiB);
  EXPECT_LE(*std::max_element(takings.told.begin(), takings.told.end()), 4 * kMiB);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
