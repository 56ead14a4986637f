#include "guard/long_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "guard/disk_view.h"
#include "guard/guarded_pair.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kSlot = 32;

// The part of a long name that lies next to the entry of a short one, as other systems write it.
std::string LongNameSlot(const std::string& shortName) {
  unsigned sum = 0;
  for (const char c : shortName) {
    sum = ((sum & 1) * 128 + sum / 2 + static_cast<unsigned char>(c)) % 256;
  }
  std::string slot(kSlot, '\xFF');
  slot[0] = 0x41;
  slot[11] = 0x0F;
  slot[12] = 0;
  slot[13] = static_cast<char>(sum);
  slot[26] = slot[27] = 0;
  return slot;
}

class LongNamesTest : public GuardedPair {
 protected:
  // An image with these empty files, whose entries lie in their order.
  void MakeImage(const std::vector<std::string>& files) {
    BuildImage();
    test::GuestEditor guest(Image());
    ASSERT_TRUE(guest.MakeFolder("SUB"));
    for (const std::string& file : files) ASSERT_TRUE(guest.Write(file, ""));
    guest.Save();
  }

  // Puts `slot` in the place of the entry `replaced`.
  void PutInPlaceOf(const std::string& replaced, const std::string& slot) const {
    std::string image = test::ReadWholeFile(Image());
    const std::size_t at = image.find(replaced);
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(at % kSlot, 0u);
    image.replace(at, kSlot, slot);
    test::WriteWholeFile(Image(), image);
  }

  std::vector<std::string> Notes() const {
    WorkMonitor nobody;
    std::vector<std::string> notes;
    for (const GuardedNote& note : LookAtDisk(Image(), GuardedWork::kReadDisk, nobody).notes) {
      notes.push_back(note.text);
    }
    return notes;
  }
};

TEST_F(LongNamesTest, NameBeforeALiveEntry_IsTold) {
  MakeImage({"A.TXT", "B.TXT", "C.TXT", "D.TXT"});
  EXPECT_THAT(Notes(), IsEmpty());
  PutInPlaceOf("A       TXT", LongNameSlot("B       TXT"));
  EXPECT_THAT(Notes(),
              ElementsAre("1 entry of the disk has a long name beside the short one: not in "
                          "the next image"));
  PutInPlaceOf("C       TXT", LongNameSlot("D       TXT"));
  EXPECT_THAT(Notes(),
              ElementsAre("2 entries of the disk have long names beside the short one: not "
                          "in the next image"));
}

TEST_F(LongNamesTest, NameOfAnEntryThatIsGone_IsNot) {
  MakeImage({"A.TXT", "B.TXT", "C.TXT"});
  PutInPlaceOf("A       TXT", LongNameSlot("OTHER   TXT"));
  EXPECT_THAT(Notes(), IsEmpty());
  std::string deleted = LongNameSlot("C       TXT");
  deleted[0] = '\xE5';
  PutInPlaceOf("B       TXT", deleted);
  EXPECT_THAT(Notes(), IsEmpty());
}

// Sixteen slots are a cluster here, and the first two are those of every directory.
TEST_F(LongNamesTest, NameInTheClusterBefore_IsTold) {
  std::vector<std::string> files;
  for (char c = 'A'; c <= 'Z'; ++c) files.push_back(std::string("SUB/") + c + ".TXT");
  MakeImage(files);
  PutInPlaceOf("N       TXT", LongNameSlot("O       TXT"));
  EXPECT_THAT(Notes(),
              ElementsAre("1 entry of the disk has a long name beside the short one: not in "
                          "the next image"));
}

TEST_F(LongNamesTest, Note_GoesWithTheNames) {
  MakeImage({"A.TXT", "B.TXT"});
  PutInPlaceOf("A       TXT", LongNameSlot("B       TXT"));
  ASSERT_EQ(Pass().outcome, GuardedOutcome::kDone);
  EXPECT_EQ(Preview().notes.size(), 1u);
  folder.File("host/C.TXT", "c");
  EXPECT_EQ(Pass().outcome, GuardedOutcome::kDone);
  EXPECT_THAT(Pass().notes, IsEmpty());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
