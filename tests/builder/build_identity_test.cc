#include "builder/build_identity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using test::TempFolder;

TEST(VolumeId, IsTheSpreadSequenceXorTheTime) {
  EXPECT_EQ(VolumeIdFor(1, 0), 0x9E3779B9u);
  EXPECT_EQ(VolumeIdFor(1, 0x12345678FFFFFFFF), 0x61C88646u);  // only the low 32 bits of the time
  EXPECT_EQ(VolumeIdFor(2, 0), 0x3C6EF372u);                   // 2 * 0x9E3779B9 without its carry
}

TEST(VolumeId, ZeroIsReplaced) {
  EXPECT_EQ(VolumeIdFor(1, 0x9E3779B9), 0xDA7E1235u);
  EXPECT_EQ(VolumeIdFor(3, 0x1DAA66D2B), 0xDA7E1237u);  // 3 * 0x9E3779B9 = 0x1DAA66D2B
}

TEST(VolumeId, InTheSameNanosecondDiffersFromBuildToBuild) {
  EXPECT_NE(VolumeIdFor(1, 1700000000), VolumeIdFor(2, 1700000000));
}

TEST(VolumeId, OfManyBuildsIsNeverZeroAndNeverTheSame) {
  std::set<std::uint32_t> ids;
  for (int i = 0; i < 20; ++i) ids.insert(GenerateVolumeId());
  EXPECT_EQ(ids.size(), 20u);
  EXPECT_FALSE(ids.contains(0));
}

const fs::file_time_type kSomeTime{std::chrono::seconds(-4'000'000'000)};

TEST(NextStamp, WithoutAPreviousOneIsNow) {
  EXPECT_EQ(NextStamp(kSomeTime, std::nullopt), kSomeTime);
}

TEST(NextStamp, LaterThanTheStepIsNow) {
  const auto now = kSomeTime + milliseconds(1) + nanoseconds(1);
  EXPECT_EQ(NextStamp(now, kSomeTime), now);
}

TEST(NextStamp, WithinTheStepIsTheStep) {
  EXPECT_EQ(NextStamp(kSomeTime + nanoseconds(1), kSomeTime), kSomeTime + milliseconds(1));
  EXPECT_EQ(NextStamp(kSomeTime + milliseconds(1), kSomeTime), kSomeTime + milliseconds(1));
}

TEST(NextStamp, AClockThatWentBackIsPassedOver) {
  EXPECT_EQ(NextStamp(kSomeTime - std::chrono::hours(1), kSomeTime), kSomeTime + milliseconds(1));
}

TEST(StampOutputImageMtime, IsAboutNow) {
  TempFolder folder;
  folder.File("a.img");
  const auto before = fs::file_time_type::clock::now();
  StampOutputImageMtime(folder / "a.img");
  const auto stamp = fs::last_write_time(folder / "a.img");
  EXPECT_GE(stamp, before);
  EXPECT_LT(stamp, before + std::chrono::minutes(1));
}

TEST(StampOutputImageMtime, OfAMissingFileIsIgnored) {
  TempFolder folder;
  StampOutputImageMtime(folder / "missing.img");
  EXPECT_FALSE(folder.Exists("missing.img"));
}

TEST(StampOutputImageMtime, FromManyThreads_IsAtLeastOneMillisecondApart) {
  TempFolder folder;
  std::mutex stampsMutex;
  std::vector<fs::file_time_type> stamps;
  const auto stampOften = [&](const fs::path& file) {
    for (int i = 0; i < 50; ++i) {
      StampOutputImageMtime(file);
      const std::lock_guard lock(stampsMutex);
      stamps.push_back(fs::last_write_time(file));
    }
  };
  folder.File("a.img").File("b.img").File("c.img");
  std::vector<std::thread> threads;
  for (const char* name : {"a.img", "b.img", "c.img"}) {
    threads.emplace_back(stampOften, folder / name);
  }
  for (std::thread& thread : threads) thread.join();

  std::sort(stamps.begin(), stamps.end());
  for (std::size_t i = 1; i < stamps.size(); ++i) {
    ASSERT_GE(stamps[i] - stamps[i - 1], milliseconds(1)) << i;
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
