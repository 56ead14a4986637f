// What one 32-byte slot becomes: a name, a record, a label, or nothing.

#include "browser/browser_fixture.h"

namespace quorbix::virtdisk::test {
namespace {

// The names that a root directory with this one slot shows.
Names NamesFor(std::string_view elevenBytes, std::uint8_t attributes = 0x20) {
  const auto browser = Load(ImageCrafter().RawSlot(elevenBytes, {.attributes = attributes}));
  Names names;
  for (const Fat16FsEntry& entry : List(*browser, "/")) names.push_back(entry.name);
  return names;
}

TEST(EntryDecoding, BaseAndExtension_AreJoinedByADot) {
  EXPECT_THAT(NamesFor("README  TXT"), testing::ElementsAre("README.TXT"));
  EXPECT_THAT(NamesFor("ABCDEFGHIJK"), testing::ElementsAre("ABCDEFGH.IJK"));
}

TEST(EntryDecoding, BlankExtension_GivesTheBaseAlone) {
  EXPECT_THAT(NamesFor("README     "), testing::ElementsAre("README"));
}

TEST(EntryDecoding, StoredCaseAndInnerBlanks_AreKept) {
  EXPECT_THAT(NamesFor("Re aD   Tx "), testing::ElementsAre("Re aD.Tx"));
  EXPECT_THAT(NamesFor(" LEAD   A  "), testing::ElementsAre(" LEAD.A"));
}

TEST(EntryDecoding, NulEndsBaseAndExtension) {
  EXPECT_THAT(NamesFor(std::string_view("AB\0CDEFGT\0X", 11)), testing::ElementsAre("AB.T"));
  EXPECT_THAT(NamesFor(std::string_view("AB      \0XY", 11)), testing::ElementsAre("AB"));
}

TEST(EntryDecoding, ExtensionWithLeadingBlank_KeepsIt) {
  EXPECT_THAT(NamesFor("AB       X "), testing::ElementsAre("AB. X"));
}

TEST(EntryDecoding, EmptyBase_IsNoEntry) {
  EXPECT_THAT(NamesFor("        TXT"), testing::IsEmpty());
}

TEST(EntryDecoding, DotAndDotDot_AreNoEntries) {
  EXPECT_THAT(NamesFor(".          ", 0x10), testing::IsEmpty());
  EXPECT_THAT(NamesFor("..         ", 0x10), testing::IsEmpty());
  EXPECT_THAT(NamesFor(".          ", 0x20), testing::IsEmpty());
}

TEST(EntryDecoding, OtherDotNames_AreEntries) {
  EXPECT_THAT(NamesFor("...        "), testing::ElementsAre("..."));
  EXPECT_THAT(NamesFor(".       X  "), testing::ElementsAre("..X"));
}

TEST(EntryDecoding, FirstByte05_IsNotTranslated) {
  EXPECT_THAT(NamesFor("\x05"
                       "ANJI   TXT"),
              testing::ElementsAre("\x05"
                                   "ANJI.TXT"));
}

TEST(EntryDecoding, DeletedSlot_IsSkipped) {
  auto image = ImageCrafter().DeletedSlot().File("NEXT.TXT");

  EXPECT_THAT(AllPaths(*Load(image)), testing::ElementsAre("/NEXT.TXT"));
}

TEST(EntryDecoding, LongNameSlot_IsSkippedAndItsShortNameKept) {
  auto image = ImageCrafter().LongNameSlot().File("LONG~1.TXT");

  EXPECT_THAT(AllPaths(*Load(image)), testing::ElementsAre("/LONG~1.TXT"));
}

TEST(EntryDecoding, AnyAttributeWithAllFourLowBits_IsALongNameSlot) {
  for (const std::uint8_t high : Octets{0x10, 0x20, 0x40, 0x80, 0xF0}) {
    EXPECT_THAT(NamesFor("A          ", static_cast<std::uint8_t>(0x0F | high)),
                testing::IsEmpty());
  }
}

TEST(EntryDecoding, LongNameSlot_IsNoLabel) {
  EXPECT_EQ(Load(ImageCrafter().LongNameSlot())->Info().volumeLabel, "");
}

TEST(EntryDecoding, HiddenAndSystemEntries_AreIndexed) {
  for (const std::uint8_t attributes : Octets{0x00, 0x01, 0x02, 0x04, 0x07, 0x27}) {
    EXPECT_THAT(NamesFor("A          ", attributes), testing::ElementsAre("A"));
  }
}

TEST(EntryDecoding, Record_HoldsTheSlotsFields) {
  auto image = ImageCrafter().RawSlot("A       TXT", {.attributes = 0x27,
                                                      .firstCluster = 0x0102,
                                                      .size = 0x03040506,
                                                      .writeTime = 0x0708,
                                                      .writeDate = 0x090A});

  const Fat16FsEntry entry = EntryAt(*Load(image), "/A.TXT");

  EXPECT_EQ(entry.name, "A.TXT");
  EXPECT_EQ(entry.path, "/A.TXT");
  EXPECT_FALSE(entry.isDirectory);
  EXPECT_EQ(entry.attributes, 0x27);
  EXPECT_EQ(entry.firstCluster, 0x0102);
  EXPECT_EQ(entry.size, 0x03040506u);
  EXPECT_EQ(entry.writeTime, 0x0708);
  EXPECT_EQ(entry.writeDate, 0x090A);
}

TEST(EntryDecoding, DirectoryRecord_KeepsItsStoredSize) {
  auto image =
      ImageCrafter().RawSlot("SUB        ", {.attributes = 0x30, .firstCluster = 5, .size = 77});
  image.InCluster(5);

  const Fat16FsEntry entry = EntryAt(*Load(image), "/SUB");

  EXPECT_TRUE(entry.isDirectory);
  EXPECT_EQ(entry.attributes, 0x30);
  EXPECT_EQ(entry.size, 77u);
}

TEST(EntryDecoding, LabelEntry_FillsABlankLabelAndIsNoEntry) {
  const auto browser = Load(ImageCrafter().Label("MY DISK    ").File("A.TXT"));

  EXPECT_EQ(browser->Info().volumeLabel, "MY DISK");
  EXPECT_THAT(AllPaths(*browser), testing::ElementsAre("/A.TXT"));
}

TEST(EntryDecoding, LabelEntryOfMoreThanEightBytes_DeliberatelyGetsADot) {
  EXPECT_EQ(Load(ImageCrafter().Label("ELEVENBYTES"))->Info().volumeLabel, "ELEVENBY.TES");
}

TEST(EntryDecoding, LabelEntry_DoesNotReplaceTheBootSectorsLabel) {
  const auto browser = Load(ImageCrafter({.label = "BOOT"}).Label("ROOT       "));

  EXPECT_EQ(browser->Info().volumeLabel, "BOOT");
}

TEST(EntryDecoding, SecondLabelEntry_IsIgnored) {
  const auto browser = Load(ImageCrafter().Label("FIRST      ").Label("SECOND     "));

  EXPECT_EQ(browser->Info().volumeLabel, "FIRST");
}

TEST(EntryDecoding, LabelEntryInASubdirectory_DeliberatelyCounts) {
  auto image = ImageCrafter().Directory("SUB", 2).Label("ROOT       ");
  image.InCluster(2).DotEntries(2, 0).Label("INNER      ");

  EXPECT_EQ(Load(image)->Info().volumeLabel, "INNER");
}

TEST(EntryDecoding, LabelEntryNamedLikeADotEntry_IsNoLabel) {
  EXPECT_EQ(Load(ImageCrafter().Label(".          "))->Info().volumeLabel, "");
}

TEST(EntryDecoding, LabelEntryWithOtherBits_IsALabelUnlessADirectory) {
  EXPECT_THAT(NamesFor("A          ", 0x28), testing::IsEmpty());
  EXPECT_THAT(NamesFor("A          ", 0x0B), testing::IsEmpty());
  EXPECT_THAT(NamesFor("A          ", 0x18), testing::ElementsAre("A"));
}

TEST(EntryDecoding, DirectoryWithTheLabelBit_IsADirectory) {
  auto image = ImageCrafter().RawSlot("D          ", {.attributes = 0x18, .firstCluster = 2});
  image.InCluster(2).File("A.TXT");

  const auto browser = Load(image);

  EXPECT_TRUE(EntryAt(*browser, "/D").isDirectory);
  EXPECT_EQ(browser->Info().volumeLabel, "");
  EXPECT_THAT(ListPaths(*browser, "/D"), testing::ElementsAre("/D/A.TXT"));
}

}  // namespace
}  // namespace quorbix::virtdisk::test
