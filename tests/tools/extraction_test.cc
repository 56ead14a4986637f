#include "disk/extraction.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace quorbix::virtdisk::tool {
namespace {

using ::testing::ElementsAre;

Fat16FsEntry Entry(const std::string& parent, const std::string& name, bool isDirectory = false) {
  Fat16FsEntry entry;
  entry.name = name;
  entry.path = (parent == "/" ? "" : parent) + "/" + name;
  entry.isDirectory = isDirectory;
  return entry;
}

// Each step as "target", or "!path" when it is refused.
std::vector<std::string> Plan(const std::vector<Fat16FsEntry>& entries,
                              const std::string& top = "/") {
  std::vector<const Fat16FsEntry*> pointers;
  for (const Fat16FsEntry& entry : entries) pointers.push_back(&entry);
  std::vector<std::string> lines;
  for (const ExtractionStep& step : PlanExtraction(pointers, top)) {
    lines.push_back(step.refusal == nullptr ? step.target : "!" + step.entry->path);
  }
  return lines;
}

TEST(StaysInFolder, OrdinaryNames_Do) {
  for (const char* name : {"A.TXT", "...", ".A", "A..B", "~", "A\\B", "-R"}) {
    EXPECT_TRUE(StaysInFolder(name)) << name;
  }
}

TEST(StaysInFolder, NamesThatLeadElsewhere_DoNot) {
  for (const char* name : {"", ".", "..", "/", "A/B", "../X", "/etc"}) {
    EXPECT_FALSE(StaysInFolder(name)) << name;
  }
  EXPECT_FALSE(StaysInFolder(std::string_view("A\0B", 3)));
}

TEST(PlanExtraction, Tree_GetsDirectoriesBeforeFiles) {
  EXPECT_THAT(Plan({Entry("/", "SUB", true), Entry("/SUB", "IN", true), Entry("/SUB/IN", "C.TXT"),
                    Entry("/", "A.TXT")}),
              ElementsAre("SUB", "SUB/IN", "SUB/IN/C.TXT", "A.TXT"));
}

TEST(PlanExtraction, DirectoriesDeeperThanAPathIsLong_AreRefused) {
  std::vector<Fat16FsEntry> entries;
  std::string parent = "/";
  for (int i = 0; i < 2050; ++i) {
    entries.push_back(Entry(parent, "A", true));
    parent = entries.back().path;
  }
  const std::vector<std::string> lines = Plan(entries);
  EXPECT_EQ(lines[2047].size(), 4095U);  // of a path of 4,096 with its end
  EXPECT_EQ(lines[2048], "!" + entries[2048].path);
  EXPECT_EQ(lines[2049], "!" + entries[2049].path);
}

TEST(PlanExtraction, Subtree_CountsFromItsTop) {
  EXPECT_THAT(Plan({Entry("/SUB", "IN", true), Entry("/SUB/IN", "C.TXT")}, "sub/"),
              ElementsAre("IN", "IN/C.TXT"));
}

TEST(PlanExtraction, NameThatLeadsOut_IsRefusedAndTheRestIsNot) {
  EXPECT_THAT(Plan({Entry("/", "../../X"), Entry("/", "A.TXT")}),
              ElementsAre("!/../../X", "A.TXT"));
}

TEST(PlanExtraction, EverythingBelowARefusedDirectory_IsRefused) {
  EXPECT_THAT(Plan({Entry("/", "../UP", true), Entry("/../UP", "IN", true),
                    Entry("/../UP/IN", "C.TXT"), Entry("/", "A.TXT")}),
              ElementsAre("!/../UP", "!/../UP/IN", "!/../UP/IN/C.TXT", "A.TXT"));
}

TEST(PlanExtraction, DirectoryNamedWithBackslashes_StaysInTheDestination) {
  EXPECT_THAT(Plan({Entry("/\\..", "C.TXT")}, "/\\.."), ElementsAre("C.TXT"));
}

TEST(PlanExtraction, SecondFileOfAName_IsRefused) {
  EXPECT_THAT(Plan({Entry("/", "A.TXT"), Entry("/", "a.txt"), Entry("/", "A.TXT")}),
              ElementsAre("A.TXT", "!/a.txt", "!/A.TXT"));
}

TEST(PlanExtraction, DirectoriesThatDifferInCase_KeepTheirOwnFiles) {
  EXPECT_THAT(Plan({Entry("/", "DIR", true), Entry("/DIR", "A.TXT"), Entry("/dir", "B.TXT"),
                    Entry("/dir", "IN", true), Entry("/", "dir", true)}),
              ElementsAre("DIR", "dir", "dir/IN", "DIR/A.TXT", "dir/B.TXT"));
}

}  // namespace
}  // namespace quorbix::virtdisk::tool
