#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "builder/tree_population.h"
#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::TempFolder;

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
  std::vector<std::uint8_t> bytes = {1, 2, 3};
  EXPECT_EQ(ReadHostFile(folder / "F", bytes), 0);
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), content);
}

INSTANTIATE_TEST_SUITE_P(Sizes, ReadHostFileSize,
                         testing::Values(0, 1, 511, 512, 4095, 4096, 262143, 262144, 262145,
                                         1000000));

TEST(ReadHostFile, OfAMissingFileFails) {
  TempFolder folder;
  std::vector<std::uint8_t> bytes;
  EXPECT_EQ(ReadHostFile(folder / "missing", bytes), 1);
}

TEST(ReadHostFile, OfAFolderFails) {
  TempFolder folder;
  std::vector<std::uint8_t> bytes;
  EXPECT_EQ(ReadHostFile(folder.Path(), bytes), 1);
}

TEST(ReadHostFile, WhoseFirstReadFailsFails) {
  std::vector<std::uint8_t> bytes;
  EXPECT_EQ(ReadHostFile("/proc/self/mem", bytes), 1);  // address 0 is mapped to nothing
}

TEST(ReadHostFile, OfAFileWhoseMetadataSaySizeZero_GivesItsContent) {
  ASSERT_EQ(fs::file_size("/proc/self/status"), 0u);
  std::vector<std::uint8_t> bytes;
  EXPECT_EQ(ReadHostFile("/proc/self/status", bytes), 0);
  EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 5), "Name:");
  EXPECT_EQ(bytes.back(), '\n');
}

TEST(ReadHostFile, WithoutPermissionFails) {
  TempFolder folder;
  folder.File("F", "secret").Forbidden("F");
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    std::vector<std::uint8_t> bytes;
    return ReadHostFile(folder / "F", bytes);
  });
  EXPECT_EQ(status, 1);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
