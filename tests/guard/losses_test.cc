// Losses by sides that are gone, replaced, cut short, full or read-only, and while nothing ran.

#include "guard/losses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "support/child_process.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using enum GuardedOutcome;
using enum GuardedHazard;

TEST_F(Losses, EditWhileNothingRan_PlainOverwritesIt) {
  BuildUsual();
  PlainPass();
  RestartPlain();
  folder.File("host/A.TXT", "edited");
  PlainPass();
  EXPECT_EQ(OnHost().at("A.TXT"), "a");
}

TEST_F(Losses, EditWhileNothingRan_GuardedCarriesItOver) {
  BuildUsual();
  Pass();
  folder.File("host/A.TXT", "edited");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost().at("A.TXT"), "edited");
  EXPECT_EQ(OnDisk().at("A.TXT"), "edited");
}

TEST_F(Losses, DeletionWhileNothingRan_PlainBringsItBack) {
  BuildUsual();
  PlainPass();
  RestartPlain();
  folder.Remove("host/A.TXT");
  PlainPass();
  EXPECT_EQ(OnHost().at("A.TXT"), "a");
}

TEST_F(Losses, DeletionWhileNothingRan_GuardedCarriesItOver) {
  BuildUsual();
  Pass();
  folder.Remove("host/A.TXT");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_THAT(OnHost(), Not(Contains(testing::Pair("A.TXT", "a"))));
  EXPECT_THAT(OnDisk(), Not(Contains(testing::Pair("A.TXT", "a"))));
}

// The FATs and the directories are there, the files are not.
constexpr std::uint64_t kCutBytes = std::uint64_t{100} * 1024;

TEST_F(Losses, ImageCutShort_PlainDeletesTheFolder) {
  folder.File("host/A.TXT", std::string(200000, 'a')).File("host/B.TXT", std::string(90000, 'b'));
  BuildImage(std::uint64_t{4} << 20);
  PlainPass();
  fs::resize_file(Image(), kCutBytes);
  PlainPass();
  EXPECT_THAT(OnHost(), Not(Contains(testing::Pair("A.TXT", std::string(200000, 'a')))));
}

TEST_F(Losses, ImageCutShort_GuardedRefuses) {
  folder.File("host/A.TXT", std::string(200000, 'a')).File("host/B.TXT", std::string(90000, 'b'));
  BuildAndAgree(std::uint64_t{4} << 20);
  const FileTree before = OnHost();
  fs::resize_file(Image(), kCutBytes);
  const GuardedReport report = Pass({kImageUnsound, kImageResized, kImageReplaced});
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(TextOf(report, kImageCutShort), HasSubstr("Repair the image, or bring back"));
  EXPECT_EQ(OnHost(), before);
  EXPECT_EQ(fs::file_size(Image()), kCutBytes);
}

TEST_F(Losses, AnotherDisk_PlainDeletesTheFolder) {
  BuildUsual();
  PlainPass();
  folder.Folder("other");
  ASSERT_TRUE(CreateFat16Builder()->Build(folder / "other", Image(), kImageBytes));
  PlainPass();
  EXPECT_THAT(OnHost(), IsEmpty());
}

TEST_F(Losses, AnotherDisk_GuardedRefusesAndDeletesNothingWhenAccepted) {
  BuildUsual();
  Pass();
  folder.File("other/NEW.TXT", "n");
  ASSERT_TRUE(CreateFat16Builder()->Build(folder / "other", Image(), kImageBytes));
  GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(TextOf(report, kImageReplaced), HasSubstr("another disk than last time"));
  EXPECT_THAT(OnHost(), SizeIs(3));
  EXPECT_EQ(Pass({kImageReplaced}).outcome, kDone);
  EXPECT_THAT(OnHost(), SizeIs(4));
  EXPECT_THAT(OnDisk(), SizeIs(4));
}

// No pass has made an image since: the id is the same.
TEST_F(Losses, BackupOfTheDisk_GuardedRefusesAndDeletesNothingWhenAccepted) {
  BuildUsual();
  Pass();
  fs::copy_file(Image(), folder / "BACKUP.IMG");
  const auto hourAgo = fs::file_time_type::clock::now() - std::chrono::hours(1);
  fs::last_write_time(folder / "BACKUP.IMG", hourAgo);
  GuestWrites("NEW.TXT", "n");
  GuestWrites("A.TXT", "of the guest");
  ASSERT_EQ(Pass().outcome, kDone);
  fs::rename(folder / "BACKUP.IMG", Image());
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(TextOf(report, kImageReplaced), HasSubstr("is older than last time"));
  EXPECT_EQ(Pass({kImageReplaced}).outcome, kDone);
  EXPECT_EQ(OnHost().at("NEW.TXT"), "n");
  EXPECT_EQ(OnHost().at("A.TXT"), "of the guest");
  EXPECT_EQ(OnHost(), OnDisk());
}

TEST_F(Losses, DiskFromTheFuture_IsNotTakenForABackupWhenTheClockIsRight) {
  BuildUsual();
  const auto inAnHour = fs::file_time_type::clock::now() + std::chrono::hours(1);
  fs::last_write_time(Image(), inAnHour);
  Pass();
  GuestWrites("NEW.TXT", "n");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost().at("NEW.TXT"), "n");
}

TEST_F(Losses, BackupOfTheDisk_PlainDeletesWhatCameAfterIt) {
  BuildUsual();
  PlainPass();
  fs::copy_file(Image(), folder / "BACKUP.IMG");
  GuestWrites("NEW.TXT", "n");
  PlainPass();
  ASSERT_EQ(OnHost().at("NEW.TXT"), "n");
  fs::rename(folder / "BACKUP.IMG", Image());
  PlainPass();
  EXPECT_FALSE(folder.Exists("host/NEW.TXT"));
}

TEST_F(Losses, FolderRenamedAway_PlainWipesTheDisk) {
  BuildUsual();
  PlainPass();
  fs::rename(Host(), folder / "moved");
  PlainPass();
  EXPECT_THAT(OnDisk(), IsEmpty());
}

TEST_F(Losses, FolderRenamedAway_GuardedRefuses) {
  BuildUsual();
  Pass();
  fs::rename(Host(), folder / "moved");
  GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(TextOf(report, kFolderMissing),
              HasSubstr("everything would be deleted from the disk"));
  EXPECT_THAT(OnDisk(), SizeIs(3));
  EXPECT_FALSE(folder.Exists("host"));
  EXPECT_EQ(Pass({kFolderMissing}).outcome, kDone);
  EXPECT_EQ(OnHost(), OnDisk());
}

TEST_F(Losses, FolderEmptied_PlainWipesTheDisk) {
  BuildUsual();
  PlainPass();
  folder.Remove("host/A.TXT").Remove("host/B.TXT").Remove("host/SUB");
  PlainPass();
  EXPECT_THAT(OnDisk(), IsEmpty());
}

TEST_F(Losses, FolderEmptied_GuardedRefuses) {
  BuildUsual();
  Pass();
  folder.Remove("host/A.TXT").Remove("host/B.TXT").Remove("host/SUB");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(TextOf(report, kFolderEmpty), HasSubstr("is empty, and had 3 files in step"));
  EXPECT_THAT(OnDisk(), SizeIs(3));
  EXPECT_EQ(Pass({kFolderEmpty}).outcome, kDone);
  EXPECT_THAT(OnDisk(), IsEmpty());
}

void MakeSixHundredFiles(test::TempFolder& folder) {
  for (int i = 0; i < 600; ++i) folder.File("host/F" + std::to_string(i) + ".TXT", "x");
}

TEST_F(Losses, MoreFilesThanTheRootTakes_PlainDeletesThemLater) {
  BuildUsual();
  PlainPass();
  MakeSixHundredFiles(folder);
  PlainPass();
  GuestWrites("GUEST.TXT", "g");
  PlainPass();
  EXPECT_LT(OnHost().size(), 600u);
}

TEST_F(Losses, MoreFilesThanTheRootTakes_GuardedRefuses) {
  BuildUsual();
  Pass();
  MakeSixHundredFiles(folder);
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(TextOf(report, kDoesNotFit), HasSubstr("a disk's top directory holds 511"));
  EXPECT_THAT(OnHost(), SizeIs(603));
}

TEST_F(Losses, FileTooLargeForTheDisk_PlainDeletesItLater) {
  BuildUsual();
  PlainPass();
  folder.File("host/BIG.DAT", std::string(5'000'000, 'x'));
  PlainPass();
  GuestWrites("GUEST.TXT", "g");
  PlainPass();
  EXPECT_FALSE(folder.Exists("host/BIG.DAT"));
}

TEST_F(Losses, FileTooLargeForTheDisk_GuardedRefusesAndNamesTheSizeThatWouldDo) {
  BuildUsual();
  Pass();
  folder.File("host/BIG.DAT", std::string(5'000'000, 'x'));
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kRefused);
  EXPECT_THAT(TextOf(report, kDoesNotFit), HasSubstr("use an image of 5 MiB or more"));
  EXPECT_TRUE(folder.Exists("host/BIG.DAT"));
}

// Root may write to everything.
int AsNobody(const std::function<int()>& body) {
  return test::RunInChild({.dropRoot = true}, body);
}

TEST_F(Losses, ReadOnlyImage_PlainDeletesWhatWasNotCarriedOver) {
  BuildUsual();
  for (const fs::path& path : {folder.Path(), Host(), Image(), Host() / "SUB"}) {
    ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  }
  const int status = AsNobody([&] {
    PlainPass();
    fs::permissions(Image(), fs::perms(0444));
    folder.File("host/NEW.TXT", "new");
    PlainPass();
    fs::permissions(Image(), fs::perms(0644));
    GuestWrites("GUEST.TXT", "g");
    PlainPass();
    return folder.Exists("host/NEW.TXT") ? 1 : 0;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(Losses, ReadOnlyImage_GuardedRefuses) {
  BuildUsual();
  Pass();
  folder.File("host/NEW.TXT", "new");
  fs::permissions(Image(), fs::perms(0444));
  fs::permissions(Host(), fs::perms(0777));
  fs::permissions(folder.Path(), fs::perms(0777));
  for (const auto& entry : fs::recursive_directory_iterator(StateFolder())) {
    fs::permissions(entry.path(), fs::perms(0777));
  }
  fs::permissions(StateFolder(), fs::perms(0777));
  const int status = AsNobody([&] {
    const GuardedReport report = Sync()->Pass();
    if (report.outcome != kRefused) return 1;
    return HazardsOf(report) == std::vector{kImageNotWritable} ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(folder.Exists("host/NEW.TXT"));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
