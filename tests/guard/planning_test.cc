#include "guard/planning.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "guard/vocabulary.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Kind = GuardedStep::Kind;
using Reason = GuardedStep::Reason;

std::string Text(const GuardedStep& step) {
  static const char* kKinds[] = {"write host", "make host", "delete host", "remove host",
                                 "write disk", "make disk", "delete disk", "remove disk"};
  static const char* kReasons[] = {"new", "changed", "deleted", "conflict", "unreadable"};
  return std::string(kKinds[static_cast<int>(step.kind)]) + ' ' + step.hostPath + ' ' +
         step.diskPath + ' ' + kReasons[static_cast<int>(step.reason)];
}

std::vector<std::string> StepsOf(const Plan& plan) {
  std::vector<std::string> steps;
  for (const GuardedStep& step : plan.steps) steps.push_back(Text(step));
  return steps;
}

// One row of the decision table: a letter for what each side has, '-' for nothing.
struct TableRow {
  const char* name;
  char host;
  char disk;
  char agreed;
  std::vector<std::string> steps;
};

class FileTable : public testing::TestWithParam<TableRow> {};

TEST_P(FileTable, Row_IsPlannedAsItSays) {
  const TableRow& row = GetParam();
  Observation seen;
  if (row.host != '-') seen.host["a.txt"] = HostFile(row.host);
  if (row.disk != '-') seen.disk = Seen({}, {{"A.TXT", row.disk}}).disk;
  const Memory memory = row.agreed == '-' ? Memory{} : Knows({{"a.txt", "A.TXT", row.agreed}});
  const Plan plan = Planned(seen, memory);
  EXPECT_EQ(StepsOf(plan), row.steps);
  bool writesDisk = false;
  for (const GuardedStep& step : plan.steps) writesDisk |= step.kind >= Kind::kWriteOnDisk;
  EXPECT_EQ(plan.needsImage, writesDisk);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, FileTable,
    testing::Values(
        TableRow{"AlikeAsAgreed", 'a', 'a', 'a', {}}, TableRow{"AlikeAndNew", 'a', 'a', '-', {}},
        TableRow{"ChangedAlike", 'b', 'b', 'a', {}},
        TableRow{"ChangedOnTheHost", 'b', 'a', 'a', {"write disk a.txt /A.TXT changed"}},
        TableRow{"ChangedOnTheDisk", 'a', 'b', 'a', {"write host a.txt /A.TXT changed"}},
        TableRow{"NewOnTheHost", 'a', '-', '-', {"write disk a.txt /A.TXT new"}},
        TableRow{"NewOnTheDisk", '-', 'a', '-', {"write host A.TXT /A.TXT new"}},
        TableRow{"DeletedOnTheHost", '-', 'a', 'a', {"delete disk a.txt /A.TXT deleted"}},
        TableRow{"DeletedOnTheDisk", 'a', '-', 'a', {"delete host a.txt /A.TXT deleted"}},
        TableRow{
            "DeletedOnTheDiskChangedOnTheHost", 'b', '-', 'a', {"write disk a.txt /A.TXT changed"}},
        TableRow{
            "DeletedOnTheHostChangedOnTheDisk", '-', 'b', 'a', {"write host a.txt /A.TXT changed"}},
        TableRow{"DeletedOnBoth", '-', '-', 'a', {}},
        TableRow{
            "ChangedOnBoth",
            'b',
            'c',
            'a',
            {"write host a (disk NOW).txt /A.TXT conflict", "write disk a.txt /A.TXT conflict"}},
        TableRow{
            "NewOnBothAndDifferent",
            'b',
            'c',
            '-',
            {"write host a (disk NOW).txt /A.TXT conflict", "write disk a.txt /A.TXT conflict"}}),
    [](const auto& row) { return row.param.name; });

TEST(Planning, EqualHashOfAnotherSize_IsAnotherContent) {
  Observation seen = Seen({{"a.txt", 'a'}}, {{"A.TXT", 'a'}});
  seen.disk["a.txt"].content.size = 2;
  EXPECT_THAT(StepsOf(Planned(seen, Knows({{"a.txt", "A.TXT", 'a'}}))),
              ElementsAre("write host a.txt /A.TXT changed"));
}

TEST(Planning, Conflict_KeepsBothOnBothSides) {
  const Plan plan =
      Planned(Seen({{"a.txt", 'h'}}, {{"A.TXT", 'd'}}), Knows({{"a.txt", "A.TXT", 'o'}}));
  EXPECT_THAT(plan.conflicts, ElementsAre("a.txt"));
  const Observation after = Apply(plan, Seen({{"a.txt", 'h'}}, {{"A.TXT", 'd'}}));
  EXPECT_EQ(after.host.at("a.txt").content, Says('h'));
  EXPECT_EQ(after.host.at("a (disk NOW).txt").content, Says('d'));
  EXPECT_EQ(after.disk.at("a.txt").content, Says('h'));
  EXPECT_EQ(after.disk.at("a_(disk_.txt").content, Says('d'));
}

TEST(Planning, ConflictWhoseOtherVersionIsKeptAlready_WritesItOnce) {
  const Plan plan = Planned(Seen({{"a.txt", 'h'}, {"a (disk BEFORE).txt", 'd'}}, {{"A.TXT", 'd'}}),
                            Knows({{"a.txt", "A.TXT", 'o'}}));
  EXPECT_THAT(plan.hostWrites, IsEmpty());
  EXPECT_EQ(plan.tree.size(), 2u);
}

// Not a look at every file for each of them: that would take longer than a test may.
TEST(Planning, ManyConflicts_ArePlannedWithOneLookAtTheFolder) {
  Observation seen;
  Memory memory;
  for (int i = 0; i < 40'000; ++i) {
    const std::string host = "f" + std::to_string(i);
    const std::string disk = "F" + std::to_string(i);
    seen.host[host] = HostFile('b');
    seen.disk[DiskKey(disk)] = {
        .path = disk, .shortName = ShortNameOf(disk), .content = Says('c'), .isDated = true};
    memory.pairs.push_back({host, disk, EntryType::kFile, Says('a')});
  }
  EXPECT_EQ(Planned(seen, memory).conflicts.size(), 40'000u);
}

TEST(Planning, ManyConflictsWithManyKeptVersions_FindTheirOwn) {
  constexpr int kFiles = 20'000;
  Observation seen;
  Memory memory;
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = "f" + std::to_string(i);
    const std::string disk = "F" + std::to_string(i);
    seen.host[name + ".txt"] = HostFile('b');
    seen.host[name + " (disk 2026-11-21 17.20.05).txt"] = HostFile('c');
    seen.disk[DiskKey(disk)] = {
        .path = disk, .shortName = ShortNameOf(disk), .content = Says('c'), .isDated = true};
    memory.pairs.push_back({name + ".txt", disk, EntryType::kFile, Says('a')});
  }
  const Plan plan = Planned(seen, memory);
  EXPECT_EQ(plan.conflicts.size(), std::size_t{kFiles});
  EXPECT_THAT(plan.hostWrites, IsEmpty());
}

TEST(Planning, ConflictRules_TakeOneSide) {
  const Observation seen = Seen({{"a.txt", 'h'}}, {{"A.TXT", 'd'}});
  const Memory memory = Knows({{"a.txt", "A.TXT", 'o'}});
  EXPECT_THAT(StepsOf(Planned(seen, memory, {.onConflict = ConflictRule::kTakeDisk})),
              ElementsAre("write host a.txt /A.TXT conflict"));
  EXPECT_THAT(StepsOf(Planned(seen, memory, {.onConflict = ConflictRule::kTakeHost})),
              ElementsAre("write disk a.txt /A.TXT conflict"));
  EXPECT_THAT(Planned(seen, memory, {.onConflict = ConflictRule::kStop, .when = "NOW"}).steps,
              testing::SizeIs(2));
}

TEST(Planning, UndatedEntryAtTheFirstMeeting_IsAnOlderVersionOfTheHosts) {
  Observation seen = Seen({{"a.txt", 'h'}}, {{"A.TXT", 'd'}});
  seen.disk["a.txt"].isDated = false;
  const Plan plan = Planned(seen, {}, {.isFirstMeeting = true, .when = "NOW"});
  EXPECT_THAT(StepsOf(plan), ElementsAre("write disk a.txt /A.TXT changed"));
  EXPECT_THAT(plan.conflicts, IsEmpty());
}

TEST(Planning, DatedEntryAtTheFirstMeeting_IsAConflict) {
  const Plan plan = Planned(Seen({{"a.txt", 'h'}}, {{"A.TXT", 'd'}}), {},
                            {.isFirstMeeting = true, .when = "NOW"});
  EXPECT_THAT(plan.conflicts, ElementsAre("a.txt"));
}

TEST(Planning, FileUnreadableOnTheDisk_IsTakenFromTheHost) {
  const Plan plan =
      Planned(Seen({{"a.txt", 'a'}}, {{"A.TXT", '?'}}), Knows({{"a.txt", "A.TXT", 'a'}}));
  EXPECT_THAT(StepsOf(plan), ElementsAre("write disk a.txt /A.TXT unreadable"));
}

TEST(Planning, FileUnreadableOnTheDiskAndNowhereElse_IsTold) {
  const Plan plan = Planned(Seen({}, {{"A.TXT", '?'}}), {});
  EXPECT_THAT(plan.lostOnDisk, ElementsAre("A.TXT"));
  EXPECT_THAT(plan.tree, IsEmpty());
}

TEST(Planning, FileUnreadableOnTheHost_StaysAsItIsOnBothSides) {
  const Memory memory = Knows({{"a.txt", "A.TXT", 'a'}, {"b.txt", "B.TXT", 'b'}});
  const Plan plan =
      Planned(Seen({{"a.txt", '?'}, {"b.txt", 'x'}}, {{"A.TXT", 'n'}, {"B.TXT", 'b'}}), memory);
  EXPECT_THAT(StepsOf(plan), ElementsAre("write disk b.txt /B.TXT changed"));
  ASSERT_EQ(plan.tree.size(), 2u);
  EXPECT_TRUE(plan.tree[0].isFromOldImage);
  EXPECT_EQ(plan.after.pairs[0].agreed, Says('a'));  // so that the guest's change is one next time
}

TEST(Planning, FileUnreadableOnBothSides_IsAgreedOnNoMore) {
  const Memory memory = Knows({{"a.txt", "A.TXT", 'a'}, {"b.txt", "B.TXT", 'b'}});
  const Plan plan =
      Planned(Seen({{"a.txt", '?'}, {"b.txt", 'x'}}, {{"A.TXT", '?'}, {"B.TXT", 'b'}}), memory);
  const Observation after = Apply(plan, Seen({{"a.txt", 'a'}, {"b.txt", 'x'}}, {}));
  EXPECT_FALSE(after.disk.contains("a.txt"));
  EXPECT_THAT(StepsOf(Planned(after, plan.after)), ElementsAre("write disk a.txt /A.TXT new"));
}

TEST(Planning, FileUnreadableOnTheHostAndGoneOnTheDisk_StaysAgreedOn) {
  const Memory memory = Knows({{"a.txt", "A.TXT", 'a'}});
  const Plan plan = Planned(Seen({{"a.txt", '?'}}, {}), memory);
  EXPECT_TRUE(plan.IsEmpty());
  EXPECT_EQ(plan.after, memory);
}

TEST(Planning, NewFileUnreadableOnTheHost_TakesNoPart) {
  const Plan plan = Planned(Seen({{"a.txt", '?'}}, {}), {});
  EXPECT_TRUE(plan.IsEmpty());
  EXPECT_THAT(plan.after.pairs, IsEmpty());
}

TEST(Planning, WhatLiesInAFolderThatCannotBeListed_IsNotTakenForDeleted) {
  const Memory memory = Knows({{"d/", "D/", 'f'}, {"d/a", "D/A", 'a'}});
  const Plan plan = Planned(Seen({{"d/", '?'}}, {{"D/", ' '}, {"D/A", 'a'}}), memory);
  EXPECT_TRUE(plan.IsEmpty());
  EXPECT_EQ(plan.after, memory);
}

// --- folders

struct FolderRow {
  const char* name;
  bool host;
  bool disk;
  bool agreed;
  std::vector<std::string> steps;
};

class FolderTable : public testing::TestWithParam<FolderRow> {};

TEST_P(FolderTable, EmptyFolder_IsPlannedAsItSays) {
  const FolderRow& row = GetParam();
  Observation seen;
  if (row.host) seen.host = Seen({{"d/", ' '}}, {}).host;
  if (row.disk) seen.disk = Seen({}, {{"D/", ' '}}).disk;
  EXPECT_EQ(StepsOf(Planned(seen, row.agreed ? Knows({{"d/", "D/", 'f'}}) : Memory{})), row.steps);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, FolderTable,
    testing::Values(FolderRow{"OnBoth", true, true, true, {}},
                    FolderRow{"NewOnBoth", true, true, false, {}},
                    FolderRow{"NewOnTheHost", true, false, false, {"make disk d /D new"}},
                    FolderRow{"NewOnTheDisk", false, true, false, {"make host D /D new"}},
                    FolderRow{"RemovedOnTheHost", false, true, true, {"remove disk d /D deleted"}},
                    FolderRow{"RemovedOnTheDisk", true, false, true, {"remove host d /D deleted"}},
                    FolderRow{"RemovedOnBoth", false, false, true, {}}),
    [](const auto& row) { return row.param.name; });

TEST(Planning, FolderRemovedOnTheDisk_StaysForWhatIsNewInIt) {
  const Plan plan = Planned(Seen({{"d/", ' '}, {"d/new", 'n'}, {"d/old", 'o'}}, {}),
                            Knows({{"d/", "D/", 'f'}, {"d/old", "D/OLD", 'o'}}));
  EXPECT_THAT(StepsOf(plan),
              UnorderedElementsAre("delete host d/old /D/OLD deleted",
                                   "write disk d/new /D/NEW new", "make disk d /D new"));
}

TEST(Planning, FolderRemovedOnTheHost_ComesBackForWhatTheGuestChangedInIt) {
  const Plan plan = Planned(Seen({}, {{"D/", ' '}, {"D/E/", ' '}, {"D/E/A", 'x'}, {"D/B", 'b'}}),
                            Knows({{"d/", "D/", 'f'},
                                   {"d/e/", "D/E/", 'f'},
                                   {"d/e/a", "D/E/A", 'a'},
                                   {"d/b", "D/B", 'b'}}));
  EXPECT_THAT(StepsOf(plan), UnorderedElementsAre("write host d/e/a /D/E/A changed",
                                                  "delete disk d/b /D/B deleted",
                                                  "make host d/e /D/E new", "make host d /D new"));
  EXPECT_THAT(plan.hostFolders, ElementsAre("d", "d/e"));
}

TEST(Planning, FolderRemovedOnTheDisk_StaysForWhatTakesNoPart) {
  Observation seen = Seen({{"d/", ' '}}, {});
  seen.hostLeftOut.insert("d/.hidden");
  EXPECT_THAT(StepsOf(Planned(seen, Knows({{"d/", "D/", 'f'}}))),
              ElementsAre("make disk d /D new"));
}

TEST(Planning, NestedFoldersRemovedOnTheDisk_GoInnermostFirst) {
  const Plan plan =
      Planned(Seen({{"d/", ' '}, {"d/e/", ' '}, {"d/e/a", 'a'}}, {}),
              Knows({{"d/", "D/", 'f'}, {"d/e/", "D/E/", 'f'}, {"d/e/a", "D/E/A", 'a'}}));
  EXPECT_THAT(plan.hostRemovals, ElementsAre("d/e", "d"));
  EXPECT_THAT(plan.hostDeletions, ElementsAre("d/e/a"));
  EXPECT_FALSE(plan.needsImage);
}

TEST(Planning, Tree_IsTheWholeVolumeWithDirectoriesFirst) {
  const Plan plan =
      Planned(Seen({{"b", 'b'}, {"d/", ' '}, {"d/a", 'x'}}, {{"D/", ' '}, {"D/A", 'a'}}),
              Knows({{"d/", "D/", 'f'}, {"d/a", "D/A", 'a'}}));
  std::vector<std::string> tree;
  for (const TreeEntry& entry : plan.tree) tree.push_back(entry.host + '=' + entry.disk);
  EXPECT_THAT(tree, ElementsAre("b=B", "d=D", "d/a=D/A"));
}

TEST(Planning, IgnoredEntries_AreRememberedUntilTheNextImage) {
  Memory memory;
  memory.ignored = {{"link", {EntryType::kFile, Says('l')}}};
  EXPECT_EQ(Planned(Seen({}, {{"LINK", 'l'}}), memory).after.ignored, memory.ignored);
  EXPECT_THAT(Planned(Seen({{"a", 'a'}}, {{"LINK", 'l'}}), memory).after.ignored, IsEmpty());
}

// Whatever both sides have: applied, a plan leaves nothing to do, and no content is gone that was
// not meant to go.
TEST(Planning, EveryCombinationOfThreeFiles_LeavesNothingToDoAfterwards) {
  const char letters[] = {'-', 'a', 'b', 'c'};
  for (int i = 0; i < 64 * 64; ++i) {
    Observation seen;
    Memory memory;
    int rest = i;
    for (const std::string name : {"x", "y"}) {
      const char host = letters[rest % 4];
      const char disk = letters[rest / 4 % 4];
      const char agreed = letters[rest / 16 % 4];
      rest /= 64;
      if (host != '-') seen.host[name] = HostFile(host);
      const std::string diskName = name == "x" ? "X" : "Y";
      if (disk != '-') seen.disk.merge(Seen({}, {{diskName, disk}}).disk);
      if (agreed != '-') {
        memory.pairs.push_back({name, diskName, EntryType::kFile, Says(agreed)});
      }
    }
    const Plan plan = Planned(seen, memory);
    const Plan again = Planned(Apply(plan, seen), plan.after);
    EXPECT_TRUE(again.IsEmpty()) << i;
    EXPECT_EQ(again.after, plan.after) << i;
  }
}

TEST(MakePlan, WhatIsNewOnTheDiskInAFolderThatCannotBeListed_StaysThereAlone) {
  const Observation seen = Seen({{"docs/", '?'}, {"docs/a.txt", '?'}}, {{"DOCS/", 'f'},
                                                                        {"DOCS/A.TXT", 'a'},
                                                                        {"DOCS/NEW.TXT", 'n'},
                                                                        {"DOCS/SUB/", 'f'},
                                                                        {"DOCS/SUB/NEW.TXT", 'n'}});
  const Memory memory = Knows({{"docs/", "DOCS/", 'f'}, {"docs/a.txt", "DOCS/A.TXT", 'a'}});
  const Plan plan = Planned(seen, memory);
  EXPECT_THAT(StepsOf(plan), IsEmpty());
  EXPECT_FALSE(plan.needsImage);
  std::vector<std::string> tree;
  for (const TreeEntry& entry : plan.tree) {
    tree.push_back(entry.disk);
    EXPECT_TRUE(entry.type == EntryType::kFolder || entry.isFromOldImage) << entry.disk;
  }
  EXPECT_THAT(tree,
              ElementsAre("DOCS", "DOCS/A.TXT", "DOCS/NEW.TXT", "DOCS/SUB", "DOCS/SUB/NEW.TXT"));
  EXPECT_EQ(plan.after.pairs.size(), 5u);
  // Once both have been named, nothing else comes of it; nobody has agreed on what nobody saw.
  const Plan next = Planned(seen, plan.after);
  EXPECT_THAT(StepsOf(next), IsEmpty());
  const Observation readable = Seen({{"docs/", 'f'}, {"docs/a.txt", 'a'}},
                                    {{"DOCS/", 'f'}, {"DOCS/A.TXT", 'a'}, {"DOCS/SUB/", 'f'}});
  EXPECT_THAT(StepsOf(Planned(readable, next.after)),
              ElementsAre("make host docs/SUB /DOCS/SUB new"));
}

TEST(MakePlan, WhatIsNewAndUnreadableOnTheDiskInSuchAFolder_IsToldAsLost) {
  const Observation seen = Seen({{"docs/", '?'}}, {{"DOCS/", 'f'}, {"DOCS/NEW.TXT", '?'}});
  const Plan plan = Planned(seen, Knows({{"docs/", "DOCS/", 'f'}}), {.mendsDisk = true});
  EXPECT_THAT(plan.lostOnDisk, ElementsAre("DOCS/NEW.TXT"));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
