#include "guard/pairing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "guard/vocabulary.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

TEST(Pairing, NewFileOfTheHost_GetsItsShortName) {
  EXPECT_THAT(PairsOf(Paired(Seen({{"Long File Name.txt", 'a'}}, {}))),
              ElementsAre("Long File Name.txt=LONG_FIL.TXT"));
}

TEST(Pairing, NewFileOfTheDisk_GetsItsOwnName) {
  EXPECT_THAT(PairsOf(Paired(Seen({}, {{"NEW.TXT", 'a'}}))), ElementsAre("NEW.TXT=NEW.TXT"));
}

TEST(Pairing, SameOwnNameOnBothSides_IsOneFile) {
  EXPECT_THAT(PairsOf(Paired(Seen({{"ReadMe.txt", 'a'}}, {{"README.TXT", 'b'}}))),
              ElementsAre("ReadMe.txt=README.TXT"));
}

TEST(Pairing, LettersOfTheDiskInLowerCase_AreTheSameName) {
  EXPECT_THAT(PairsOf(Paired(Seen({{"README.TXT", 'a'}}, {{"readme.txt", 'b'}}))),
              ElementsAre("README.TXT=readme.txt"));
}

TEST(Pairing, NameThatIsNotItsOwnShortName_DoesNotMeetOneByChance) {
  EXPECT_THAT(PairsOf(Paired(Seen({{"a+b.txt", 'a'}}, {{"A_B.TXT", 'b'}}))),
              ElementsAre("a+b.txt=A_B   ~1.TXT", "A_B.TXT=A_B.TXT"));
}

TEST(Pairing, TwoHostNamesOfOneShortName_NeverMeet) {
  EXPECT_THAT(PairsOf(Paired(Seen({{"a+b.txt", 'a'}, {"a_b.txt", 'b'}}, {}))),
              ElementsAre("a+b.txt=A_B.TXT", "a_b.txt=A_B   ~1.TXT"));
}

TEST(Pairing, HostNamesThatDifferInCase_NeverMeet) {
  EXPECT_THAT(PairsOf(Paired(Seen({{"A.TXT", 'a'}, {"a.txt", 'b'}}, {{"A.TXT", 'a'}}))),
              ElementsAre("A.TXT=A.TXT", "a.txt=A     ~1.TXT"));
}

TEST(Pairing, BuildNames_DecideAtTheFirstMeeting) {
  const NameHints built{
      .built = {{"Long File Name.txt", "LONG_FIL.TXT"}, {"a_b.txt", "A_B   ~1.TXT"}}};
  const auto pairing = Paired(Seen({{"Long File Name.txt", 'a'}, {"a_b.txt", 'b'}},
                                   {{"LONG_FIL.TXT", 'a'}, {"A_B   ~1.TXT", 'b'}}),
                              {}, built);
  EXPECT_THAT(PairsOf(pairing),
              ElementsAre("Long File Name.txt=LONG_FIL.TXT", "a_b.txt=A_B   ~1.TXT"));
}

TEST(Pairing, BuildNameOfADirectoryThatHasAnotherName_IsNotFollowed) {
  const NameHints built{.built = {{"Papers", "PAPERS"}, {"Papers/a.txt", "OTHER/A.TXT"}}};
  const auto pairing = Paired(
      Seen({{"Papers/", ' '}, {"Papers/a.txt", 'a'}}, {{"OTHER/", ' '}, {"OTHER/A.TXT", 'a'}}), {},
      built);
  EXPECT_THAT(PairsOf(pairing), ElementsAre("Papers=PAPERS", "Papers/a.txt=PAPERS/A.TXT",
                                            "OTHER=OTHER", "OTHER/A.TXT=OTHER/A.TXT"));
}

TEST(Pairing, RememberedPair_StaysWhateverTheNamesSay) {
  const auto pairing = Paired(Seen({{"Long File Name.txt", 'a'}}, {{"LONG_F~7.TXT", 'b'}}),
                              Knows({{"Long File Name.txt", "LONG_F~7.TXT", 'a'}}));
  ASSERT_THAT(PairsOf(pairing), ElementsAre("Long File Name.txt=LONG_F~7.TXT"));
  EXPECT_TRUE(pairing.rows[0].onHost && pairing.rows[0].onDisk && pairing.rows[0].agreed);
}

TEST(Pairing, RememberedPairGoneOnOneSide_KeepsItsNamesFromOthers) {
  const auto pairing = Paired(Seen({{"Long File Other.txt", 'x'}}, {{"LONG_FIL.TXT", 'a'}}),
                              Knows({{"Long File Name.txt", "LONG_FIL.TXT", 'a'}}));
  EXPECT_THAT(PairsOf(pairing),
              ElementsAre("Long File Name.txt=LONG_FIL.TXT", "Long File Other.txt=LONG_F~1.TXT"));
  EXPECT_FALSE(pairing.rows[0].onHost);
}

TEST(Pairing, RememberedPairGoneOnBothSides_IsNoRow) {
  EXPECT_THAT(PairsOf(Paired(Seen({}, {}), Knows({{"a.txt", "A.TXT", 'a'}}))), IsEmpty());
}

TEST(Pairing, NewFileOfTheDisk_ComesIntoTheFolderThatStandsForItsDirectory) {
  const auto pairing =
      Paired(Seen({{"Old Papers/", ' '}}, {{"OLD_PAPE/", ' '}, {"OLD_PAPE/N", 'n'}}),
             Knows({{"Old Papers/", "OLD_PAPE/", 'f'}}));
  EXPECT_THAT(PairsOf(pairing), ElementsAre("Old Papers=OLD_PAPE", "Old Papers/N=OLD_PAPE/N"));
}

TEST(Pairing, NameTakenOnTheHost_IsMarked) {
  Observation seen = Seen({}, {{"NOTES.TXT", 'a'}});
  seen.hostLeftOut.insert("notes.txt");
  EXPECT_THAT(PairsOf(Paired(seen)), ElementsAre("NOTES (disk).TXT=NOTES.TXT"));
}

TEST(Pairing, NameOnTheDiskThatBeginsWithADot_IsMadeVisible) {
  EXPECT_THAT(PairsOf(Paired(Seen({}, {{".A", 'a'}}))), ElementsAre("_.A=.A"));
}

TEST(Pairing, NamesOfOneBeginning_GetLongerTailsThanABuildGives) {
  Observation seen;
  for (int i = 0; i < 1200; ++i) {
    seen.host["IMG_2026_" + std::to_string(1000 + i) + ".jpg"] = HostFile('a');
  }
  seen.disk["IMG_~101.JPG"] = {.path = "IMG_~101.JPG", .shortName = "IMG_~101JPG"};
  const Pairing pairing = Paired(seen);
  EXPECT_THAT(pairing.unnamed, IsEmpty());
  const std::vector<std::string> pairs = PairsOf(pairing);
  EXPECT_EQ(pairs[0], "IMG_2026_1000.jpg=IMG_2026.JPG");
  EXPECT_EQ(pairs[1], "IMG_2026_1001.jpg=IMG_20~1.JPG");
  EXPECT_EQ(pairs[99], "IMG_2026_1099.jpg=IMG_2~99.JPG");
  EXPECT_EQ(pairs[100], "IMG_2026_1100.jpg=IMG_~100.JPG");
  EXPECT_EQ(pairs[101], "IMG_2026_1101.jpg=IMG_~102.JPG");  // which is not in use
  EXPECT_EQ(pairs[1199], "IMG_2026_2199.jpg=IMG~1200.JPG");
}

// No short name has a blank base: listings would not show it.
TEST(Pairing, WhatAnUnnamedFolderHolds_IsUnnamedToo) {
  EXPECT_THAT(Paired(Seen({{".x/", ' '}, {".x/a.txt", 'a'}}, {})).unnamed,
              ElementsAre(".x", ".x/a.txt"));
}

TEST(Pairing, NameThatOnlyAMachineGives_IsMetAgain) {
  EXPECT_THAT(PairsOf(Paired(Seen({{"MY FILE.TXT", 'a'}, {"\x8ELT.TXT", 'b'}},
                                  {{"MY FILE.TXT", 'x'}, {"\x8ELT.TXT", 'b'}}))),
              testing::UnorderedElementsAre("MY FILE.TXT=MY FILE.TXT", "\x8ELT.TXT=\x8ELT.TXT"));
}

TEST(Pairing, SameContent_DecidesBetweenNamesThatMayBelongTogether) {
  const NameHints hints{.remembered = {{"long name 1", "LONG_NAM"}, {"long name 2", "LONG_N~1"}},
                        .built = {{"long name 1", "LONG_N~1"}, {"long name 2", "LONG_NAM"}}};
  const auto pairing = Paired(
      Seen({{"long name 1", 'a'}, {"long name 2", 'b'}}, {{"LONG_N~1", 'a'}, {"LONG_NAM", 'x'}}),
      {}, hints);
  EXPECT_THAT(PairsOf(pairing),
              testing::UnorderedElementsAre("long name 1=LONG_N~1", "long name 2=LONG_NAM"));
}

TEST(Pairing, RememberedNames_AreLikelierThanThoseOfABuild) {
  const NameHints hints{.remembered = {{"long name 1", "LONG_N~1"}},
                        .built = {{"long name 1", "LONG_NAM"}}};
  const auto pairing =
      Paired(Seen({{"long name 1", 'a'}}, {{"LONG_N~1", 'x'}, {"LONG_NAM", 'y'}}), {}, hints);
  EXPECT_THAT(PairsOf(pairing), ElementsAre("long name 1=LONG_N~1", "LONG_NAM=LONG_NAM"));
}

TEST(Pairing, RememberedNames_ComeBackToTheHost) {
  const NameHints hints{.remembered = {{"Long folder", "LONG_FOL"},
                                       {"Long folder/long file.txt", "LONG_FOL/LONG_FIL.TXT"},
                                       {"there", "THERE"}},
                        .built = {}};
  const auto pairing = Paired(
      Seen({}, {{"LONG_FOL/", ' '}, {"LONG_FOL/LONG_FIL.TXT", 'x'}, {"NEW", 'n'}}), {}, hints);
  EXPECT_THAT(PairsOf(pairing),
              ElementsAre("Long folder=LONG_FOL", "Long folder/long file.txt=LONG_FOL/LONG_FIL.TXT",
                          "NEW=NEW"));
}

std::vector<std::string> HostsOf(Memory memory, const Observation& seen) {
  FollowLetterCase(seen.host, memory);
  std::vector<std::string> hosts;
  for (const Pair& pair : memory.pairs) hosts.push_back(pair.host);
  return hosts;
}

TEST(FollowLetterCase, NameThatHasChangedInItsCaseAlone_IsTheSame) {
  const Memory memory = Knows({{"Docs/", "DOCS", ' '}, {"Docs/note.txt", "DOCS/NOTE.TXT", 'a'}});
  EXPECT_THAT(HostsOf(memory, Seen({{"docs/", ' '}, {"docs/NOTE.txt", 'b'}}, {})),
              ElementsAre("docs", "docs/NOTE.txt"));
}

TEST(FollowLetterCase, NameThatIsStillThereOrNotClear_IsNotFollowed) {
  const Memory one = Knows({{"note", "NOTE", 'a'}});
  EXPECT_THAT(HostsOf(one, Seen({{"note", 'a'}, {"NOTE", 'b'}}, {})), ElementsAre("note"));
  EXPECT_THAT(HostsOf(one, Seen({{"Note", 'a'}, {"NOTE", 'b'}}, {})), ElementsAre("note"));
  EXPECT_THAT(HostsOf(one, Seen({{"NOTE/", ' '}}, {})), ElementsAre("note"));
  EXPECT_THAT(HostsOf(one, Seen({{"notes", 'a'}}, {})), ElementsAre("note"));
  const Memory two = Knows({{"note", "NOTE", 'a'}, {"Note", "NOTE  ~1", 'b'}});
  EXPECT_THAT(HostsOf(two, Seen({{"NOTE", 'a'}}, {})), ElementsAre("note", "Note"));
}

TEST(FollowLetterCase, FolderThatIsFollowed_TakesWhatIsGoneFromItAlong) {
  const Memory memory = Knows({{"Docs/", "DOCS", 'f'},
                               {"Docs/In/", "DOCS/IN", 'f'},
                               {"Docs/In/a", "DOCS/IN/A", 'a'},
                               {"Docs/In/b", "DOCS/IN/B", 'b'},
                               {"Docs/c", "DOCS/C", 'c'}});
  EXPECT_THAT(HostsOf(memory, Seen({{"docs/", ' '}, {"docs/in/", ' '}, {"docs/in/B", 'b'}}, {})),
              ElementsAre("docs", "docs/in", "docs/in/a", "docs/in/B", "docs/c"));
}

TEST(FollowLetterCase, NeighbourInTheFollowedFolder_IsNotTakenForWhatIsGone) {
  const Memory memory =
      Knows({{"Docs/", "DOCS", 'f'}, {"Docs/A", "DOCS/A", 'a'}, {"Docs/a", "DOCS/A     ~1", 'b'}});
  EXPECT_THAT(HostsOf(memory, Seen({{"docs/", ' '}, {"docs/a", 'b'}}, {})),
              ElementsAre("docs", "docs/A", "docs/a"));
}

TEST(FollowLetterCase, FolderThatWasThereBefore_IsNotTheOneThatIsGone) {
  const Memory memory = Knows({{"Photos/", "PHOTOS", 'f'},
                               {"Photos/1", "PHOTOS/1", 'a'},
                               {"photos/", "PHOTOS~1", 'f'},
                               {"photos/2", "PHOTOS~1/2", 'b'}});
  EXPECT_THAT(HostsOf(memory, Seen({{"photos/", ' '}, {"photos/1", 'a'}, {"photos/2", 'b'}}, {})),
              ElementsAre("Photos", "Photos/1", "photos", "photos/2"));
}

TEST(FollowLetterCase, FolderOfTheKnownNameThatIsThere_KeepsWhatIsGoneFromIt) {
  const Memory memory = Knows({{"D/", "D", 'f'}, {"D/a", "D/A", 'a'}});
  EXPECT_THAT(HostsOf(memory, Seen({{"D/", ' '}, {"D/n", 'n'}, {"d/", ' '}, {"d/a", 'a'}}, {})),
              ElementsAre("D", "D/a"));
}

TEST(Pairing, FileAndFolderOfOneOwnName_ClashAndBothStay) {
  const Pairing pairing = Paired(Seen({{"DATA", 'a'}}, {{"DATA/", ' '}}));
  ASSERT_THAT(pairing.clashes, SizeIs(1));
  EXPECT_TRUE(pairing.clashes[0].fileIsOnHost);
  EXPECT_THAT(PairsOf(pairing), ElementsAre("DATA=DATA  ~1", "DATA (disk)=DATA"));
}

TEST(Pairing, RememberedFileThatTheGuestMadeAFolder_IsAPairNoMore) {
  const Pairing pairing = Paired(Seen({{"DATA", 'a'}}, {{"DATA/", ' '}, {"DATA/X", 'x'}}),
                                 Knows({{"DATA", "DATA", 'a'}}));
  EXPECT_THAT(pairing.clashes, SizeIs(1));
  EXPECT_THAT(PairsOf(pairing),
              ElementsAre("DATA=DATA  ~1", "DATA (disk)=DATA", "DATA (disk)/X=DATA/X"));
}

TEST(Pairing, WhatAClashingFolderHeld_IsNotTakenForDeleted) {
  const Pairing pairing =
      Paired(Seen({{"Docs", 'x'}}, {{"DOCS/", ' '}, {"DOCS/A.TXT", 'a'}}),
             Knows({{"Docs/", "DOCS/", 'f'}, {"Docs/a.txt", "DOCS/A.TXT", 'a'}}));
  EXPECT_THAT(pairing.clashes, SizeIs(1));
  for (const Row& row : pairing.rows) EXPECT_FALSE(row.agreed) << row.host;
  EXPECT_THAT(PairsOf(pairing),
              ElementsAre("Docs=DOCS  ~1", "DOCS (disk)=DOCS", "DOCS (disk)/A.TXT=DOCS/A.TXT"));
}

TEST(Pairing, FileThatBecameAFolderOnBothSides_IsANewPair) {
  const Pairing pairing =
      Paired(Seen({{"DATA/", ' '}}, {{"DATA/", ' '}}), Knows({{"DATA", "DATA", 'a'}}));
  EXPECT_THAT(pairing.clashes, IsEmpty());
  ASSERT_THAT(PairsOf(pairing), ElementsAre("DATA=DATA"));
  EXPECT_EQ(pairing.rows[0].type, EntryType::kFolder);
  EXPECT_FALSE(pairing.rows[0].agreed);
}

TEST(Pairing, RememberedName_DecidesBeforeTheBuiltOneOfAnEarlierPath) {
  const NameHints hints{.remembered = {{"a_b.txt", "A_B.TXT"}},
                        .built = {{"a+b.txt", "A_B.TXT"}, {"a_b.txt", "A_B   ~1.TXT"}}};
  const auto pairing =
      Paired(Seen({{"a+b.txt", 'n'}, {"a_b.txt", 'h'}}, {{"A_B.TXT", 'd'}}), {}, hints);
  EXPECT_THAT(PairsOf(pairing), ElementsAre("a_b.txt=A_B.TXT", "a+b.txt=A_B   ~1.TXT"));
}

TEST(Pairing, RememberedNameAmongEqualContents_DecidesBeforeTheBuiltOneOfAnEarlierPath) {
  const NameHints hints{.remembered = {{"a_b.txt", "A_B.TXT"}}, .built = {{"a+b.txt", "A_B.TXT"}}};
  const auto pairing =
      Paired(Seen({{"a+b.txt", 'e'}, {"a_b.txt", 'e'}}, {{"A_B.TXT", 'e'}}), {}, hints);
  EXPECT_THAT(PairsOf(pairing), ElementsAre("a_b.txt=A_B.TXT", "a+b.txt=A_B   ~1.TXT"));
}

TEST(Pairing, IgnoredEntryThatIsAsItWas_TakesNoPart) {
  Memory memory;
  memory.ignored = {{"link", {EntryType::kFolder, {}}}, {"link/a", {EntryType::kFile, Says('a')}}};
  const Pairing pairing = Paired(Seen({}, {{"LINK/", ' '}, {"LINK/A", 'a'}}), memory);
  EXPECT_THAT(pairing.rows, IsEmpty());
  EXPECT_THAT(pairing.ignored, UnorderedElementsAre("link", "link/a"));
}

TEST(Pairing, IgnoredEntryThatTheGuestChanged_IsNews) {
  Memory memory;
  memory.ignored = {{"link", {EntryType::kFolder, {}}},
                    {"link/a", {EntryType::kFile, Says('a')}},
                    {"link/b", {EntryType::kFile, Says('b')}}};
  const Pairing pairing =
      Paired(Seen({}, {{"LINK/", ' '}, {"LINK/A", 'x'}, {"LINK/B", 'b'}}), memory);
  EXPECT_THAT(PairsOf(pairing), ElementsAre("LINK=LINK", "LINK/A=LINK/A"));
  EXPECT_THAT(pairing.ignored, ElementsAre("link/b"));
}

TEST(WithUnseen, FolderThatCannotBeListed_HoldsWhatIsRemembered) {
  const Observation seen =
      WithUnseen(Seen({{"d/", '?'}}, {}), Knows({{"d/", "D/", 'f'}, {"d/a", "D/A", 'a'}}));
  ASSERT_TRUE(seen.host.contains("d/a"));
  EXPECT_FALSE(seen.host.at("d/a").isReadable);
}

TEST(WithUnseen, UnknownFolderThatCannotBeListed_TakesNoPart) {
  const Observation seen = WithUnseen(Seen({{"d/", '?'}}, {}), {});
  EXPECT_TRUE(seen.host.empty());
  EXPECT_THAT(seen.hostLeftOut, ElementsAre("d"));
}

TEST(WithUnseen, NeighbourOfThatName_IsNotBelowIt) {
  const Observation seen =
      WithUnseen(Seen({{"d/", '?'}}, {}), Knows({{"d/", "D/", 'f'}, {"da", "DA", 'a'}}));
  EXPECT_FALSE(seen.host.contains("da"));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
