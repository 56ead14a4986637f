// What a new image keeps of the old one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "common/byte_order.h"
#include "guard/guarded_pair.h"
#include "support/access_list.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using enum GuardedOutcome;

class KeptImage : public GuardedPair {
 protected:
  static std::vector<std::string> NotesOf(const GuardedReport& report) {
    std::vector<std::string> notes;
    for (const GuardedNote& note : report.notes) notes.push_back(note.text);
    return notes;
  }
};

TEST_F(KeptImage, NewImage_KeepsLabelBootCodeAndMarks) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  bytes[100] = 0x5A;        // boot code
  bytes[512 + 100] = 0xA5;  // the volume's
  test::WriteBytes(Image(), bytes);
  GuestWrites("SYS.COM", "s");
  EXPECT_EQ(Pass().outcome, kDone);
  folder.File("host/new.txt", "n");
  EXPECT_EQ(Pass().outcome, kDone);
  bytes = test::ReadBytes(Image());
  EXPECT_EQ(bytes[100], 0x5A);
  EXPECT_EQ(bytes[512 + 100], 0xA5);
  const std::string text(bytes.begin(), bytes.end());
  EXPECT_EQ(text.substr(512 + 43, 11), "HOST       ");
  const std::size_t slot = text.find("SYS     COM");
  ASSERT_NE(slot, text.npos);
  EXPECT_EQ(bytes[slot + 24], 0x75);  // the date
  EXPECT_EQ(bytes[slot + 25], 0x5D);
}

TEST_F(KeptImage, VolumeThatBeginsElsewhere_IsToldUntilItIsMadeAnew) {
  folder.File("host/a.txt", "a");
  BuildImage();
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  StoreU32(&bytes[446 + 8], 2048);
  bytes.insert(bytes.begin() + 512, 2047 * 512, 0);
  test::WriteBytes(Image(), bytes);
  EXPECT_THAT(NotesOf(Pass()),
              ElementsAre("the volume begins in sector 2048: in sector 1 of the next image"));
  EXPECT_THAT(NotesOf(Preview()), SizeIs(1));
  folder.File("host/b.txt", "b");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(LoadU32(&test::ReadBytes(Image())[446 + 8]), 1u);
  EXPECT_THAT(NotesOf(Pass()), IsEmpty());
}

TEST_F(KeptImage, SizeThatIsNoWholeNumberOfSectors_IsToldUntilItIs) {
  folder.File("host/a.txt", "a");
  BuildImage();
  std::filesystem::resize_file(Image(), kImageBytes + 100);
  const std::string note =
      "the image has 3145828 bytes, no whole number of sectors: 3145728 in the next one";
  EXPECT_THAT(NotesOf(Pass()), ElementsAre(note));
  EXPECT_THAT(NotesOf(Preview()), ElementsAre(note));
  folder.File("host/b.txt", "b");
  options.inPlace = true;
  EXPECT_THAT(NotesOf(Pass()), IsEmpty());
  EXPECT_EQ(std::filesystem::file_size(Image()), kImageBytes + 100);
  options.inPlace = false;
  folder.File("host/c.txt", "c");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(std::filesystem::file_size(Image()), kImageBytes);
  EXPECT_THAT(NotesOf(Pass()), IsEmpty());
}

TEST_F(KeptImage, ImageInPlace_KeepsItsInode) {
  folder.File("host/a.txt", "a");
  options.inPlace = true;
  BuildAndAgree();
  struct ::stat before;
  struct ::stat after;
  ASSERT_EQ(::stat(Image().c_str(), &before), 0);
  folder.File("host/a.txt", "new");
  EXPECT_EQ(Pass().outcome, kDone);
  ASSERT_EQ(::stat(Image().c_str(), &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(OnDisk().at("A.TXT"), "new");
}

TEST_F(KeptImage, WhatIsReplaced_HandsItsAccessListAndAttributesOn) {
  folder.File("host/a.txt", "a").File("host/b.txt", "b");
  BuildAndAgree();
  const std::filesystem::path file = Host() / "a.txt";
  if (!test::SetAttribute(file, test::kAccessList, test::kForUser1000)) {
    GTEST_SKIP() << "this file system has no such lists";
  }
  ASSERT_TRUE(test::SetAttribute(file, "user.note", "n"));
  ASSERT_TRUE(test::SetAttribute(Image(), test::kAccessList, test::kForUser1000));
  GuestWrites("A.TXT", "guest");
  folder.File("host/b.txt", "host");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(folder.Read("host/a.txt"), "guest");
  EXPECT_EQ(test::AttributeOf(file, test::kAccessList), test::kForUser1000);
  EXPECT_EQ(test::AttributeOf(file, "user.note"), "n");
  EXPECT_EQ(test::AttributeOf(Image(), test::kAccessList), test::kForUser1000);
}

TEST_F(KeptImage, NewImage_HasTheOldOnesModeAndOwner) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  ASSERT_EQ(::chmod(Image().c_str(), 0640), 0);
  ASSERT_EQ(::chown(Image().c_str(), 65534, 65534), 0);
  folder.File("host/a.txt", "new");
  EXPECT_EQ(Pass().outcome, kDone);
  struct ::stat after;
  ASSERT_EQ(::stat(Image().c_str(), &after), 0);
  EXPECT_EQ(after.st_mode & 07777u, 0640u);
  EXPECT_EQ(after.st_uid, 65534u);
}

TEST_F(KeptImage, ImageBehindALink_IsReplacedItself) {
  folder.File("host/a.txt", "a");
  BuildImage();
  std::filesystem::rename(Image(), folder / "real.img");
  folder.Link("DISK.IMG", "real.img");
  EXPECT_EQ(Sync()->Pass().outcome, kNothingToDo);
  folder.File("host/a.txt", "new");
  EXPECT_EQ(Sync()->Pass().outcome, kDone);
  EXPECT_TRUE(std::filesystem::is_symlink(Image()));
  EXPECT_EQ(OnDisk().at("A.TXT"), "new");
  EXPECT_TRUE(folder.Exists("real.img.sync/state"));
}
}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
