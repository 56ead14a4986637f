#include "host/change_watch.h"

#include <gtest/gtest.h>

#include <string>

#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::TempFolder;

TEST(ChangeWatch, StateInsideTheFolder_IsNoNews) {
  TempFolder folder;
  folder.File("DISK/SUB/A.TXT", "a").File("DISK/SUB/state/state", "1").File("disk.img");
  folder.Folder("DISK/SUB/state/trash");
  std::string err;
  ChangeWatch watch;
  ASSERT_TRUE(watch.Begin(folder / "DISK", folder / "disk.img", folder / "DISK/SUB/state", err))
      << err;
  folder.File("DISK/SUB/state/state", "2").File("DISK/SUB/state/trash/1", "x");
  EXPECT_FALSE(watch.TakeNews());
  folder.File("DISK/SUB/A.TXT", "b");
  EXPECT_TRUE(watch.TakeNews());
}

// A pass writes there.
TEST(ChangeWatch, StateThatIsMadeAfterwards_IsNoNewsEither) {
  TempFolder folder;
  folder.Folder("DISK").File("disk.img");
  std::string err;
  ChangeWatch watch;
  ASSERT_TRUE(watch.Begin(folder / "DISK", folder / "disk.img", folder / "DISK/state", err)) << err;
  folder.File("DISK/state/state", "1");
  EXPECT_FALSE(watch.TakeNews());
  folder.File("DISK/states", "1");
  EXPECT_TRUE(watch.TakeNews());
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
