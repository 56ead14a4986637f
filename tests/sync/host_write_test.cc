#include "sync/host_write.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>

#include <chrono>

#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::RunInChild;
using test::TempFolder;

std::vector<std::uint8_t> Bytes(std::string_view text) { return {text.begin(), text.end()}; }

std::string WriteError(const fs::path& target, std::string_view content) {
  std::string err = "earlier text";
  EXPECT_FALSE(WriteFileAtomically(target, Bytes(content), err));
  return err;
}

TEST(WriteFileAtomically, NewFile_GetsTheBytesAndLeavesNoTemporary) {
  TempFolder folder;
  std::string err = "earlier text";
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_EQ(folder.Files(), (std::map<std::string, std::string>{{"A.TXT", "new"}}));
  EXPECT_EQ(err, "earlier text");
}

TEST(WriteFileAtomically, ExistingFile_IsReplaced) {
  TempFolder folder;
  folder.File("A.TXT", "old and longer");
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_EQ(folder.Read("A.TXT"), "new");
}

TEST(WriteFileAtomically, OpenReader_KeepsTheOldFile) {
  TempFolder folder;
  folder.File("A.TXT", "old").Folder("x");
  fs::create_hard_link(folder / "A.TXT", folder / "held");
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_EQ(folder.Read("held"), "old");
}

TEST(WriteFileAtomically, MissingFolders_AreCreated) {
  TempFolder folder;
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "a/b/c/D.TXT", Bytes("new"), err));
  EXPECT_EQ(folder.Read("a/b/c/D.TXT"), "new");
}

TEST(WriteFileAtomically, NoBytes_MakeAnEmptyFile) {
  TempFolder folder;
  folder.File("OLD.TXT", "old");
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "NEW.TXT", {}, err));
  EXPECT_TRUE(WriteFileAtomically(folder / "OLD.TXT", {}, err));
  EXPECT_EQ(folder.Files(), (std::map<std::string, std::string>{{"NEW.TXT", ""}, {"OLD.TXT", ""}}));
}

TEST(WriteFileAtomically, LeftoverTemporary_IsTruncatedAndUsed) {
  TempFolder folder;
  folder.File("A.TXT.quorbix_tmp", "a longer leftover");
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_EQ(folder.Files(), (std::map<std::string, std::string>{{"A.TXT", "new"}}));
}

TEST(WriteFileAtomically, WrittenFile_CarriesTheTimeOfTheWrite) {
  TempFolder folder;
  folder.File("A.TXT", "old");
  fs::last_write_time(folder / "A.TXT",
                      fs::file_time_type::clock::now() - std::chrono::hours(1000));
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_LT(fs::file_time_type::clock::now() - fs::last_write_time(folder / "A.TXT"),
            std::chrono::hours(1));
}

TEST(WriteFileAtomically, LinkAsTarget_IsReplacedItself) {
  TempFolder folder;
  folder.File("outside", "old").Link("link", "outside");
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "link", Bytes("new"), err));
  EXPECT_EQ(folder.Read("outside"), "old");
  EXPECT_FALSE(fs::is_symlink(folder / "link"));
}

TEST(WriteFileAtomically, FolderBelowAFile_CannotBeCreated) {
  TempFolder folder;
  folder.File("file", "old");
  EXPECT_EQ(WriteError(folder / "file/A.TXT", "new"),
            "create_directories failed: " + (folder / "file").native() + " (Not a directory)");
  EXPECT_EQ(folder.Read("file"), "old");
}

TEST(WriteFileAtomically, FolderInTheTemporarysPlace_CannotBeOpened) {
  TempFolder folder;
  folder.File("A.TXT", "old").Folder("A.TXT.quorbix_tmp");
  EXPECT_EQ(WriteError(folder / "A.TXT", "new"),
            "Cannot open temp file: " + (folder / "A.TXT").native() + ".quorbix_tmp");
  EXPECT_EQ(folder.Read("A.TXT"), "old");
}

TEST(WriteFileAtomically, EmptyFolderInTheTargetsPlace_IsReplaced) {
  TempFolder folder;
  folder.Folder("A.TXT");
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_EQ(folder.Read("A.TXT"), "new");
}

TEST(WriteFileAtomically, FullFolderInTheTargetsPlace_FailsAndTellsOfTheRemoval) {
  TempFolder folder;
  folder.File("A.TXT/inside", "old");
  const std::string target = (folder / "A.TXT").native();
  EXPECT_EQ(WriteError(target, "new"),
            "rename failed: " + target + ".quorbix_tmp -> " + target + " (Success)");
  EXPECT_EQ(folder.Files(), (std::map<std::string, std::string>{{"A.TXT/inside", "old"}}));
}

// Exit statuses: 0 as it should be, 1 no failure, 2 another message, 3 the target changed, 4 no
// temporary file.
int ExpectWriteFailed(const fs::path& target, const std::vector<std::uint8_t>& bytes) {
  std::string err;
  if (WriteFileAtomically(target, bytes, err)) return 1;
  if (err != "Write failed: " + target.native() + ".quorbix_tmp") return 2;
  if (test::ReadWholeFile(target) != "old") return 3;
  return fs::exists(target.native() + ".quorbix_tmp") ? 0 : 4;
}

TEST(WriteFileAtomically, TenBytesOverTheSizeLimit_FailAtTheWrite) {
  TempFolder folder;
  folder.File("A.TXT", "old");
  const int status = RunInChild({.fileSizeLimit = 0}, [&] {
    return ExpectWriteFailed(folder / "A.TXT", Bytes("ten bytes."));
  });
  EXPECT_EQ(status, 0);
}

TEST(WriteFileAtomically, LongFileOverTheSizeLimit_FailsAtTheWrite) {
  TempFolder folder;
  folder.File("A.TXT", "old");
  const int status = RunInChild({.fileSizeLimit = 100'000}, [&] {
    return ExpectWriteFailed(folder / "A.TXT", std::vector<std::uint8_t>(300'000, 1));
  });
  EXPECT_EQ(status, 0);
}

constexpr int kCannotMount = 77;

// Writes into a memory file system of four pages, all of them taken.
int WriteIntoFullDisk(const fs::path& mountPoint, std::size_t bytes) {
  if (::unshare(CLONE_NEWNS) != 0) return kCannotMount;
  if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return kCannotMount;
  if (::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=16k") != 0) return kCannotMount;
  test::WriteWholeFile(mountPoint / "A.TXT", "old");
  test::WriteWholeFile(mountPoint / "FILL", std::string(3 * 4096, 'x'));
  return ExpectWriteFailed(mountPoint / "A.TXT", std::vector<std::uint8_t>(bytes, 1));
}

TEST(WriteFileAtomically, TenBytesOnAFullDisk_FailAtTheWrite) {
  TempFolder folder;
  folder.Folder("mnt");
  const int status = RunInChild({}, [&] { return WriteIntoFullDisk(folder / "mnt", 10); });
  if (status == kCannotMount) GTEST_SKIP() << "no right to mount a memory file system";
  EXPECT_EQ(status, 0);
}

TEST(WriteFileAtomically, LongFileOnAFullDisk_FailsAtTheWrite) {
  TempFolder folder;
  folder.Folder("mnt");
  const int status = RunInChild({}, [&] { return WriteIntoFullDisk(folder / "mnt", 100'000); });
  if (status == kCannotMount) GTEST_SKIP() << "no right to mount a memory file system";
  EXPECT_EQ(status, 0);
}

TEST(WriteFileAtomically, ForbiddenFolder_CannotTakeTheTemporary) {
  TempFolder folder;
  folder.File("host/A.TXT", "old");
  const fs::path target = folder / "host/A.TXT";
  const int status = RunInChild({.dropRoot = true}, [&] {
    std::string err;
    const bool written = WriteFileAtomically(target, Bytes("new"), err);
    return !written && err == "Cannot open temp file: " + target.native() + ".quorbix_tmp" ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(folder.Read("host/A.TXT"), "old");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
