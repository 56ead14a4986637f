#include <gtest/gtest.h>

#include <chrono>
#include <string>

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

TEST(DiskNames, NamesThatComeToTheSame_TakeTheFirstTailThatIsFree) {
  DiskNames names;
  EXPECT_EQ(names.Take("", "IMG_0001 a.jpg"), "IMG_0001.JPG");
  EXPECT_EQ(names.Take("", "IMG_0001 b.jpg"), "IMG_00~1.JPG");
  EXPECT_EQ(names.Take("", "IMG_0002 a.jpg"), "IMG_0002.JPG");
  EXPECT_EQ(names.Take("", "IMG_0002 b.jpg"), "IMG_00~2.JPG");
  names.UseListed("IMG_00~3.JPG");
  EXPECT_EQ(names.Take("", "IMG_0001 c.jpg"), "IMG_00~4.JPG");
  // Others from the seventh column on.
  EXPECT_EQ(names.Take("", "IMG_01.jpg"), "IMG_01.JPG");
  EXPECT_EQ(names.Take("", "IMG_01 .jpg"), "IMG_01_.JPG");
  EXPECT_EQ(names.Take("", "IMG_01?.jpg"), "IMG_01~1.JPG");
  for (int n = 5; n <= 9; ++n) {
    EXPECT_EQ(names.Take("", "IMG_0003 a.jpg"),
              n == 5 ? "IMG_0003.JPG" : "IMG_00~" + std::to_string(n - 1) + ".JPG");
  }
  EXPECT_EQ(names.Take("", "IMG_0003 a.jpg"), "IMG_00~9.JPG");
  EXPECT_EQ(names.Take("", "IMG_0003 a.jpg"), "IMG_0~10.JPG");
  EXPECT_EQ(names.Take("", "IMG_0004 a.jpg"), "IMG_0004.JPG");
  EXPECT_EQ(names.Take("", "IMG_0004 a.jpg"), "IMG_0~11.JPG");
}

TEST(DiskNames, BeyondTheTailsOfABuild_TailsGoOn) {
  DiskNames names;
  for (int n = 0; n < 100; ++n) names.Take("", "photo one.jpg");
  EXPECT_EQ(names.Take("", "photo one.jpg"), "PHOT~100.JPG");
}

// A search of its own for each of them took minutes.
TEST(DiskNames, CopiesOfAllPhotosThatADirectoryHolds_AreNamedInAMoment) {
  constexpr int kPhotos = 30'000;
  DiskNames names;
  const auto begin = std::chrono::steady_clock::now();
  for (int n = 0; n < kPhotos; ++n) {
    const std::string number = std::to_string(n);
    names.Take("", "IMG_" + number + ".jpg");
    EXPECT_NE(names.Take("", "IMG_" + number + " copy.jpg"), "");
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
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

TEST(FamilyOf, FileAndItsVersions_IsOne) {
  for (const std::string& name :
       {std::string("Letter.doc"), std::string("no extension"), std::string("a.b.c"),
        std::string(".5 of it"), std::string(250, 'l') + ".txt", std::string(255, 'l'),
        std::string(80, 'l') + ". " + std::string(160, 'l')}) {
    HostNames names;
    const std::string first = names.TakeBeside("d/" + name, "2026-11-21 17.20.05");
    const std::string second = names.TakeBeside("d/" + name, "2026-11-21 17.20.05");
    EXPECT_NE(first, second);
    EXPECT_EQ(FamilyOfBeside(first), FamilyOf("d/" + name)) << first;
    EXPECT_EQ(FamilyOfBeside(second), FamilyOf("d/" + name)) << second;
    EXPECT_NE(FamilyOfBeside(first), FamilyOf("e/" + name));
    EXPECT_NE(FamilyOfBeside(first), FamilyOf("d/m" + name));
  }
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
