#include "sync/host_scan.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>

#include "support/child_process.h"
#include "support/memory_folder.h"
#include "support/search_effort.h"
#include "support/temp_folder.h"
#include "sync/hash_bytes.h"
#include "sync/known_hashes.h"
#include "sync/wait_until.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::RunInChild;
using test::TempFolder;
using testing::Pair;
using testing::UnorderedElementsAre;

struct Scan {
  explicit Scan(const fs::path& root) {
    HostSnapshot snapshot{.files = {{"old", "old", {}}}, .signature = 99};  // all of it must go
    ScanHostFiles(root, snapshot, error);
    versions = VersionsOf(snapshot);
    hostPaths = PathsOf(snapshot);
    signature = snapshot.signature;
  }

  VersionMap versions;
  PathMap hostPaths;
  std::uint64_t signature = 0;
  std::string error;
};

TEST(ScanHostFiles, File_HasHashSizeAndNoCluster) {
  TempFolder folder;
  folder.File("a.txt", "abc");
  const Scan scan(folder.Path());
  ASSERT_EQ(scan.versions.size(), 1u);
  const FileVersion& version = scan.versions.at("a.txt");
  EXPECT_EQ(version.contentHash, kHashOfAbc);
  EXPECT_EQ(version.size, 3u);
  EXPECT_EQ(version.firstCluster, 0u);
  EXPECT_EQ(scan.error, "");
}

TEST(ScanHostFiles, KeyIsLowered_PathKeepsItsCase) {
  TempFolder folder;
  folder.File("Sub/File.TXT");
  const Scan scan(folder.Path());
  EXPECT_THAT(scan.hostPaths, UnorderedElementsAre(Pair("sub/file.txt", "Sub/File.TXT")));
  EXPECT_TRUE(scan.versions.contains("sub/file.txt"));
}

TEST(ScanHostFiles, EmptyFile_HasTheHashOfNothing) {
  TempFolder folder;
  folder.File("e");
  const Scan scan(folder.Path());
  EXPECT_EQ(scan.versions.at("e").contentHash, kHashOfNothing);
  EXPECT_EQ(scan.versions.at("e").size, 0u);
}

TEST(ScanHostFiles, LongFile_IsHashedWhole) {
  TempFolder folder;
  std::vector<std::uint8_t> content(1'000'003);
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<std::uint8_t>(i * 7);
  folder.File("long", content);
  EXPECT_EQ(Scan(folder.Path()).versions.at("long").contentHash, HashBytes(content));
}

TEST(ScanHostFiles, ExactlyOneBufferful_IsHashedWhole) {
  TempFolder folder;
  const std::vector<std::uint8_t> content(256 * 1024, 5);
  folder.File("full", content);
  EXPECT_EQ(Scan(folder.Path()).versions.at("full").contentHash, HashBytes(content));
}

TEST(ScanHostFiles, FileBeyond4GiB_HasTheLargestSize) {
  if (!test::IsWholeSearch()) GTEST_SKIP() << "takes long; .ci/run search runs this";
  TempFolder folder;
  folder.File("huge");
  fs::resize_file(folder / "huge", (4ull << 30) + 5);  // sparse
  EXPECT_EQ(Scan(folder.Path()).versions.at("huge").size, 0xFFFFFFFFu);
}

TEST(ScanHostFiles, DotFiles_AreLeftOutByTheirOwnNameOnly) {
  TempFolder folder;
  folder.File(".hidden").File("sub/.cache").File(".git/config").File("a.b");
  const Scan scan(folder.Path());
  EXPECT_THAT(scan.hostPaths,
              UnorderedElementsAre(Pair(".git/config", ".git/config"), Pair("a.b", "a.b")));
}

TEST(ScanHostFiles, LeftoverTemporaryFile_IsTaken) {
  TempFolder folder;
  folder.File("notes.txt.quorbix_tmp");
  EXPECT_TRUE(Scan(folder.Path()).versions.contains("notes.txt.quorbix_tmp"));
}

TEST(ScanHostFiles, LinkToAFile_IsThatFileUnderTheLinksName) {
  TempFolder folder;
  folder.File("outside/target.bin", "abc").Link("host/Link.TXT", "../outside/target.bin");
  const Scan scan(folder / "host");
  EXPECT_THAT(scan.hostPaths, UnorderedElementsAre(Pair("link.txt", "Link.TXT")));
  EXPECT_EQ(scan.versions.at("link.txt").contentHash, kHashOfAbc);
}

TEST(ScanHostFiles, LinkToAFolder_IsNeitherFollowedNorListed) {
  TempFolder folder;
  folder.File("outside/a.txt").Link("host/link", "../outside").File("host/b.txt");
  EXPECT_THAT(Scan(folder / "host").hostPaths, UnorderedElementsAre(Pair("b.txt", "b.txt")));
}

TEST(ScanHostFiles, PipesAndLinksThatLeadNowhere_AreLeftOut) {
  TempFolder folder;
  folder.Pipe("pipe").Link("dangling", "nowhere").Link("self", "self").Link("dev", "/dev/null");
  const Scan scan(folder.Path());
  EXPECT_TRUE(scan.versions.empty());
  EXPECT_EQ(scan.signature, 0u);
  EXPECT_EQ(scan.error, "");
}

TEST(ScanHostFiles, EntriesAfterOneThatCannotBeQueried_AreStillTaken) {
  TempFolder folder;
  folder.Link("self", "self").Link("dangling", "nowhere").File("a").File("b").File("z");
  EXPECT_EQ(Scan(folder.Path()).versions.size(), 3u);
}

TEST(ScanHostFiles, FileThatEndsBeforeItsSize_IsLeftOutOfMapsAndSignature) {
  // Claims a page and holds a few bytes.
  constexpr char kShortFile[] = "/sys/kernel/fscaps";
  if (!fs::exists(kShortFile)) GTEST_SKIP() << kShortFile << " is not there";
  TempFolder folder;
  folder.Link("short", kShortFile);
  const Scan scan(folder.Path());
  EXPECT_TRUE(scan.versions.empty());
  EXPECT_TRUE(scan.hostPaths.empty());
  EXPECT_EQ(scan.signature, 0u);
}

TEST(ScanHostFiles, FileThatCannotBeOpened_IsLeftOut) {
  TempFolder folder;
  folder.File("a", "abc").File("locked", "abc").Forbidden("locked");
  const int status = RunInChild({.dropRoot = true}, [&] {
    const Scan scan(folder.Path());
    return scan.versions.size() == 1 && scan.versions.contains("a") && scan.error.empty() ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(ScanHostFiles, MissingFolder_IsCreatedWithItsParents) {
  TempFolder folder;
  const Scan scan(folder / "new/deep/host");
  EXPECT_TRUE(fs::is_directory(folder / "new/deep/host"));
  EXPECT_TRUE(scan.versions.empty());
  EXPECT_TRUE(scan.hostPaths.empty());
  EXPECT_EQ(scan.signature, 0u);
  EXPECT_EQ(scan.error, "");
}

TEST(ScanHostFiles, FolderBelowAFile_CannotBeCreated) {
  TempFolder folder;
  folder.File("file");
  const fs::path root = folder / "file/host";
  const Scan scan(root);
  EXPECT_EQ(scan.error, "Cannot create host folder: " + root.native() + " (Not a directory)");
  EXPECT_TRUE(scan.versions.empty());
  EXPECT_TRUE(scan.hostPaths.empty());
  EXPECT_EQ(scan.signature, 0u);
}

TEST(ScanHostFiles, DanglingLinkAsFolder_CannotBeCreated) {
  TempFolder folder;
  folder.Link("host", "nowhere");
  const Scan scan(folder / "host");
  EXPECT_THAT(scan.error, testing::StartsWith(
                              "Cannot create host folder: " + (folder / "host").native() + " ("));
}

TEST(ScanHostFiles, FileAsFolder_IsAnEmptyFolder) {
  TempFolder folder;
  folder.File("host", "abc");
  const Scan scan(folder / "host");
  EXPECT_TRUE(scan.versions.empty());
  EXPECT_EQ(scan.error, "");
}

TEST(ScanHostFiles, FolderThatCannotBeOpened_IsAnEmptyFolder) {
  TempFolder folder;
  folder.File("host/a").Forbidden("host");
  const int status = RunInChild({.dropRoot = true}, [&] {
    const Scan scan(folder / "host");
    return scan.versions.empty() && scan.signature == 0 && scan.error.empty() ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(ScanHostFiles, SubfolderThatCannotBeOpened_IsAnException) {
  TempFolder folder;
  folder.File("host/locked/a").Forbidden("host/locked");
  const int status = RunInChild({.dropRoot = true}, [&] {
    try {
      const Scan scan(folder / "host");
    } catch (const fs::filesystem_error& e) {
      return e.code() == std::errc::permission_denied ? 0 : 2;
    }
    return 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(ScanHostFiles, StampBefore2174_IsZero) {
  TempFolder folder;
  folder.File("a", "abc");
  EXPECT_EQ(Scan(folder.Path()).versions.at("a").modifiedStamp, 0u);
}

TEST(ScanHostFiles, StampAfter2174_IsItsNanoseconds) {
  TempFolder folder;
  folder.File("a.txt", "abc");
  const fs::file_time_type epoch{};
  fs::last_write_time(folder / "a.txt", epoch + std::chrono::seconds(5));
  const Scan scan(folder.Path());
  EXPECT_EQ(scan.versions.at("a.txt").modifiedStamp, 5'000'000'000u);
  EXPECT_EQ(scan.signature, 0x55FF96A6BAA38CDBu);
}

TEST(ScanHostFiles, StampThatTheFileClockCannotHold_IsZero) {
  TempFolder folder;
  folder.File("a", "abc");
  const ::timespec times[2] = {{10'000'000'000, 0}, {10'000'000'000, 0}};  // the year 2286
  ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "a").c_str(), times, 0), 0);
  std::error_code ec;
  static_cast<void>(fs::last_write_time(folder / "a", ec));
  if (!ec) GTEST_SKIP() << "this file system holds no such time";
  EXPECT_EQ(Scan(folder.Path()).versions.at("a").modifiedStamp, 0u);
}

TEST(ScanHostFiles, StampBefore1970_IsZero) {
  TempFolder folder;
  folder.File("a", "abc");
  const ::timespec times[2] = {{-1'000'000'000, 5}, {-1'000'000'000, 5}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (folder / "a").c_str(), times, 0), 0);
  EXPECT_EQ(Scan(folder.Path()).versions.at("a").modifiedStamp, 0u);
}

// The distance between the two clocks' epochs would carry it round to a huge positive count.
TEST(ScanHostFiles, StampLongBefore1970_IsZero) {
  const test::MemoryFolder folder;
  if (!folder.Usable()) GTEST_SKIP() << "no memory file system to write to";
  test::WriteWholeFile(folder.Path() / "a", "abc");
  const ::timespec times[2] = {{-9'000'000'000, 0}, {-9'000'000'000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (folder.Path() / "a").c_str(), times, 0), 0);
  struct ::stat status;
  ASSERT_EQ(::stat((folder.Path() / "a").c_str(), &status), 0);
  ASSERT_EQ(status.st_mtim.tv_sec, -9'000'000'000);
  EXPECT_EQ(Scan(folder.Path()).versions.at("a").modifiedStamp, 0u);
}

TEST(ScanHostFiles, StampJustBefore2174_IsZero) {
  TempFolder folder;
  folder.File("a", "abc");
  fs::last_write_time(folder / "a", fs::file_time_type{} - std::chrono::nanoseconds(1));
  EXPECT_EQ(Scan(folder.Path()).versions.at("a").modifiedStamp, 0u);
}

TEST(ScanHostFiles, TouchedFile_ChangesNothing) {
  TempFolder folder;
  folder.File("a", "abc");
  const Scan before(folder.Path());
  fs::last_write_time(folder / "a", fs::file_time_type::clock::now() + std::chrono::hours(1));
  const Scan after(folder.Path());
  EXPECT_EQ(after.signature, before.signature);
  EXPECT_EQ(after.versions.at("a").contentHash, before.versions.at("a").contentHash);
}

TEST(ScanHostFiles, SignatureOfOneFile_IsAsWorkedOutByHand) {
  TempFolder folder;
  folder.File("A.TXT", "abc");
  EXPECT_EQ(Scan(folder.Path()).signature, 0x55FF96A954A182DBu);
}

TEST(ScanHostFiles, SignatureOfTwoFiles_DependsOnTheirOrder) {
  TempFolder folder;
  folder.File("a.txt", "abc").File("sub/b.txt");
  fs::recursive_directory_iterator first(folder.Path());
  const bool fileFirst = first->path().filename() == "a.txt";
  EXPECT_EQ(Scan(folder.Path()).signature, fileFirst ? 0x80FE66DE31D6C949u : 0x7362ACB6ADC422FEu);
}

TEST(ScanHostFiles, SignatureOfAnUnchangedFolder_StaysTheSame) {
  TempFolder folder;
  for (int i = 0; i < 50; ++i) folder.File("d" + std::to_string(i % 7) + "/" + std::to_string(i));
  EXPECT_EQ(Scan(folder.Path()).signature, Scan(folder.Path()).signature);
}

TEST(ScanHostFiles, Signature_CoversContentAndName) {
  TempFolder a;
  TempFolder b;
  TempFolder c;
  const std::uint64_t original = Scan(a.File("a", "abc").Path()).signature;
  EXPECT_NE(Scan(b.File("a", "abd").Path()).signature, original);
  EXPECT_NE(Scan(c.File("b", "abc").Path()).signature, original);
}

TEST(ScanHostFiles, NamesThatDifferInCase_KeepTheLaterAndSignBoth) {
  TempFolder folder;
  folder.File("NAME", "NAME").File("name", "name");
  std::string last;
  for (const auto& entry : fs::directory_iterator(folder.Path())) last = entry.path().filename();
  const Scan scan(folder.Path());
  EXPECT_THAT(scan.hostPaths, UnorderedElementsAre(Pair("name", last)));
  const std::vector<std::uint8_t> content(last.begin(), last.end());
  EXPECT_EQ(scan.versions.at("name").contentHash, HashBytes(content));
  TempFolder alone;
  EXPECT_NE(scan.signature, Scan(alone.File("name", "abc").Path()).signature);
}

TEST(ScanHostFiles, TwoThousandFiles_LeaveNoDescriptorOpen) {
  TempFolder folder;
  for (int i = 0; i < 2000; ++i) {
    folder.File("d" + std::to_string(i % 40) + "/" + std::to_string(i), "abc");
  }
  const std::size_t descriptors = CountDescriptors();
  EXPECT_EQ(Scan(folder.Path()).versions.size(), 2000u);
  EXPECT_EQ(CountDescriptors(), descriptors);
}

TEST(ScanHostFiles, EarlierErrorText_IsNotCleared) {
  TempFolder folder;
  HostSnapshot snapshot;
  std::string error = "earlier";
  ScanHostFiles(folder.Path(), snapshot, error);
  EXPECT_EQ(error, "earlier");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
