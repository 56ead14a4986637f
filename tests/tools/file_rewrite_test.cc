#include "disk/file_rewrite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <quorbix/virtdisk/virtdisk.h>

#include "browser/byte_source.h"
#include "program_run.h"
#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/instrumented.h"
#include "support/random_tree.h"
#include "support/sizes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::ImageCrafter;
using test::kMiB;
using test::ProgramRun;
using test::RunVirtdisk;
using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(RunsOf, NeighbouringClusters_AreOneRun) {
  const ImageCrafter crafter = ImageCrafter().Chain({2, 3, 4, 9, 8});
  internal::MemorySource source(crafter.Bytes());
  internal::VolumeIndex volume(source);
  std::string err;
  ASSERT_TRUE(volume.Parse(err)) << err;
  EXPECT_THAT(
      RunsOf({2, 3, 4, 9, 8}, volume.Chains()),
      ElementsAre(ByteRun{crafter.ClusterOffset(2), 1536}, ByteRun{crafter.ClusterOffset(9), 512},
                  ByteRun{crafter.ClusterOffset(8), 512}));
  EXPECT_TRUE(RunsOf({}, volume.Chains()).empty());
}

// An image with a file of three clusters that lie apart.
class PutFile : public ::testing::Test {
 protected:
  PutFile() {
    crafter.File("A.TXT", {.firstCluster = 7, .size = 1100}).Chain({7, 3, 4});
    crafter.Directory("SUB", 9).Chain({9}).InCluster(9).File("EMPTY");
    test::WriteBytes(folder / "disk.img", crafter.Bytes());
  }

  std::string Image() const { return (folder / "disk.img").string(); }

  ProgramRun Put(const std::string& path, const std::string& content,
                 std::vector<std::string> more = {}) {
    folder.File("new", content);
    more.insert(more.begin(), {"put", Image(), path, (folder / "new").string()});
    return RunVirtdisk(more);
  }

  TempFolder folder;
  ImageCrafter crafter;
};

TEST_F(PutFile, Content_FillsItsClustersInOrderAndZerosTheRest) {
  EXPECT_EQ(Put("a.txt", std::string(512, 'x') + "yz").status, 0);
  crafter.Fill(7, 'x').Fill(3, 0).Data(3, "yz").Fill(4, 0).U32(crafter.RootOffset() + 28, 514);
  EXPECT_EQ(test::ReadBytes(Image()), crafter.Bytes());
}

TEST_F(PutFile, ContentForFewerClusters_IsToldToLeaveSome) {
  EXPECT_THAT(Put("a.txt", std::string(1024, 'x')).err,
              HasSubstr("remark: a.txt in " + Image() + " keeps 1 cluster more than it needs"));
  EXPECT_EQ(Put("a.txt", std::string(1025, 'x')).err, "");
}

TEST_F(PutFile, InPlace_WritesTheSameBytesIntoTheSameFile) {
  fs::create_hard_link(Image(), folder / "held.img");
  EXPECT_EQ(Put("a.txt", "hello", {"--in-place"}).status, 0);
  crafter.Fill(7, 0).Data(7, "hello").Fill(3, 0).Fill(4, 0).U32(crafter.RootOffset() + 28, 5);
  EXPECT_EQ(test::ReadBytes(folder / "held.img"), crafter.Bytes());
}

TEST_F(PutFile, EmptyContentForAnEmptyFile_ChangesNothing) {
  EXPECT_EQ(Put("sub/empty", "").status, 0);
  EXPECT_EQ(test::ReadBytes(Image()), crafter.Bytes());
}

TEST_F(PutFile, Failure_LeavesTheImageAloneInEitherWay) {
  for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--in-place"}}) {
    EXPECT_EQ(Put("a.txt", std::string(1537, 'x'), more).status, 1);
    EXPECT_EQ(Put("sub/empty", "x", more).status, 1);
    EXPECT_EQ(Put("sub", "x", more).status, 1);
    EXPECT_EQ(test::ReadBytes(Image()), crafter.Bytes());
  }
}

TEST_F(PutFile, VolumeThatSaysFat12_IsRefusedUnlessForced) {
  for (std::size_t i = 0; i < 5; ++i) {
    crafter.Byte(512 + 54 + i, static_cast<std::uint8_t>("FAT12"[i]));
  }
  test::WriteBytes(Image(), crafter.Bytes());
  for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--in-place"}}) {
    const ProgramRun run = Put("a.txt", "hello", more);
    EXPECT_EQ(run.status, 3);
    EXPECT_THAT(run.err, HasSubstr("says FAT12"));
    EXPECT_EQ(test::ReadBytes(Image()), crafter.Bytes());
  }
  EXPECT_EQ(Put("a.txt", "hello", {"--force"}).status, 0);
}

// The chain of A.TXT, 7 -> 3 -> 4, meets something else.
void MeetADirectory(ImageCrafter& crafter) { crafter.FatWord(7, 9); }
void MeetAFile(ImageCrafter& crafter) {
  crafter.InRoot().File("B.TXT", {.firstCluster = 4, .size = 3});
}
void MeetTheMiddleOfAFile(ImageCrafter& crafter) {
  crafter.InRoot().File("B.TXT", {.firstCluster = 5, .size = 600}).FatWord(5, 3);
}
void MeetAHiddenFile(ImageCrafter& crafter) {
  crafter.InRoot().RawSlot("        PRO", {.firstCluster = 3, .size = 3});
}
void MeetALostChain(ImageCrafter& crafter) { crafter.FatWord(20, 4); }

TEST_F(PutFile, FileWhoseClustersOthersHaveToo_IsRefusedUnlessForced) {
  const ImageCrafter sound = crafter;
  for (const auto meet :
       {MeetADirectory, MeetAFile, MeetTheMiddleOfAFile, MeetAHiddenFile, MeetALostChain}) {
    crafter = sound;
    meet(crafter);
    test::WriteBytes(Image(), crafter.Bytes());
    for (const std::vector<std::string>& more : {std::vector<std::string>{}, {"--in-place"}}) {
      const ProgramRun run = Put("a.txt", "hello", more);
      EXPECT_EQ(run.status, 3);
      EXPECT_THAT(run.err, HasSubstr("a.txt in " + Image() + " shares clusters with another file"));
      EXPECT_EQ(test::ReadBytes(Image()), crafter.Bytes());
    }
  }
  EXPECT_EQ(Put("a.txt", "hello", {"--force"}).status, 0);
}

// The 90 clusters of the volume are 2 to 91; behind them lies something else.
TEST_F(PutFile, FileWithClustersOutsideOfTheVolume_IsRefusedUnlessForced) {
  for (const std::uint16_t last : {std::uint16_t{91}, std::uint16_t{92}}) {
    crafter = ImageCrafter({.trailingSectors = 4});
    crafter.U16(512 + 19, 94).U32(446 + 12, 94);
    crafter.File("A.TXT", {.firstCluster = 7, .size = 1000}).Chain({7, last});
    test::WriteBytes(Image(), crafter.Bytes());
    const ProgramRun run = Put("a.txt", std::string(1024, 'x'));
    EXPECT_EQ(run.status, last == 91 ? 0 : 3);
    if (last == 91) continue;
    EXPECT_THAT(run.err, HasSubstr("a.txt in " + Image() + " has clusters outside of the volume"));
    EXPECT_EQ(Put("a.txt", "x", {"--in-place"}).status, 3);
    EXPECT_EQ(test::ReadBytes(Image()), crafter.Bytes());
  }
  EXPECT_EQ(Put("a.txt", "x", {"--force"}).status, 0);
}

TEST_F(PutFile, Json_TellsWhatWasWritten) {
  const auto record = Put("a.txt", "hello", {"--json"}).Json();
  EXPECT_EQ(record["image"], Image());
  EXPECT_EQ(record["path"], "a.txt");
  EXPECT_EQ(record["bytes"], 5);
}

TEST_F(PutFile, LargeImage_IsNeitherHeldInMemoryNorFilledUp) {
  if (test::kInstrumented) GTEST_SKIP() << "a sanitizer's own memory goes beyond the limit";
  fs::resize_file(Image(), 2048 * kMiB);
  const int status = test::RunInChild({.addressSpaceLimit = 300 * kMiB}, [&] {
    return Put("a.txt", "hello").status + Put("a.txt", "world", {"--in-place"}).status;
  });
  EXPECT_EQ(status, 0);
  struct ::stat file {};
  ASSERT_EQ(::stat(Image().c_str(), &file), 0);
  EXPECT_EQ(static_cast<std::uint64_t>(file.st_size), 2048 * kMiB);
  EXPECT_LT(file.st_blocks * 512, 4 * 1024 * 1024);
}

TEST_F(PutFile, FullDiskDuringTheCopy_LeavesTheOldImageAndNothingElse) {
  std::ofstream(Image(), std::ios::app | std::ios::binary) << std::string(20 * kMiB, 'x');
  const std::vector<std::uint8_t> before = test::ReadBytes(Image());
  folder.File("new", "hello");
  const int status = test::RunInChild({.fileSizeLimit = 10 * kMiB}, [&] {
    return RunVirtdisk({"put", Image(), "a.txt", (folder / "new").string()}).status;
  });
  EXPECT_EQ(status, 1);
  EXPECT_EQ(test::ReadBytes(Image()), before);
  EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator()), 2);
}

// Up to the end of the file's last cluster.
TEST_F(PutFile, InPlaceBeyondALimitOnFiles_WritesNothingAndSaysSo) {
  const std::uint64_t end = crafter.ClusterOffset(8);
  folder.File("new", "hello");
  const auto put = [&] {
    return RunVirtdisk({"put", Image(), "a.txt", (folder / "new").string(), "--in-place"});
  };
  const int status = test::RunInChild({.fileSizeLimit = end - 1}, [&] {
    return put().err.find("File too large\n  Nothing was written") != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(test::ReadBytes(Image()), crafter.Bytes());
  EXPECT_EQ(test::RunInChild({.fileSizeLimit = end}, [&] { return put().status; }), 0);
}

// Its size is in its directory, behind it.
TEST_F(PutFile, InPlaceBelowALimitThatTheDirectoryIsBeyond_WritesNothing) {
  crafter.InCluster(9).File("B.TXT", {.firstCluster = 8, .size = 3}).Chain({8});
  test::WriteBytes(Image(), crafter.Bytes());
  folder.File("new", "hello");
  const int status = test::RunInChild({.fileSizeLimit = crafter.ClusterOffset(9)}, [&] {
    return RunVirtdisk({"put", Image(), "sub/b.txt", (folder / "new").string(), "--in-place"})
        .status;
  });
  EXPECT_EQ(status, 1);
  EXPECT_EQ(test::ReadBytes(Image()), crafter.Bytes());
}

TEST(PutAgreement, RandomFiles_AreRewrittenAsByTheLibrary) {
  const TempFolder folder;
  std::mt19937 random(7);
  test::MakeRandomTree(folder / "DISK", {.seed = 7, .directories = 6, .files = 40});
  const std::string disk = (folder / "disk.img").string();
  ASSERT_EQ(RunVirtdisk({"build", (folder / "DISK").string(), disk, "-q"}).status, 0);
  Fat16FsImage image;
  std::string err;
  ASSERT_TRUE(image.LoadFromBytes(test::ReadBytes(disk), err));
  std::vector<Fat16FsEntry> entries;
  ASSERT_TRUE(image.Search("/", entries, err));
  for (const Fat16FsEntry& entry : entries) {
    const std::vector<std::uint8_t> content(random() % (entry.size + 200), 'n');
    test::WriteBytes(folder / "new", content);
    const bool done = image.WriteExistingFile(entry.path, content, err);
    std::vector<std::string> arguments{"put", disk, entry.path, (folder / "new").string()};
    if (random() % 2 == 0) arguments.emplace_back("--in-place");
    const ProgramRun run = RunVirtdisk(arguments);
    EXPECT_EQ(run.status, done ? 0 : 1) << entry.path;
    EXPECT_THAT(run.err, HasSubstr(done ? "" : "virtdisk: " + err + "\n"));
    ASSERT_EQ(test::ReadBytes(disk), image.ImageBytes()) << entry.path;
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
