#include "guard/hazards.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "guard/fitting.h"
#include "guard/vocabulary.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

Facts Sound() {
  Facts facts;
  facts.folder = "/home/me/disk";
  facts.image = "/home/me/disk.img";
  facts.stateFolder = "/home/me/disk.img.sync";
  facts.onHost.identity = {1, 2};
  facts.onHost.identityBefore = Identity{1, 2};
  facts.onDisk.bytes = 3 << 20;
  facts.onDisk.bytesBefore = 3 << 20;
  facts.onDisk.volumeId = 7;
  facts.onDisk.volumeIdBefore = 7;
  return facts;
}

TEST(HazardsOfSides, SoundSides_HaveNone) { EXPECT_THAT(HazardsOfSides(Sound()), IsEmpty()); }

TEST(HazardsOfSides, FirstMeeting_HasNone) {
  Facts facts = Sound();
  facts.onHost.identityBefore.reset();
  facts.onDisk.bytesBefore.reset();
  facts.onDisk.volumeIdBefore.reset();
  EXPECT_THAT(HazardsOfSides(facts), IsEmpty());
}

struct SideRow {
  const char* name;
  GuardedHazard hazard;
  bool canBeAccepted;
  std::function<void(Facts&)> spoil;
};

class SideHazard : public testing::TestWithParam<SideRow> {};

TEST_P(SideHazard, Row_IsTheOnlyHazardFound) {
  Facts facts = Sound();
  GetParam().spoil(facts);
  const Hazards hazards = HazardsOfSides(facts);
  ASSERT_EQ(hazards.size(), 1u);
  EXPECT_EQ(hazards[0].hazard, GetParam().hazard);
  EXPECT_EQ(hazards[0].canBeAccepted, GetParam().canBeAccepted);
  EXPECT_THAT(hazards[0].text, HasSubstr("/home/me/disk"));
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SideHazard,
    testing::Values(SideRow{"FolderMissing", GuardedHazard::kFolderMissing, true,
                            [](Facts& f) { f.onHost.state = FolderFacts::State::kMissing; }},
                    SideRow{"FolderUnreadable", GuardedHazard::kFolderUnreadable, false,
                            [](Facts& f) { f.onHost.state = FolderFacts::State::kUnreadable; }},
                    SideRow{"FolderThatIsNone", GuardedHazard::kFolderUnreadable, false,
                            [](Facts& f) { f.onHost.state = FolderFacts::State::kNoFolder; }},
                    SideRow{"FolderReplaced", GuardedHazard::kFolderReplaced, true,
                            [](Facts& f) {
                              f.onHost.identity = {1, 3};
                            }},
                    SideRow{"FolderOnAnotherDevice", GuardedHazard::kFolderReplaced, true,
                            [](Facts& f) {
                              f.onHost.identity = {2, 2};
                            }},
                    SideRow{"ImageMissing", GuardedHazard::kImageMissing, false,
                            [](Facts& f) { f.onDisk.state = ImageFacts::State::kMissing; }},
                    SideRow{"ImageUnreadable", GuardedHazard::kImageUnreadable, false,
                            [](Facts& f) { f.onDisk.state = ImageFacts::State::kUnreadable; }},
                    SideRow{"ImageThatIsNoFile", GuardedHazard::kImageUnreadable, false,
                            [](Facts& f) { f.onDisk.state = ImageFacts::State::kNoFile; }},
                    SideRow{"ImageTorn", GuardedHazard::kImageUnreadable, false,
                            [](Facts& f) { f.onDisk.state = ImageFacts::State::kTorn; }},
                    SideRow{"NoVolume", GuardedHazard::kImageNotFat16, false,
                            [](Facts& f) { f.onDisk.state = ImageFacts::State::kNoFat16; }},
                    SideRow{"CutShort", GuardedHazard::kImageCutShort, false,
                            [](Facts& f) { f.onDisk.state = ImageFacts::State::kCutShort; }},
                    SideRow{"ImageReplaced", GuardedHazard::kImageReplaced, true,
                            [](Facts& f) { f.onDisk.volumeId = 8; }},
                    SideRow{"ImageOfABackup", GuardedHazard::kImageReplaced, true,
                            [](Facts& f) { f.onDisk.isOlder = true; }},
                    SideRow{"ImageOfABackupAndOfAnotherDisk", GuardedHazard::kImageReplaced, true,
                            [](Facts& f) {
                              f.onDisk.isOlder = true;
                              f.onDisk.volumeId = 8;
                            }},
                    SideRow{"ImageResized", GuardedHazard::kImageResized, true,
                            [](Facts& f) { f.onDisk.bytes = 100 * 1024; }},
                    SideRow{"TakenForFat12", GuardedHazard::kImageNotFat16, true,
                            [](Facts& f) { f.onDisk.isTakenForFat12 = true; }},
                    SideRow{"OtherPartitions", GuardedHazard::kOtherPartitions, true,
                            [](Facts& f) { f.onDisk.otherPartitions = 1; }},
                    SideRow{"Damage", GuardedHazard::kImageUnsound, true,
                            [](Facts& f) { f.onDisk.damage = {"/A.TXT: its chain loops"}; }},
                    SideRow{"ImageInTheFolder", GuardedHazard::kNested, true,
                            [](Facts& f) { f.nesting.imageInFolder = true; }},
                    SideRow{"StateInTheFolder", GuardedHazard::kNested, true,
                            [](Facts& f) { f.nesting.stateInFolder = true; }},
                    SideRow{"FolderInTheState", GuardedHazard::kNested, false,
                            [](Facts& f) { f.nesting.folderInState = true; }},
                    SideRow{"StateDamaged", GuardedHazard::kStateDamaged, true,
                            [](Facts& f) { f.state.isDamaged = true; }},
                    SideRow{"StateNotWritable", GuardedHazard::kStateNotWritable, false,
                            [](Facts& f) { f.state.isWritable = false; }},
                    SideRow{"LockNotToBeHad", GuardedHazard::kStateNotWritable, false,
                            [](Facts& f) { f.state.lockError = "no lock"; }},
                    SideRow{"TrashNotToBeUsed", GuardedHazard::kStateNotWritable, false,
                            [](Facts& f) { f.state.trashError = "no trash"; }}),
    [](const auto& row) { return row.param.name; });

TEST(HazardsOfSides, NestingThatCannotBeAccepted_IsToldFirst) {
  Facts facts = Sound();
  facts.nesting = {.imageInFolder = true, .stateInFolder = true, .folderInState = true};
  const Hazards hazards = HazardsOfSides(facts);
  ASSERT_EQ(hazards.size(), 1u);
  EXPECT_FALSE(hazards[0].canBeAccepted);
  EXPECT_THAT(hazards[0].text, Not(HasSubstr("accept")));
}

// What a plan of these sides meets.
Hazards Found(const Observation& seen, const Memory& memory, const PlanFacts& planFacts = {},
              const HazardLimits& limits = {}, const Facts& facts = Sound()) {
  const Observation whole = WithUnseen(seen, memory);
  const Pairing pairing = PairEntries(whole, memory, {});
  const Plan plan = MakePlan(whole, memory, pairing, {.when = "NOW"});
  return HazardsOfPlan(facts, planFacts, whole, memory, pairing, plan, limits);
}

std::vector<GuardedHazard> Kinds(const Hazards& hazards) {
  std::vector<GuardedHazard> kinds;
  for (const GuardedHazardReport& report : hazards) kinds.push_back(report.hazard);
  return kinds;
}

TEST(HazardsOfPlan, OrdinaryChanges_HaveNone) {
  EXPECT_THAT(Found(Seen({{"a", 'x'}, {"c", 'c'}}, {{"A", 'a'}, {"B", 'y'}}),
                    Knows({{"a", "A", 'a'}, {"b", "B", 'b'}})),
              IsEmpty());
}

TEST(HazardsOfPlan, EmptyFolder_IsOne) {
  EXPECT_THAT(Kinds(Found(Seen({}, {{"A", 'a'}}), Knows({{"a", "A", 'a'}}))),
              ElementsAre(GuardedHazard::kFolderEmpty));
  EXPECT_THAT(Found(Seen({}, {{"A", 'a'}}), {}), IsEmpty());  // nothing was agreed
}

TEST(HazardsOfPlan, EmptyDisk_IsOne) {
  EXPECT_THAT(Kinds(Found(Seen({{"a", 'a'}}, {}), Knows({{"a", "A", 'a'}}))),
              ElementsAre(GuardedHazard::kImageEmpty));
}

// `deleted` of `agreed` files are gone from the disk.
Hazards FoundWithDeletions(int agreed, int deleted, const HazardLimits& limits = {}) {
  Observation seen;
  Memory memory;
  for (int i = 0; i < agreed; ++i) {
    const std::string name = "F" + std::to_string(i);
    seen.host[name] = HostFile('a');
    memory.pairs.push_back({name, name, EntryType::kFile, Says('a')});
    if (i >= deleted) seen.disk.merge(Seen({}, {{name, 'a'}}).disk);
  }
  return Found(seen, memory, {}, limits);
}

TEST(HazardsOfPlan, MoreThanHalfAndMoreThanTen_AreManyDeletions) {
  EXPECT_THAT(FoundWithDeletions(20, 10), IsEmpty());
  EXPECT_THAT(Kinds(FoundWithDeletions(21, 11)), ElementsAre(GuardedHazard::kManyDeletions));
  EXPECT_THAT(FoundWithDeletions(22, 11), IsEmpty());
  EXPECT_THAT(FoundWithDeletions(15, 10), IsEmpty());
}

TEST(HazardsOfPlan, EmptySideWithManyFiles_IsOne) {
  EXPECT_THAT(Kinds(FoundWithDeletions(40, 40)), ElementsAre(GuardedHazard::kImageEmpty));
  Observation seen;
  Memory memory;
  for (int i = 0; i < 40; ++i) {
    const std::string name = "F" + std::to_string(i);
    seen.disk.merge(Seen({}, {{name, 'a'}}).disk);
    memory.pairs.push_back({name, name, EntryType::kFile, Says('a')});
  }
  EXPECT_THAT(Kinds(Found(seen, memory)), ElementsAre(GuardedHazard::kFolderEmpty));
}

TEST(HazardsOfPlan, BothNumbersOfDeletions_CanBeChosen) {
  EXPECT_THAT(Kinds(FoundWithDeletions(20, 3, {.mostDeletions = 2, .mostDeletedShare = 0.1})),
              ElementsAre(GuardedHazard::kManyDeletions));
}

TEST(HazardsOfPlan, ManyDeletions_NameTheFiles) {
  const Hazards hazards = FoundWithDeletions(60, 40);
  ASSERT_EQ(hazards.size(), 1u);
  EXPECT_THAT(hazards[0].text, HasSubstr("40 of 60 files would be deleted from the folder"));
  EXPECT_EQ(hazards[0].paths.size(), 20u);
  EXPECT_EQ(hazards[0].pathCount, 40u);
}

TEST(HazardsOfPlan, AgreedFileThatCannotBeRead_IsOne) {
  const Hazards hazards = Found(Seen({{"a", '?'}, {"b", 'b'}}, {{"A", 'a'}, {"B", 'b'}}),
                                Knows({{"a", "A", 'a'}, {"b", "B", 'b'}}));
  EXPECT_THAT(Kinds(hazards), ElementsAre(GuardedHazard::kEntryUnreadable));
  EXPECT_THAT(hazards[0].paths, ElementsAre("a"));
}

TEST(HazardsOfPlan, FilesInAFolderThatCannotBeListed_AreOne) {
  const Hazards hazards =
      Found(Seen({{"d/", '?'}, {"b", 'b'}}, {{"D/", ' '}, {"D/A", 'a'}, {"B", 'b'}}),
            Knows({{"d/", "D/", 'f'}, {"d/a", "D/A", 'a'}, {"b", "B", 'b'}}));
  EXPECT_THAT(Kinds(hazards), ElementsAre(GuardedHazard::kEntryUnreadable));
  EXPECT_THAT(hazards[0].paths, ElementsAre("d", "d/a"));
}

TEST(HazardsOfPlan, KindClash_IsOne) {
  const Hazards hazards = Found(Seen({{"DATA", 'a'}}, {{"DATA/", ' '}}), {});
  EXPECT_THAT(Kinds(hazards), ElementsAre(GuardedHazard::kKindClash));
  EXPECT_THAT(hazards[0].paths, ElementsAre("DATA"));
}

TEST(HazardsOfPlan, Conflict_IsOneWhereThatWasAskedFor) {
  const Observation seen = Seen({{"a", 'h'}}, {{"A", 'd'}});
  EXPECT_THAT(Found(seen, {}), IsEmpty());
  EXPECT_THAT(Kinds(Found(seen, {}, {}, {.stopsAtConflicts = true})),
              ElementsAre(GuardedHazard::kConflict));
}

TEST(HazardsOfPlan, FolderThatCannotBeWritten_IsOne) {
  EXPECT_THAT(Kinds(Found(Seen({}, {{"A", 'a'}}), {}, {.unwritable = {"d"}})),
              ElementsAre(GuardedHazard::kFolderNotWritable));
}

TEST(HazardsOfPlan, TopThatCannotBeWritten_HasAName) {
  const Hazards hazards = Found(Seen({}, {{"A", 'a'}}), {}, {.unwritable = {"", "d"}});
  EXPECT_THAT(hazards.at(0).paths, ElementsAre(".", "d"));
}

TEST(HazardsOfPlan, ImageThatCannotBeWritten_IsOneWhenItMustBe) {
  EXPECT_THAT(Kinds(Found(Seen({{"a", 'a'}}, {}), {}, {.isImageWritable = false})),
              ElementsAre(GuardedHazard::kImageNotWritable));
  EXPECT_THAT(Found(Seen({}, {{"A", 'a'}}), {}, {.isImageWritable = false}), IsEmpty());
}

TEST(HazardsOfPlan, TooManyEntriesInTheTop_DoNotFit) {
  Observation seen;
  for (int i = 0; i < 512; ++i) seen.host["F" + std::to_string(i)] = HostFile('a');
  const Hazards hazards = Found(seen, {});
  ASSERT_THAT(Kinds(hazards), ElementsAre(GuardedHazard::kDoesNotFit));
  EXPECT_FALSE(hazards[0].canBeAccepted);
  EXPECT_THAT(hazards[0].text, HasSubstr("Root directory is full"));
  EXPECT_THAT(hazards[0].text, HasSubstr("511"));
  seen.host.erase("F0");
  EXPECT_THAT(Found(seen, {}), IsEmpty());
}

TEST(HazardsOfPlan, FileLargerThanTheImage_DoesNotFitAndTheSmallestSizeIsTold) {
  Observation seen = Seen({{"big", 'a'}}, {});
  seen.host["big"].content.size = 5 << 20;
  const Hazards hazards = Found(seen, {});
  ASSERT_THAT(Kinds(hazards), ElementsAre(GuardedHazard::kDoesNotFit));
  EXPECT_THAT(hazards[0].text, HasSubstr("an image of 6 MiB or more"));
}

TEST(HazardsOfPlan, ImageLargerThanAnyVolume_IsToldForWhatItIs) {
  Facts facts = Sound();
  facts.onDisk.bytes = std::uint64_t{5} << 30;
  const Hazards hazards = Found(Seen({{"a", 'a'}}, {}), {}, {}, {}, facts);
  ASSERT_THAT(Kinds(hazards), ElementsAre(GuardedHazard::kDoesNotFit));
  EXPECT_THAT(hazards[0].text,
              HasSubstr("the image /home/me/disk.img has 5368709120 bytes, and so would the next"));
  EXPECT_THAT(hazards[0].text, HasSubstr("Use a smaller image, such as one of 3 MiB"));
  EXPECT_THAT(hazards[0].text, Not(HasSubstr("or more")));
}

// Up to about 32 MiB clusters have 2 KiB, and from there on 4 KiB, of which 34 MiB have fewer.
TEST(FitTree, ImageWhoseLargerClustersHoldLess_IsGivenALargerSizeThatDoes) {
  std::vector<TreeEntry> tree{{.disk = "D", .type = EntryType::kFolder}};
  for (int i = 0; i < 10'000; ++i) {
    tree.push_back({.disk = "D/F" + std::to_string(i), .content = Says('a')});
  }
  EXPECT_TRUE(FitTree(tree, std::uint64_t{31} << 20).fits);
  const Fitting fitting = FitTree(tree, std::uint64_t{34} << 20);
  EXPECT_FALSE(fitting.fits);
  EXPECT_EQ(fitting.bytesThatDo, std::uint64_t{40} << 20);
  EXPECT_TRUE(FitTree(tree, fitting.bytesThatDo).fits);
}

TEST(HazardsOfPlan, WhatTheDiskNeedNotTake_NeedNotFit) {
  Observation seen = Seen({}, {{"A", 'a'}});
  for (int i = 0; i < 600; ++i) seen.hostLeftOut.insert(".F" + std::to_string(i));
  EXPECT_THAT(Found(seen, {}), IsEmpty());
}

constexpr std::uint64_t kImageBytes = 3 << 20;

// Each place on a file system of its own.
PlanFacts Apart() {
  PlanFacts facts;
  facts.folder.device = 1;
  facts.image.device = 2;
  facts.newImage.device = 3;
  facts.trash.device = 4;
  return facts;
}

// Whether there is too little room with so many bytes in one place, and enough with one more.
void ExpectNeed(const Observation& seen, const Memory& known, PlanFacts facts,
                Room PlanFacts::*place, std::uint64_t bytes) {
  (facts.*place).free = bytes - 1;
  EXPECT_THAT(Kinds(Found(seen, known, facts)), ElementsAre(GuardedHazard::kNoRoom));
  (facts.*place).free = bytes;
  EXPECT_THAT(Found(seen, known, facts), IsEmpty());
}

TEST(HazardsOfPlan, TooLittleRoomForFilesOfTheDisk_IsOne) {
  ExpectNeed(Seen({}, {{"A", 'a'}}), {}, Apart(), &PlanFacts::folder, 1);
}

TEST(HazardsOfPlan, TooLittleRoomForTheNewImage_IsOne) {
  ExpectNeed(Seen({{"a", 'a'}}, {}), {}, Apart(), &PlanFacts::newImage, kImageBytes);
  PlanFacts facts = Apart();
  facts.image.free = 0;
  EXPECT_THAT(Found(Seen({{"a", 'a'}}, {}), {}, facts), IsEmpty());
}

TEST(HazardsOfPlan, TooLittleRoomForWhatIsReplaced_IsOneWhereItIsCopied) {
  const Observation replaced = Seen({{"a", 'a'}}, {{"A", 'b'}});
  const Memory known = Knows({{"a", "A", 'a'}});
  ExpectNeed(replaced, known, Apart(), &PlanFacts::trash, 1);
  PlanFacts facts = Apart();
  facts.trash = facts.folder;
  facts.trash.free = facts.folder.free = 1;  // for the file of the disk alone
  EXPECT_THAT(Found(replaced, known, facts), IsEmpty());
}

TEST(HazardsOfPlan, TooLittleRoomForTheOldImage_IsOneWhereItIsCopied) {
  const Observation edited = Seen({{"a", 'b'}}, {{"A", 'a'}});
  const Memory known = Knows({{"a", "A", 'a'}});
  ExpectNeed(edited, known, Apart(), &PlanFacts::trash, kImageBytes);
  PlanFacts facts = Apart();
  facts.trash.device = facts.newImage.device;
  ExpectNeed(edited, known, facts, &PlanFacts::newImage, kImageBytes);
}

TEST(HazardsOfPlan, ImageInPlace_NeedsRoomForACopyAndForItsHoles) {
  const Observation edited = Seen({{"a", 'b'}}, {{"A", 'a'}});
  const Memory known = Knows({{"a", "A", 'a'}});
  PlanFacts facts = Apart();
  facts.isInPlace = true;
  facts.holes = 1000;
  ExpectNeed(edited, known, facts, &PlanFacts::image, 1000);
  facts.trash.device = facts.newImage.device;
  ExpectNeed(edited, known, facts, &PlanFacts::newImage, 2 * kImageBytes);
  facts.image.device = facts.newImage.device;
  ExpectNeed(edited, known, facts, &PlanFacts::newImage, 2 * kImageBytes + 1000);
  facts.isInPlace = false;
  ExpectNeed(edited, known, facts, &PlanFacts::newImage, kImageBytes);
}

TEST(HazardsOfPlan, TornImage_NeedsRoomForACopyOfItAlsoWhereNothingHasChanged) {
  const Observation same = Seen({{"a", 'a'}}, {{"A", 'a'}});
  const Memory known = Knows({{"a", "A", 'a'}});
  PlanFacts facts = Apart();
  facts.isTorn = true;
  facts.holes = 1000;
  ExpectNeed(same, known, facts, &PlanFacts::trash, kImageBytes);
  ExpectNeed(same, known, facts, &PlanFacts::image, 1000);
}

TEST(HazardsOfPlan, TooLittleRoomBesideTheTrash_TellsItsSize) {
  const Observation seen = Seen({}, {{"A", 'a'}});
  PlanFacts facts = Apart();
  facts.folder.free = 0;
  facts.trashBytes = 4321;
  EXPECT_THAT(Found(seen, {}, facts).at(0).text, Not(HasSubstr("trash")));
  facts.trash.device = facts.folder.device;
  EXPECT_THAT(Found(seen, {}, facts).at(0).text, HasSubstr("has 4321 bytes there, keep less"));
}

TEST(HazardsOfPlan, PlacesOnOneFileSystem_NeedRoomTogetherAndAreToldOnce) {
  const Observation seen = Seen({{"a", 'a'}}, {{"B", 'b'}});
  PlanFacts together;
  ExpectNeed(seen, {}, Apart(), &PlanFacts::newImage, kImageBytes);
  together.folder.free = together.image.free = together.newImage.free = together.trash.free =
      kImageBytes;
  EXPECT_THAT(Kinds(Found(seen, {}, together)), ElementsAre(GuardedHazard::kNoRoom));
  EXPECT_THAT(Found(seen, {}, together).at(0).text,
              HasSubstr("has 3145728 bytes left, and what is written to it needs 3145729. Make"));
}

TEST(StandsInTheWay, AcceptedHazards_DoNot) {
  const Hazards hazards{{GuardedHazard::kFolderEmpty, true, "", {}}};
  EXPECT_TRUE(StandsInTheWay(hazards, {}));
  EXPECT_TRUE(StandsInTheWay(hazards, {GuardedHazard::kImageEmpty}));
  EXPECT_FALSE(StandsInTheWay(hazards, {GuardedHazard::kFolderEmpty}));
  EXPECT_FALSE(StandsInTheWay({}, {}));
}

TEST(StandsInTheWay, WhatCannotBeAccepted_AlwaysDoes) {
  const Hazards hazards{{GuardedHazard::kDoesNotFit, false, "", {}}};
  EXPECT_TRUE(StandsInTheWay(hazards, {GuardedHazard::kDoesNotFit}));
}

TEST(GuardedHazardName, EveryHazard_HasAName) {
  for (int i = 0; i <= static_cast<int>(GuardedHazard::kConflict); ++i) {
    EXPECT_STRNE(GuardedHazardName(static_cast<GuardedHazard>(i)), "") << i;
  }
  EXPECT_STREQ(GuardedHazardName(GuardedHazard::kFolderMissing), "folder-missing");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
