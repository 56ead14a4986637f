#include "sync/host_write.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

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

// Exit statuses: 0 as it should be, 1 no failure, 2 another message, 3 the target changed, 4 no
// temporary file.
int ExpectWriteFailed(const fs::path& target, const std::vector<std::uint8_t>& bytes) {
  std::string err;
  if (WriteFileAtomically(target, bytes, err)) return 1;
  if (err != "Write failed: " + target.native() + ".quorbix_tmp") return 2;
  if (test::ReadWholeFile(target) != "old") return 3;
  return fs::exists(target.native() + ".quorbix_tmp") ? 0 : 4;
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

TEST(WriteFileAtomically, LinkInTheTemporarysPlace_IsNotWrittenThrough) {
  TempFolder folder;
  folder.File("outside", "theirs").Link("A.TXT.quorbix_tmp", "outside");
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_EQ(folder.Files(),
            (std::map<std::string, std::string>{{"A.TXT", "new"}, {"outside", "theirs"}}));
  EXPECT_FALSE(fs::is_symlink(folder / "A.TXT"));
}

TEST(WriteFileAtomically, DanglingLinkInTheTemporarysPlace_CreatesNothingElsewhere) {
  TempFolder folder;
  folder.Link("A.TXT.quorbix_tmp", "elsewhere");
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_EQ(folder.Files(), (std::map<std::string, std::string>{{"A.TXT", "new"}}));
}

TEST(WriteFileAtomically, LinkToAFolderInTheTemporarysPlace_IsRemovedItself) {
  TempFolder folder;
  folder.File("sub/F", "theirs").Link("A.TXT.quorbix_tmp", "sub");
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_EQ(folder.Files(),
            (std::map<std::string, std::string>{{"A.TXT", "new"}, {"sub/F", "theirs"}}));
}

// Would wait for a reader: the alarm ends it.
TEST(WriteFileAtomically, PipeInTheTemporarysPlace_IsNotWaitedAt) {
  TempFolder folder;
  folder.Pipe("A.TXT.quorbix_tmp");
  const int status = RunInChild({}, [&] {
    ::alarm(20);
    std::string err;
    return WriteFileAtomically(folder / "A.TXT", Bytes("new"), err) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(folder.Files(), (std::map<std::string, std::string>{{"A.TXT", "new"}}));
}

TEST(WriteFileAtomically, DeviceInTheTemporarysPlace_IsNotWrittenTo) {
  TempFolder folder;
  const std::string device = (folder / "A.TXT.quorbix_tmp").string();
  if (::mknod(device.c_str(), S_IFCHR | 0600, makedev(1, 3)) != 0) {
    GTEST_SKIP() << "no right to make a device";
  }
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_EQ(folder.Files(), (std::map<std::string, std::string>{{"A.TXT", "new"}}));
}

unsigned ModeOfFile(const fs::path& path) {
  return static_cast<unsigned>(fs::status(path).permissions()) & 07777u;
}

TEST(WriteFileAtomically, ReplacedFile_HandsItsPermissionsOn) {
  TempFolder folder;
  for (const unsigned mode : {0600u, 0640u, 0755u, 0666u}) {
    folder.File("A.TXT", "old");
    fs::permissions(folder / "A.TXT", fs::perms{mode});
    std::string err;
    EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
    EXPECT_EQ(ModeOfFile(folder / "A.TXT"), mode);
  }
}

TEST(WriteFileAtomically, ReplacedFile_DoesNotHandOnTheRightsOfItsOwner) {
  TempFolder folder;
  folder.File("A.TXT", "old");
  fs::permissions(folder / "A.TXT", fs::perms{06755});
  std::string err;
  EXPECT_TRUE(WriteFileAtomically(folder / "A.TXT", Bytes("new"), err));
  EXPECT_EQ(ModeOfFile(folder / "A.TXT"), 0755u);
}

TEST(WriteFileAtomically, NewFile_HasThePermissionsOfTheProcesssMask) {
  TempFolder folder;
  const int status = RunInChild({}, [&] {
    ::umask(027);
    std::string err;
    return WriteFileAtomically(folder / "A.TXT", Bytes("new"), err) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ModeOfFile(folder / "A.TXT"), 0640u);
}

TEST(WriteFileAtomically, TemporaryOfAPrivateFile_IsPrivateToo) {
  TempFolder folder;
  folder.File("A.TXT", "old").File("A.TXT.quorbix_tmp", "a leftover that all may read");
  fs::permissions(folder / "A.TXT", fs::perms{0600});
  const int status = RunInChild({.fileSizeLimit = 0}, [&] {
    return ExpectWriteFailed(folder / "A.TXT", Bytes("ten bytes."));
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(ModeOfFile(folder / "A.TXT.quorbix_tmp"), 0600u);
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
