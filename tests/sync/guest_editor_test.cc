#include "support/guest_editor.h"

#include <gtest/gtest.h>

#include "quorbix/virtdisk/fat_image_builder.h"
#include "support/child_process.h"
#include "support/need_tool.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace {

// A disk large enough for a FAT checker to take it for FAT16.
class GuestDisk : public testing::Test {
 protected:
  GuestDisk() {
    folder.File("SRC/A.TXT", "aaa").File("SRC/SUB/B.TXT", "bbb");
    const auto builder = CreateFat16Builder();
    EXPECT_TRUE(builder->Build(folder / "SRC", folder / "DISK.IMG", 8u << 20));
  }

  // Judges the volume behind the partition table.
  CommandResult Check() {
    folder.File("VOLUME.IMG", folder.Read("DISK.IMG").substr(512));
    return RunCommand({"fsck.fat", "-n", (folder / "VOLUME.IMG").native()});
  }

  TempFolder folder;
};

TEST_F(GuestDisk, EveryKindOfEdit_LeavesASoundVolume) {
  NEED_TOOL("fsck.fat");
  GuestEditor guest(folder / "DISK.IMG");
  EXPECT_TRUE(guest.Write("NEW.BIN", std::string(20'000, 'n')));
  EXPECT_TRUE(guest.Append("A.TXT", std::string(9'000, 'x')));
  EXPECT_TRUE(guest.Write("NEW.BIN", "short"));
  EXPECT_TRUE(guest.MakeFolder("SUB/DEEP"));
  for (int i = 0; i < 40; ++i) {
    EXPECT_TRUE(guest.Write("SUB/DEEP/F" + std::to_string(i), "x"));
  }
  EXPECT_TRUE(guest.Remove("SUB/B.TXT"));
  EXPECT_TRUE(guest.Rename("NEW.BIN", "OTHER.BIN"));
  guest.Save();

  const CommandResult result = Check();

  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_EQ(GuestEditor(folder / "DISK.IMG").Files().size(), 42u);
}

TEST_F(GuestDisk, RemovedFile_GivesItsClustersBack) {
  GuestEditor guest(folder / "DISK.IMG");
  const std::size_t before = guest.FreeClusters();
  EXPECT_TRUE(guest.Write("NEW.BIN", std::string(100'000, 'n')));
  EXPECT_LT(guest.FreeClusters(), before);
  EXPECT_TRUE(guest.Remove("NEW.BIN"));
  EXPECT_EQ(guest.FreeClusters(), before);
}

TEST_F(GuestDisk, FileThatDoesNotFit_ChangesNothing) {
  GuestEditor guest(folder / "DISK.IMG");
  const std::size_t before = guest.FreeClusters();
  EXPECT_FALSE(guest.Write("NEW.BIN", std::string(9u << 20, 'n')));
  EXPECT_EQ(guest.FreeClusters(), before);
  EXPECT_FALSE(guest.Exists("NEW.BIN"));
}

}  // namespace
}  // namespace quorbix::virtdisk::test
