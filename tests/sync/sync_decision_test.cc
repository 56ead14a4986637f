#include "sync/sync_decision.h"

#include <gtest/gtest.h>

#include <array>
#include <ostream>
#include <string>
#include <tuple>

namespace quorbix::virtdisk::internal {
namespace {

// '-' is absent; letters are contents.
struct Row {
  const char* name;
  char host;
  char image;
  char baseline;
  std::uint64_t hostStamp;
  std::uint64_t imageStamp;
  SyncAction action;
};

std::optional<FileVersion> Version(char content, std::uint64_t stamp) {
  if (content == '-') return std::nullopt;
  return FileVersion{.contentHash = static_cast<std::uint64_t>(content), .modifiedStamp = stamp};
}

SyncAction DecideRow(const Row& row) {
  return Decide(Version(row.host, row.hostStamp), Version(row.image, row.imageStamp),
                Version(row.baseline, 0));
}

void PrintTo(const Row& row, std::ostream* out) {
  *out << row.host << row.image << row.baseline << ' ' << row.hostStamp << ' ' << row.imageStamp;
}

class DecisionTable : public testing::TestWithParam<Row> {};

TEST_P(DecisionTable, Decide_FollowsTheRow) { EXPECT_EQ(DecideRow(GetParam()), GetParam().action); }

constexpr SyncAction kNothing = SyncAction::kNothing;
constexpr SyncAction kCopy = SyncAction::kCopyToHost;
constexpr SyncAction kDelete = SyncAction::kDeleteOnHost;
constexpr SyncAction kRebuild = SyncAction::kRebuildImage;

INSTANTIATE_TEST_SUITE_P(
    Rows, DecisionTable,
    testing::Values(Row{"BothSidesAlikeAsAgreed", 'A', 'A', 'A', 0, 0, kNothing},
                    Row{"BothSidesAlikeAndNew", 'A', 'A', '-', 0, 0, kNothing},
                    Row{"BothSidesChangedAlike", 'B', 'B', 'A', 0, 0, kNothing},
                    Row{"AlikeWhateverTheStamps", 'A', 'A', '-', 1, 2, kNothing},
                    Row{"OnlyTheHostChanged", 'B', 'A', 'A', 0, 9, kRebuild},
                    Row{"OnlyTheImageChanged", 'A', 'B', 'A', 9, 0, kCopy},
                    Row{"BothNewAndTheImageHasTheGreaterStamp", 'A', 'B', '-', 1, 2, kCopy},
                    Row{"BothNewAndTheHostHasTheGreaterStamp", 'A', 'B', '-', 2, 1, kRebuild},
                    Row{"BothNewWithEqualStamps", 'A', 'B', '-', 2, 2, kRebuild},
                    Row{"BothChangedAndTheImageHasTheGreaterStamp", 'A', 'B', 'C', 1, 2, kCopy},
                    Row{"BothChangedAndTheHostHasTheGreaterStamp", 'A', 'B', 'C', 2, 1, kRebuild},
                    Row{"BothChangedWithEqualStamps", 'A', 'B', 'C', 0, 0, kRebuild},
                    Row{"StampsCompareAsUnsigned", 'A', 'B', 'C', 0xFFFFFFFFFFFFFFFF, 1, kRebuild},
                    Row{"NewOnTheHost", 'A', '-', '-', 0, 0, kRebuild},
                    Row{"ChangedOnTheHostWhileTheImageDeletedIt", 'B', '-', 'A', 0, 0, kRebuild},
                    Row{"DeletedInTheImage", 'A', '-', 'A', 0, 0, kDelete},
                    Row{"NewInTheImage", '-', 'A', '-', 0, 0, kCopy},
                    Row{"DeletedOnTheHost", '-', 'A', 'A', 0, 0, kRebuild},
                    Row{"ChangedInTheImageWhileTheHostDeletedIt", '-', 'B', 'A', 0, 0, kCopy},
                    Row{"GoneFromBothSides", '-', '-', 'A', 0, 0, kNothing},
                    Row{"NeverThere", '-', '-', '-', 0, 0, kNothing}),
    [](const auto& row) { return std::string(row.param.name); });

// The table once more, as the text has it: rows by who is present, then conditions in order.
SyncAction Expected(char host, char image, char baseline, std::uint64_t hostStamp,
                    std::uint64_t imageStamp) {
  const bool baselineThere = baseline != '-';
  if (host != '-' && image != '-') {
    if (host == image) return kNothing;
    if (baselineThere && host != baseline && image == baseline) return kRebuild;
    if (baselineThere && host == baseline && image != baseline) return kCopy;
    return hostStamp < imageStamp ? kCopy : kRebuild;
  }
  if (host != '-') return baselineThere && host == baseline ? kDelete : kRebuild;
  if (image != '-') return baselineThere && image == baseline ? kRebuild : kCopy;
  return kNothing;
}

TEST(Decide, EveryCombinationOfThreeContents_FollowsTheTable) {
  const std::array<std::tuple<std::uint64_t, std::uint64_t>, 3> stamps{{{1, 2}, {2, 2}, {2, 1}}};
  for (const char host : {'-', 'A', 'B', 'C'}) {
    for (const char image : {'-', 'A', 'B', 'C'}) {
      for (const char baseline : {'-', 'A', 'B', 'C'}) {
        for (const auto& [hostStamp, imageStamp] : stamps) {
          const Row row{"", host, image, baseline, hostStamp, imageStamp, kNothing};
          EXPECT_EQ(DecideRow(row), Expected(host, image, baseline, hostStamp, imageStamp))
              << testing::PrintToString(row);
        }
      }
    }
  }
}

TEST(Decide, SizeAndClusterAndStamp_TakeNoPartInEquality) {
  const FileVersion host{.contentHash = 7, .modifiedStamp = 1, .size = 2, .firstCluster = 0};
  const FileVersion image{.contentHash = 7, .modifiedStamp = 5, .size = 6, .firstCluster = 9};
  EXPECT_EQ(Decide(host, image, std::nullopt), SyncAction::kNothing);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
