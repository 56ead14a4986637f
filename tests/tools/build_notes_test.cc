#include "commands/build_notes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "commands/build_report.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::tool {
namespace {

using test::TempFolder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

BuildNotes NotesOf(const TempFolder& folder) {
  BuildPreview preview;
  std::string err;
  EXPECT_TRUE(PreviewBuild(folder / "DISK", preview, err)) << err;
  return TakeNotes(preview, {}, {});
}

std::vector<std::string> RenamesOf(const BuildNotes& notes, bool inCaseAlone) {
  std::vector<std::string> lines;
  for (const Renamed& entry : notes.renamed) {
    if (entry.inCaseAlone == inCaseAlone) lines.push_back(entry.host + " -> " + entry.image);
  }
  return lines;
}

TEST(TakeNotes, Names_AreSortedByWhatChanged) {
  TempFolder folder;
  folder.File("DISK/KEPT.TXT").File("DISK/lower.txt").File("DISK/Sub/\xC3\xA9.TXT");
  const BuildNotes notes = NotesOf(folder);
  EXPECT_THAT(RenamesOf(notes, true), UnorderedElementsAre("lower.txt -> LOWER.TXT", "Sub -> SUB"));
  EXPECT_THAT(RenamesOf(notes, false), ElementsAre("Sub/\xC3\xA9.TXT -> __.TXT"));
  EXPECT_EQ(CountRenamed(notes), 1U);
}

TEST(TakeNotes, HiddenFolder_StandsForWhatItHolds) {
  TempFolder folder;
  folder.File("DISK/.git/A").File("DISK/.git/B");
  const BuildNotes notes = NotesOf(folder);
  EXPECT_EQ(notes.hiddenEntries, 3U);
  EXPECT_THAT(notes.hidden, ElementsAre(".git"));
  EXPECT_THAT(notes.renamed, IsEmpty());
}

TEST(TakeNotes, LinkOutOfTheFolder_CountsWhatIsBehindIt) {
  TempFolder folder;
  folder.File("OUT/A").File("OUT/SUB/B").Folder("DISK").Link("DISK/LINK", "../OUT");
  const BuildNotes notes = NotesOf(folder);
  ASSERT_EQ(notes.links.size(), 1U);
  EXPECT_EQ(notes.links[0].host, "LINK");
  EXPECT_EQ(notes.links[0].entries, 4U);
  EXPECT_FALSE(notes.links[0].isMetAgain);
  EXPECT_EQ(notes.metAgain, 0U);
}

TEST(TakeNotes, LinkToWhatWasMetBefore_SaysSo) {
  TempFolder folder;
  folder.File("OUT/A").Folder("DISK").Link("DISK/ONE", "../OUT").Link("DISK/TWO", "../OUT");
  const BuildNotes notes = NotesOf(folder);
  ASSERT_EQ(notes.links.size(), 2U);
  EXPECT_FALSE(notes.links[0].isMetAgain);
  EXPECT_TRUE(notes.links[1].isMetAgain);
  EXPECT_EQ(notes.links[1].metBefore, notes.links[0].host);
  EXPECT_EQ(notes.metAgain, 2U);
}

// In whatever order the host lists them.
TEST(TakeNotes, LinkToAFolderBesideIt_SaysSo) {
  TempFolder folder;
  folder.File("DISK/SUB/A").Link("DISK/ONE", "SUB").Link("DISK/ZWEI", "SUB");
  const BuildNotes notes = NotesOf(folder);
  ASSERT_EQ(notes.links.size(), 2U);
  EXPECT_TRUE(notes.links[0].isMetAgain);
  EXPECT_TRUE(notes.links[1].isMetAgain);
  EXPECT_EQ(notes.metAgain, 4U);
}

TEST(TakeNotes, LinksBehindALinkToOneFolder_AreMetAgainOnce) {
  TempFolder folder;
  folder.File("ELSE/ONE/A").Link("ELSE/TWO", "ONE").Folder("DISK").Link("DISK/LINK", "../ELSE");
  const BuildNotes notes = NotesOf(folder);
  ASSERT_EQ(notes.links.size(), 2U);
  EXPECT_EQ(notes.links[0].host, "LINK");
  EXPECT_EQ(notes.links[0].entries, 5U);
  EXPECT_FALSE(notes.links[0].isMetAgain);
  EXPECT_TRUE(notes.links[1].isMetAgain);
  EXPECT_TRUE(notes.links[1].isBehindLink);
  EXPECT_EQ(notes.links[1].entries, 2U);
  EXPECT_EQ(notes.metAgain, 2U);
}

TEST(TakeNotes, HardLinks_AreNoLinks) {
  TempFolder folder;
  folder.File("DISK/A", "a");
  std::filesystem::create_hard_link(folder / "DISK/A", folder / "DISK/B");
  const BuildNotes notes = NotesOf(folder);
  EXPECT_THAT(notes.links, IsEmpty());
  EXPECT_EQ(notes.metAgain, 0U);
}

TEST(ExplainSkipped, OtherReasons_StayAsTheyAre) {
  for (const char* item : {"/a/b [name not representable in 8.3]", "", "]",
                           "/missing [transient read error \xE2\x80\x94 file may have changed]"}) {
    EXPECT_EQ(ExplainSkipped(item), item);
  }
}

TEST(GroupRemarks, NothingToTell_IsNoGroup) { EXPECT_THAT(GroupRemarks({}), IsEmpty()); }

TEST(GroupRemarks, Links_TellWhatTheyAre) {
  BuildNotes notes;
  notes.links = {{"A", 3, false, ""}, {"B", 2, true, "A"}, {"C", 1, true, ""}};
  const std::vector<RemarkGroup> groups = GroupRemarks(notes);
  ASSERT_EQ(groups.size(), 1U);
  EXPECT_EQ(groups[0].title, "6 entries were reached through 3 links:");
  EXPECT_THAT(groups[0].lines, ElementsAre("A (3 entries)", "B is A again (2 entries)",
                                           "C is the folder itself again (1 entry)"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
