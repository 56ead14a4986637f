#include "disk/fat_date.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::uint16_t Date(unsigned year, unsigned month, unsigned day) {
  return static_cast<std::uint16_t>((year - 1980) << 9 | month << 5 | day);
}

constexpr std::uint16_t Time(unsigned hour, unsigned minute, unsigned twoSeconds) {
  return static_cast<std::uint16_t>(hour << 11 | minute << 5 | twoSeconds);
}

TEST(FormatFatDate, Words_AreDecoded) {
  EXPECT_EQ(FormatFatDate(0x5A71, 0x6C47), "2025-03-17 13:34:14");
}

TEST(FormatFatDate, ZeroDate_IsBlank) {
  EXPECT_EQ(FormatFatDate(0, 0), "");
  EXPECT_EQ(FormatFatDate(0, 0x6C47), "");
}

TEST(FormatFatDate, FirstAndLastMoment_AreDecoded) {
  EXPECT_EQ(FormatFatDate(Date(1980, 1, 1), 0), "1980-01-01 00:00:00");
  EXPECT_EQ(FormatFatDate(Date(2107, 12, 31), Time(23, 59, 29)), "2107-12-31 23:59:58");
}

TEST(FormatFatDate, MonthOutsideTheYear_IsInvalid) {
  EXPECT_EQ(FormatFatDate(Date(2000, 0, 1), 0), "invalid date");
  EXPECT_EQ(FormatFatDate(Date(2000, 13, 1), 0), "invalid date");
  EXPECT_EQ(FormatFatDate(Date(2000, 15, 31), 0), "invalid date");
}

TEST(FormatFatDate, DayOutsideTheMonth_IsInvalid) {
  EXPECT_EQ(FormatFatDate(Date(2000, 4, 0), 0), "invalid date");
  EXPECT_EQ(FormatFatDate(Date(2000, 4, 31), 0), "invalid date");
  EXPECT_EQ(FormatFatDate(Date(2023, 2, 29), 0), "invalid date");
  EXPECT_EQ(FormatFatDate(Date(2100, 2, 29), 0), "invalid date");
  EXPECT_EQ(FormatFatDate(Date(2000, 2, 29), 0), "2000-02-29 00:00:00");
}

TEST(FormatFatDate, TimeOutsideTheDay_IsInvalid) {
  EXPECT_EQ(FormatFatDate(Date(2000, 1, 1), Time(24, 0, 0)), "invalid date");
  EXPECT_EQ(FormatFatDate(Date(2000, 1, 1), Time(0, 60, 0)), "invalid date");
  EXPECT_EQ(FormatFatDate(Date(2000, 1, 1), Time(0, 0, 30)), "invalid date");
  EXPECT_EQ(FormatFatDate(Date(2000, 1, 1), 0xFFFF), "invalid date");
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
