#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "builder/tree_population.h"
#include "common/byte_order.h"
#include "support/child_process.h"
#include "support/image_bytes.h"
#include "support/next_function.h"
#include "support/temp_folder.h"

namespace {

using quorbix::virtdisk::test::NextOf;

// What happens to this process: an error after so many entries of a listing (beside "." and ".."),
// something to do once when a listing ends, an error after so many reads, a close that fails.
int entriesBeforeError = -1;
std::function<void()> whenAListingEnds;
int readsBeforeError = -1;
bool readsFailFromThenOn = false;
std::function<void()> atTheNextRead;
bool closeFails = false;

}  // namespace

// These stand in front of the C library's functions for the whole program, the C++ library
// included.

extern "C" ssize_t read(int file, void* buffer, size_t size) {
  static const auto next = NextOf<ssize_t(int, void*, size_t)>("read");
  if (atTheNextRead) std::exchange(atTheNextRead, nullptr)();
  if (readsBeforeError == 0) {
    if (!readsFailFromThenOn) readsBeforeError = -1;
    errno = EIO;
    return -1;
  }
  if (readsBeforeError > 0) --readsBeforeError;
  return next(file, buffer, size);
}

extern "C" int close(int file) {
  static const auto next = NextOf<int(int)>("close");
  const int result = next(file);
  if (!std::exchange(closeFails, false)) return result;
  errno = EIO;
  return -1;
}

extern "C" dirent* readdir(DIR* stream) {
  static const auto next = NextOf<dirent*(DIR*)>("readdir");
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

class SystemFault : public testing::Test {
 protected:
  SystemFault() {
    EXPECT_TRUE(image.Init(65536, err)) << err;
    for (const char* name : {"A", "B", "C", "D"}) folder.File(name, name);
  }
  ~SystemFault() override {
    entriesBeforeError = -1;
    whenAListingEnds = nullptr;
    readsBeforeError = -1;
    readsFailFromThenOn = false;
    atTheNextRead = nullptr;
    closeFails = false;
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

TEST_F(SystemFault, ListingThatFailsHalfWay_KeepsWhatItGave) {
  entriesBeforeError = 3;
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 3u);
  EXPECT_THAT(skipped, ElementsAre(folder.Path().string() + " [dir-iter: Input/output error]"));
}

TEST_F(SystemFault, ListingThatFailsAtOnce_GivesNothing) {
  entriesBeforeError = 0;
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 0u);
  EXPECT_THAT(skipped, ElementsAre(folder.Path().string() + " [dir-iter: Input/output error]"));
}

TEST_F(SystemFault, FileDeletedBetweenListingAndReading_IsSkipped) {
  whenAListingEnds = [&] { folder.Remove("B"); };
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 3u);
  EXPECT_THAT(skipped, ElementsAre((folder / "B").string() +
                                   " [transient read error \xE2\x80\x94 file may have changed]"));
}

TEST_F(SystemFault, FileThatGrewBetweenListingAndReading_IsCopiedAsItIs) {
  whenAListingEnds = [&] { folder.File("B", std::string(1000, 'B')); };
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 4u);
  EXPECT_THAT(skipped, IsEmpty());
}

// Would wait for a writer: the alarm ends it.
TEST_F(SystemFault, PipeThatTookAFilesPlaceSinceTheListing_IsSkippedWithoutWaiting) {
  const int status = test::RunInChild({}, [&] {
    ::alarm(20);
    whenAListingEnds = [&] { folder.Remove("B").Pipe("B"); };
    if (!PopulateDir(image, 0, folder.Path(), err, skipped)) return 1;
    if (RootEntries() != 3) return 2;
    return skipped == std::vector<std::string>{(folder / "B").string() +
                                               " [transient read error \xE2\x80\x94 file may "
                                               "have changed]"}
               ? 0
               : 3;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(SystemFault, FolderThatTookAFilesPlaceSinceTheListing_IsSkipped) {
  whenAListingEnds = [&] { folder.Remove("B").Folder("B"); };
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 3u);
  EXPECT_THAT(skipped, ElementsAre((folder / "B").string() +
                                   " [transient read error \xE2\x80\x94 file may have changed]"));
}

// Endless, if it were read.
TEST_F(SystemFault, LinkToADeviceThatTookAFilesPlaceSinceTheListing_IsSkipped) {
  whenAListingEnds = [&] { folder.Remove("B").Link("B", "/dev/zero"); };
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 3u);
  EXPECT_THAT(skipped, ElementsAre((folder / "B").string() +
                                   " [transient read error \xE2\x80\x94 file may have changed]"));
}

TEST_F(SystemFault, LinkWhoseTargetVanishedSinceTheListing_IsPassedOver) {
  TempFolder elsewhere;
  elsewhere.File("target", "there");
  folder.Remove("B").Link("B", elsewhere / "target");
  whenAListingEnds = [&] { elsewhere.Remove("target"); };
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 3u);
  EXPECT_THAT(skipped, IsEmpty());
}

TEST_F(SystemFault, LinkWhoseTargetVanishesWhileAnEarlierEntryIsCopied_IsPassedOver) {
  TempFolder elsewhere;
  elsewhere.File("target", "there");
  folder.Remove("B").Link("B", elsewhere / "target");
  using std::filesystem::file_type;
  HostQueries host;
  host.list = [](const std::filesystem::path&) {
    return FolderListing{.opened = true,
                         .entries = {{"A", file_type::regular}, {"B", file_type::symlink}},
                         .error = {}};
  };
  atTheNextRead = [&] { elsewhere.Remove("target"); };
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped, host));
  EXPECT_EQ(RootEntries(), 1u);
  EXPECT_THAT(skipped, IsEmpty());
}

TEST_F(SystemFault, LinkWhoseTargetBecameAFolderSinceTheListing_IsCopiedAsAFolder) {
  for (const char* name : {"A", "B", "C", "D"}) folder.Remove(name);
  TempFolder elsewhere;
  elsewhere.File("target", "a file");
  folder.Link("LINK", elsewhere / "target");
  whenAListingEnds = [&] { elsewhere.Remove("target").File("target/INNER", "x"); };
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 1u);
  EXPECT_EQ(image.Bytes()[2048 + 11], 0x10);
  EXPECT_EQ(image.Bytes()[18432 + 64], 'I');  // the entry behind "." and ".."
  EXPECT_THAT(skipped, IsEmpty());
}

TEST_F(SystemFault, FileThatFailsHalfWay_IsSkippedNeverCut) {
  for (const char* name : {"A", "B", "C"}) folder.Remove(name);
  folder.File("D", std::string(20000, 'D'));
  readsBeforeError = 1;  // the first read gives all the bytes, the second should find the end
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(RootEntries(), 0u);
  EXPECT_THAT(skipped, ElementsAre((folder / "D").string() +
                                   " [transient read error \xE2\x80\x94 file may have changed]"));
}

// Large files are read to where they belong; one that fails must leave nothing there.
TEST_F(SystemFault, LargeFileThatFailsHalfWay_IsSkippedWithoutATrace) {
  for (const char* name : {"A", "B", "C", "D"}) folder.Remove(name);
  folder.File("D", std::string(3 << 20, 'D'));
  Fat16Image large, untouched;
  for (Fat16Image* disk : {&large, &untouched}) ASSERT_TRUE(disk->Init(8 << 20, err)) << err;
  readsBeforeError = 1;  // the file's own bytes come, then an error instead of the end
  readsFailFromThenOn = true;
  EXPECT_TRUE(PopulateDir(large, 0, folder.Path(), err, skipped));
  EXPECT_EQ(test::BytesOf(large), test::BytesOf(untouched));
  EXPECT_EQ(large.AllocCluster(), 2);
  EXPECT_THAT(skipped, ElementsAre((folder / "D").string() +
                                   " [transient read error \xE2\x80\x94 file may have changed]"));
}

TEST_F(SystemFault, LargeFileThatFailsOnce_IsReadAgain) {
  for (const char* name : {"A", "B", "C", "D"}) folder.Remove(name);
  folder.File("D", std::string(3 << 20, 'D'));
  Fat16Image failed, smooth;
  for (Fat16Image* disk : {&failed, &smooth}) ASSERT_TRUE(disk->Init(8 << 20, err)) << err;
  ASSERT_TRUE(PopulateDir(smooth, 0, folder.Path(), err, skipped));
  readsBeforeError = 1;
  EXPECT_TRUE(PopulateDir(failed, 0, folder.Path(), err, skipped));
  EXPECT_THAT(skipped, IsEmpty());
  EXPECT_EQ(test::BytesOf(failed), test::BytesOf(smooth));
}

TEST_F(SystemFault, LargeFileThatGrowsWhileItIsRead_IsCopiedAsItIsAfterwards) {
  for (const char* name : {"A", "B", "C", "D"}) folder.Remove(name);
  folder.File("D", std::string(2 << 20, 'D'));
  Fat16Image grown;
  ASSERT_TRUE(grown.Init(8 << 20, err)) << err;
  atTheNextRead = [&] { folder.File("D", std::string(3 << 20, 'E')); };
  EXPECT_TRUE(PopulateDir(grown, 0, folder.Path(), err, skipped));
  EXPECT_THAT(skipped, IsEmpty());
  EXPECT_EQ(LoadU32(&grown.Bytes()[grown.Layout().rootDirSector * 512 + 28]), 3u << 20);
}

TEST_F(SystemFault, ImageWhoseCloseFails_IsAFailedWrite) {
  closeFails = true;
  EXPECT_FALSE(image.SaveToFile(folder / "disk.img", err));
  EXPECT_EQ(err, "Write failed for: " + (folder / "disk.img").string());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
