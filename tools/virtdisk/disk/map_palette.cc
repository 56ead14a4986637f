#include "disk/map_palette.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

namespace quorbix::virtdisk::tool {
namespace {

// In the order of Area; files have colours of their own.
constexpr std::array<const char*, kAreaCount> kAreaColours{
    "#3f4654", "#8c94a3", "#1f3f66", "#3aa68f", "#6d5a93", "#e6e2d8", "#d1332e", "#7a1d12"};

using Rgb = std::array<double, 3>;  // red, green, blue from 0 to 1

Rgb FromHue(double hue, double saturation, double lightness) {
  const double reach = saturation * std::min(lightness, 1 - lightness);
  const auto channel = [&](double shift) {
    const double k = std::fmod(shift + hue / 30, 12.0);
    return lightness - reach * std::max(-1.0, std::min({k - 3, 9 - k, 1.0}));
  };
  return {channel(0), channel(8), channel(4)};
}

// As the eye weighs the channels, from 0 to 1.
double Luminance(const Rgb& colour) {
  const auto linear = [](double level) {
    return level <= 0.04045 ? level / 12.92 : std::pow((level + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(colour[0]) + 0.7152 * linear(colour[1]) + 0.0722 * linear(colour[2]);
}

// The lightness that gives this luminance, which rises with it.
double LightnessFor(double hue, double saturation, double luminance) {
  double low = 0;
  double high = 1;
  for (int step = 0; step < 20; ++step) {
    const double middle = (low + high) / 2;
    const bool isDarker = Luminance(FromHue(hue, saturation, middle)) < luminance;
    (isDarker ? low : high) = middle;
  }
  return low;
}

}  // namespace

const char* AreaColour(Area area) { return kAreaColours[static_cast<std::size_t>(area)]; }

std::string FileColour(std::size_t index) {
  // The golden angle keeps any number of hues apart; here it turns within the hues from orange to
  // pink, which leaves out the red of what is lost.
  constexpr double kFirstHue = 28;
  constexpr double kHues = 300;
  constexpr double kGoldenTurn = 0.61803398875;
  constexpr double kSaturation = 0.55;
  constexpr std::array<double, kBrightnesses> kLuminances{0.26, 0.46, 0.14};
  const double turn = std::fmod(0.45 + static_cast<double>(index) * kGoldenTurn, 1.0);
  const double hue = kFirstHue + kHues * turn;
  const double lightness = LightnessFor(hue, kSaturation, kLuminances[index % kLuminances.size()]);
  const Rgb colour = FromHue(hue, kSaturation, lightness);
  const auto level = [&](std::size_t i) {
    return static_cast<unsigned>(std::lround(colour[i] * 255));
  };
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "#%02X%02X%02X", level(0), level(1), level(2));
  return text.data();
}

}  // namespace quorbix::virtdisk::tool
