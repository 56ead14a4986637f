#include "disk/map_looks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "disk/map_grid.h"
#include "disk/map_html.h"
#include "disk/map_palette.h"
#include "disk/map_svg.h"
#include "disk/map_text.h"
#include "map_fixture.h"

namespace quorbix::virtdisk::tool {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

using Triple = std::array<double, 3>;
using Matrix = std::array<Triple, 3>;

// What reaches people without receptors for no, long, middle and short waves, of the linear
// channels.
constexpr std::array<Matrix, 4> kEyes{{{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}},
                                       {{{0.152286, 1.052583, -0.204868},
                                         {0.114503, 0.786281, 0.099216},
                                         {-0.003882, -0.048116, 1.051998}}},
                                       {{{0.367322, 0.860646, -0.227968},
                                         {0.280085, 0.672501, 0.047413},
                                         {-0.011820, 0.042940, 0.968881}}},
                                       {{{1.255528, -0.076749, -0.178779},
                                         {-0.078411, 0.930809, 0.147602},
                                         {0.004733, 0.691367, 0.303900}}}}};

double Dot(const Triple& a, const Triple& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

Triple LinearChannels(unsigned rgb) {
  Triple linear{};
  for (std::size_t i = 0; i < 3; ++i) {
    const double level = (rgb >> (16 - 8 * i) & 0xFFU) / 255.0;
    linear[i] = level <= 0.04045 ? level / 12.92 : std::pow((level + 0.055) / 1.055, 2.4);
  }
  return linear;
}

// In CIELAB, under daylight.
Triple SeenColour(unsigned rgb, const Matrix& eye) {
  constexpr Matrix kToXyz{{{0.4339, 0.3762, 0.1899},
                           {0.2126, 0.7152, 0.0722},
                           {0.0178, 0.1095, 0.8727}}};  // of white, each 1
  const Triple linear = LinearChannels(rgb);
  Triple seen{};
  for (std::size_t i = 0; i < 3; ++i) seen[i] = std::clamp(Dot(eye[i], linear), 0.0, 1.0);
  Triple f{};
  for (std::size_t i = 0; i < 3; ++i) {
    const double t = Dot(kToXyz[i], seen);
    f[i] = t > 0.008856 ? std::cbrt(t) : 7.787 * t + 16.0 / 116;
  }
  return {116 * f[1] - 16, 500 * (f[0] - f[1]), 200 * (f[1] - f[2])};
}

// As far as the eye sees it that sees it worst.
double SeenDistance(unsigned a, unsigned b) {
  double least = 1000;
  for (const Matrix& eye : kEyes) {
    const Triple one = SeenColour(a, eye);
    const Triple other = SeenColour(b, eye);
    least = std::min(least, std::hypot(one[0] - other[0], one[1] - other[1], one[2] - other[2]));
  }
  return least;
}

unsigned RgbOf(const std::string& colour) {
  return static_cast<unsigned>(std::stoul(colour.substr(1), nullptr, 16));
}

TEST(SeenDistance, BlackAndWhite_Are100ApartForEveryEye) {
  EXPECT_NEAR(SeenDistance(0, 0xFFFFFF), 100, 0.1);
  EXPECT_LT(SeenDistance(0x7F7F00, 0xA96A00), 12);  // green and red of one brightness
}

// 2 can just be seen.
constexpr double kClearDistance = 18;

TEST(FileColour, ClearColours_AreFarApartForEveryEye) {
  for (std::size_t i = 0; i < 400; ++i) {
    for (std::size_t j = i + 1; j < 400; ++j) {
      if (i % kClearColours == j % kClearColours) continue;
      EXPECT_GE(SeenDistance(RgbOf(FileColour(i)), RgbOf(FileColour(j))), kClearDistance)
          << i << " and " << j;
    }
  }
}

TEST(FileColour, ColoursOfOtherBrightness_DifferInAPrintInGrey) {
  const auto brightness = [](std::size_t i) {
    return Dot({0.2126, 0.7152, 0.0722}, LinearChannels(RgbOf(FileColour(i)))) + 0.05;
  };
  for (std::size_t i = 0; i < 400; ++i) {
    for (std::size_t j = i + 1; j < 400; ++j) {
      if (i % kClearColours % kBrightnesses == j % kClearColours % kBrightnesses) continue;
      const auto [less, more] = std::minmax({brightness(i), brightness(j)});
      EXPECT_GT(more / less, 1.4) << i << " and " << j;
    }
  }
}

TEST(FileColour, Colours_AreFarFromThoseOfOtherAreas) {
  for (std::size_t i = 0; i < 400; ++i) {
    for (std::size_t area = 0; area < kAreaCount; ++area) {
      if (static_cast<Area>(area) == Area::kFile) continue;
      EXPECT_GE(SeenDistance(RgbOf(FileColour(i)), RgbOf(AreaColour(static_cast<Area>(area)))), 10)
          << i << " and " << AreaName(static_cast<Area>(area));
    }
  }
}

std::vector<Cell> CellsOf(const std::vector<int>& owners) {
  std::vector<Cell> cells;
  for (const int owner : owners) {
    Cell& cell = cells.emplace_back();
    if (owner < 0) continue;  // free
    cell.area = Area::kFile;
    cell.owner = static_cast<std::uint32_t>(owner);
  }
  return cells;
}

// Rows of files, each in up to `mostParts` parts of one to six cells in random places, in between
// free ones.
std::vector<int> RandomLayout(std::mt19937& random, std::size_t cells, unsigned mostParts) {
  std::vector<int> parts;
  for (int file = 0; parts.size() < cells / 4; ++file) {
    parts.insert(parts.end(), 1 + random() % mostParts, file);
  }
  std::shuffle(parts.begin(), parts.end(), random);
  std::vector<int> owners;
  for (const int file : parts) {
    owners.insert(owners.end(), 1 + random() % 6, random() % 8 == 0 ? -1 : file);
  }
  return owners;
}

std::size_t OwnerCount(const std::vector<int>& owners) {
  return static_cast<std::size_t>(*std::max_element(owners.begin(), owners.end())) + 1;
}

// Calls `check` with every two cells that touch and belong to different files.
template <class Check>
void ForCellsThatTouch(const std::vector<int>& owners, std::size_t columns, const Check& check) {
  for (std::size_t i = 1; i < owners.size(); ++i) {
    for (const std::size_t distance : {std::size_t{1}, columns}) {
      if (distance > i) continue;
      const std::size_t j = i - distance;
      if (owners[i] >= 0 && owners[j] >= 0 && owners[i] != owners[j]) check(i, j);
    }
  }
}

class RandomLayouts : public ::testing::TestWithParam<unsigned> {};  // most parts of a file
INSTANTIATE_TEST_SUITE_P(Parts, RandomLayouts, ::testing::Values(1, 2, 3));

// Each in up to sixteen parts, so that some touch files of every colour.
TEST(LooksOf, FilesInManyParts_DifferByLinesWhereNoColourIsLeft) {
  std::mt19937 random(1);
  bool isAnyLined = false;
  for (int round = 0; round < 10; ++round) {
    const std::vector<int> owners = RandomLayout(random, 3600, 16);
    const std::vector<Cell> cells = CellsOf(owners);
    const auto colours = ColourNumbers(OwnerCount(owners), cells, 119);
    for (const std::uint32_t colour : colours) isAnyLined = isAnyLined || IsLined(colour);
    ForCellsThatTouch(owners, 119, [&](std::size_t i, std::size_t j) {
      const std::uint32_t one = colours[cells[i].owner];
      const std::uint32_t other = colours[cells[j].owner];
      EXPECT_NE(std::pair(one % kClearColours, IsLined(one)),
                std::pair(other % kClearColours, IsLined(other)))
          << i << " and " << j;
    });
  }
  EXPECT_TRUE(isAnyLined);
}

TEST(LooksOf, SpareLook_IsTakenOnlyWhereNoneIsLeft) {
  // Files 0, 1 and 2 touch each other, 3 none.
  const std::vector<Cell> cells = CellsOf({0, 0, 0, 1, 2, 2, 2, 1, -1, -1, -1, -1, -1, 3});
  EXPECT_THAT(LooksOf(4, cells, 4, 2, 1),
              ::testing::ElementsAre(::testing::Ne(2U), 1, 2, ::testing::Ne(2U)));
}

TEST_P(RandomLayouts, FilesThatTouch_AreFarApartInColour) {
  std::mt19937 random(GetParam());
  for (int round = 0; round < 20; ++round) {
    const std::vector<int> owners = RandomLayout(random, 3600, GetParam());
    const std::vector<Cell> cells = CellsOf(owners);
    for (const std::size_t columns : {28U, 64U, 119U}) {
      const auto colours = ColourNumbers(OwnerCount(owners), cells, columns);
      EXPECT_EQ(std::set<std::uint32_t>(colours.begin(), colours.end()).size(), colours.size());
      ForCellsThatTouch(owners, columns, [&](std::size_t i, std::size_t j) {
        EXPECT_NE(colours[cells[i].owner] % kClearColours, colours[cells[j].owner] % kClearColours)
            << i << " and " << j;
        EXPECT_FALSE(IsLined(colours[cells[i].owner])) << i;
      });
    }
  }
}

TEST(LooksOf, FilesInARow_DifferInBrightnessToo) {
  const std::vector<Cell> cells = CellsOf({0, 1, 2, 2, 3, 4, 5, 5, 6});
  const auto looks = LooksOf(7, cells, 9, 8);
  for (std::size_t i = 1; i < 7; ++i) {
    EXPECT_NE(looks[i] % kBrightnesses, looks[i - 1] % kBrightnesses) << i;
  }
}

TEST(LooksOf, EndAndBeginningOfRows_Differ) {
  const auto looks = LooksOf(2, CellsOf({-1, -1, 0, 1, -1, -1}), 3, 2);
  EXPECT_NE(looks[0], looks[1]);
}

TEST(LooksOf, FileInManyParts_DiffersFromAllBetween) {
  std::vector<int> owners;
  for (int file = 1; file < 200; ++file) owners.insert(owners.end(), {0, file});
  const auto looks = LooksOf(200, CellsOf(owners), 400, 2);
  EXPECT_EQ(std::count(looks.begin(), looks.end(), looks[0]), 1);
}

TEST(LooksOf, WhereNoLookIsLeft_TheLeastMetIsTaken) {
  // File 2 meets 0 at three cells and 1 at two: beside it and at the row's end.
  EXPECT_THAT(LooksOf(3, CellsOf({0, 0, 0, 1, 2, 2, 2, 1}), 4, 2), ::testing::ElementsAre(0, 1, 1));
}

TEST(LooksOf, FilesTooSmallForACell_HaveOneToo) {
  const auto looks = LooksOf(3, CellsOf({0, 0, 2, 2}), 4, 3);
  EXPECT_EQ(std::set<std::uint32_t>(looks.begin(), looks.end()).size(), 3U);
}

DiskMap MapOf(const std::vector<int>& owners) {
  DiskMap map;
  map.clusterBytes = 512;
  map.owners.resize(OwnerCount(owners));
  for (std::size_t i = 0; i < owners.size(); ++i) {
    map.clusters.emplace_back();
    if (owners[i] < 0) continue;
    const auto owner = static_cast<std::uint32_t>(owners[i]);
    map.clusters.back() = {Area::kFile, owner};
    map.owners[owner].runs.push_back({2 + static_cast<std::uint32_t>(i), 1});
  }
  return map;
}

struct ShownCell {
  char letter = ' ';
  unsigned colour = 0;  // its number among those of a terminal
};

// The cells of a drawing on a terminal with colours.
std::vector<ShownCell> ShownCells(const std::string& text) {
  const std::string background = ";48;5;";
  std::istringstream lines(text);
  std::vector<ShownCell> cells;
  std::string line;
  std::getline(lines, line);  // heading
  std::getline(lines, line);  // scale
  std::getline(lines, line);
  for (std::getline(lines, line); !line.empty(); std::getline(lines, line)) {
    unsigned colour = 0;
    for (std::size_t i = 2; i < line.size(); ++i) {
      if (line[i] != '\x1b') {
        cells.push_back({line[i], colour});
        continue;
      }
      const std::size_t end = line.find('m', i);
      const std::size_t number = line.find(background, i);
      if (number < end) {
        colour = static_cast<unsigned>(std::stoul(line.substr(number + background.size())));
      }
      i = end;
    }
  }
  return cells;
}

// Of the colours 16 to 231 of a terminal, a cube.
unsigned TerminalRgb(unsigned number) {
  constexpr std::array<unsigned, 6> kLevels{0, 95, 135, 175, 215, 255};
  const unsigned place = number - 16;
  return kLevels[place / 36] << 16U | kLevels[place / 6 % 6] << 8U | kLevels[place % 6];
}

TEST_P(RandomLayouts, FilesThatTouchOnATerminal_HaveOtherLettersAndFarColours) {
  std::mt19937 random(GetParam());
  constexpr std::size_t kColumns = 78;
  for (int round = 0; round < 10; ++round) {
    const std::vector<int> owners = RandomLayout(random, 1600, GetParam());
    const std::string text =
        DrawText(MapOf(owners), "DISK", {.width = kColumns + 2, .colour = true});
    const std::vector<ShownCell> cells = ShownCells(text);
    ASSERT_EQ(cells.size(), owners.size());
    ForCellsThatTouch(owners, kColumns, [&](std::size_t i, std::size_t j) {
      EXPECT_NE(cells[i].letter, cells[j].letter) << i << " and " << j;
      EXPECT_GE(SeenDistance(TerminalRgb(cells[i].colour), TerminalRgb(cells[j].colour)), 20)
          << i << " and " << j;
    });
  }
}

TEST(DrawSvg, LinesOverColours_AreDefinedWhereTheyAreUsed) {
  std::mt19937 random(1);
  const DiskMap map = MapOf(RandomLayout(random, 3600, 16));
  const std::string svg = DrawSvg(map, "DISK", "disk.img");
  const std::string page = DrawHtml(map, "DISK", "disk.img");
  const std::size_t used = svg.find(" fill=\"url(#lined");
  ASSERT_NE(used, std::string::npos);
  const std::string id = svg.substr(used + 12, 6);
  for (const std::string& picture : {svg, page}) {
    EXPECT_THAT(picture, HasSubstr("<pattern id=\"" + id + "\""));
  }
  EXPECT_THAT(page, HasSubstr("\"repeating-linear-gradient(#fff 0 1px, #"));
  EXPECT_THAT(DrawSvg(Map(DrawnDisk()), "DISK", ""), Not(HasSubstr("lined")));
}

TEST(DrawText, FilesBesideEachOther_HaveOtherLettersWithoutColours) {
  const std::string text = DrawText(MapOf({0, 0, 1, 2, -1, 0}), "DISK", {.width = 80});
  EXPECT_THAT(text, HasSubstr("\n\n  AABC.A\n\n"));
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
