#include "quorbix/virtdisk/build_preview.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "preview/dry_target.h"
#include "support/child_process.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk {
namespace {

namespace fs = std::filesystem;
using test::kMiB;
using test::TempFolder;

BuildPreview Preview(const fs::path& folder) {
  BuildPreview preview;
  std::string err;
  EXPECT_TRUE(PreviewBuild(folder, preview, err)) << err;
  return preview;
}

const BuildPreviewEntry& Find(const BuildPreview& preview, const std::string& hostPath) {
  static const BuildPreviewEntry kNone;
  const auto found =
      std::find_if(preview.entries.begin(), preview.entries.end(),
                   [&](const BuildPreviewEntry& entry) { return entry.hostPath == hostPath; });
  EXPECT_NE(found, preview.entries.end()) << hostPath;
  return found == preview.entries.end() ? kNone : *found;
}

TEST(PreviewBuild, FileInAFolder_IsToldWithBothPaths) {
  TempFolder folder;
  folder.File("Old Stuff/readme.txt", std::string(600, 'r'));
  const BuildPreview preview = Preview(folder.Path());
  ASSERT_EQ(preview.entries.size(), 2u);
  EXPECT_EQ(preview.entries[0].hostPath, "Old Stuff");
  EXPECT_EQ(preview.entries[0].imagePath, "/OLD_STUF");
  EXPECT_TRUE(preview.entries[0].isDirectory);
  EXPECT_EQ(preview.entries[1].hostPath, "Old Stuff/readme.txt");
  EXPECT_EQ(preview.entries[1].imagePath, "/OLD_STUF/README.TXT");
  EXPECT_EQ(preview.entries[1].bytes, 600u);
  EXPECT_EQ(preview.entries[1].directory, 0u);
  EXPECT_EQ(preview.files, 1u);
  EXPECT_EQ(preview.directories, 1u);
  EXPECT_EQ(preview.fileBytes, 600u);
}

TEST(PreviewBuild, TrailingSlash_MakesNoDifference) {
  TempFolder folder;
  folder.File("A.TXT");
  EXPECT_EQ(Preview(folder.Path().native() + "//").entries.at(0).hostPath, "A.TXT");
}

TEST(PreviewBuild, DotFile_IsHidden) {
  TempFolder folder;
  folder.File(".profile", "x").File("A.TXT");
  const BuildPreview preview = Preview(folder.Path());
  EXPECT_TRUE(Find(preview, ".profile").isHidden);
  EXPECT_EQ(Find(preview, ".profile").imagePath, "/.PRO");
  EXPECT_FALSE(Find(preview, "A.TXT").isHidden);
  EXPECT_EQ(preview.hidden, 1u);
  EXPECT_EQ(preview.files, 2u);
}

TEST(PreviewBuild, WhatADotFolderHolds_IsHiddenToo) {
  TempFolder folder;
  folder.File(".git/config", "x");
  const BuildPreview preview = Preview(folder.Path());
  EXPECT_EQ(Find(preview, ".git/config").imagePath, "/.GIT/CONFIG");
  EXPECT_TRUE(Find(preview, ".git/config").isHidden);
  EXPECT_EQ(preview.hidden, 2u);
}

TEST(PreviewBuild, NamesWithoutATailLeft_AreLeftOut) {
  TempFolder folder;
  for (int i = 0; i < 101; ++i) folder.File("longname" + std::to_string(i) + ".txt");
  const BuildPreview preview = Preview(folder.Path());
  ASSERT_EQ(preview.leftOut, 1u);
  EXPECT_EQ(preview.entries.back().fate, BuildFate::kLeftOut);
  EXPECT_EQ(preview.entries.back().reason, "name not representable in 8.3");
  EXPECT_EQ(preview.files, 100u);
}

TEST(PreviewBuild, PipesAndDanglingLinks_ArePassedOver) {
  TempFolder folder;
  folder.Pipe("pipe").Link("dangling", "nowhere").Link("device", "/dev/zero");
  const BuildPreview preview = Preview(folder.Path());
  for (const char* name : {"pipe", "dangling", "device"}) {
    EXPECT_EQ(Find(preview, name).fate, BuildFate::kPassedOver) << name;
  }
  EXPECT_EQ(preview.leftOut, 0u);
  EXPECT_EQ(preview.files, 0u);
}

TEST(PreviewBuild, UnreadableFileAndFolder_AreLeftOutWithTheirReasons) {
  TempFolder folder;
  folder.File("secret", "x").Forbidden("secret").File("closed/a").Forbidden("closed");
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    BuildPreview preview;
    std::string err;
    if (!PreviewBuild(folder.Path(), preview, err) || preview.leftOut != 2) return 1;
    if (preview.files != 0 || preview.directories != 1) return 2;
    for (const BuildPreviewEntry& entry : preview.entries) {
      if (entry.fate == BuildFate::kCopied) continue;
      const bool isFile = entry.hostPath == "secret";
      if (entry.reason != (isFile ? "transient read error \xE2\x80\x94 file may have changed"
                                  : "dir-iter: Permission denied")) {
        return 3;
      }
    }
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(PreviewBuild, Links_AreToldAndWhatLiesBehindThem) {
  TempFolder folder;
  folder.File("outside/f", "x").File("top/plain").Link("top/folder", "../outside");
  folder.Link("top/file", "../outside/f");
  const BuildPreview preview = Preview(folder / "top");
  EXPECT_TRUE(Find(preview, "folder").isBehindLink);
  EXPECT_TRUE(Find(preview, "folder").isDirectory);
  EXPECT_TRUE(Find(preview, "folder/f").isBehindLink);
  EXPECT_TRUE(Find(preview, "file").isBehindLink);
  EXPECT_FALSE(Find(preview, "plain").isBehindLink);
}

TEST(PreviewBuild, SecondWayToAFile_IsMetAgain) {
  TempFolder folder;
  folder.File("a", "x");
  fs::create_hard_link(folder / "a", folder / "b");
  const BuildPreview preview = Preview(folder.Path());
  ASSERT_EQ(preview.entries.size(), 2u);
  EXPECT_FALSE(preview.entries[0].isMetAgain);
  EXPECT_TRUE(preview.entries[1].isMetAgain);
  EXPECT_EQ(preview.entries[1].metBefore, 0u);
}

TEST(PreviewBuild, LinkToTheFolderItself_IsMetAgainAndEndsWhereTheHostStops) {
  TempFolder folder;
  folder.File("top/a", "x").Link("top/loop", ".");
  const BuildPreview preview = Preview(folder / "top");
  EXPECT_TRUE(Find(preview, "loop").isMetAgain);
  EXPECT_EQ(Find(preview, "loop").metBefore, BuildPreviewEntry::kRoot);
  EXPECT_TRUE(Find(preview, "loop/a").isMetAgain);
  EXPECT_FALSE(preview.isEndless);
  EXPECT_GT(preview.files, 30u);
}

// Met at each of forty levels, the file is more than any image holds.
TEST(PreviewBuild, LinkBackUpBesideALargeFile_IsEndless) {
  TempFolder folder;
  folder.File("large").Link("loop", ".");
  fs::resize_file(folder / "large", 200 * kMiB);
  const BuildPreview preview = Preview(folder.Path());
  EXPECT_TRUE(preview.isEndless);
  EXPECT_EQ(SmallestImage(preview), 0u);
  EXPECT_FALSE(FitIntoImage(preview, 2048 * kMiB).builds);
}

TEST(PreviewBuild, MoreFoldersThanAnyImageHasClusters_AreEndless) {
  BuildPreview preview;
  TempFolder folder;
  internal::DryTarget target(folder.Path(), preview);
  const std::string shortName = "D          ";
  const fs::path path = folder / "d";
  std::uint32_t added = 0;
  while (target.AddDirectory({0, shortName, path, false}) != 0) ++added;
  EXPECT_EQ(added, 65524u);
}

TEST(PreviewBuild, FileThatFitsNoImage_EndsTheWalk) {
  TempFolder folder;
  folder.File("huge");
  fs::resize_file(folder / "huge", 6144 * kMiB);
  const BuildPreview preview = Preview(folder.Path());
  EXPECT_TRUE(preview.isEndless);
  EXPECT_EQ(FitIntoImage(preview, 2048 * kMiB).message, "Disk full while writing file");
}

TEST(PreviewBuild, FileOfTheSystem_HasTheSizeOfItsContent) {
  TempFolder folder;
  folder.Link("os.txt", "/proc/sys/kernel/ostype");
  EXPECT_EQ(Find(Preview(folder.Path()), "os.txt").bytes, 6u);
}

// Of which the metadata say that it has a page.
TEST(PreviewBuild, FileOfADevice_HasTheSizeOfItsContent) {
  const fs::path system = "/sys/devices/system/cpu/possible";
  if (!fs::exists(system)) GTEST_SKIP() << "no such file here";
  const std::string content = test::ReadWholeFile(system);
  ASSERT_NE(fs::file_size(system), content.size());
  TempFolder folder;
  folder.Link("cpus.txt", system.string());
  EXPECT_EQ(Find(Preview(folder.Path()), "cpus.txt").bytes, content.size());
}

// A hole says the truth about its size.
TEST(PreviewBuild, FileOfAHole_HasItsSize) {
  TempFolder folder;
  folder.File("hole");
  for (const std::uint64_t size : {100u, 65'536u, 65'537u, 3'000'000u}) {
    fs::resize_file(folder / "hole", size);
    EXPECT_EQ(Find(Preview(folder.Path()), "hole").bytes, size);
  }
}

std::string FailureOf(const fs::path& path) {
  BuildPreview preview;
  preview.files = 5;
  std::string err;
  EXPECT_FALSE(PreviewBuild(path, preview, err));
  EXPECT_EQ(preview.files, 0u);
  return err;
}

TEST(PreviewBuild, MissingFolder_Fails) {
  TempFolder folder;
  EXPECT_EQ(FailureOf(folder / "none"),
            "Source folder does not exist: " + (folder / "none").string());
}

TEST(PreviewBuild, File_IsNoFolder) {
  TempFolder folder;
  folder.File("f");
  EXPECT_EQ(FailureOf(folder / "f"), "Source path is not a directory: " + (folder / "f").string());
}

TEST(PreviewBuild, FolderThatTheHostKeepsToItself_Fails) {
  TempFolder folder;
  folder.Folder("closed/inner").Forbidden("closed");
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    return FailureOf(folder / "closed/inner") ==
                   "Source folder cannot be looked at: " + (folder / "closed/inner").string() +
                       " (Permission denied)"
               ? 0
               : 1;
  });
  EXPECT_EQ(status, 0);
}

BuildPreview ManyFiles(std::size_t count, std::uint64_t bytes) {
  BuildPreview preview;
  preview.entries.resize(count);
  for (BuildPreviewEntry& entry : preview.entries) entry.bytes = bytes;
  return preview;
}

TEST(FitIntoImage, SmallestSize_HasItsGeometry) {
  const ImageFit fit = FitIntoImage(ManyFiles(1, 600), 65536);
  EXPECT_TRUE(fit.builds);
  EXPECT_TRUE(fit.holds);
  EXPECT_EQ(fit.message, "");
  EXPECT_EQ(fit.clusterBytes, 512u);
  EXPECT_EQ(fit.clusters, 92u);
  EXPECT_EQ(fit.clustersNeeded, 2u);
  EXPECT_FALSE(fit.isCommonlyRead);
}

TEST(FitIntoImage, SizeThatNoImageHas_SaysWhy) {
  EXPECT_EQ(FitIntoImage({}, 65535).message, "Image too small (minimum 64 KB)");
  EXPECT_EQ(FitIntoImage({}, 5120 * kMiB).message, "Volume too large for FAT16 (max ~2 GB)");
  EXPECT_FALSE(FitIntoImage({}, 65535).builds);
}

TEST(FitIntoImage, EmptyFileWithoutASlot_IsDroppedAndBuilds) {
  const ImageFit fit = FitIntoImage(ManyFiles(513, 0), kMiB);
  EXPECT_TRUE(fit.builds);
  EXPECT_FALSE(fit.holds);
  EXPECT_EQ(fit.dropped, 2u);
  EXPECT_EQ(fit.droppedEntries, (std::vector<std::size_t>{511, 512}));
  EXPECT_EQ(fit.message, "Root directory is full");
}

TEST(FitIntoImage, FileWithoutASlot_FailsTheBuild) {
  const ImageFit fit = FitIntoImage(ManyFiles(512, 1), 3 * kMiB);
  EXPECT_FALSE(fit.builds);
  EXPECT_EQ(fit.message, "Root directory is full");
}

// Other systems count: below 4,085 clusters it is FAT12.
TEST(FitIntoImage, FewClusters_AreNotCommonlyRead) {
  EXPECT_FALSE(FitIntoImage({}, 2 * kMiB).isCommonlyRead);
  EXPECT_TRUE(FitIntoImage({}, 3 * kMiB).isCommonlyRead);
}

// For this size the FAT has no words for the last clusters.
TEST(FitIntoImage, ShortFat_IsNotCommonlyRead) {
  EXPECT_FALSE(FitIntoImage({}, 640 * kMiB).isCommonlyRead);
  EXPECT_TRUE(FitIntoImage({}, 641 * kMiB).isCommonlyRead);
}

TEST(SmallestImage, EmptyFolder_IsThreeMebibytes) { EXPECT_EQ(SmallestImage({}), 3 * kMiB); }

TEST(SmallestImage, ExactlyFull_FitsAndOneByteMoreIsTheNextSize) {
  EXPECT_EQ(SmallestImage(ManyFiles(1, 6062 * 512)), 3 * kMiB);
  EXPECT_EQ(SmallestImage(ManyFiles(1, 6062 * 512 + 1)), 4 * kMiB);
}

TEST(SmallestImage, AboveASize_IsLarger) {
  EXPECT_EQ(SmallestImage({}, 3 * kMiB - 1), 3 * kMiB);
  EXPECT_EQ(SmallestImage({}, 3 * kMiB), 4 * kMiB);
}

TEST(SmallestImage, MoreThan511EntriesInTheRoot_FitNowhere) {
  EXPECT_EQ(SmallestImage(ManyFiles(511, 1)), 3 * kMiB);
  EXPECT_EQ(SmallestImage(ManyFiles(512, 1)), 0u);
}

TEST(SmallestImage, MoreThanAnyImageHolds_FitsNowhere) {
  EXPECT_EQ(SmallestImage(ManyFiles(2, 0xFFFFFFFF)), 0u);
}

}  // namespace
}  // namespace quorbix::virtdisk
