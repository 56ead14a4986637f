#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "builder/file_reading.h"
#include "builder/tree_population.h"
#include "support/child_process.h"
#include "support/instrumented.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::TempFolder;

using test::kMiB;

void* RunFunction(void* function) {
  (*static_cast<std::function<void()>*>(function))();
  return nullptr;
}

// Runs `body` on a thread whose stack has `stackBytes` bytes.
void RunOnSmallStack(std::size_t stackBytes, std::function<void()> body) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, stackBytes);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attributes, RunFunction, &body), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

fs::path DeepPath(int levels) {
  fs::path path = ".";
  for (int level = 0; level < levels; ++level) path /= "d";
  return path;
}

TEST(DeepTree, Of1000Levels_IsCopiedWithFewDescriptorsAndASmallStack) {
  TempFolder folder;
  folder.File(DeepPath(1000) / "f", "deep");
  const int status = test::RunInChild({.openFileLimit = 32}, [&] {
    int result = 1;
    RunOnSmallStack(256 * 1024, [&] {
      Fat16Image image;
      std::string err;
      std::vector<std::string> skipped;
      if (!image.Init(4 * kMiB, err)) return;
      if (!PopulateDir(image, 0, folder.Path(), err, skipped) || !skipped.empty()) return;
      // 1,000 directories and one file of one cluster: the next free cluster is 1,003.
      result = image.AllocCluster() == 1003 ? 0 : 2;
    });
    return result;
  });
  EXPECT_EQ(status, 0);
}

// Peak resident memory of this process in bytes.
std::uint64_t PeakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stoull(line.substr(6)) * 1024;
  }
  return 0;
}

TEST(DeepTree, WithManyEntriesAtEveryLevel_TakesLittleMemory) {
  if (test::kInstrumented) GTEST_SKIP() << "a sanitizer's memory would be measured";
  // Every level holds 20 files beside the next folder, so that whatever is listed first, most of
  // the listings are held while the bottom is copied.
  TempFolder folder;
  std::string path = folder.Path().string();
  for (int level = 0; level < 300; ++level) {
    path += "/d";
    ASSERT_EQ(::mkdir(path.c_str(), 0755), 0);
    for (int i = 0; i < 20; ++i) std::ofstream(path + "/f" + std::to_string(i)).close();
  }
  const int status = test::RunInChild({}, [&] {
    Fat16Image image;
    std::string err;
    std::vector<std::string> skipped;
    const std::uint64_t before = PeakMemory();
    if (!image.Init(4 * kMiB, err)) return 1;
    if (!PopulateDir(image, 0, folder.Path(), err, skipped)) return 2;
    const std::uint64_t mebibytes = (PeakMemory() - before) / kMiB;
    return mebibytes < 4 + 32 ? 0 : static_cast<int>(std::min<std::uint64_t>(mebibytes, 250));
  });
  EXPECT_EQ(status, 0);
}

TEST(LargeFiles, OfRisingSizes_AreReadIntoTheMemoryOfTheLargest) {
  if (test::kInstrumented) GTEST_SKIP() << "a sanitizer's memory would be measured";
  TempFolder folder;
  folder.File("a", std::string(60 * kMiB, 'a')).File("b", std::string(60 * kMiB + 4096, 'b'));
  const int status = test::RunInChild({}, [&] {
    ByteBuffer content;
    const std::uint64_t before = PeakMemory();
    if (ReadHostFile(folder / "a", content) != 0) return 1;
    if (ReadHostFile(folder / "b", content) != 0) return 2;
    const std::uint64_t mebibytes = (PeakMemory() - before) / kMiB;
    return mebibytes < 60 + 32 ? 0 : static_cast<int>(std::min<std::uint64_t>(mebibytes, 250));
  });
  EXPECT_EQ(status, 0);
}

TEST(LargeFiles, ThatCanNeverFit_AreNotReadToTheirEnd) {
  if (test::kInstrumented) GTEST_SKIP() << "a sanitizer's memory would be measured";
  TempFolder folder;
  folder.File("sparse");
  fs::resize_file(folder / "sparse", 6144 * kMiB);
  const int status = test::RunInChild({}, [&] {
    Fat16Image image;
    std::string err;
    std::vector<std::string> skipped;
    const std::uint64_t before = PeakMemory();
    if (!image.Init(65536, err)) return 1;
    if (PopulateDir(image, 0, folder.Path(), err, skipped)) return 2;
    if (err != "Disk full while writing file") return 3;
    return PeakMemory() - before < 32 * kMiB ? 0 : 4;
  });
  EXPECT_EQ(status, 0);
}

TEST(LargeFiles, ThatFindNoClusterAtAll_FailAsSmallOnesDo) {
  TempFolder folder;
  folder.File("sparse");
  fs::resize_file(folder / "sparse", 6144 * kMiB);
  Fat16Image image;
  std::string err;
  std::vector<std::string> skipped;
  ASSERT_TRUE(image.Init(65536, err));
  while (image.AllocCluster() != 0) continue;
  EXPECT_FALSE(PopulateDir(image, 0, folder.Path(), err, skipped));
  EXPECT_EQ(err, "Disk full");
}

TEST(LargeFiles, OfAllTheDiskHolds_AreCopied) {
  TempFolder folder;
  folder.File("exact", std::string(92 * 512, 'x'));
  Fat16Image image;
  std::string err;
  std::vector<std::string> skipped;
  ASSERT_TRUE(image.Init(65536, err));
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped)) << err;
}

TEST(DeepTree, BeyondThePathsTheHostCanName_IsSkippedThere) {
  TempFolder folder;
  const fs::path before = fs::current_path();
  fs::current_path(folder.Path());
  for (int level = 0; level < 30; ++level) {
    const std::string name(200, 'x');
    fs::create_directory(name);
    fs::current_path(name);
  }
  fs::current_path(before);
  Fat16Image image;
  std::string err;
  std::vector<std::string> skipped;
  ASSERT_TRUE(image.Init(65536, err));
  EXPECT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped));
  ASSERT_EQ(skipped.size(), 1u);
  EXPECT_TRUE(skipped[0].ends_with(" [dir-iter: File name too long]")) << skipped[0].substr(3900);
}

TEST(WideTree, Of8000FilesInOneFolder_GivesEachASlotInOrder) {
  TempFolder folder;
  folder.Folder("sub");
  const std::string sub = (folder / "sub/F").string();
  for (int i = 0; i < 8000; ++i) std::ofstream(sub + std::to_string(i) + ".TXT").close();
  Fat16Image image;
  std::string err;
  std::vector<std::string> skipped;
  ASSERT_TRUE(image.Init(8 * kMiB, err));
  ASSERT_TRUE(PopulateDir(image, 0, folder.Path(), err, skipped)) << err;
  EXPECT_TRUE(skipped.empty());
  // 8,002 slots, 16 to a cluster: 501 clusters in a row, with two slots in the last.
  const std::size_t data = 162 * 512;
  std::size_t used = 0;
  while (image.Bytes()[data + used * 32] != 0) ++used;
  EXPECT_EQ(used, 8002u);
  EXPECT_EQ(image.AllocCluster(), 503);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
