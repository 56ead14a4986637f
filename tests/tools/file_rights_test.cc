// Who may do what to a file that was replaced.

#include "common/file_rights.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <utility>

#include "host/new_file.h"
#include "support/access_list.h"
#include "support/child_process.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::kAccessList;
using test::kForUser1000;
using test::kListForNewFiles;
using test::SetAttribute;
using test::TempFolder;

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

  std::string Get(const char* name) const { return test::AttributeOf(Path(), name); }

  ::mode_t Mode() const {
    struct ::stat status {};
    EXPECT_EQ(::stat(Path().c_str(), &status), 0);
    return status.st_mode & 07777;
  }

  TempFolder folder;
};

TEST_F(FileRights, AttributesOfTheUser_Stay) {
  if (!SetAttribute(Path(), "user.note", "n"))
    GTEST_SKIP() << "this file system has no such attributes";
  ASSERT_TRUE(SetAttribute(Path(), "user.empty", ""));
  EXPECT_TRUE(Replace());
  EXPECT_EQ(Get("user.note"), "n");
  EXPECT_EQ(Get("user.empty"), "");
}

TEST_F(FileRights, AccessControlList_Stays) {
  ASSERT_EQ(::chmod(Path().c_str(), 0600), 0);
  if (!SetAttribute(Path(), kAccessList, kForUser1000))
    GTEST_SKIP() << "this file system has no such lists";
  EXPECT_TRUE(Replace());
  EXPECT_EQ(Get(kAccessList), kForUser1000);
  EXPECT_EQ(Mode(), 0660U);  // the list's mask
}

TEST_F(FileRights, ListThatTheFolderGivesToNewFiles_IsNotForThisOne) {
  if (!SetAttribute(folder.Path(), kListForNewFiles, kForUser1000)) {
    GTEST_SKIP() << "this file system has no such lists";
  }
  ASSERT_EQ(::chmod(Path().c_str(), 0640), 0);
  EXPECT_EQ(Get(kAccessList), "-");
  EXPECT_TRUE(Replace());
  EXPECT_EQ(Get(kAccessList), "-");
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
  if (!SetAttribute(Path(), kAccessList, kForUser1000))
    GTEST_SKIP() << "this file system has no such lists";
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
  EXPECT_EQ(Get(kAccessList), "-");
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
