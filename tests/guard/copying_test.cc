#include "guard/copying.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

#include "common/host_file.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

class CopyDifferencesTest : public testing::Test {
 protected:
  // What becomes of `there` from `offset` on.
  std::string Made(const std::string& wanted, const std::string& there, std::size_t offset) {
    folder.File("from", wanted).File("to", there);
    const Descriptor from = OpenHostPath((folder / "from").c_str(), O_RDONLY);
    const Descriptor to = OpenHostPath((folder / "to").c_str(), O_RDWR);
    std::uint64_t told = 0;
    WorkMonitor monitor(nullptr, [&](const GuardedProgress& progress) { told = progress.bytes; });
    EXPECT_EQ(CopyDifferences(from.Get(), to.Get(), offset, monitor), Copying::kDone);
    EXPECT_EQ(told, wanted.size() - offset);
    return folder.Read("to");
  }

  test::TempFolder folder;
};

TEST_F(CopyDifferencesTest, AnyChanges_AreMade) {
  std::mt19937 random(1);
  for (int round = 0; round < 200; ++round) {
    std::string wanted(1 + random() % 700'000, 'a');
    std::string there = wanted;
    for (unsigned changes = random() % 5; changes > 0; --changes) {
      const std::size_t at = random() % there.size();
      const std::size_t size = std::min<std::size_t>(1 + random() % 20'000, there.size() - at);
      there.replace(at, size, std::string(size, 'b'));
    }
    const std::size_t offset = std::min<std::size_t>(random() % 3 * 1024, wanted.size());
    EXPECT_EQ(Made(wanted, there, offset), there.substr(0, offset) + wanted.substr(offset));
  }
}

TEST_F(CopyDifferencesTest, ShorterOrLongerFile_IsFilledOrKeepsItsEnd) {
  EXPECT_EQ(Made(std::string(300'000, 'a'), "b", 0), std::string(300'000, 'a'));
  EXPECT_EQ(Made(std::string(5000, 'a'), std::string(6000, 'b'), 1024),
            std::string(1024, 'b') + std::string(3976, 'a') + std::string(1000, 'b'));
  EXPECT_EQ(Made("", "b", 0), "b");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
