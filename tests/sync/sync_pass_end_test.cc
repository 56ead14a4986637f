// How passes end: what each end leaves of the agreed state and of the image's stamp.

#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "support/child_process.h"
#include "support/image_crafter.h"
#include "sync/host_scan.h"
#include "sync/image_file_map.h"
#include "sync/sync_pass.h"
#include "sync/synced_disk.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::GuestEditor;
using test::RunInChild;

bool Equal(const VersionMap& a, const VersionMap& b) {
  if (a.size() != b.size()) return false;
  for (const auto& [key, version] : a) {
    const auto other = b.find(key);
    if (other == b.end()) return false;
    const FileVersion& v = other->second;
    if (std::tie(version.contentHash, version.modifiedStamp, version.size, version.firstCluster) !=
        std::tie(v.contentHash, v.modifiedStamp, v.size, v.firstCluster)) {
      return false;
    }
  }
  return true;
}

bool Equal(const SyncState& a, const SyncState& b) {
  return Equal(a.baseline, b.baseline) && a.lastImageWriteTime == b.lastImageWriteTime &&
         a.lastImageSize == b.lastImageSize && a.lastHostSignature == b.lastHostSignature;
}

// A builder that does what it is told instead of building.
class FakeBuilder : public IFatImageBuilder {
 public:
  explicit FakeBuilder(std::function<bool()> buildAction, std::uint64_t* askedSize = nullptr)
      : action(std::move(buildAction)), asked(askedSize) {}

  bool Build(const fs::path&, const fs::path&, std::uint64_t sizeBytes) override {
    if (asked != nullptr) *asked = sizeBytes;
    return action();
  }
  std::uint64_t MeasureFolderSize(const fs::path&) const override { return 0; }
  std::string LastError() const override { return "made up"; }
  std::vector<std::string> SkippedFiles() const override { return {}; }

 private:
  std::function<bool()> action;
  std::uint64_t* asked;
};

class PassEnd : public SyncedDisk {
 protected:
  void PassWithBuild(const std::function<bool()>& action) {
    RunSyncPass(Image(), Host(), state, [&] { return std::make_unique<FakeBuilder>(action); });
  }

  std::pair<VersionMap, std::uint64_t> ScanHost() const {
    HostSnapshot snapshot;
    std::string error;
    ScanHostFiles(Host(), snapshot, error);
    return {VersionsOf(snapshot), snapshot.signature};
  }

  VersionMap ListImage() const {
    FatContext context;
    std::string error;
    std::vector<DiskFile> files;
    VersionMap versions;
    EXPECT_TRUE(ParseFatContext(Image(), context, error) &&
                BuildImageFileMap(context, files, versions));
    return versions;
  }

  void ExpectStampReRead() const {
    EXPECT_EQ(state.lastImageWriteTime, fs::last_write_time(Image()));
    EXPECT_EQ(state.lastImageSize, fs::file_size(Image()));
  }

  void WriteInImage(std::string_view path, std::string_view content) {
    GuestEditor guest(Image());
    ASSERT_TRUE(guest.Write(path, content));
    guest.Save();
  }
};

TEST_F(PassEnd, FreshState_CanNeverEndAPassEarly) {
  EXPECT_EQ(state.lastImageWriteTime, fs::file_time_type::min());
  EXPECT_EQ(state.lastImageSize, 0u);
  EXPECT_EQ(state.lastHostSignature, 0u);
  EXPECT_TRUE(state.baseline.empty());
}

TEST_F(PassEnd, MissingImage_LeavesTheStateAsItWas) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  const SyncState before = state;
  folder.Remove("DISK.IMG").File("host/A.TXT", "new");
  Pass();
  EXPECT_TRUE(Equal(state, before));
}

// 200 directories on one chain: a walk over them is cut short.
test::ImageCrafter EndlessDisk() {
  test::ImageCrafter image({.rootEntryCount = 208, .sectorsPerFat = 4, .clusters = 1000});
  for (std::uint16_t i = 0; i < 200; ++i) {
    image.Directory("D" + std::to_string(i), static_cast<std::uint16_t>(2 + i));
  }
  for (std::uint16_t cluster = 2; cluster < 1002; ++cluster) {
    image.InCluster(cluster);
    for (char name = 'A'; name < 'A' + 16; ++name) image.File(std::string(1, name));
    image.FatWord(cluster, static_cast<std::uint16_t>(cluster + 1));
  }
  return image.FatWord(1001, 0xFFFF);
}

TEST_F(PassEnd, ImageThatCannotBeListedWhole_LeavesTheHostAndTheStateAsTheyWere) {
  folder.File("host/A.TXT", "a").File("host/B.TXT", "b");
  BuildAndAgree();
  const SyncState before = state;
  test::WriteBytes(Image(), EndlessDisk().Bytes());
  Pass();
  // What the listing lacks is no deletion.
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "a"}, {"B.TXT", "b"}}));
  EXPECT_TRUE(Equal(state, before));
}

// 500 files on one chain of 1 MB would be half a gigabyte on the host.
TEST_F(PassEnd, ImageWhoseFilesShareTheirClusters_IsNotCopiedOut) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  const SyncState before = state;
  test::ImageCrafter image({.rootEntryCount = 512, .sectorsPerFat = 8, .clusters = 2000});
  for (int i = 0; i < 500; ++i) {
    image.File("F" + std::to_string(i), {.firstCluster = 2, .size = 1'000'000});
  }
  for (std::uint16_t cluster = 2; cluster < 2001; ++cluster) {
    image.FatWord(cluster, static_cast<std::uint16_t>(cluster + 1));
  }
  test::WriteBytes(Image(), image.FatWord(2001, 0xFFFF).Bytes());
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "a"}}));
  EXPECT_TRUE(Equal(state, before));
}

TEST_F(PassEnd, FolderAsImage_LeavesTheStateAsItWas) {
  folder.Folder("DISK.IMG").File("host/A.TXT", "a");
  Pass();
  EXPECT_TRUE(Equal(state, SyncState()));
}

// A folder has a time and no size; the pass must end before it looks at the host.
TEST_F(PassEnd, ImageWithoutASize_LeavesTheHostUncreated) {
  folder.Folder("DISK.IMG");
  Pass();
  EXPECT_FALSE(folder.Exists("host"));
}

TEST_F(PassEnd, HostFolderThatCannotBeCreated_LeavesTheStateAsItWas) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  const SyncState before = state;
  folder.Remove("host").Link("host", "nowhere");
  WriteInImage("A.TXT", "from image");  // a pass that went on would take note of its stamp
  Pass();
  EXPECT_TRUE(Equal(state, before));
}

TEST_F(PassEnd, NothingChanged_DoesNotEvenReadTheImage) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  const SyncState before = state;
  const fs::file_time_type stamp = fs::last_write_time(Image());
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("A.TXT"));
  guest.Save();
  fs::last_write_time(Image(), stamp);  // as if nothing had happened

  Pass();

  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "a"}}));
  EXPECT_TRUE(Equal(state, before));
}

TEST_F(PassEnd, ImageOfAnotherTime_IsRead) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("A.TXT"));
  guest.Save();
  Pass();
  EXPECT_TRUE(OnHost().empty());
}

TEST_F(PassEnd, ImageOfAnotherSize_IsRead) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  const fs::file_time_type stamp = fs::last_write_time(Image());
  GuestEditor guest(Image());
  ASSERT_TRUE(guest.Remove("A.TXT"));
  guest.Save();
  fs::resize_file(Image(), kImageBytes + 512);
  fs::last_write_time(Image(), stamp);
  Pass();
  EXPECT_TRUE(OnHost().empty());
}

TEST_F(PassEnd, SecondPass_WritesNothing) {
  folder.File("host/A.TXT", "a").File("host/SUB/B.TXT", "b");
  BuildAndAgree();
  Pass();
  const auto image = test::ReadBytes(Image());
  const fs::file_time_type imageTime = fs::last_write_time(Image());
  const fs::file_time_type hostTime = fs::last_write_time(Host() / "A.TXT");

  Pass();

  EXPECT_EQ(test::ReadBytes(Image()), image);
  EXPECT_EQ(fs::last_write_time(Image()), imageTime);
  EXPECT_EQ(fs::last_write_time(Host() / "A.TXT"), hostTime);
}

TEST_F(PassEnd, ImageThatDoesNotParse_LeavesTheStateAsItWas) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  const SyncState before = state;
  folder.File("DISK.IMG", std::string(1024, 'x')).File("host/A.TXT", "new");
  Pass();
  EXPECT_TRUE(Equal(state, before));
  EXPECT_EQ(folder.Read("DISK.IMG"), std::string(1024, 'x'));
}

TEST_F(PassEnd, SuccessfulRebuild_AgreesOnTheNewImageAndTheFirstScan) {
  folder.File("host/A.TXT", "a").File("host/B.TXT", "b");
  BuildAndAgree();
  folder.File("host/A.TXT", "from host");
  WriteInImage("B.TXT", "from image");
  const std::uint64_t firstSignature = ScanHost().second;

  Pass();

  EXPECT_TRUE(Equal(state.baseline, ListImage()));
  EXPECT_NE(state.baseline.at("a.txt").firstCluster, 0u);
  EXPECT_EQ(state.lastHostSignature, firstSignature);
  EXPECT_NE(state.lastHostSignature, ScanHost().second);  // the copy came after the first scan
  ExpectStampReRead();
}

TEST_F(PassEnd, RebuiltImageThatDoesNotParse_KeepsTheAgreementAndReadsTheStamp) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  const SyncState before = state;
  folder.File("host/A.TXT", "new");

  PassWithBuild([&] {
    folder.File("DISK.IMG", std::string(1024, 'x'));
    return true;
  });

  EXPECT_TRUE(Equal(state.baseline, before.baseline));
  EXPECT_EQ(state.lastHostSignature, before.lastHostSignature);
  EXPECT_EQ(state.lastImageSize, 1024u);
  ExpectStampReRead();
}

TEST_F(PassEnd, RebuiltImageThatCannotBeListedWhole_KeepsTheAgreementAndReadsTheStamp) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  const SyncState before = state;
  folder.File("host/A.TXT", "new");

  PassWithBuild([&] {
    test::WriteBytes(Image(), EndlessDisk().Bytes());
    return true;
  });

  EXPECT_TRUE(Equal(state.baseline, before.baseline));
  EXPECT_EQ(state.lastHostSignature, before.lastHostSignature);
  ExpectStampReRead();
}

TEST_F(PassEnd, SizeForTheRebuild_IsThatOfThePasssBeginning) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  folder.File("host/A.TXT", "new");
  std::uint64_t asked = 0;
  RunSyncPass(Image(), Host(), state, [&] {
    fs::resize_file(Image(), 2 * kImageBytes);  // after the pass began, before it builds
    return std::make_unique<FakeBuilder>([] { return false; }, &asked);
  });
  EXPECT_EQ(asked, kImageBytes);
}

TEST_F(PassEnd, NoRebuild_AgreesOnTheHostAsItIsAfterTheCopies) {
  folder.File("host/A.TXT", "a").File("host/B.TXT", "b");
  BuildAndAgree();
  WriteInImage("B.TXT", "from image");

  Pass();

  const auto [versions, signature] = ScanHost();
  EXPECT_TRUE(Equal(state.baseline, versions));
  EXPECT_EQ(state.baseline.at("b.txt").modifiedStamp, 0u);  // in host units
  EXPECT_EQ(state.baseline.at("b.txt").firstCluster, 0u);
  EXPECT_EQ(state.lastHostSignature, signature);
  ExpectStampReRead();
}

TEST_F(PassEnd, FailedRebuild_AgreesOnTheHostAllTheSame) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  folder.File("host/BIG.BIN", std::string(kImageBytes, 'x'));
  const auto image = test::ReadBytes(Image());

  Pass();

  const auto [versions, signature] = ScanHost();
  EXPECT_TRUE(Equal(state.baseline, versions));
  EXPECT_EQ(state.lastHostSignature, signature);
  ExpectStampReRead();
  EXPECT_EQ(test::ReadBytes(Image()), image);
}

TEST_F(PassEnd, FailedRebuild_LetsALaterPassDeleteWhatNeverReachedTheImage) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  folder.File("host/BIG.BIN", std::string(kImageBytes, 'x'));
  Pass();
  Pass();
  EXPECT_TRUE(folder.Exists("host/BIG.BIN"));  // nothing changed, so nothing was decided
  WriteInImage("A.TXT", "new");

  Pass();

  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", "new"}}));
}

TEST_F(PassEnd, SecondScanThatFails_KeepsTheAgreementAndReadsTheStamp) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  const SyncState before = state;
  folder.File("host/A.TXT", "new");
  WriteInImage("OTHER.TXT", "o");

  PassWithBuild([&] {
    folder.Remove("host").Link("host", "nowhere");
    return false;
  });

  EXPECT_TRUE(Equal(state.baseline, before.baseline));
  EXPECT_EQ(state.lastHostSignature, before.lastHostSignature);
  EXPECT_NE(state.lastImageWriteTime, before.lastImageWriteTime);
  ExpectStampReRead();
}

TEST_F(PassEnd, ImageGoneAfterThePass_LeavesTheStampOfAFailedRead) {
  folder.File("host/A.TXT", "a");
  BuildAndAgree();
  folder.File("host/A.TXT", "new");

  PassWithBuild([&] {
    folder.Remove("DISK.IMG");
    return false;
  });

  EXPECT_EQ(state.lastImageWriteTime, fs::file_time_type::min());
  EXPECT_EQ(state.lastImageSize, 0xFFFFFFFFFFFFFFFFu);
}

TEST_F(PassEnd, ExceptionOfTheScan_LeavesThePassAndTheStateAsItWas) {
  folder.File("host/LOCKED/A.TXT", "a");
  BuildAndAgree();
  const SyncState before = state;
  folder.Forbidden("host/LOCKED");
  const int status = RunInChild({.dropRoot = true}, [&] {
    try {
      Pass();
    } catch (const fs::filesystem_error&) {
      return Equal(state, before) ? 0 : 2;
    }
    return 1;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
