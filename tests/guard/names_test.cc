#include <gtest/gtest.h>

#include "guard/disk_names.h"
#include "guard/host_names.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

TEST(DiskNames, UsedNames_ArePassedByInTheirDirectoryAlone) {
  DiskNames names;
  names.UseListed("DOCS/LONG_FIL.TXT");
  EXPECT_EQ(names.Take("Docs", "Long File.txt"), "LONG_F~1.TXT");
  EXPECT_EQ(names.Take("", "Long File.txt"), "LONG_FIL.TXT");
}

TEST(DiskNames, NameInLowerCaseOnTheDisk_IsUsedToo) {
  DiskNames names;
  names.Use("", "readme  txt");
  EXPECT_EQ(names.Take("", "README.TXT"), "README~1.TXT");
}

TEST(DiskNames, NameWithABlankBase_IsNone) { EXPECT_EQ(DiskNames().Take("", ".profile"), ""); }

TEST(IsOwnShortName, EightDotThree_InAnyCaseIs) {
  EXPECT_TRUE(IsOwnShortName("readme.txt"));
  EXPECT_TRUE(IsOwnShortName("MAKEFILE"));
  EXPECT_TRUE(IsOwnShortName("a~1.x"));
  for (const char* name :
       {"a+b.txt", "a b.txt", "ninechars", "x.long", "a.b.c", ".x", "x.", "\xC3\xA9"}) {
    EXPECT_FALSE(IsOwnShortName(name)) << name;
  }
}

TEST(ShortNameOf, ListedName_IsPaddedAgain) {
  EXPECT_EQ(ShortNameOf("readme.txt"), "README  TXT");
  EXPECT_EQ(ShortNameOf("AB    ~1.TXT"), "AB    ~1TXT");
  EXPECT_EQ(ShortNameOf("MAKEFILE"), "MAKEFILE   ");
}

TEST(HostNames, FreeName_IsTakenAsItIs) {
  HostNames names;
  EXPECT_EQ(names.Take("d", "A.TXT"), "d/A.TXT");
  EXPECT_EQ(names.Take("", "A.TXT"), "A.TXT");
}

TEST(HostNames, TakenName_IsMarkedBeforeItsExtension) {
  HostNames names;
  names.Use("d/a.txt");
  EXPECT_EQ(names.Take("d", "A.TXT"), "d/A (disk).TXT");
  EXPECT_EQ(names.Take("d", "A.TXT"), "d/A (disk 2).TXT");
  names.Use("x.tar");
  EXPECT_EQ(names.Take("", "x.tar"), "x (disk).tar");
  names.Use("noext");
  EXPECT_EQ(names.Take("", "noext"), "noext (disk)");
}

TEST(HostNames, VersionBeside_HasTheTimeInItsName) {
  HostNames names;
  EXPECT_EQ(names.TakeBeside("d/Letter.doc", "2026-11-21 17.20.05"),
            "d/Letter (disk 2026-11-21 17.20.05).doc");
  EXPECT_EQ(names.TakeBeside("d/Letter.doc", "2026-11-21 17.20.05"),
            "d/Letter (disk 2026-11-21 17.20.05 2).doc");
}

TEST(HostNames, LongName_IsCutBetweenCharacters) {
  HostNames names;
  std::string name;
  for (int i = 0; i < 126; ++i) name += "\xC3\xA4";  // 252 bytes
  names.Use(name + ".x");
  const std::string taken = names.Take("", name + ".x");
  EXPECT_LE(taken.size(), 255u);
  EXPECT_GE(taken.size(), 254u);
  EXPECT_EQ(taken.size() % 2, (std::string(" (disk).x").size()) % 2);  // whole characters
}

TEST(HostNames, TitleWithAnEarlyDot_IsCutAtItsEnd) {
  const std::string when = "2026-11-21 17.20.05";
  const std::string mark = " (disk " + when + ")";
  HostNames names;
  EXPECT_EQ(names.TakeBeside("a." + std::string(32, 'x'), when),
            "a" + mark + "." + std::string(32, 'x'));
  EXPECT_EQ(names.TakeBeside("a." + std::string(33, 'x'), when),
            "a." + std::string(33, 'x') + mark);
  const std::string title = "a." + std::string(250, 'x');
  const std::string beside = names.TakeBeside("d/" + title, when);
  EXPECT_EQ(beside, "d/a." + std::string(253 - mark.size(), 'x') + mark);
  EXPECT_TRUE(IsBeside(beside, "d/" + title));
}

TEST(IsBeside, WhatTakeBesideGives_IsAndOthersAreNot) {
  EXPECT_TRUE(IsBeside("d/Letter (disk 2026-11-21 17.20.05).doc", "d/Letter.doc"));
  EXPECT_TRUE(IsBeside("Letter (disk 2026-11-21 17.20.05 2)", "Letter"));
  for (const char* other : {"d/Letter (disk).doc", "d/Letter.doc", "e/Letter (disk 1).doc",
                            "d/Letters (disk 1).doc", "d/Letter (disk 1).txt"}) {
    EXPECT_FALSE(IsBeside(other, "d/Letter.doc")) << other;
  }
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
