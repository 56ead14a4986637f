#include "host/output_place.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "common/host_file.h"
#include "support/image_crafter.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

using test::ImageCrafter;
using test::TempFolder;

TEST(LookAtOutput, Places_AreTold) {
  TempFolder folder;
  folder.Folder("FOLDER").Pipe("PIPE").Link("NOWHERE", "missing").File("TEXT", "text");
  test::WriteBytes(folder / "disk.img", ImageCrafter().Bytes());
  test::WriteBytes(folder / "bare.img", ImageCrafter({.partitioned = false}).Bytes());
  EXPECT_EQ(LookAtOutput(folder / "FOLDER"), OutputKind::kFolder);
  EXPECT_EQ(LookAtOutput(folder / "PIPE"), OutputKind::kNoRegularFile);
  EXPECT_EQ(LookAtOutput(folder / "NOWHERE"), OutputKind::kNothing);
  EXPECT_EQ(LookAtOutput(folder / "missing/x"), OutputKind::kNothing);
  EXPECT_EQ(LookAtOutput(folder / "TEXT"), OutputKind::kOtherFile);
  EXPECT_EQ(LookAtOutput(folder / "disk.img"), OutputKind::kDiskImage);
  EXPECT_EQ(LookAtOutput(folder / "bare.img"), OutputKind::kDiskImage);
}

TEST(LookAtOutput, FileThatLooksLikeAVolumeButHasNoSignature_IsNoImage) {
  std::vector<std::uint8_t> bytes = ImageCrafter({.partitioned = false}).Bytes();
  bytes[510] = 0;
  const TempFolder folder;
  test::WriteBytes(folder / "data", bytes);
  EXPECT_EQ(LookAtOutput(folder / "data"), OutputKind::kOtherFile);
}

TEST(LookAtOutput, WhatAProcessHasOpen_IsNoFileOfItsOwn) {
  TempFolder folder;
  folder.File("out", "text");
  const internal::Descriptor open = internal::OpenHostFile((folder / "out").c_str(), O_RDONLY);
  const std::string name = "/proc/self/fd/" + std::to_string(open.Get());
  folder.Link("stdout", name).Link("other", "stdout").Link("plain", "out");
  EXPECT_EQ(LookAtOutput(name), OutputKind::kNoRegularFile);
  EXPECT_EQ(LookAtOutput(folder / "stdout"), OutputKind::kNoRegularFile);
  EXPECT_EQ(LookAtOutput(folder / "other"), OutputKind::kNoRegularFile);
  EXPECT_EQ(LookAtOutput(folder / "plain"), OutputKind::kOtherFile);
}

TEST(LookAtOutput, ZerosThatWereWritten_AreNoBlankFile) {
  TempFolder folder;
  folder.File("zeros", std::string(65536, '\0'));
  EXPECT_EQ(LookAtOutput(folder / "zeros"), OutputKind::kOtherFile);
}

TEST(LiesWithin, Paths_AreComparedByPlace) {
  TempFolder folder;
  folder.Folder("SUB/DEEP").Folder("SUBWAY").Link("LINK", "SUB").Link("out.img", "SUB/x.img");
  EXPECT_TRUE(LiesWithin(folder / "SUB/x", folder / "SUB"));
  EXPECT_TRUE(LiesWithin(folder / "SUB/DEEP/x", folder / "SUB/"));
  EXPECT_TRUE(LiesWithin(folder / "LINK/x", folder / "SUB"));
  EXPECT_TRUE(LiesWithin(folder / "out.img", folder / "SUB"));
  EXPECT_TRUE(LiesWithin(folder / "SUB/x", folder / "LINK"));
  EXPECT_FALSE(LiesWithin(folder / "SUBWAY/x", folder / "SUB"));
  EXPECT_FALSE(LiesWithin(folder / "SUB/../x", folder / "SUB"));
  EXPECT_FALSE(LiesWithin(folder / "x", folder / "SUB"));
}

TEST(LiesWithin, FolderThatIsMissing_IsAPlaceToo) {
  TempFolder folder;
  folder.Link("LINK", "missing").Link("here", ".");
  EXPECT_TRUE(LiesWithin(folder / "missing", folder / "missing"));
  EXPECT_TRUE(LiesWithin(folder / "here/missing/x", folder / "missing/"));
  EXPECT_TRUE(LiesWithin(folder / "missing/x", folder / "LINK"));
  EXPECT_FALSE(LiesWithin(folder / "missing.x", folder / "missing"));
}

TEST(HaveSamePlace, Paths_AreComparedBehindLinks) {
  TempFolder folder;
  folder.File("a").Link("LINK", "missing").Link("here", ".");
  EXPECT_TRUE(HaveSamePlace(folder / "a", folder / "here/a"));
  EXPECT_TRUE(HaveSamePlace(folder / "LINK", folder / "here/missing"));
  EXPECT_FALSE(HaveSamePlace(folder / "a", folder / "missing"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
