#include "disk/fat_date.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace quorbix::virtdisk::tool {
namespace {

constexpr unsigned kFirstYear = 1980;

unsigned DaysIn(unsigned month, unsigned year) {
  constexpr std::array<unsigned, 13> kDays{0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  const bool leap = year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
  return month == 2 && leap ? 29 : kDays[month];
}

}  // namespace

std::string FormatFatDate(std::uint16_t date, std::uint16_t time) {
  if (date == 0) return {};
  const unsigned year = kFirstYear + (date >> 9U);
  const unsigned month = date >> 5U & 0xFU;
  const unsigned day = date & 0x1FU;
  const unsigned hour = time >> 11U;
  const unsigned minute = time >> 5U & 0x3FU;
  const unsigned second = (time & 0x1FU) * 2;
  if (month < 1 || month > 12 || day < 1 || day > DaysIn(month, year)) return kInvalidDate;
  if (hour > 23 || minute > 59 || second > 59) return kInvalidDate;
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%04u-%02u-%02u %02u:%02u:%02u", year, month, day, hour,
                minute, second);
  return text.data();
}

}  // namespace quorbix::virtdisk::tool
