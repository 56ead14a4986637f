#include "commands/auto_build.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/sizes.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::kMiB;
using ::testing::_;
using ::testing::InSequence;
using ::testing::Return;
using ::testing::StrictMock;

class FakeBuilder : public IFatImageBuilder {
 public:
  MOCK_METHOD(bool, Build,
              (const std::filesystem::path&, const std::filesystem::path&, std::uint64_t),
              (override));
  MOCK_METHOD(std::uint64_t, MeasureFolderSize, (const std::filesystem::path&), (const, override));
  MOCK_METHOD(std::string, LastError, (), (const, override));
  MOCK_METHOD(std::vector<std::string>, SkippedFiles, (), (const, override));
};

BuildResult Build(FakeBuilder& builder, const FolderContent& content) {
  return BuildAtSmallestSize(builder, "folder", "disk.img", content);
}

TEST(BuildAtSmallestSize, FolderThatFits_IsBuiltOnce) {
  StrictMock<FakeBuilder> builder;
  EXPECT_CALL(builder,
              Build(std::filesystem::path("folder"), std::filesystem::path("disk.img"), 3 * kMiB))
      .WillOnce(Return(true));
  const BuildResult result = Build(builder, {});
  EXPECT_TRUE(result.done);
  EXPECT_EQ(result.size, 3 * kMiB);
}

TEST(BuildAtSmallestSize, DiskThatTurnsOutFull_IsBuiltOneSizeUp) {
  StrictMock<FakeBuilder> builder;
  const InSequence inSequence;
  for (const char* message :
       {"Disk full", "Disk full while writing file", "Disk full, cannot extend directory"}) {
    EXPECT_CALL(builder, Build).WillOnce(Return(false));
    EXPECT_CALL(builder, LastError).WillOnce(Return(message));
  }
  EXPECT_CALL(builder, Build(_, _, 6 * kMiB)).WillOnce(Return(true));
  EXPECT_EQ(Build(builder, {}).size, 6 * kMiB);
}

TEST(BuildAtSmallestSize, OtherFailure_EndsTheAttempts) {
  StrictMock<FakeBuilder> builder;
  EXPECT_CALL(builder, Build(_, _, 3 * kMiB)).WillOnce(Return(false));
  EXPECT_CALL(builder, LastError).WillOnce(Return("Root directory is full"));
  EXPECT_FALSE(Build(builder, {}).done);
}

TEST(BuildAtSmallestSize, ContentBeyondAnyImage_IsRefusedByTheBuilder) {
  StrictMock<FakeBuilder> builder;
  EXPECT_CALL(builder, Build(_, _, kRefusedSize)).WillOnce(Return(false));
  FolderContent content;
  content.endless = true;
  EXPECT_FALSE(Build(builder, content).done);
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
