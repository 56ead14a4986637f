#include "disk/map_palette.h"

#include <array>
#include <cstdio>

namespace quorbix::virtdisk::tool {
namespace {

// In the order of Area; files have colours of their own.
constexpr std::array<const char*, kAreaCount> kAreaColours{
    "#3f4654", "#8c94a3", "#1f3f66", "#3aa68f", "#6d5a93", "#e6e2d8", "#d1332e", "#7a1d12"};

using Rgb = std::array<unsigned, 3>;  // red, green, blue

// Found by search: in the eyes of everybody, also of those who lack a sort of receptors, the two
// that are closest are 24 apart in CIELAB, where 2 can just be seen. Bright, brighter and dark ones
// take turns.
constexpr std::array<Rgb, kClearColours> kFileColours{{{0x41, 0x83, 0xF4},
                                                       {0xF5, 0xD4, 0x77},
                                                       {0x3E, 0x69, 0x58},
                                                       {0xC7, 0x86, 0x15},
                                                       {0x61, 0xD8, 0xF6},
                                                       {0x75, 0x37, 0x9F},
                                                       {0xA7, 0x91, 0x55},
                                                       {0xAB, 0xC2, 0xA1}}};

// The shades of a colour, without a common rhythm of the channels: 504 before they come again.
Rgb Shade(const Rgb& colour, std::size_t number) {
  const auto steps = [number](unsigned stride, unsigned count) {
    return static_cast<unsigned>(number * stride % count);
  };
  return {colour[0] + steps(2, 9) - 4, colour[1] + steps(3, 7) - 3, colour[2] + steps(5, 8) - 4};
}

}  // namespace

const char* AreaColour(Area area) { return kAreaColours[static_cast<std::size_t>(area)]; }

std::string FileColour(std::size_t index) {
  const Rgb colour = Shade(kFileColours[index % kClearColours], index / kClearColours);
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "#%02X%02X%02X", colour[0], colour[1], colour[2]);
  return text.data();
}

}  // namespace quorbix::virtdisk::tool
