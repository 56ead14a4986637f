#include "host/piecewise.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <vector>

#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::kMiB;
using test::TempFolder;
using ::testing::ElementsAre;

TEST(WriteInPieces, Bytes_ArriveAndAreToldPieceByPiece) {
  const TempFolder folder;
  std::vector<std::uint8_t> bytes(17 * kMiB, 'x');
  bytes.back() = 'y';
  std::vector<std::uint64_t> told;
  const int file = ::open((folder / "A").c_str(), O_WRONLY | O_CREAT, 0600);
  EXPECT_TRUE(WriteInPieces(file, bytes, [&](std::uint64_t more) { told.push_back(more); }));
  ::close(file);
  EXPECT_EQ(test::ReadBytes(folder / "A"), bytes);
  EXPECT_THAT(told, ElementsAre(8 * kMiB, 8 * kMiB, kMiB));
}

TEST(WriteInPieces, FullDevice_FailsWithTheReason) {
  const std::vector<std::uint8_t> bytes(3);
  const int file = ::open("/dev/full", O_WRONLY);
  EXPECT_FALSE(WriteInPieces(file, bytes));
  EXPECT_EQ(errno, ENOSPC);
  ::close(file);
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
