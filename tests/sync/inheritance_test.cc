// A host that starts programs must not hand them the library's open files.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "quorbix/virtdisk/fat_image_builder.h"
#include "support/guest_editor.h"
#include "support/next_function.h"
#include "support/opening.h"
#include "support/temp_folder.h"
#include "sync/sync_pass.h"

namespace {

using quorbix::virtdisk::test::NextOf;

// What was opened so that a program started meanwhile would inherit it.
bool watching = false;
std::vector<std::string>* inheritable = nullptr;

void Note(const char* path, bool closesOnExec) {
  if (watching && !closesOnExec) inheritable->push_back(path);
}

FILE* NotedOpen(const char* function, const char* path, const char* mode) {
  Note(path, std::strchr(mode, 'e') != nullptr);
  return NextOf<FILE*(const char*, const char*)>(function)(path, mode);
}

}  // namespace

int quorbix::virtdisk::test::InPlaceOf(const Opening& opening) {
  Note(opening.path, (opening.flags & O_CLOEXEC) != 0);
  return opening.Next();
}

// These stand in front of the C library's functions for the whole program, the C++ library
// included.

extern "C" FILE* fopen(const char* path, const char* mode) {
  return NotedOpen("fopen", path, mode);
}

extern "C" FILE* fopen64(const char* path, const char* mode) {
  return NotedOpen("fopen64", path, mode);
}

namespace quorbix::virtdisk::internal {
namespace {

class Inheritance : public testing::Test {
 protected:
  Inheritance() {
    inheritable = &opened;
    folder.File("host/A.TXT", "a").File("host/B.TXT", "b");
  }
  ~Inheritance() override { watching = false; }

  bool Build() {
    return CreateFat16Builder()->Build(folder / "host", folder / "DISK.IMG", 128 * 1024);
  }

  test::TempFolder folder;
  std::vector<std::string> opened;
};

TEST_F(Inheritance, StreamsOfTheStandardLibrary_WouldBeNoted) {
  watching = true;
  test::ReadWholeFile(folder / "host/A.TXT");
  EXPECT_THAT(opened, testing::SizeIs(1));
}

TEST_F(Inheritance, Build_HandsNothingOn) {
  watching = true;
  ASSERT_TRUE(Build());
  EXPECT_THAT(opened, testing::IsEmpty());
}

TEST_F(Inheritance, PassThatCopiesAndRebuilds_HandsNothingOn) {
  ASSERT_TRUE(Build());
  SyncState state;
  RunSyncPass(folder / "DISK.IMG", folder / "host", state);
  test::GuestEditor guest(folder / "DISK.IMG");
  ASSERT_TRUE(guest.Write("B.TXT", "from the guest"));
  guest.Save();
  folder.File("host/A.TXT", "from the host");

  watching = true;
  RunSyncPass(folder / "DISK.IMG", folder / "host", state);
  watching = false;

  EXPECT_THAT(opened, testing::IsEmpty());
  EXPECT_EQ(folder.Read("host/B.TXT"), "from the guest");
  EXPECT_EQ(test::GuestEditor(folder / "DISK.IMG").Files().at("A.TXT"), "from the host");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
