// Who may do what to a file that was replaced.

#include "host/file_rights.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

#include "host/new_file.h"
#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::TempFolder;
using namespace std::string_view_literals;

constexpr char kList[] = "system.posix_acl_access";
constexpr char kListForNewFiles[] = "system.posix_acl_default";

// user::rw-, user:1000:rw-, group::---, mask::rw-, other::---
constexpr std::string_view kForUser1000 =
    "\x02\0\0\0"
    "\x01\0\x06\0\xFF\xFF\xFF\xFF"
    "\x02\0\x06\0\xE8\x03\0\0"
    "\x04\0\0\0\xFF\xFF\xFF\xFF"
    "\x10\0\x06\0\xFF\xFF\xFF\xFF"
    "\x20\0\0\0\xFF\xFF\xFF\xFF"sv;

class FileRights : public ::testing::Test {
 protected:
  FileRights() { folder.File("A", "old"); }

  std::string Path() const { return (folder / "A").string(); }

  bool Replace() const {
    NewFile file;
    std::string err;
    return file.Create(Path(), err) && ::write(file.Descriptor(), "new", 3) == 3 &&
           file.Commit(err);
  }

  static bool Set(const std::string& path, const char* name, std::string_view value) {
    return ::setxattr(path.c_str(), name, value.data(), value.size(), 0) == 0;
  }

  // "-": there is none.
  std::string Get(const char* name) const {
    std::array<char, 256> value{};
    const ::ssize_t got = ::getxattr(Path().c_str(), name, value.data(), value.size());
    return got < 0 ? "-" : std::string(value.data(), static_cast<std::size_t>(got));
  }

  ::mode_t Mode() const {
    struct ::stat status {};
    EXPECT_EQ(::stat(Path().c_str(), &status), 0);
    return status.st_mode & 07777;
  }

  TempFolder folder;
};

TEST_F(FileRights, AttributesOfTheUser_Stay) {
  if (!Set(Path(), "user.note", "n")) GTEST_SKIP() << "this file system has no such attributes";
  ASSERT_TRUE(Set(Path(), "user.empty", ""));
  EXPECT_TRUE(Replace());
  EXPECT_EQ(Get("user.note"), "n");
  EXPECT_EQ(Get("user.empty"), "");
}

TEST_F(FileRights, AccessControlList_Stays) {
  ASSERT_EQ(::chmod(Path().c_str(), 0600), 0);
  if (!Set(Path(), kList, kForUser1000)) GTEST_SKIP() << "this file system has no such lists";
  EXPECT_TRUE(Replace());
  EXPECT_EQ(Get(kList), kForUser1000);
  EXPECT_EQ(Mode(), 0660U);  // the list's mask
}

TEST_F(FileRights, ListThatTheFolderGivesToNewFiles_IsNotForThisOne) {
  if (!Set(folder.Path().string(), kListForNewFiles, kForUser1000)) {
    GTEST_SKIP() << "this file system has no such lists";
  }
  ASSERT_EQ(::chmod(Path().c_str(), 0640), 0);
  EXPECT_EQ(Get(kList), "-");
  EXPECT_TRUE(Replace());
  EXPECT_EQ(Get(kList), "-");
  EXPECT_EQ(Mode(), 0640U);
}

// Of the child that replaces it, who is not in the group.
TEST_F(FileRights, FileOfAnotherGroup_GivesTheNewGroupNoMoreThanOthersHave) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser gives files away";
  fs::permissions(folder.Path(), fs::perms{0777});
  for (const auto& [mode, wanted] : {std::pair<::mode_t, ::mode_t>{0664, 0644}, {0660, 0600}}) {
    ASSERT_EQ(::chmod(Path().c_str(), mode), 0);
    ASSERT_EQ(::chown(Path().c_str(), 0, 4), 0);
    EXPECT_EQ(test::RunInChild({.dropRoot = true}, [this] { return Replace() ? 0 : 1; }), 0);
    EXPECT_EQ(Mode(), wanted);
  }
}

TEST_F(FileRights, ListOfAnotherGroup_GivesTheNewGroupNothing) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser gives files away";
  if (!Set(Path(), kList, kForUser1000)) GTEST_SKIP() << "this file system has no such lists";
  fs::permissions(folder.Path(), fs::perms{0777});
  ASSERT_EQ(::chown(Path().c_str(), 0, 4), 0);
  ASSERT_EQ(test::RunInChild({.dropRoot = true},
                             [this] {
                               NewFile file;
                               std::string err;
                               return file.Create(Path(), err) && file.Commit(err) ? 0 : 1;
                             }),
            0);
  EXPECT_EQ(Mode(), 0600U);
  EXPECT_EQ(Get(kList), "-");
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
