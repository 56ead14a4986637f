#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "fat16/fat16_image.h"
#include "support/child_process.h"
#include "support/image_bytes.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

namespace fs = std::filesystem;
using test::BytesOf;
using test::TempFolder;

class SaveToFile : public testing::Test {
 protected:
  SaveToFile() {
    EXPECT_TRUE(image.Init(65536, err)) << err;
    image.WriteBootSector("SAVED", 1);
    image.WriteMbr();
  }

  TempFolder folder;
  Fat16Image image;
  std::string err;
};

TEST_F(SaveToFile, NewFile_HoldsTheImage) {
  const std::vector<std::uint8_t> before = BytesOf(image);
  EXPECT_TRUE(image.SaveToFile(folder / "a.img", err)) << err;
  EXPECT_EQ(test::ReadBytes(folder / "a.img"), before);
  EXPECT_EQ(BytesOf(image), before);
}

TEST_F(SaveToFile, LongerFile_IsTruncated) {
  folder.File("a.img", std::string(100000, 'x'));
  EXPECT_TRUE(image.SaveToFile(folder / "a.img", err)) << err;
  EXPECT_EQ(test::ReadBytes(folder / "a.img"), BytesOf(image));
}

TEST_F(SaveToFile, ExistingFile_KeepsItsInodeItsLinksAndItsMode) {
  folder.File("a.img", "old");
  fs::permissions(folder / "a.img", fs::perms(0640));
  fs::create_hard_link(folder / "a.img", folder / "hard.img");
  fs::create_symlink("a.img", folder / "soft.img");

  EXPECT_TRUE(image.SaveToFile(folder / "soft.img", err)) << err;

  EXPECT_TRUE(fs::is_symlink(folder / "soft.img"));
  EXPECT_EQ(test::ReadBytes(folder / "hard.img"), BytesOf(image));
  EXPECT_EQ(fs::status(folder / "a.img").permissions(), fs::perms(0640));
}

TEST_F(SaveToFile, InAMissingFolder_CannotBeOpened) {
  const fs::path path = folder / "missing" / "a.img";
  err = "what was there before";
  EXPECT_FALSE(image.SaveToFile(path, err));
  EXPECT_EQ(err, "Cannot open output image: " + path.string());
}

TEST_F(SaveToFile, OntoAFolder_CannotBeOpened) {
  EXPECT_FALSE(image.SaveToFile(folder.Path(), err));
  EXPECT_EQ(err, "Cannot open output image: " + folder.Path().string());
}

TEST_F(SaveToFile, OntoAFullDevice_IsAFailedWrite) {
  EXPECT_FALSE(image.SaveToFile("/dev/full", err));
  EXPECT_EQ(err, "Write failed for: /dev/full");
}

TEST_F(SaveToFile, BeyondTheFileSizeLimit_IsAFailedWriteWhereverTheLimitFalls) {
  for (const std::uint64_t limit : {std::uint64_t{1}, std::uint64_t{4096}, std::uint64_t{65535}}) {
    const fs::path path = folder / ("limited" + std::to_string(limit));
    const int status = test::RunInChild({.fileSizeLimit = limit}, [&] {
      std::string message;
      if (image.SaveToFile(path, message)) return 1;
      return message == "Write failed for: " + path.string() ? 0 : 2;
    });
    EXPECT_EQ(status, 0) << limit;
    EXPECT_EQ(fs::file_size(path), limit);
  }
}

TEST_F(SaveToFile, AtExactlyTheFileSizeLimit_Succeeds) {
  const int status = test::RunInChild({.fileSizeLimit = 65536}, [&] {
    std::string message;
    return image.SaveToFile(folder / "a.img", message) ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST_F(SaveToFile, AFileWithoutWritePermission_CannotBeOpened) {
  folder.File("a.img", "old").Forbidden("a.img");
  const int status = test::RunInChild({.dropRoot = true}, [&] {
    std::string message;
    if (image.SaveToFile(folder / "a.img", message)) return 1;
    return message == "Cannot open output image: " + (folder / "a.img").string() ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
