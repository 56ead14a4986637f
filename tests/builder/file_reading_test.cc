#include "builder/file_reading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/lease_holder.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::TempFolder;

std::string TextOf(const ByteBuffer& bytes) { return {bytes.Span().begin(), bytes.Span().end()}; }

std::string Pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 + i / 256);
  return text;
}

class ReadHostFileSize : public testing::TestWithParam<std::size_t> {};

TEST_P(ReadHostFileSize, GivesTheWholeContent) {
  TempFolder folder;
  const std::string content = Pattern(GetParam());
  folder.File("F", content);
  ByteBuffer bytes(3);
  EXPECT_EQ(ReadHostFile(folder / "F", bytes), 0);
  EXPECT_EQ(TextOf(bytes), content);
}

INSTANTIATE_TEST_SUITE_P(Sizes, ReadHostFileSize,
                         testing::Values(0, 1, 511, 512, 4095, 4096, 262143, 262144, 262145,
                                         1000000));

TEST(ReadHostFile, OfAMissingFileFails) {
  TempFolder folder;
  ByteBuffer bytes;
  EXPECT_EQ(ReadHostFile(folder / "missing", bytes), 1);
}

TEST(ReadHostFile, OfAFolderFails) {
  TempFolder folder;
  ByteBuffer bytes;
  EXPECT_EQ(ReadHostFile(folder.Path(), bytes), 1);
}

TEST(ReadHostFile, WhoseFirstReadFailsFails) {
  ByteBuffer bytes;
  EXPECT_EQ(ReadHostFile("/proc/self/mem", bytes), 1);  // address 0 is mapped to nothing
}

TEST(ReadHostFile, OfAFileWhoseMetadataSaySizeZero_GivesItsContent) {
  ASSERT_EQ(fs::file_size("/proc/self/status"), 0u);
  ByteBuffer bytes;
  EXPECT_EQ(ReadHostFile("/proc/self/status", bytes), 0);
  EXPECT_EQ(TextOf(bytes).substr(0, 5), "Name:");
  EXPECT_EQ(TextOf(bytes).back(), '\n');
}

// A number among the settings gives its content to the first read and an end to every further one.
TEST(ReadHostFile, OfASystemSettingThatSaysSizeZero_GivesAllOfIt) {
  constexpr char kSetting[] = "/proc/sys/kernel/ngroups_max";
  ASSERT_EQ(fs::file_size(kSetting), 0u);
  ByteBuffer bytes;
  EXPECT_EQ(ReadHostFile(kSetting, bytes), 0);
  EXPECT_EQ(TextOf(bytes), "65536\n");
}

// Would wait for a writer: the alarm ends it.
TEST(ReadHostFile, OfAPipeFailsWithoutWaiting) {
  TempFolder folder;
  folder.Pipe("pipe");
  const int status = test::RunInChild({}, [&] {
    ::alarm(20);
    ByteBuffer bytes;
    return ReadHostFile(folder / "pipe", bytes);
  });
  EXPECT_EQ(status, 1);
}

TEST(ReadHostFile, OfALeasedFileWaitsForIt) {
  TempFolder folder;
  folder.File("F", "leased");
  test::LeaseHolder holder(folder / "F");
  if (!holder.Holds()) GTEST_SKIP() << "this file system has no leases";
  ByteBuffer bytes;
  EXPECT_EQ(ReadHostFile(folder / "F", bytes), 0);
  EXPECT_TRUE(holder.WasAsked());
  EXPECT_EQ(TextOf(bytes), "leased");
}

TEST(ReadHostFile, BeyondTheBound_StopsOneByteAfterIt) {
  TempFolder folder;
  folder.File("F", Pattern(1'000'000));
  for (const std::uint64_t most : {0u, 1u, 5000u, 999'998u, 999'999u}) {
    ByteBuffer bytes;
    EXPECT_EQ(ReadHostFile(folder / "F", bytes, most), 0);
    EXPECT_EQ(bytes.size(), most + 1);
  }
}

TEST(ReadHostFile, UpToTheBound_IsWhole) {
  TempFolder folder;
  folder.File("F", Pattern(10'000));
  for (const std::uint64_t most : {10'000u, 10'001u, 20'000u}) {
    ByteBuffer bytes;
    EXPECT_EQ(ReadHostFile(folder / "F", bytes, most), 0);
    EXPECT_EQ(TextOf(bytes), Pattern(10'000));
  }
}

TEST(ReadHostFile, WithoutPermissionFails) {
  TempFolder folder;
  folder.File("F", "secret").Forbidden("F");
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    ByteBuffer bytes;
    return ReadHostFile(folder / "F", bytes);
  });
  EXPECT_EQ(status, 1);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
