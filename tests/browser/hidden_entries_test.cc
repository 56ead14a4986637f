// Slots whose base name is blank: they make no record, and are collected on request.

#include "browser/browser_fixture.h"
#include "browser/volume_index.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::ImageCrafter;
using test::Names;

// An index over an image in memory, hidden entries collected.
struct CollectedIndex {
  explicit CollectedIndex(const ImageCrafter& image, bool expected = true)
      : bytes(image.Bytes()), source(bytes), index(source) {
    EXPECT_EQ(index.Parse(err, VolumeIndex::Hidden::kCollect), expected) << err;
  }

  const std::vector<HiddenEntry>& Entries() const { return index.HiddenEntries(); }

  // What lies where: "/SUB> PRO" is below a record, "1>A" below the second hidden entry.
  Names Places() const {
    Names places;
    for (const HiddenEntry& entry : Entries()) {
      std::string place = "/";
      if (entry.parent != VolumeIndex::kNoRecord) {
        place = index.PathOf(index.Records()[entry.parent]);
      }
      if (entry.hiddenParent != VolumeIndex::kNoRecord) place = std::to_string(entry.hiddenParent);
      places.push_back(place + ">" + std::string(entry.rawName.begin(), entry.rawName.end()));
    }
    return places;
  }

  Names RecordPaths() const {
    Names paths;
    for (const EntryRecord& record : index.Records()) paths.push_back(index.PathOf(record));
    return paths;
  }

  test::Bytes bytes;
  MemorySource source;
  VolumeIndex index;
  std::string err;
};

TEST(HiddenEntries, SlotWithABlankBase_IsCollectedWithItsFields) {
  auto image = ImageCrafter().File("A.TXT");
  image.RawSlot("        PRO", {.attributes = 0x21,
                                .firstCluster = 5,
                                .size = 700,
                                .writeTime = 0x1234,
                                .writeDate = 0x5678});
  const CollectedIndex collected(image.Chain({5, 6}));

  ASSERT_EQ(collected.Entries().size(), 1u);
  const HiddenEntry& entry = collected.Entries()[0];
  EXPECT_EQ(std::string(entry.rawName.begin(), entry.rawName.end()), "        PRO");
  EXPECT_EQ(entry.attributes, 0x21);
  EXPECT_EQ(entry.firstCluster, 5);
  EXPECT_EQ(entry.size, 700u);
  EXPECT_EQ(entry.writeTime, 0x1234);
  EXPECT_EQ(entry.writeDate, 0x5678);
  EXPECT_EQ(entry.parent, VolumeIndex::kNoRecord);
  EXPECT_EQ(entry.hiddenParent, VolumeIndex::kNoRecord);
  EXPECT_EQ(entry.dirEntryOffset, image.RootOffset() + 32);
  EXPECT_EQ(entry.allocatedBytes, 1024u);
  EXPECT_FALSE(entry.IsDirectory());
  EXPECT_TRUE(collected.index.HasAllHiddenEntries());
}

TEST(HiddenEntries, WithoutRequest_AreNotCollected) {
  auto image = ImageCrafter().RawSlot("        PRO", {});
  MemorySource source(image.Bytes());
  VolumeIndex index(source);
  std::string err;

  ASSERT_TRUE(index.Parse(err)) << err;

  EXPECT_TRUE(index.HiddenEntries().empty());
  EXPECT_FALSE(index.HasAllHiddenEntries());
}

TEST(HiddenEntries, LaterParse_ForgetsThem) {
  CollectedIndex collected(ImageCrafter().RawSlot("        PRO", {}));

  ASSERT_TRUE(collected.index.Parse(collected.err));

  EXPECT_TRUE(collected.Entries().empty());
}

TEST(HiddenEntries, EveryBlankBase_IsCollected) {
  const CollectedIndex collected(ImageCrafter()
                                     .RawSlot("           ", {})
                                     .RawSlot(std::string_view("  \0XXXXXTXT", 11), {})
                                     .RawSlot(" A      TXT", {}));

  EXPECT_EQ(collected.Places(), (Names{"/>           ", "/>" + std::string("  \0XXXXXTXT", 11)}));
  EXPECT_EQ(collected.RecordPaths(), Names{"/ A.TXT"});
}

TEST(HiddenEntries, DeletedLongNameLabelAndUnusedSlots_AreNone) {
  const CollectedIndex collected(ImageCrafter()
                                     .DeletedSlot()
                                     .LongNameSlot()
                                     .RawSlot("        XXX", {.attributes = 0x08})
                                     .RawSlot("        XXX", {.attributes = 0x0F})
                                     .EndSlot()
                                     .RawSlot("        PRO", {}));

  EXPECT_EQ(collected.Places(), Names{});
  EXPECT_TRUE(collected.index.HasAllHiddenEntries());
}

TEST(HiddenEntries, InSubdirectories_NameTheirParentRecord) {
  auto image = ImageCrafter().File("A").Directory("SUB", 2).RawSlot("        ONE", {});
  image.InCluster(2).DotEntries(2, 0).RawSlot("        TWO", {});
  const CollectedIndex collected(image);

  EXPECT_EQ(collected.Places(), (Names{"/SUB>        TWO", "/>        ONE"}));
}

// "        GIT" in cluster 2, which holds CONFIG, HOOKS in cluster 3 and "        X" in cluster 4.
ImageCrafter HiddenTree() {
  auto image = ImageCrafter().RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 2});
  image.File("A.TXT").InCluster(2).DotEntries(2, 0).File("CONFIG").Directory("HOOKS", 3);
  image.RawSlot("        X  ", {.attributes = 0x10, .firstCluster = 4}).Label("INNER      ");
  image.InCluster(3).DotEntries(3, 2).File("HOOK.SH");
  return image.InCluster(4).DeletedSlot().File("DEEP");
}

TEST(HiddenEntries, BelowHiddenDirectories_AreCollectedWhateverTheirNames) {
  const CollectedIndex collected(HiddenTree());

  EXPECT_EQ(collected.Places(), (Names{"/>        GIT", "0>CONFIG     ", "0>HOOKS      ",
                                       "0>        X  ", "2>HOOK    SH ", "3>DEEP       "}));
  EXPECT_TRUE(collected.index.HasAllHiddenEntries());
}

TEST(HiddenEntries, BelowHiddenDirectories_ChangeNothingAboutTheRecords) {
  const CollectedIndex collected(HiddenTree());

  EXPECT_EQ(collected.RecordPaths(), Names{"/A.TXT"});
  EXPECT_EQ(collected.index.Info().volumeLabel, "");
  std::vector<Fat16FsEntry> entries;
  std::string err;
  EXPECT_TRUE(collected.index.Search("CONFIG", entries, err));
  EXPECT_TRUE(entries.empty());
}

TEST(HiddenEntries, HiddenDirectoryOfSeveralClusters_IsReadToItsEnd) {
  auto image = ImageCrafter().RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 2});
  image.Chain({2, 7}).InCluster(2).File("A").EndSlot();
  image.InCluster(7).File("B");
  const CollectedIndex collected(image);

  EXPECT_EQ(collected.Places(), (Names{"/>        GIT", "0>A          ", "0>B          "}));
}

TEST(HiddenEntries, DirectoryThatARecordReachesToo_StaysTheRecords) {
  auto image = ImageCrafter().RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 2});
  image.Directory("D", 2).InCluster(2).File("A").RawSlot("        PRO", {});
  const CollectedIndex collected(image);

  EXPECT_EQ(collected.RecordPaths(), (Names{"/D", "/D/A"}));
  EXPECT_EQ(collected.Places(), (Names{"/>        GIT", "/D>        PRO"}));
}

TEST(HiddenEntries, HiddenDirectoryInsideItself_IsReadOnce) {
  auto image = ImageCrafter().RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 2});
  image.InCluster(2).RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 2});
  const CollectedIndex collected(image);

  EXPECT_EQ(collected.Places(), (Names{"/>        GIT", "0>        GIT"}));
}

TEST(HiddenEntries, HiddenDirectoryWithoutACluster_IsEmpty) {
  auto image = ImageCrafter().RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 0});
  const CollectedIndex collected(image.File("A"));

  EXPECT_EQ(collected.Places(), Names{"/>        GIT"});
  EXPECT_TRUE(collected.index.HasAllHiddenEntries());
}

TEST(HiddenEntries, HiddenDirectoryWithABrokenChain_FailsNothingAndIsTold) {
  auto image = ImageCrafter().RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 2});
  image.RawSlot("        OK ", {.attributes = 0x10, .firstCluster = 3}).FatWord(2, 2);
  image.InCluster(2).File("LOST").InCluster(3).File("FOUND");
  const CollectedIndex collected(image);

  EXPECT_EQ(collected.err, "");
  EXPECT_EQ(collected.Places(), (Names{"/>        GIT", "/>        OK ", "1>FOUND      "}));
  EXPECT_FALSE(collected.index.HasAllHiddenEntries());
}

TEST(HiddenEntries, FailedWalk_KeepsThoseMetBefore) {
  auto image = ImageCrafter().RawSlot("        PRO", {}).Directory("LOOP", 2).FatWord(2, 2);
  const CollectedIndex collected(image, false);

  EXPECT_EQ(collected.err, "cluster loop detected");
  EXPECT_EQ(collected.Places(), Names{"/>        PRO"});
  EXPECT_FALSE(collected.index.HasAllHiddenEntries());
}

TEST(HiddenEntries, HiddenDirectoriesThatOverlap_AreStoppedAtTheNumberOfSlots) {
  // Ninety directories side by side in a hidden one, each beginning one cluster further on in one
  // chain: 90 * 91 / 2 * 16 visits.
  auto image = ImageCrafter({.sectorsPerFat = 1, .clusters = 100});
  image.RawSlot("        GIT", {.attributes = 0x10, .firstCluster = 92});
  image.Chain(test::Clusters(92, 97)).InCluster(92);
  for (std::uint16_t i = 2; i < 92; ++i) image.Directory("D" + std::to_string(i), i);
  for (std::uint16_t i = 2; i < 92; ++i) {
    image.InCluster(i);
    for (int k = 0; k < 16; ++k) image.File("F" + std::to_string(k));
  }
  const CollectedIndex collected(image.Chain(test::Clusters(2, 91)));

  EXPECT_EQ(collected.err, "");
  EXPECT_FALSE(collected.index.HasAllHiddenEntries());
  EXPECT_LE(collected.Entries().size(), image.Bytes().size() / 32);
  EXPECT_GE(collected.Entries().size(), image.Bytes().size() / 32 / 2);
}

TEST(HiddenEntries, NestedAsDeepAsAVolumeCan_AreCollected) {
  constexpr std::uint16_t kHiddenDepth = 65000;
  auto image = ImageCrafter({.sectorsPerFat = 256, .clusters = kHiddenDepth + 1u});
  image.RawSlot("        D  ", {.attributes = 0x10, .firstCluster = 2});
  for (std::uint16_t i = 2; i < kHiddenDepth; ++i) {
    image.InCluster(i).Directory("D", static_cast<std::uint16_t>(i + 1));
  }
  image.InCluster(kHiddenDepth);
  const CollectedIndex collected(image);

  EXPECT_EQ(collected.Entries().size(), kHiddenDepth - 1u);
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
