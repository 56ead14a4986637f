// Writes the first inputs of browser_fuzz into the folder given: small valid images, and some with
// one lie each. Run it after a change here, and commit what it writes.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace {

using quorbix::virtdisk::test::ImageCrafter;
using quorbix::virtdisk::test::VolumeShape;
using quorbix::virtdisk::test::WriteBytes;

std::filesystem::path folder;

void Save(const std::string& name, const ImageCrafter& image) {
  WriteBytes(folder / (name + ".img"), image.Bytes());
}

// Boot sector, one FAT, one root sector, `clusters` of data: the smallest volume there is.
VolumeShape Bare(std::uint32_t clusters) {
  return {.partitioned = false, .fatCount = 1, .clusters = clusters};
}

ImageCrafter Tree(const VolumeShape& shape) {
  auto image = ImageCrafter(shape).Label("LABEL      ").Directory("A", 2).File("EMPTY");
  image.File("B.TXT", {.firstCluster = 4, .size = 700, .writeTime = 0x6000, .writeDate = 0x5A21});
  image.LongNameSlot().File("LONG~1").DeletedSlot().Chain({4, 5}).Chain({2}).Chain({3});
  image.InCluster(2).DotEntries(2, 0).Directory("DEEP", 3).File("c.txt");
  return image.InCluster(3).DotEntries(3, 2).File("D", {.firstCluster = 5, .size = 9});
}

void SaveValidImages() {
  Save("empty", ImageCrafter(Bare(1)));
  Save("tree", Tree(Bare(5)));
  Save("tree-partitioned", Tree({.clusters = 5}));
  Save("tree-second-partition", Tree({.partitionSlot = 1, .partitionType = 0x0E, .clusters = 5}));
  Save("tree-two-sector-clusters",
       Tree({.partitioned = false, .sectorsPerCluster = 2, .fatCount = 1, .clusters = 5}));
  auto longDirectory = ImageCrafter(Bare(4)).Directory("D", 2).Chain({2, 4, 3}).InCluster(2);
  for (int i = 0; i < 40; ++i) longDirectory.File("F" + std::to_string(i));
  Save("directory-of-three-clusters", longDirectory);
  Save("directory-with-a-gap", ImageCrafter(Bare(3))
                                   .Directory("D", 2)
                                   .Chain({2, 3})
                                   .InCluster(2)
                                   .File("ONE")
                                   .InCluster(3)
                                   .File("TWO"));
}

void SaveOddImages() {
  Save("same-name-twice", ImageCrafter(Bare(3))
                              .Directory("docs", 2)
                              .Directory("DOCS", 3)
                              .File("A", {.firstCluster = 4, .size = 5})
                              .File("a", {.firstCluster = 3, .size = 5})
                              .InCluster(2)
                              .File("X")
                              .InCluster(3)
                              .File("x"));
  Save("separators-in-names", ImageCrafter(Bare(3))
                                  .Directory("/", 2)
                                  .Directory("A\\B/", 3)
                                  .File("A/B")
                                  .InCluster(2)
                                  .File("IN")
                                  .InCluster(3)
                                  .File("\\"));
  Save("directory-at-cluster-zero", ImageCrafter(Bare(1)).Directory("ZERO", 0).File("A"));
  Save("directory-twice",
       ImageCrafter(Bare(1)).Directory("ONE", 2).Directory("TWO", 2).InCluster(2));
  Save("file-over-directory", ImageCrafter(Bare(2))
                                  .Directory("D", 2)
                                  .File("F", {.firstCluster = 2, .size = 64})
                                  .InCluster(2)
                                  .File("IN", {.firstCluster = 2, .size = 512}));
  Save("label-in-subdirectory",
       ImageCrafter(Bare(1)).Directory("D", 2).InCluster(2).Label("INNERLABEL!"));
}

void SaveBrokenImages() {
  Save("directory-loop",
       ImageCrafter(Bare(2)).File("A").Directory("D", 2).Chain({2, 3}).FatWord(3, 2));
  Save("file-loop", ImageCrafter(Bare(2)).File("A", {.firstCluster = 2, .size = 9}).FatWord(2, 2));
  Save("file-beyond-the-end",
       ImageCrafter(Bare(2)).File("A", {.firstCluster = 2, .size = 9}).FatWord(2, 900));
  Save("directory-beyond-the-end", ImageCrafter(Bare(2)).Directory("D", 900));
  Save("root-beyond-the-end", ImageCrafter(Bare(1)).CutTo(1500));
  Save("boot-sector-cut", ImageCrafter().CutTo(1000));
  Save("too-small", ImageCrafter().CutTo(511));
  auto overlapping = ImageCrafter(Bare(6));
  overlapping.Directory("D", 2);
  for (std::uint16_t i = 2; i <= 7; ++i) {
    overlapping.InCluster(i);
    if (i < 7) overlapping.Directory("D", static_cast<std::uint16_t>(i + 1));
    for (int k = 0; k < 14; ++k) overlapping.File("F" + std::to_string(k));
  }
  Save("overlapping-directories", overlapping.Chain({2, 3, 4, 5, 6, 7}));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: browser_seeds FOLDER\n");
    return 2;
  }
  folder = argv[1];
  std::filesystem::create_directories(folder);
  SaveValidImages();
  SaveOddImages();
  SaveBrokenImages();
  return 0;
}
