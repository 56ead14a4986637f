#include "builder/tree_population.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/blank_disk.h"
#include "support/child_process.h"
#include "support/image_bytes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::BlankDisk;
using test::BytesOf;
using test::ImageCrafter;
using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A folder that is copied into the root of a disk of 65,536 bytes: 92 clusters of 512 bytes, the
// first file in cluster 2.
class TreePopulationTest : public testing::Test {
 protected:
  TreePopulationTest() {
    EXPECT_TRUE(image.Init(65536, err)) << err;
    image.WriteBootSector("", 0);
    image.SetVolumeLabel("");
    image.WriteMbr();
  }

  bool Populate() { return PopulateDir(image, 0, folder.Path(), err, skipped); }

  struct ToldKind {
    std::string name;
    EntryKind kind = EntryKind::kOther;
    std::error_code error = {};
  };

  // With a host that lists these entries in the top folder, and says of each what it is.
  bool PopulateTold(const std::vector<ToldKind>& entries) {
    HostQueries host;
    host.list = [&](const fs::path&) {
      FolderListing listing{.opened = true, .entries = {}, .error = {}};
      for (const ToldKind& told : entries) listing.entries.push_back({told.name});
      return listing;
    };
    host.ask = [&](const fs::path& path, fs::file_type) {
      const auto told = std::find_if(entries.begin(), entries.end(), [&](const ToldKind& entry) {
        return entry.name == path.filename();
      });
      return EntryAnswer{told->kind, told->error};
    };
    return PopulateDir(image, 0, folder.Path(), err, skipped, host);
  }

  // The names of the root's slots behind the label, as the eleven bytes on the disk.
  std::vector<std::string> RootNames() const {
    std::vector<std::string> names;
    for (std::size_t slot = 2048 + 32; image.Bytes()[slot] != 0; slot += 32) {
      const auto name = image.Bytes().subspan(slot, 11);
      names.emplace_back(name.begin(), name.end());
    }
    return names;
  }

  std::string At(const fs::path& rel) const { return (folder / rel).string(); }

  // The order in which the host lists the folder.
  std::vector<std::string> Listing() const {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder.Path())) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  TempFolder folder;
  Fat16Image image;
  std::string err;
  std::vector<std::string> skipped;
};

TEST_F(TreePopulationTest, EmptyFolder_LeavesOnlyTheLabelEntry) {
  EXPECT_TRUE(Populate());
  EXPECT_EQ(BytesOf(image), BlankDisk({}).Bytes());
  EXPECT_THAT(skipped, IsEmpty());
}

TEST_F(TreePopulationTest, NestedFolders_AreTheWholeImageByteForByte) {
  folder.File("docs/Old Stuff/readme.txt", std::string(600, 'r'));
  ASSERT_TRUE(Populate()) << err;
  ImageCrafter expected = BlankDisk({});
  expected.Directory("DOCS", 2);
  expected.Chain({2}).InCluster(2).DotEntries(2, 0).Directory("OLD_STUF   ", 3);
  expected.Chain({3}).InCluster(3).DotEntries(3, 2).File("README.TXT",
                                                         {.firstCluster = 4, .size = 600});
  expected.Chain({4, 5}).Fill(4, 'r').Fill(5, 0).Data(5, std::string(88, 'r'));
  EXPECT_EQ(BytesOf(image), expected.Bytes());
}

TEST_F(TreePopulationTest, Entries_KeepTheHostsListingOrder) {
  for (int i = 0; i < 20; ++i) folder.File("F" + std::to_string(i * 7919 % 20));
  ASSERT_TRUE(Populate()) << err;
  std::vector<std::string> expected;
  for (const std::string& name : Listing()) expected.push_back(test::PaddedName(name));
  EXPECT_EQ(RootNames(), expected);
}

TEST_F(TreePopulationTest, ADirectoryIsFilledBeforeItsNextSibling) {
  folder.File("A/X", "x").File("B/Y", "y");
  ASSERT_TRUE(Populate()) << err;
  // First directory 2, its file 3; second directory 4, its file 5.
  const std::string first = Listing().front();
  const auto data = image.Bytes().subspan(18432);
  EXPECT_EQ(data[512], first == "A" ? 'x' : 'y');
  EXPECT_EQ(data[3 * 512], first == "A" ? 'y' : 'x');
}

TEST_F(TreePopulationTest, FileOfZeroBytes_HasFirstClusterZeroAndSizeZero) {
  folder.File("empty.dat");
  ASSERT_TRUE(Populate()) << err;
  EXPECT_EQ(BytesOf(image), BlankDisk({}).File("EMPTY.DAT").Bytes());
}

TEST_F(TreePopulationTest, CollidingNames_TheFirstListedKeepsThePlainOne) {
  folder.File("Report.txt", "1").File("REPORT.TXT", "2");
  ASSERT_TRUE(Populate()) << err;
  EXPECT_THAT(RootNames(), ElementsAre("REPORT  TXT", "REPORT~1TXT"));
  const char firstListed = folder.Read(Listing().front())[0];
  EXPECT_EQ(image.Bytes()[18432], firstListed);
}

TEST_F(TreePopulationTest, TheSameNameInTwoFolders_IsPlainInBoth) {
  folder.File("A/F", "1").File("B/F", "2");
  ASSERT_TRUE(Populate()) << err;
  const auto nameInCluster = [&](std::size_t cluster) {
    const auto name = image.Bytes().subspan(18432 + (cluster - 2) * 512 + 64, 11);
    return std::string(name.begin(), name.end());
  };
  EXPECT_EQ(nameInCluster(2), "F          ");
  EXPECT_EQ(nameInCluster(4), "F          ");
}

TEST_F(TreePopulationTest, The101stNameThatMapsAlike_IsSkipped) {
  for (int i = 0; i < 101; ++i) folder.File("longname" + std::to_string(i) + ".txt");
  ASSERT_TRUE(Populate()) << err;
  EXPECT_EQ(RootNames().size(), 100u);
  EXPECT_THAT(skipped, ElementsAre(At(Listing().back()) + " [name not representable in 8.3]"));
}

TEST_F(TreePopulationTest, NamedPipe_IsPassedOverSilently) {
  folder.Pipe("pipe").File("f");
  ASSERT_TRUE(Populate()) << err;
  EXPECT_THAT(RootNames(), ElementsAre("F          "));
  EXPECT_THAT(skipped, IsEmpty());
}

TEST_F(TreePopulationTest, DanglingLink_IsPassedOverSilently) {
  folder.Link("dangling", "nowhere");
  ASSERT_TRUE(Populate()) << err;
  EXPECT_THAT(RootNames(), IsEmpty());
  EXPECT_THAT(skipped, IsEmpty());
}

TEST_F(TreePopulationTest, LinksToADeviceAndToAPipe_ArePassedOverSilently) {
  TempFolder elsewhere;
  elsewhere.Pipe("pipe");
  folder.Link("zero", "/dev/zero").Link("pipe", elsewhere / "pipe");
  ASSERT_TRUE(Populate()) << err;
  EXPECT_THAT(RootNames(), IsEmpty());
  EXPECT_THAT(skipped, IsEmpty());
}

TEST_F(TreePopulationTest, WhatIsPassedOver_UsesItsNameUp) {
  folder.File("SAME.TXT");
  ASSERT_TRUE(
      PopulateTold({{"same.txt", EntryKind::kOther}, {"SAME.TXT", EntryKind::kRegularFile}}));
  EXPECT_THAT(RootNames(), ElementsAre("SAME  ~1TXT"));
}

TEST_F(TreePopulationTest, WhatIsSkipped_UsesItsNameUp) {
  folder.File("SAME.TXT");
  ASSERT_TRUE(PopulateTold({{"same.txt", EntryKind::kRegularFile},  // gone by now
                            {"SAME.TXT", EntryKind::kRegularFile}}));
  EXPECT_THAT(RootNames(), ElementsAre("SAME  ~1TXT"));
}

TEST_F(TreePopulationTest, HundredPipesOfOneShortName_LeaveNoneForAFile) {
  std::vector<ToldKind> entries;
  for (int i = 0; i < 100; ++i) {
    entries.push_back({"longname" + std::to_string(i) + ".txt", EntryKind::kOther});
  }
  entries.push_back({"longname-late.txt", EntryKind::kRegularFile});
  folder.File("longname-late.txt");
  ASSERT_TRUE(PopulateTold(entries));
  EXPECT_THAT(RootNames(), IsEmpty());
  EXPECT_THAT(skipped, ElementsAre(At("longname-late.txt") + " [name not representable in 8.3]"));
}

TEST_F(TreePopulationTest, StatusThatFails_IsSkippedWithTheSystemsMessage) {
  ASSERT_TRUE(
      PopulateTold({{"odd", EntryKind::kStatusFailed, std::make_error_code(std::errc::io_error)}}));
  EXPECT_THAT(RootNames(), IsEmpty());
  EXPECT_THAT(skipped, ElementsAre(At("odd") + " [stat: Input/output error]"));
}

TEST_F(TreePopulationTest, LinkToAFile_IsCopiedUnderItsOwnName) {
  TempFolder elsewhere;
  elsewhere.File("target.bin", "linked");
  folder.Link("link.txt", elsewhere / "target.bin");
  ASSERT_TRUE(Populate()) << err;
  ImageCrafter expected = BlankDisk({});
  expected.File("LINK.TXT", {.firstCluster = 2, .size = 6}).Chain({2}).Fill(2, 0).Data(2, "linked");
  EXPECT_EQ(BytesOf(image), expected.Bytes());
}

TEST_F(TreePopulationTest, LinkToAFolder_IsCopiedAsAFolder) {
  TempFolder elsewhere;
  elsewhere.File("f");
  folder.Link("link", elsewhere.Path());
  ASSERT_TRUE(Populate()) << err;
  ImageCrafter expected = BlankDisk({});
  expected.Directory("LINK", 2).Chain({2}).InCluster(2).DotEntries(2, 0).File("F");
  EXPECT_EQ(BytesOf(image), expected.Bytes());
}

TEST_F(TreePopulationTest, LinkToItsOwnAncestor_FillsTheDisk) {
  folder.File("big", std::string(60 * 512, 'b')).Link("loop", ".");
  EXPECT_FALSE(Populate());
  EXPECT_THAT(err, testing::StartsWith("Disk full"));
}

TEST_F(TreePopulationTest, LinkLoopOnALargeDisk_EndsWhereTheHostStopsFollowing) {
  folder.Link("loop", ".");
  EXPECT_TRUE(Populate()) << err;
  EXPECT_THAT(skipped, IsEmpty());
}

TEST_F(TreePopulationTest, FileThatCannotBeReadAtAll_IsSkipped) {
  folder.Link("mem", "/proc/self/mem");
  EXPECT_TRUE(Populate());
  EXPECT_THAT(RootNames(), IsEmpty());
  EXPECT_THAT(skipped, ElementsAre(At("mem") +
                                   " [transient read error \xE2\x80\x94 file may have changed]"));
}

TEST_F(TreePopulationTest, FileWhoseMetadataSaySizeZero_IsCopiedWithItsContent) {
  folder.Link("limits.txt", "/proc/self/limits");
  ASSERT_TRUE(Populate()) << err;
  const auto data = image.Bytes().subspan(18432, 5);
  EXPECT_EQ(std::string(data.begin(), data.end()), "Limit");
  EXPECT_GT(image.Bytes()[2048 + 32 + 29], 0) << "the size's second byte";
}

TEST_F(TreePopulationTest, UnreadableFile_IsSkipped) {
  folder.File("ok", "1").File("secret", "2").Forbidden("secret");
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    if (!Populate()) return 1;
    if (skipped !=
        std::vector<std::string>{At("secret") +
                                 " [transient read error \xE2\x80\x94 file may have changed]"}) {
      return 2;
    }
    return RootNames() == std::vector<std::string>{"OK         "} ? 0 : 3;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(TreePopulationTest, UnreadableFolder_CostsItsContentsOnly) {
  folder.File("closed/inner", "1").Forbidden("closed");
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    if (!Populate()) return 1;
    if (skipped != std::vector<std::string>{At("closed") + " [dir-iter: Permission denied]"}) {
      return 2;
    }
    return RootNames() == std::vector<std::string>{"CLOSED     "} ? 0 : 3;
  });
  fs::permissions(folder / "closed", fs::perms::owner_all);
  EXPECT_EQ(status, 0);
}

TEST_F(TreePopulationTest, MissingTopFolder_IsSkippedAndSucceeds) {
  folder.Remove("");
  EXPECT_TRUE(Populate());
  EXPECT_THAT(skipped,
              ElementsAre(folder.Path().string() + " [dir-iter: No such file or directory]"));
}

TEST_F(TreePopulationTest, SkippedPaths_AreThoseTheIteratorGives) {
  folder.Link("sub/mem", "/proc/self/mem");
  ASSERT_TRUE(PopulateDir(image, 0, folder.Path() / "sub" / "..", err, skipped));
  EXPECT_THAT(skipped, ElementsAre((folder.Path() / "sub" / ".." / "sub" / "mem").string() +
                                   " [transient read error \xE2\x80\x94 file may have changed]"));
}

TEST_F(TreePopulationTest, FileThatDoesNotFit_FailsWithTheImagesMessage) {
  folder.File("big", std::string(92 * 512 + 1, 'b'));
  EXPECT_FALSE(Populate());
  EXPECT_EQ(err, "Disk full while writing file");
}

TEST_F(TreePopulationTest, FolderThatDoesNotFit_FailsWithTheImagesMessage) {
  while (image.AllocCluster() != 0) continue;
  folder.Folder("sub");
  EXPECT_FALSE(Populate());
  EXPECT_EQ(err, "Disk full");
}

TEST_F(TreePopulationTest, FileThatFindsTheRootFull_Fails) {
  for (int i = 0; i < 511; ++i) ASSERT_NE(image.AddFile(0, "TAKEN", nullptr, 0, err), 0);
  folder.File("f", "x");
  EXPECT_FALSE(Populate());
  EXPECT_EQ(err, "Root directory is full");
}

TEST_F(TreePopulationTest, EmptyFileThatFindsTheRootFull_IsDroppedAndTheMessageStays) {
  for (int i = 0; i < 511; ++i) ASSERT_NE(image.AddFile(0, "TAKEN", nullptr, 0, err), 0);
  folder.File("f");
  EXPECT_TRUE(Populate());
  EXPECT_EQ(err, "Root directory is full");
  EXPECT_THAT(skipped, IsEmpty());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
