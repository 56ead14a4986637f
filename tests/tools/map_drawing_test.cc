#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

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

ImageCrafter DrawnDisk() {
  ImageCrafter crafter({.clusters = 20});
  crafter.File("A.TXT", {.firstCluster = 2, .size = 1200}).Chain({2, 3, 9});
  crafter.Directory("SUB", 5).Chain({5}).InCluster(5).Chain({11});
  return crafter;
}

TEST(DrawText, DrawnDisk_IsDrawnCellByCell) {
  EXPECT_EQ(DrawText(Map(DrawnDisk()), "DISK", {.width = 22}),
            "DISK\n"
            "One cell: 1 cluster (512 bytes)\n"
            "\n"
            "  ====%##.D...#.!.....\n"
            "  .....\n"
            "\n"
            "  =  boot and FATs\n"
            "  %  root directory\n"
            "  D  directories: 1 cluster\n"
            "  #  files: 3 clusters\n"
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
  EXPECT_THAT(text, HasSubstr("..+.."));
  EXPECT_THAT(text, HasSubstr("+  files, less than half of the cell"));
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

TEST(FileColour, FirstHundred_AreAllDifferent) {
  std::set<std::string> colours;
  for (std::size_t i = 0; i < 100; ++i) colours.insert(FileColour(i));
  EXPECT_EQ(colours.size(), 100U);
}

TEST(FileColour, Colours_AreSixHexadecimalDigits) {
  for (std::size_t i = 0; i < 1000; ++i) {
    EXPECT_THAT(FileColour(i), ::testing::MatchesRegex("#[0-9A-F]{6}"));
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
