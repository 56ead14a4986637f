// Bytes of a new image that are read back as others than were written.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "guard/refusals.h"
#include "quorbix/virtdisk/fat16_fs_image.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using namespace test;
using testing::HasSubstr;
using testing::UnorderedElementsAre;
using enum GuardedOutcome;

struct Spot {
  const char* name;
  std::function<std::set<std::size_t>(const std::vector<std::uint8_t>& image)> bytes;
};

std::size_t OffsetOf(const std::vector<std::uint8_t>& image, std::string_view text) {
  const auto found = std::search(image.begin(), image.end(), text.begin(), text.end());
  EXPECT_NE(found, image.end()) << text;
  return static_cast<std::size_t>(found - image.begin());
}

constexpr std::string_view kSlot = "LONG    TXT";

// Of each FAT, the word of the first cluster of LONG.TXT.
std::array<std::size_t, 2> ChainOf(const std::vector<std::uint8_t>& bytes) {
  Fat16FsImage image;
  std::string err;
  EXPECT_TRUE(image.LoadFromBytes(bytes, err)) << err;
  const std::size_t slot = OffsetOf(bytes, kSlot);
  const std::size_t cluster = bytes[slot + 26] + 256u * bytes[slot + 27];
  const std::size_t first = image.Info().fatStartSector * std::size_t{512} + 2 * cluster;
  return {first, first + image.Info().sectorsPerFat * std::size_t{512}};
}

const Spot kSpots[] = {
    {"Content", [](const auto& image) { return std::set{OffsetOf(image, "long text") + 1000}; }},
    {"FirstFat", [](const auto& image) { return std::set{ChainOf(image)[0]}; }},
    {"SecondFat", [](const auto& image) { return std::set{ChainOf(image)[1]}; }},
    {"BothFats",
     [](const auto& image) {
       return std::set{ChainOf(image)[0], ChainOf(image)[1]};
     }},
    {"Name", [](const auto& image) { return std::set{OffsetOf(image, kSlot)}; }},
    {"Size", [](const auto& image) { return std::set{OffsetOf(image, kSlot) + 28}; }},
    {"FirstCluster", [](const auto& image) { return std::set{OffsetOf(image, kSlot) + 26}; }},
    {"Attributes", [](const auto& image) { return std::set{OffsetOf(image, kSlot) + 11}; }},
    {"Date", [](const auto& image) { return std::set{OffsetOf(image, kSlot) + 24}; }},
    {"VolumeId", [](const auto&) { return std::set<std::size_t>{512 + 39}; }},
    {"BootCode", [](const auto&) { return std::set<std::size_t>{100}; }},
};

class NewImageReadBack : public RefusedCall, public testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    options.inPlace = GetParam();
    folder.File("host/long.txt", "long text" + std::string(9000, 'l')).File("host/a.txt", "a");
    BuildAndAgree();
    // A build may lay its clusters out in another way; the new images of passes are alike.
    folder.File("host/a.txt", "b");
    ASSERT_EQ(Pass().outcome, kDone);
    fs::remove_all(StateFolder() / "trash");
    folder.File("host/a.txt", "c");
  }
};

TEST_P(NewImageReadBack, FlippedBit_KeepsTheOldOneAndLeavesNothingElse) {
  const std::vector<std::uint8_t> before = test::ReadBytes(Image());
  const auto inStateBefore = NamesIn(StateFolder());
  for (const Spot& spot : kSpots) {
    SCOPED_TRACE(spot.name);
    flippedBytes = spot.bytes(before);
    const GuardedReport report = Sync()->Pass();
    flippedBytes.clear();
    EXPECT_EQ(report.outcome, kFailed);
    EXPECT_THAT(report.message, HasSubstr("does not hold what was planned"));
    EXPECT_EQ(test::ReadBytes(Image()), before);
    EXPECT_THAT(NamesIn(folder.Path()), UnorderedElementsAre("host", "DISK.IMG", "DISK.IMG.sync"));
    EXPECT_THAT(NamesIn(StateFolder()), testing::UnorderedElementsAreArray(inStateBefore));
    EXPECT_FALSE(report.steps.at(0).isDone);
  }
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnDisk().at("A.TXT"), "c");
  EXPECT_EQ(Pass().outcome, kNothingToDo);
}

INSTANTIATE_TEST_SUITE_P(Ways, NewImageReadBack, testing::Bool(),
                         [](const auto& way) { return way.param ? "InPlace" : "Renamed"; });

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
