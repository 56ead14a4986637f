// What the volume check and `fsck.fat -n` say about the same volumes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <quorbix/virtdisk/fat_image_builder.h>

#include "browser/byte_source.h"
#include "check/check_volume.h"
#include "interop/fsck_findings.h"
#include "support/child_process.h"
#include "support/image_crafter.h"
#include "support/need_tool.h"
#include "support/search_effort.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::test {
namespace {

using internal::CheckReport;
using internal::FindingKind;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

std::string FsckReport(const std::vector<std::uint8_t>& volume) {
  TempFolder folder;
  WriteWholeFile(folder / "volume.img", std::string(volume.begin(), volume.end()));
  const CommandResult result = RunCommand({"fsck.fat", "-n", (folder / "volume.img").string()});
  return result.out + result.err;
}

CheckReport OwnReport(const std::vector<std::uint8_t>& volume) {
  internal::MemorySource source(volume);
  CheckReport report;
  std::string err;
  EXPECT_TRUE(CheckVolume(source, report, err)) << err;
  return report;
}

// A bare volume of 5,000 clusters with files and directories, as sound as can be: FOLDER in cluster
// 2 with DEEP in 3 and INNER.TXT of two clusters, and two files in the root.
ImageCrafter SoundVolume() {
  ImageCrafter volume(
      {.partitioned = false, .sectorsPerFat = 20, .clusters = 5000, .label = "CHECKED"});
  volume.Label("CHECKED    ")
      .Directory("FOLDER", 2)
      .File("A.TXT", {.firstCluster = 10, .size = 1500});
  volume.File("B.TXT", {.firstCluster = 20, .size = 700}).File("EMPTY.TXT");
  volume.Chain({2}).Chain({10, 11, 12}).Chain({20, 21});
  volume.InCluster(2).DotEntries(2, 0).Directory("DEEP", 3);
  volume.File("INNER.TXT", {.firstCluster = 30, .size = 1024}).Chain({3}).Chain({30, 31});
  volume.InCluster(3).DotEntries(3, 2);
  return volume;
}

std::size_t RootSlot(const ImageCrafter& volume, std::size_t number) {
  return volume.RootOffset() + 32 * (1 + number);  // behind the label
}

struct Damage {
  const char* name;
  std::function<void(ImageCrafter&)> make;
  FindingKind kind;
  const char* words;  // of the other's report
};

const Damage kDamages[] = {
    {"FatsDiffer", [](ImageCrafter& v) { v.U16(v.FatOffset(1) + 2 * 11, 13); },
     FindingKind::kFatsDiffer, "FATs differ"},
    {"LostChain",
     [](ImageCrafter& v) {
       v.Chain({40, 41, 42});
     },
     FindingKind::kLostClusters, "Reclaimed 3 unused clusters"},
    {"SharedClusters", [](ImageCrafter& v) { v.FatWord(20, 11); }, FindingKind::kChainMeetsAnother,
     "share clusters"},
    {"Loop", [](ImageCrafter& v) { v.FatWord(11, 10); }, FindingKind::kChainLoops, "/A.TXT"},
    {"TooShort", [](ImageCrafter& v) { v.FatWord(11, 0xFFFF).FatWord(12, 0); },
     FindingKind::kChainTooShort, "File size is 1500 bytes, cluster chain length is 1024 bytes"},
    {"TooLong",
     [](ImageCrafter& v) {
       v.Chain({20, 21, 22});
     },
     FindingKind::kChainTooLong, "File size is 700 bytes, cluster chain length is > 1024 bytes"},
    {"FreeCluster", [](ImageCrafter& v) { v.FatWord(12, 0); }, FindingKind::kChainHitsFree,
     "Contains a free cluster"},
    {"BadCluster", [](ImageCrafter& v) { v.FatWord(12, 0xFFF7); }, FindingKind::kChainHitsBad,
     "bad cluster"},
    {"LeavesVolume", [](ImageCrafter& v) { v.FatWord(12, 5002); }, FindingKind::kChainLeavesVolume,
     "out of range"},
    {"BadStart", [](ImageCrafter& v) { v.U16(RootSlot(v, 1) + 26, 5002); }, FindingKind::kBadStart,
     "Start cluster beyond limit"},
    {"DirectoryWithSize", [](ImageCrafter& v) { v.U32(RootSlot(v, 0) + 28, 1); },
     FindingKind::kDirectoryWithSize, "Directory has non-zero size"},
    {"DirectoryWithoutChain", [](ImageCrafter& v) { v.U16(v.ClusterOffset(2) + 2 * 32 + 26, 0); },
     FindingKind::kDirectoryWithoutChain, "/FOLDER/DEEP"},
    {"DotElsewhere", [](ImageCrafter& v) { v.U16(v.ClusterOffset(3) + 26, 2); },
     FindingKind::kDotElsewhere, "Invalid '.' entry in the first slot"},
    {"DotDotElsewhere", [](ImageCrafter& v) { v.U16(v.ClusterOffset(3) + 32 + 26, 3); },
     FindingKind::kDotDotElsewhere, "Invalid '..' entry in the second slot"},
    {"NoDot", [](ImageCrafter& v) { v.Byte(v.ClusterOffset(3), 'X'); }, FindingKind::kNoDot,
     "Expected a valid '.' entry"},
    {"NoDotDot", [](ImageCrafter& v) { v.Byte(v.ClusterOffset(3) + 32, 'X'); },
     FindingKind::kNoDotDot, "Expected a valid '..' entry"},
    {"DuplicateName", [](ImageCrafter& v) { v.Byte(RootSlot(v, 2), 'A'); },
     FindingKind::kDuplicateName, "Duplicate directory entry"},
    {"ControlCharacter", [](ImageCrafter& v) { v.Byte(RootSlot(v, 1), 0x03); },
     FindingKind::kUnusableName, "Bad short file name"},
    {"Slash", [](ImageCrafter& v) { v.Byte(RootSlot(v, 1), '/'); }, FindingKind::kUnusableName,
     "Bad short file name"},
};

class DamagedVolume : public testing::TestWithParam<Damage> {};

TEST_P(DamagedVolume, BothChecks_FindIt) {
  NEED_TOOL("fsck.fat");
  ImageCrafter volume = SoundVolume();
  GetParam().make(volume);
  const CheckReport report = OwnReport(volume.Bytes());
  EXPECT_EQ(report.Found(GetParam().kind), 1u);
  EXPECT_FALSE(report.IsSound());
  EXPECT_THAT(FsckReport(volume.Bytes()), HasSubstr(GetParam().words));
}

INSTANTIATE_TEST_SUITE_P(Each, DamagedVolume, testing::ValuesIn(kDamages),
                         [](const auto& damage) { return std::string(damage.param.name); });

TEST(UndamagedVolume, NeitherCheck_FindsAnything) {
  NEED_TOOL("fsck.fat");
  const ImageCrafter volume = SoundVolume();
  EXPECT_THAT(OwnReport(volume.Bytes()).findings, IsEmpty());
  EXPECT_TRUE(ParseFsckReport(FsckReport(volume.Bytes())).IsEmpty());
}

// Words of every FAT, and first clusters and sizes of entries, set to what may hurt; some changes
// do not: another size that needs as many clusters, another mark of a chain's end.
void Corrupt(ImageCrafter& volume, std::mt19937& random) {
  const auto any = [&](std::uint32_t from, std::uint32_t to) {
    return static_cast<std::uint16_t>(from + random() % (to - from + 1));
  };
  const std::uint16_t cluster = any(0, 3) == 0 ? any(2, 5001) : any(2, 40);
  const std::uint16_t wicked[] = {0, 1, 0xFFF0, 0xFFF7, 0xFFF8, 0xFFFF, 5001, 5002};
  const std::uint16_t value = any(0, 1) == 0 ? any(0, 45) : wicked[any(0, 7)];
  switch (any(0, 5)) {
    case 4:
      volume.U32(RootSlot(volume, 1) + 28, any(1025, 1536));
      return;
    case 5:
      volume.FatWord(any(0, 1) == 0 ? 12 : 21, any(0xFFF8, 0xFFFF));
      return;
    case 0:
      volume.U16(RootSlot(volume, any(0, 3)) + 26, value);
      return;
    case 1:
      volume.U32(RootSlot(volume, any(0, 3)) + 28, any(0, 2000));
      return;
    default:
      volume.FatWord(cluster, value);
      return;
  }
}

TEST(CorruptedVolume, BothChecks_AgreeWhetherItIsSound) {
  NEED_TOOL("fsck.fat");
  const unsigned volumes = IsWholeSearch() ? 200 : 40;
  std::size_t sound = 0;
  for (unsigned seed = 1; seed <= volumes; ++seed) {
    std::mt19937 random(seed);
    ImageCrafter volume = SoundVolume();
    for (unsigned i = 0; i < 1 + seed % 3; ++i) Corrupt(volume, random);
    const CheckReport own = OwnReport(volume.Bytes());
    const std::string other = FsckReport(volume.Bytes());
    EXPECT_EQ(own.IsSound(), ParseFsckReport(other).IsEmpty()) << "seed " << seed << "\n" << other;
    if (own.IsSound()) ++sound;
  }
  EXPECT_GT(sound, 5u);
  EXPECT_LT(sound, volumes - 10);
}

// Paths of the names that other systems may not take.
std::vector<std::string> RemarkedNames(const CheckReport& report) {
  std::vector<std::string> paths;
  for (const internal::Finding& finding : report.findings) {
    const bool isOfANamedEntry = finding.kind == FindingKind::kHiddenEntry ||
                                 finding.kind == FindingKind::kLeadingBlank ||
                                 finding.kind == FindingKind::kUnusableName;
    if (isOfANamedEntry) paths.push_back(finding.path);
  }
  return paths;
}

// The volume of a folder with this name that holds empty files.
std::vector<std::uint8_t> BuiltVolume(const std::string& folderName,
                                      const std::vector<std::string>& files) {
  TempFolder folder;
  folder.Folder("IN/SUB");
  for (const std::string& file : files) folder.File("IN/" + file, "").File("IN/SUB/" + file, "x");
  std::filesystem::rename(folder / "IN", folder / ("x" + folderName));
  const auto builder = CreateFat16Builder();
  const std::filesystem::path source = folder / ("x" + folderName);
  EXPECT_TRUE(builder->Build(folderName.empty() ? source / "" : source, folder / "disk.img",
                             std::uint64_t{9} << 20));
  const std::string image = ReadWholeFile(folder / "disk.img");
  return {image.begin() + 512, image.end()};
}

TEST(BuiltVolume, BothChecks_RemarkTheSameNamesAndLabels) {
  NEED_TOOL("fsck.fat");
  // Where most of a directory's names are bad, fsck takes the directory for none.
  const std::vector<std::string> names{".bashrc", ".bash_logout", ".bash_history", ".b",
                                       " a.bin",  "a.txt",        "b.txt",         "c.txt",
                                       "a b.txt", "d.txt",        "e.txt",         "f.txt"};
  for (const std::string folder : {"Disk", "My.Disk", "", "a+b", "\xC3\x84", "A B"}) {
    const std::vector<std::uint8_t> volume = BuiltVolume(folder, names);
    const CheckReport own = OwnReport(volume);
    const FsckFindings other = ParseFsckReport(FsckReport(volume));
    EXPECT_TRUE(own.IsSound());
    EXPECT_THAT(other.others, IsEmpty());
    EXPECT_THAT(RemarkedNames(own), UnorderedElementsAreArray(other.badNames));
    EXPECT_EQ(own.Found(FindingKind::kOddLabel) == 1, other.hasBadLabel) << folder;
  }
}

class EveryByte : public testing::TestWithParam<std::size_t> {};

TEST_P(EveryByte, OfAName_IsFoundByBothChecksOrNeither) {
  NEED_TOOL("fsck.fat");
  ImageCrafter volume({.partitioned = false,
                       .rootEntryCount = 512,
                       .sectorsPerFat = 20,
                       .clusters = 5000,
                       .label = "CHECKED"});
  volume.Label("CHECKED    ");
  for (unsigned byte = 0; byte < 256; ++byte) {
    std::string name = "ABCDEFGHIJK";
    name[GetParam()] = static_cast<char>(byte);
    const bool isNoEntry = GetParam() == 0 && (byte == 0 || byte == 0xE5);
    if (!isNoEntry) volume.RawSlot(name, {});
  }
  const std::vector<std::string> own = RemarkedNames(OwnReport(volume.Bytes()));
  const std::string other = FsckReport(volume.Bytes());
  const std::string complaint = "\n  Bad short file name";
  std::size_t bad = 0;
  for (std::size_t at = 0; (at = other.find(complaint, at)) != std::string::npos; ++at) ++bad;
  EXPECT_GT(bad, 40u);
  EXPECT_EQ(own.size(), bad);
  EXPECT_EQ(std::set<std::string>(own.begin(), own.end()).size(), own.size());
  // Some of the names have ends of lines in them; of that with a NUL it prints what is before.
  for (const std::string& path : own) {
    EXPECT_THAT(other, HasSubstr("\n" + (path == "/ABC.IJK" ? "/ABC" : path) + complaint));
  }
}

std::vector<unsigned> BytesToTry() {
  if (!IsWholeSearch()) return {0x00, 0x05, 0x1F, 0x20, 0x2B, 0x2D, 0x5D, 0x7F, 0x80, 0xC4};
  std::vector<unsigned> bytes(256);
  std::iota(bytes.begin(), bytes.end(), 0U);
  return bytes;
}

TEST_P(EveryByte, OfALabel_IsFoundByBothChecksOrNeither) {
  NEED_TOOL("fsck.fat");
  for (const unsigned byte : BytesToTry()) {
    const bool isNoLabel = GetParam() == 0 && (byte == 0 || byte == 0xE5);
    if (isNoLabel) continue;
    std::string label = "ABCDEFGHIJK";
    label[GetParam()] = static_cast<char>(byte);
    ImageCrafter volume(
        {.partitioned = false, .sectorsPerFat = 20, .clusters = 5000, .label = label});
    volume.Label(label);
    EXPECT_EQ(OwnReport(volume.Bytes()).Found(FindingKind::kOddLabel) == 1,
              FsckReport(volume.Bytes()).find("' stored in root directory is not valid") !=
                  std::string::npos)
        << "byte " << byte;
  }
}

INSTANTIATE_TEST_SUITE_P(At, EveryByte, testing::Values(0, 3, 10),
                         [](const auto& place) { return "Place" + std::to_string(place.param); });

}  // namespace
}  // namespace quorbix::virtdisk::test
