#include <dirent.h>
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "builder/tree_population.h"
#include "support/temp_folder.h"

namespace {

// What happens to the listings of this process: after so many entries beside "." and "..", an
// error; and something to do once, when a listing ends.
int entriesBeforeError = -1;
std::function<void()> whenAListingEnds;

}  // namespace

// Stands in front of the C library's function for the whole program, the C++ library included.
extern "C" dirent* readdir(DIR* stream) {
  static const auto next = reinterpret_cast<dirent* (*)(DIR*)>(::dlsym(RTLD_NEXT, "readdir"));
  dirent* entry = next(stream);
  const bool dots = entry != nullptr && entry->d_name[0] == '.';
  if (entry != nullptr && !dots && entriesBeforeError >= 0 && entriesBeforeError-- == 0) {
    errno = EIO;
    return nullptr;
  }
  if (entry == nullptr && whenAListingEnds) {
    const int error = errno;
    std::exchange(whenAListingEnds, nullptr)();
    errno = error;
  }
  return entry;
}

namespace quorbix::virtdisk::internal {
namespace {

using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ListingFault : public testing::Test {
 protected:
  ListingFault() {
    EXPECT_TRUE(image.Init(65536, err)) << err;
    for (const char* name : {"A", "B", "C", "D"}) folder.File(name, name);
  }
  ~ListingFault() override {
    entriesBeforeError = -1;
    whenAListingEnds = nullptr;
  }

  std::size_t RootEntries() const {
    std::size_t count = 0;
    while (image.Bytes()[2048 + count * 32] != 0) ++count;
    return count;
  }

  TempFolder folder;
  Fat16Image image;
  std::string err;
  std::vector<std::string> skipped;
};

TEST_F(ListingFault, ListingThatFailsHalfWay_KeepsWhatItGave) {
  entriesBeforeError = 3;
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 3u);
  EXPECT_THAT(skipped, ElementsAre(folder.Path().string() + " [dir-iter: Input/output error]"));
}

TEST_F(ListingFault, ListingThatFailsAtOnce_GivesNothing) {
  entriesBeforeError = 0;
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 0u);
  EXPECT_THAT(skipped, ElementsAre(folder.Path().string() + " [dir-iter: Input/output error]"));
}

TEST_F(ListingFault, FileDeletedBetweenListingAndReading_IsSkipped) {
  whenAListingEnds = [&] { folder.Remove("B"); };
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 3u);
  EXPECT_THAT(skipped, ElementsAre((folder / "B").string() +
                                   " [transient read error \xE2\x80\x94 file may have changed]"));
}

TEST_F(ListingFault, FileThatGrewBetweenListingAndReading_IsCopiedAsItIs) {
  whenAListingEnds = [&] { folder.File("B", std::string(1000, 'B')); };
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 4u);
  EXPECT_THAT(skipped, IsEmpty());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
