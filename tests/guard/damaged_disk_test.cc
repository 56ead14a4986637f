// Damage of the disk that is accepted: what can be read stays, the rest comes from the folder, and
// the next image is sound.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/byte_order.h"
#include "guard/guarded_pair.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using enum GuardedOutcome;
using enum GuardedHazard;

class DamagedDisk : public GuardedPair {
 protected:
  static constexpr std::size_t kFirstFat = 1024;
  static constexpr std::size_t kNameInSlot = 11;
  static constexpr std::size_t kFirstClusterInSlot = 26;

  void Load() { bytes = test::ReadBytes(Image()); }
  void Save() const { test::WriteBytes(Image(), bytes); }

  std::size_t FatBytes() const { return std::size_t{512} * LoadU16(&bytes[512 + 22]); }

  // Of the first entry that has these eleven bytes.
  std::uint8_t* Slot(const std::string& name) {
    const auto slot = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
    EXPECT_NE(slot, bytes.end()) << name;
    return &*slot;
  }
  std::uint16_t FirstClusterOf(const std::string& name) {
    return LoadU16(Slot(name) + kFirstClusterInSlot);
  }

  void SetFatWord(std::uint16_t cluster, std::uint16_t word) {
    for (const std::size_t fat : {kFirstFat, kFirstFat + FatBytes()}) {
      StoreU16(&bytes[fat + std::size_t{2} * cluster], word);
    }
  }

  void RenameSlot(const std::string& name, const std::string& newName) {
    ASSERT_EQ(newName.size(), kNameInSlot);
    std::copy(newName.begin(), newName.end(), Slot(name));
  }

  static std::vector<std::string> NotesOf(const GuardedReport& report) {
    std::vector<std::string> notes;
    for (const GuardedNote& note : report.notes) notes.push_back(note.path + ": " + note.text);
    return notes;
  }

  // Refused at first; done when it is accepted, and that is all there was to do.
  GuardedReport PassRefusedAndAccepted() {
    EXPECT_EQ(Pass().outcome, kRefused);
    GuardedReport report = Pass({kImageUnsound});
    EXPECT_EQ(report.outcome, kDone) << report.message;
    const GuardedReport next = Pass();
    EXPECT_EQ(next.outcome, kNothingToDo) << next.message;
    EXPECT_THAT(next.notes, IsEmpty());
    return report;
  }

  std::vector<std::uint8_t> bytes;
};

TEST_F(DamagedDisk, DifferingFats_AreMadeAlike) {
  folder.File("host/a.txt", "a");
  BuildAndAgree();
  Load();
  bytes[kFirstFat + FatBytes() + 100] ^= 1;
  Save();
  const GuardedReport report = PassRefusedAndAccepted();
  EXPECT_THAT(report.steps, IsEmpty());
  EXPECT_THAT(NotesOf(report), ElementsAre(HasSubstr("made anew")));
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "a"}}));
  EXPECT_THAT(InTrash(), SizeIs(1));
  Load();
  EXPECT_TRUE(std::equal(bytes.begin() + kFirstFat,
                         bytes.begin() + static_cast<std::ptrdiff_t>(kFirstFat + FatBytes()),
                         bytes.begin() + static_cast<std::ptrdiff_t>(kFirstFat + FatBytes())));
}

// The chain of B.TXT leads into that of A.TXT.
class MeetingChains : public DamagedDisk {
 protected:
  static constexpr std::size_t kLong = 2000;

  void SetUp() override {
    folder.File("host/a.txt", std::string(kLong, 'a')).File("host/b.txt", std::string(kLong, 'b'));
    BuildAndAgree();
  }

  void LetMeet() {
    Load();
    SetFatWord(FirstClusterOf("B       TXT"),
               static_cast<std::uint16_t>(FirstClusterOf("A       TXT") + 1));
    Save();
  }
};

TEST_F(MeetingChains, MixtureOfTwoFiles_IsTakenFromTheFolder) {
  LetMeet();
  const FileTree host = OnHost();
  PassRefusedAndAccepted();
  EXPECT_EQ(OnHost(), host);
  EXPECT_EQ(OnDisk(),
            (FileTree{{"A.TXT", std::string(kLong, 'a')}, {"B.TXT", std::string(kLong, 'b')}}));
}

TEST_F(MeetingChains, FileThatIsAsAgreed_IsTheOneThatTheClustersBelongTo) {
  LetMeet();
  folder.Remove("host/a.txt").File("host/b.txt", "edited");
  const GuardedReport report = PassRefusedAndAccepted();
  EXPECT_THAT(StepsOf(report),
              ElementsAre("delete on disk: a.txt = /A.TXT", "write on disk: b.txt = /B.TXT"));
  EXPECT_EQ(OnDisk(), (FileTree{{"B.TXT", "edited"}}));
}

TEST_F(MeetingChains, NeitherIsTrusted_WhereNothingWasAgreedOn) {
  GuestWrites("B.TXT", std::string(kLong, 'b'));  // dated: what differs is a conflict
  LetMeet();
  std::filesystem::remove_all(StateFolder());
  folder.File("host/a.txt", "older");
  PassRefusedAndAccepted();
  EXPECT_EQ(OnHost(), (FileTree{{"a.txt", "older"}, {"b.txt", std::string(kLong, 'b')}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "older"}, {"B.TXT", std::string(kLong, 'b')}}));
}

TEST_F(MeetingChains, MixtureThatTheFolderDoesNotHave_IsTold) {
  GuestWrites("NEW.TXT", std::string(kLong, 'n'));
  Load();
  SetFatWord(FirstClusterOf("NEW     TXT"), FirstClusterOf("A       TXT"));
  Save();
  const GuardedReport report = PassRefusedAndAccepted();
  EXPECT_THAT(NotesOf(report), Contains(HasSubstr("/NEW.TXT: cannot be read on the disk")));
  EXPECT_THAT(OnHost(), SizeIs(2));
  EXPECT_THAT(OnDisk(), SizeIs(2));
}

// The check stops where a chain meets another one; the listing goes on, into a text full of dots.
TEST_F(DamagedDisk, DirectoryThatRunsIntoAFile_IsNoReasonToFail) {
  folder.File("host/z", std::string(9000, '.'));
  BuildAndAgree();
  GuestMakesFolder("D1");
  GuestWrites("D1/A", "a");
  ASSERT_EQ(Pass().outcome, kDone);
  Load();
  SetFatWord(FirstClusterOf("D1         "), FirstClusterOf("Z          "));
  Save();
  PassRefusedAndAccepted();
  EXPECT_EQ(OnDisk().at("Z"), std::string(9000, '.'));
  EXPECT_EQ(OnHost().at("D1/A"), "a");
}

TEST_F(DamagedDisk, DirectoryThatHasTheNameOfAFile_IsNoReasonToFail) {
  folder.File("host/file", "f").File("host/sub/in.txt", "in").File("host/z.txt", "z");
  BuildAndAgree();
  Load();
  RenameSlot("SUB        ", "FILE       ");
  Save();
  folder.File("host/z.txt", "edited");
  const GuardedReport report = PassRefusedAndAccepted();
  EXPECT_THAT(NotesOf(report), Contains(HasSubstr("the name of another")));
  const FileTree host{{"file", "f"}, {"sub/in.txt", "in"}, {"z.txt", "edited"}};
  EXPECT_EQ(OnHost(), host);
  EXPECT_EQ(OnDisk(), (FileTree{{"FILE", "f"}, {"SUB/IN.TXT", "in"}, {"Z.TXT", "edited"}}));
}

struct NameRow {
  const char* name;
  std::string stored;  // eleven bytes
  std::string usable;
};

class UnusableName : public DamagedDisk, public testing::WithParamInterface<NameRow> {
 protected:
  void SetUp() override {
    folder.File("host/a.txt", "a").File("host/fi_le.txt", "another");
    BuildAndAgree();
    GuestWrites("GUEST.TXT", "g");
    GuestMakesFolder("FOLDER");
    GuestWrites("FOLDER/IN.TXT", "in");
    Load();
  }
};

TEST_P(UnusableName, OfAFile_GetsOneThatCanBeUsed) {
  RenameSlot("GUEST   TXT", GetParam().stored);
  Save();
  const GuardedReport report = PassRefusedAndAccepted();
  EXPECT_THAT(NotesOf(report), Contains(HasSubstr("no system takes: " + GetParam().usable)));
  EXPECT_EQ(OnDisk().at(GetParam().usable), "g");
  EXPECT_EQ(OnHost().at(GetParam().usable), "g");
  EXPECT_EQ(OnDisk().at("FI_LE.TXT"), "another");
}

TEST_P(UnusableName, OfADirectory_GetsOneThatCanBeUsed) {
  RenameSlot("FOLDER     ", GetParam().stored);
  Save();
  PassRefusedAndAccepted();
  EXPECT_EQ(OnDisk().at(GetParam().usable + "/IN.TXT"), "in");
  EXPECT_EQ(OnHost().at(GetParam().usable + "/IN.TXT"), "in");
}

INSTANTIATE_TEST_SUITE_P(Rows, UnusableName,
                         testing::Values(NameRow{"Dot", "FI.LE   TXT", "FI_LE ~1.TXT"},
                                         NameRow{"DotInFront", ".GU     TXT", "_GU.TXT"},
                                         NameRow{"OnlyDotInFront", ".A         ", "_A"},
                                         NameRow{"QuestionMark", "A?      TXT", "A_.TXT"},
                                         NameRow{"Slash", "A/B     TXT", "A_B.TXT"},
                                         NameRow{"ControlCharacter", "A\x01      TXT", "A_.TXT"},
                                         NameRow{"Zero", std::string("B\0C     TXT", 11), "B.TXT"},
                                         NameRow{"ZeroBehindATakenName",
                                                 std::string("A\0C     TXT", 11), "A     ~1.TXT"}),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
