#include "host/host_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::TempFolder;
using ::testing::HasSubstr;

const std::vector<std::uint8_t> kNew{'n', 'e', 'w'};

std::size_t CountEntries(const fs::path& folder) {
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

TEST(ReadHostFile, File_IsReadWhole) {
  TempFolder folder;
  folder.File("A", "content");
  std::vector<std::uint8_t> bytes;
  std::string err;
  EXPECT_TRUE(ReadHostFile(folder / "A", bytes, err));
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "content");
}

TEST(ReadHostFile, MissingFile_IsToldWithItsPath) {
  std::vector<std::uint8_t> bytes;
  std::string err;
  EXPECT_FALSE(ReadHostFile("/nonexistent/a.img", bytes, err));
  EXPECT_EQ(err, "cannot read /nonexistent/a.img: No such file or directory");
}

TEST(ReadHostFile, FolderOrPipe_IsRefused) {
  TempFolder folder;
  folder.Pipe("PIPE");
  std::vector<std::uint8_t> bytes;
  std::string err;
  EXPECT_FALSE(ReadHostFile(folder.Path(), bytes, err));
  EXPECT_THAT(err, HasSubstr("it is not a regular file"));
  EXPECT_FALSE(ReadHostFile(folder / "PIPE", bytes, err));
  EXPECT_THAT(err, HasSubstr("it is not a regular file"));
}

TEST(ReadHostFile, FileWhoseSizeSaysNothing_IsReadToItsEnd) {
  std::vector<std::uint8_t> bytes;
  std::string err;
  EXPECT_TRUE(ReadHostFile("/proc/sys/kernel/ostype", bytes, err)) << err;
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "Linux\n");
  EXPECT_TRUE(ReadHostFile("/proc/sys/kernel/ostype", bytes, err, {}, 3)) << err;
  EXPECT_EQ(bytes.size(), 3U);
}

TEST(ReadHostFile, FileThatChangesMeanwhile_IsNotTakenForWhole) {
  TempFolder folder;
  const auto cut = [&](std::uint64_t) { fs::resize_file(folder / "A", 3); };
  const auto grow = [&](std::uint64_t) { fs::resize_file(folder / "A", 30); };
  const auto touch = [&](std::uint64_t) {
    fs::last_write_time(folder / "A", fs::file_time_type() + std::chrono::hours(1));
  };
  for (const MovedBytes& change : {MovedBytes(cut), MovedBytes(grow), MovedBytes(touch)}) {
    folder.File("A", "content");
    std::vector<std::uint8_t> bytes;
    std::string err;
    EXPECT_FALSE(ReadHostFile(folder / "A", bytes, err, change));
    EXPECT_EQ(err, "cannot read " + (folder / "A").string() + ": it changed while it was read");
    EXPECT_TRUE(bytes.empty());
  }
}

TEST(WriteHostFile, NewFile_HasTheContentAndNothingElseIsLeft) {
  const TempFolder folder;
  std::string err;
  EXPECT_TRUE(WriteHostFile(folder / "A", kNew, err));
  EXPECT_EQ(folder.Read("A"), "new");
  EXPECT_EQ(CountEntries(folder.Path()), 1U);
}

TEST(WriteHostFile, NewFile_GetsTheModeThatTheMaskGives) {
  const TempFolder folder;
  const int status = test::RunInChild({}, [&] {
    ::umask(027);
    std::string err;
    return WriteHostFile(folder / "A", kNew, err) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(fs::status(folder / "A").permissions(), fs::perms{0640});
}

TEST(WriteHostFile, ReplacedFile_KeepsItsMode) {
  TempFolder folder;
  folder.File("A", "old");
  fs::permissions(folder / "A", fs::perms{0606});
  std::string err;
  EXPECT_TRUE(WriteHostFile(folder / "A", kNew, err));
  EXPECT_EQ(folder.Read("A"), "new");
  EXPECT_EQ(fs::status(folder / "A").permissions(), fs::perms{0606});
}

TEST(WriteHostFile, HardLink_KeepsTheOldContent) {
  TempFolder folder;
  folder.File("A", "old");
  fs::create_hard_link(folder / "A", folder / "B");
  std::string err;
  EXPECT_TRUE(WriteHostFile(folder / "A", kNew, err));
  EXPECT_EQ(folder.Read("B"), "old");
}

TEST(WriteHostFile, SymbolicLink_IsReplacedItself) {
  TempFolder folder;
  folder.File("A", "old").Link("LINK", "A");
  std::string err;
  EXPECT_TRUE(WriteHostFile(folder / "LINK", kNew, err));
  EXPECT_EQ(folder.Read("A"), "old");
  EXPECT_FALSE(fs::is_symlink(folder / "LINK"));
}

TEST(WriteHostFile, Device_IsRefused) {
  std::string err;
  EXPECT_FALSE(WriteHostFile("/dev/null", kNew, err));
  EXPECT_EQ(err, "cannot write /dev/null: it is not a regular file");
  EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST(WriteHostFile, MissingFolder_IsToldWithThePath) {
  std::string err;
  EXPECT_FALSE(WriteHostFile("/nonexistent/a", kNew, err));
  EXPECT_EQ(err, "cannot write /nonexistent/a: No such file or directory");
}

TEST(WriteHostFile, FullDisk_LeavesTheOldFileAndNothingElse) {
  TempFolder folder;
  folder.File("A", "old");
  const int status = test::RunInChild({.fileSizeLimit = 2}, [&] {
    std::string err;
    const bool written = WriteHostFile(folder / "A", kNew, err);
    return !written && err.find("File too large") != std::string::npos ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(folder.Read("A"), "old");
  EXPECT_EQ(CountEntries(folder.Path()), 1U);
}

TEST(WriteHostFile, NameOfFullLength_CanBeReplaced) {
  TempFolder folder;
  const std::string name(255, 'N');
  folder.File(name, "old");
  std::string err;
  EXPECT_TRUE(WriteHostFile(folder / name, kNew, err)) << err;
  EXPECT_EQ(folder.Read(name), "new");
}

TEST(WriteHostFile, NameWithoutAFolder_GoesToTheCurrentOne) {
  const TempFolder folder;
  const int status = test::RunInChild({}, [&] {
    fs::current_path(folder.Path());
    std::string err;
    return WriteHostFile("A", kNew, err) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(folder.Read("A"), "new");
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
