#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "disk/map_grid.h"
#include "disk/map_palette.h"
#include "disk/map_svg.h"
#include "disk/map_text.h"
#include "map_fixture.h"
#include "support/image_crafter.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::ImageCrafter;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

TEST(DrawText, DrawnDisk_IsDrawnCellByCell) {
  EXPECT_EQ(DrawText(Map(DrawnDisk()), "DISK", {.width = 22}),
            "DISK\n"
            "One cell: 1 cluster (512 bytes)\n"
            "\n"
            "  ====%AA.D...A.!.....\n"
            "  .....\n"
            "\n"
            "  =  boot and FATs\n"
            "  %  root directory\n"
            "  D  directories: 1 cluster\n"
            "  A  files: 3 clusters, other letters where they touch\n"
            "  .  free: 15 clusters\n"
            "  !  lost or broken: 1 cluster\n"
            "\n"
            "In several fragments:\n"
            "  /A.TXT: 2\n");
}

TEST(DrawText, LargeDisk_StaysWithinTheWidth) {
  const ImageCrafter crafter({.sectorsPerFat = 240, .clusters = 60000});
  std::istringstream lines(DrawText(Map(crafter), "DISK", {.width = 40}));
  std::size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) EXPECT_LE(line.size(), 40U);
  EXPECT_LE(count, 24U + 9);
}

TEST(DrawText, CellsMostlyFree_AreMarked) {
  ImageCrafter crafter({.sectorsPerFat = 240, .clusters = 60000});
  crafter.File("A.TXT", {.firstCluster = 1000, .size = 1}).Chain({1000});
  const std::string text = DrawText(Map(crafter), "DISK", {.width = 80});
  EXPECT_THAT(text, HasSubstr("..a.."));
  EXPECT_THAT(text, HasSubstr("a  files, less than half of the cell"));
}

TEST(DrawText, WithoutColour_HasNoEscapes) {
  EXPECT_THAT(DrawText(Map(DrawnDisk()), "DISK", {}), Not(HasSubstr("\x1b")));
}

TEST(DrawText, WithColour_EndsEveryColourOnItsLine) {
  std::istringstream lines(DrawText(Map(DrawnDisk()), "DISK", {.width = 40, .colour = true}));
  bool coloured = false;
  for (std::string line; std::getline(lines, line);) {
    const std::size_t last = line.rfind("\x1b[");
    if (last == std::string::npos) continue;
    coloured = true;
    EXPECT_EQ(line.substr(last, 4), "\x1b[0m");
  }
  EXPECT_TRUE(coloured);
}

TEST(DrawText, NamesOfTheDisk_AreMadeSafe) {
  ImageCrafter crafter;
  crafter.RawSlot("A\x1B[2J   TXT", {.firstCluster = 2, .size = 1200}).Chain({2, 4});
  const std::string text = DrawText(Map(crafter), "D\x1B", {});
  EXPECT_THAT(text, Not(HasSubstr("\x1b")));
  EXPECT_THAT(text, HasSubstr("/A\\x1B[2J.TXT: 2"));
}

TEST(DrawSvg, File_IsOneGroupOfBarsInItsColour) {
  const std::string svg = DrawSvg(Map(DrawnDisk()), "DISK", "disk.img");
  const std::size_t title = svg.find("<title>/A.TXT\n1,200 bytes, 3 clusters\n2 fragments: 2-3, 9");
  ASSERT_NE(title, std::string::npos);
  const std::size_t end = svg.find("</g>", title);
  const std::string group = svg.substr(title, end - title);
  EXPECT_NE(group.find("<rect"), group.rfind("<rect"));
  EXPECT_THAT(svg.substr(0, title), ::testing::EndsWith("fill=\"" + FileColour(0) + "\">"));
}

TEST(DrawSvg, Legend_NamesEveryArea) {
  const std::string svg = DrawSvg(Map(DrawnDisk()), "DISK", "disk.img");
  for (const char* name :
       {"boot and FATs", "root directory", "directories", "files", "free", "lost or broken"}) {
    EXPECT_THAT(svg, HasSubstr(std::string(">") + name + "</text>"));
  }
}

TEST(DrawSvg, NamesWithMarkup_AreEscaped) {
  ImageCrafter crafter;
  crafter.RawSlot("<&\"\x01\xFF   TXT", {.firstCluster = 2, .size = 12}).Chain({2});
  const std::string svg = DrawSvg(Map(crafter), "</svg>", "<script>");
  EXPECT_THAT(svg, HasSubstr("<title>/&lt;&amp;&quot;\\x01\\xFF.TXT\n"));
  EXPECT_THAT(svg, HasSubstr(">/&lt;&amp;&quot;\\x01\\xFF.TXT</text>"));
  EXPECT_THAT(svg, HasSubstr("&lt;/svg&gt;"));
  EXPECT_THAT(svg, Not(HasSubstr("<script>")));
}

TEST(DrawSvg, EmptyDisk_IsAPictureToo) {
  const std::string svg = DrawSvg(DiskMap(), "", "");
  EXPECT_THAT(svg, StartsWith("<svg "));
  EXPECT_THAT(svg, ::testing::EndsWith("</svg>\n"));
  EXPECT_THAT(svg, Not(HasSubstr("nan")));
  EXPECT_THAT(svg, Not(HasSubstr("inf")));
}

TEST(DrawSvg, LargeDisk_StaysAPictureOfLimitedSize) {
  ImageCrafter crafter({.rootEntryCount = 8192, .sectorsPerFat = 240, .clusters = 60000});
  for (std::uint16_t i = 0; i < 8000; ++i) {
    const auto cluster = static_cast<std::uint16_t>(2 + 7 * i);
    crafter.File("F" + std::to_string(i), {.firstCluster = cluster, .size = 1}).Chain({cluster});
  }
  EXPECT_LT(DrawSvg(Map(crafter), "DISK", "disk.img").size(), 2'000'000U);
}

TEST(DrawSvg, Scale_IsTold) {
  EXPECT_THAT(DrawSvg(Map(DrawnDisk()), "DISK", "disk.img"),
              HasSubstr(">One cell = 1 cluster (512 bytes)</text>"));
}

TEST(DrawSvg, Files_AreListedBySize) {
  ImageCrafter crafter;
  crafter.File("SMALL", {.firstCluster = 2, .size = 1}).Chain({2});
  crafter.File("LARGE", {.firstCluster = 3, .size = 1024}).Chain({3, 4});
  const std::string svg = DrawSvg(Map(crafter), "DISK", "disk.img");
  EXPECT_LT(svg.find(">/LARGE</text>"), svg.find(">/SMALL</text>"));
}

TEST(DrawSvg, Slack_IsDrawnAndTold) {
  ImageCrafter crafter;
  crafter.File("HALF", {.firstCluster = 2, .size = 256}).Chain({2});
  const std::string half = DrawSvg(Map(crafter), "DISK", "disk.img");
  EXPECT_THAT(half, HasSubstr("<path class=\"k\" fill=\"#fff\" pointer-events"));
  EXPECT_THAT(half, HasSubstr(">behind the ends of files</text>"));
  EXPECT_THAT(half, HasSubstr(">256 bytes</text>"));
  ImageCrafter full;
  full.File("FULL", {.firstCluster = 2, .size = 512}).Chain({2});
  EXPECT_THAT(DrawSvg(Map(full), "DISK", "disk.img"), Not(HasSubstr("<path class=\"k\"")));
}

// Most of each cell has the file's own colour, by which it is told from what is beside it.
TEST(DrawSvg, SlackOfAFileOfOneByte_LeavesMostOfItsCellAsItIs) {
  ImageCrafter crafter;
  crafter.File("TINY", {.firstCluster = 2, .size = 1}).Chain({2});
  const std::string svg = DrawSvg(Map(crafter), "DISK", "disk.img");
  const std::size_t path = svg.find("d=\"M", svg.find("<path class=\"k\"")) + 4;
  double left = 0;
  double top = 0;
  double width = 0;
  double height = 0;
  ASSERT_EQ(std::sscanf(svg.c_str() + path, "%lf %lfh%lfv%lf", &left, &top, &width, &height), 4);
  EXPECT_GT(width, 0);
  EXPECT_LT(height, width / 3);
}

// Thirty files whose paths end alike beyond what there is room for, and one path twice.
TEST(DrawSvg, NoName_IsShownTwice) {
  ImageCrafter crafter({.clusters = 200});
  crafter.Directory("LONGNAME.AAA", 2).Directory("LONGNAME.BBB", 3).Chain({2}).Chain({3});
  std::uint16_t next = 4;
  for (const std::uint16_t top : {std::uint16_t{2}, std::uint16_t{3}}) {
    std::uint16_t place = top;
    for (int depth = 0; depth < 4; ++depth, ++next) {
      crafter.InCluster(place).Directory("LONGNAME.EXT", next).Chain({next});
      place = next;
    }
    crafter.InCluster(place).File("SAME.TXT", {.firstCluster = next, .size = 9}).Chain({next});
    ++next;
  }
  const std::string svg = DrawSvg(Map(crafter), "DISK", "disk.img");
  EXPECT_THAT(svg, HasSubstr("/LONGNAME.EXT/SAME.TXT</text>"));
  EXPECT_THAT(svg, HasSubstr("/LONGNAME.EXT/SAME.TXT (2)</text>"));
}

TEST(DrawSvg, ThousandsOfFiles_AreSummedUpByDirectory) {
  ImageCrafter crafter({.rootEntryCount = 64, .sectorsPerFat = 20, .clusters = 4000});
  std::uint16_t next = 100;
  for (std::uint16_t d = 0; d < 14; ++d) {
    const auto cluster = static_cast<std::uint16_t>(2 + d);
    crafter.InRoot().Directory("D" + std::to_string(d), cluster).Chain({cluster});
    crafter.InCluster(cluster);
    for (int i = 0; i < 10; ++i, ++next) {
      crafter.File("F" + std::to_string(i), {.firstCluster = next, .size = 100u - d}).Chain({next});
    }
  }
  const std::string svg = DrawSvg(Map(crafter), "DISK", "disk.img");
  EXPECT_THAT(svg, HasSubstr(">and 116 smaller files:</text>"));
  EXPECT_THAT(svg, HasSubstr(">/D5</text>"));
  EXPECT_THAT(svg, HasSubstr(">10 files, 950 bytes</text>"));
  EXPECT_THAT(svg, Not(HasSubstr("more directory")));
}

TEST(DrawSvg, HiddenFreeAndDamage_LookDifferent) {
  ImageCrafter crafter;
  crafter.RawSlot("        PRO", {.firstCluster = 3, .size = 600}).Chain({3, 4});
  crafter.Chain({7}).FatWord(9, 0xFFF7);
  internal::MemorySource source(crafter.Bytes());
  internal::VolumeIndex index(source);
  std::string err;
  ASSERT_TRUE(index.Parse(err, internal::VolumeIndex::Hidden::kCollect)) << err;
  const std::string svg = DrawSvg(
      MapVolume(VolumeView(index.Info(), crafter.Bytes()), ImageTree(index)), "DISK", "disk.img");
  EXPECT_THAT(svg, HasSubstr(" fill=\"url(#hidden)\"><title>/.PRO\n"));
  EXPECT_THAT(svg, HasSubstr(" fill=\"url(#lost)\"><title>lost or broken"));
  EXPECT_THAT(svg, HasSubstr(" fill=\"url(#bad)\"><title>marked bad"));
  EXPECT_THAT(svg, HasSubstr(">hidden</text>"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
