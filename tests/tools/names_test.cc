#include "host/names.h"

#include <gtest/gtest.h>

#include <string>

namespace quorbix::virtdisk::tool {
namespace {

TEST(ShortName, Names_AreCutMappedAndPadded) {
  EXPECT_EQ(ShortName("readme.txt"), "README  TXT");
  EXPECT_EQ(ShortName("archive.tar.gz"), "ARCHIVE_GZ ");
  EXPECT_EQ(ShortName("a b+c.d;e"), "A_B_C   D_E");
  EXPECT_EQ(ShortName("noext."), "NOEXT      ");
  EXPECT_EQ(ShortName(".profile"), "        PRO");
  EXPECT_EQ(ShortName(".."), "_          ");
}

TEST(ShortName, PermittedPunctuation_Stays) {
  EXPECT_EQ(ShortName("!#$%&'()"), "!#$%&'()   ");
  EXPECT_EQ(ShortName("-@^_`{}~"), "-@^_`{}~   ");
}

TEST(ShortName, Utf8Letter_BecomesOneUnderscorePerByte) {
  EXPECT_EQ(ShortName("\xC3\xA9t\xC3\xA9"), "__T__      ");
}

TEST(ShortName, EmptyNameOrLoneDot_HasNone) {
  EXPECT_EQ(ShortName(""), "");
  EXPECT_EQ(ShortName("."), "");
}

TEST(DirectoryNames, SecondNameAlike_GetsATailInColumnEight) {
  DirectoryNames names;
  EXPECT_EQ(names.Take("ab.txt"), "AB      TXT");
  EXPECT_EQ(names.Take("AB.TXT"), "AB    ~1TXT");
  EXPECT_EQ(names.Take("longnames.txt"), "LONGNAMETXT");
  EXPECT_EQ(names.Take("longnamed.txt"), "LONGNA~1TXT");
}

TEST(DirectoryNames, TenthTail_CutsOneMoreCharacter) {
  DirectoryNames names;
  for (int i = 0; i < 10; ++i) names.Take("longname.txt");
  EXPECT_EQ(names.Take("longname.txt"), "LONGN~10TXT");
}

TEST(DirectoryNames, NinetyNineTailsTaken_GivesNothing) {
  DirectoryNames names;
  for (int i = 0; i < 99; ++i) names.Take("a.txt");
  EXPECT_EQ(names.Take("a.txt"), "A    ~99TXT");
  EXPECT_EQ(names.Take("a.txt"), "");
}

TEST(DirectoryNames, TailTakenByARealName_IsPassedOver) {
  DirectoryNames names;
  names.Take("longna~1.txt");
  names.Take("longname.txt");
  EXPECT_EQ(names.Take("longname.txt"), "LONGNA~2TXT");
}

TEST(ShownName, ShortNames_AreTrimmedAndJoined) {
  EXPECT_EQ(ShownName("README  TXT"), "README.TXT");
  EXPECT_EQ(ShownName("NOEXT      "), "NOEXT");
  EXPECT_EQ(ShownName("AB    ~1TXT"), "AB    ~1.TXT");
  EXPECT_EQ(ShownName("A       B  "), "A.B");
}

TEST(ShownName, BlankBase_IsNotShown) { EXPECT_EQ(ShownName("        PRO"), ""); }

}  // namespace
}  // namespace quorbix::virtdisk::tool
