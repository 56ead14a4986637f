#ifndef QUORBIX_VIRTDISK_TESTS_TOOLS_SYNC_FIXTURE_H_
#define QUORBIX_VIRTDISK_TESTS_TOOLS_SYNC_FIXTURE_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/guest_editor.h"
#include "support/temp_folder.h"
#include "tools/program_run.h"

namespace quorbix::virtdisk::test {

// A folder "DISK", and "disk.img" that was just built from it.
class SyncCommand : public ::testing::Test {
 protected:
  SyncCommand() {
    folder.File("DISK/A long name.txt", "hello\n").File("DISK/SUB/B.TXT", "b\n");
    EXPECT_EQ(RunVirtdisk({"build", Folder(), Image()}).status, 0);
  }

  std::string Image() const { return (folder / "disk.img").string(); }
  std::string Folder() const { return (folder / "DISK").string(); }

  // Nobody waits for quiet here.
  ProgramRun Sync(std::vector<std::string> more = {"--once"}) const {
    std::vector<std::string> arguments{"sync", Image(), Folder(), "--settle", "0"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return RunVirtdisk(arguments);
  }

  void GuestWrites(const std::string& path, const std::string& content) const {
    GuestEditor guest(Image());
    ASSERT_TRUE(guest.Write(path, content));
    guest.Save();
  }

  TempFolder folder;
};

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_TOOLS_SYNC_FIXTURE_H_
