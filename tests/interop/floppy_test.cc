// Disks that other tools format and fill: what the program says of them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "support/child_process.h"
#include "support/need_tool.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class FormattedDisk : public ::testing::Test {
 protected:
  // A bare volume of `kibibytes` with A.TXT of 12,813 bytes.
  void Format(const std::string& fatBits, const std::string& kibibytes) {
    ASSERT_EQ(RunCommand({"mkfs.fat", "-F", fatBits, "-C", Image(), kibibytes}).status, 0);
    WriteWholeFile(folder / "a.txt", std::string(12813, 'a'));
    ASSERT_EQ(RunCommand({"mcopy", "-i", Image(), (folder / "a.txt").string(), "::A.TXT"}).status,
              0);
  }
  std::string Image() const { return (folder / "disk.img").string(); }
  CommandResult Program(const std::string& command, const std::string& argument) const {
    return RunCommand({VIRTDISK_PROGRAM, command, Image(), argument});
  }

  TempFolder folder;
};

TEST_F(FormattedDisk, Fat12Floppy_IsRefusedInsteadOfMisread) {
  NEED_TOOL("mkfs.fat");
  NEED_TOOL("mcopy");
  Format("12", "1440");
  const CommandResult cat = Program("cat", "/A.TXT");
  EXPECT_EQ(cat.status, 3);
  EXPECT_THAT(cat.out, IsEmpty());
  EXPECT_THAT(cat.err, HasSubstr("says FAT12: its files would be misread"));
  EXPECT_EQ(RunCommand({VIRTDISK_PROGRAM, "verify", Image()}).status, 1);
}

// Its directories lead nowhere when their clusters are looked up in FAT16's way.
TEST_F(FormattedDisk, Fat12FloppyWithDirectories_IsDescribedAllTheSame) {
  NEED_TOOL("mkfs.fat");
  NEED_TOOL("mcopy");
  Format("12", "1440");
  for (int i = 0; i < 20; ++i) {
    ASSERT_EQ(RunCommand({"mmd", "-i", Image(), "::DIR" + std::to_string(i)}).status, 0);
  }
  const CommandResult info = RunCommand({VIRTDISK_PROGRAM, "info", Image(), "--json"});
  EXPECT_EQ(info.status, 0) << info.err;
  EXPECT_THAT(info.out, HasSubstr("\"takenFor\":\"FAT12\""));
  EXPECT_EQ(RunCommand({VIRTDISK_PROGRAM, "map", Image()}).status, 0);
  EXPECT_EQ(Program("ls", "--force").status, 0);
}

TEST_F(FormattedDisk, Fat32Disk_IsRefused) {
  NEED_TOOL("mkfs.fat");
  NEED_TOOL("mcopy");
  Format("32", "40000");
  EXPECT_EQ(Program("cat", "/A.TXT").status, 3);
  EXPECT_EQ(RunCommand({VIRTDISK_PROGRAM, "verify", Image()}).status, 1);
}

TEST_F(FormattedDisk, Fat16Disk_IsSoundAndReadWhole) {
  NEED_TOOL("mkfs.fat");
  NEED_TOOL("mcopy");
  Format("16", "20000");
  EXPECT_EQ(Program("cat", "/A.TXT").out, std::string(12813, 'a'));
  const CommandResult verify = RunCommand({VIRTDISK_PROGRAM, "verify", Image()});
  EXPECT_EQ(verify.status, 0) << verify.out;
}

}  // namespace
}  // namespace quorbix::virtdisk::test
