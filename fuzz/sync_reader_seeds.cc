// Writes the first inputs of sync_reader_fuzz into the folder given: small valid images, and some
// with one lie each. Run it after a change here, and commit what it writes.

#include <cstdio>
#include <filesystem>
#include <string>

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

ImageCrafter SixClusters() { return ImageCrafter({.clusters = 6}); }

void SaveValidImages() {
  Save("empty", SixClusters());
  Save(
      "files",
      SixClusters()
          .Label("SEED       ")
          .File("A.TXT", {.firstCluster = 2, .size = 600, .writeTime = 0x6000, .writeDate = 0x5A21})
          .File("EMPTY")
          .File("WHOLE", {.firstCluster = 5})
          .LongNameSlot()
          .DeletedSlot()
          .Chain({2, 3})
          .Chain({5}));
  Save("tree", SixClusters()
                   .Directory("SUB", 2)
                   .File("TOP", {.firstCluster = 4, .size = 9})
                   .InCluster(2)
                   .DotEntries(2, 0)
                   .Directory("DEEP", 3)
                   .File("S", {.firstCluster = 5, .size = 1})
                   .InCluster(3)
                   .DotEntries(3, 2)
                   .File("D")
                   .Chain({2})
                   .Chain({3})
                   .Chain({4})
                   .Chain({5}));
  Save("third-entry", ImageCrafter({.partitionSlot = 2, .startLba = 3, .clusters = 3})
                          .File("A", {.firstCluster = 2, .size = 3})
                          .Chain({2}));
  Save("odd-shape", ImageCrafter({.sectorsPerCluster = 3,
                                  .reservedSectors = 2,
                                  .fatCount = 1,
                                  .rootEntryCount = 5,
                                  .clusters = 2})
                        .File("A", {.firstCluster = 2, .size = 1537})
                        .Chain({2, 3}));
  Save("names-that-differ-in-case", SixClusters()
                                        .RawSlot("NAME    TXT", {.firstCluster = 2, .size = 1})
                                        .RawSlot("name    txt", {.firstCluster = 2, .size = 2})
                                        .Chain({2}));
}

void SaveBrokenImages() {
  Save("directory-loop", SixClusters()
                             .Directory("SUB", 2)
                             .InCluster(2)
                             .Directory("SUB", 2)
                             .Directory("ROOT", 0)
                             .File("F")
                             .Chain({2}));
  Save("chain-loop", SixClusters()
                         .File("L", {.firstCluster = 2, .size = 5000})
                         .Directory("D", 3)
                         .FatWord(2, 2)
                         .FatWord(3, 4)
                         .FatWord(4, 3));
  Save("shared-chain", SixClusters()
                           .File("A", {.firstCluster = 2, .size = 1})
                           .File("B", {.firstCluster = 2, .size = 513})
                           .File("C", {.firstCluster = 2})
                           .File("D", {.firstCluster = 3, .size = 9999})
                           .Chain({2, 3, 4}));
  Save("names-out-of-the-folder",
       SixClusters()
           .RawSlot("../../X    ", {.firstCluster = 2, .size = 1})
           .RawSlot("/          ", {.attributes = 0x10, .firstCluster = 2})
           .RawSlot("..         ", {})
           .RawSlot(" X      TXT", {})
           .RawSlot("...........", {})
           .Chain({2}));
  Save("no-root", ImageCrafter({.rootEntryCount = 0, .clusters = 1}));
  Save("no-partition-table", ImageCrafter({.partitioned = false, .clusters = 1}));
  Save("cut-short",
       SixClusters().File("A", {.firstCluster = 6, .size = 512}).Chain({6}).CutTo(9 * 512));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: sync_reader_seeds FOLDER\n");
    return 2;
  }
  folder = argv[1];
  std::filesystem::create_directories(folder);
  SaveValidImages();
  SaveBrokenImages();
  return 0;
}
