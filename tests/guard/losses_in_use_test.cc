// Losses by names, by two that are at work at once, and of what takes no part.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "guard/losses.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using enum GuardedOutcome;
using enum GuardedHazard;

TEST_F(Losses, LongName_PlainMakesTwins) {
  folder.File("host/Long File Name.txt", "long");
  BuildImage();
  PlainPass();
  EXPECT_THAT(OnHost(), Contains(testing::Pair("LONG_FIL.TXT", "long")));
}

TEST_F(Losses, LongNameAtEachRestart_PlainMakesAnotherTwin) {
  folder.File("host/Long File Name.txt", "long");
  BuildImage();
  for (std::size_t twins = 1; twins <= 4; ++twins) {
    RestartPlain();
    PlainPass();  // which brings the disk's names to the folder
    EXPECT_THAT(OnHost(), SizeIs(twins + 1));
    // Whatever the host changes lets the disk be built with names for all of them.
    folder.File("host/OTHER.TXT", std::to_string(twins));
    PlainPass();
    folder.Remove("host/OTHER.TXT");
    PlainPass();
  }
}

TEST_F(Losses, LongNameAtEachRestart_GuardedKeepsItsName) {
  folder.File("host/Long File Name.txt", "long");
  BuildAndAgree();
  for (int restart = 0; restart < 4; ++restart) {
    folder.File("host/OTHER.TXT", std::to_string(restart));
    EXPECT_EQ(Pass().outcome, kDone);
    folder.Remove("host/OTHER.TXT");
    EXPECT_EQ(Pass().outcome, kDone);
    EXPECT_EQ(OnHost(), (FileTree{{"Long File Name.txt", "long"}}));
    EXPECT_EQ(OnDisk(), (FileTree{{"LONG_FIL.TXT", "long"}}));
  }
}

TEST_F(Losses, GuestsEditOfALongName_PlainPutsItUnderAnotherName) {
  folder.File("host/Long File Name.txt", "long");
  BuildImage();
  PlainPass();
  GuestWrites("LONG_FIL.TXT", "of the guest");
  PlainPass();
  EXPECT_EQ(OnHost().at("Long File Name.txt"), "long");
  EXPECT_EQ(OnHost().at("LONG_FIL.TXT"), "of the guest");
}

TEST_F(Losses, GuestsEditOfALongName_GuardedCarriesItToThatFile) {
  folder.File("host/Long File Name.txt", "long");
  BuildAndAgree();
  GuestWrites("LONG_FIL.TXT", "of the guest");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"Long File Name.txt", "of the guest"}}));
}

TEST_F(Losses, LongName_GuardedKeepsItsName) {
  folder.File("host/Long File Name.txt", "long");
  BuildAndAgree();
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"Long File Name.txt", "long"}}));
  EXPECT_EQ(OnDisk(), (FileTree{{"LONG_FIL.TXT", "long"}}));
}

TEST_F(Losses, NamesThatClash_PlainOverwritesOneWithTheOther) {
  folder.File("host/a+b.txt", "plus");
  BuildImage();  // which names it A_B.TXT
  folder.File("host/a_b.txt", "line");
  PlainPass();
  for (const auto& [path, content] : OnHost()) EXPECT_NE(content, "line") << path;
  for (const auto& [path, content] : OnDisk()) EXPECT_NE(content, "line") << path;
}

TEST_F(Losses, NamesThatClash_GuardedLosesNeither) {
  folder.File("host/a+b.txt", "plus");
  BuildImage();
  folder.File("host/a_b.txt", "line");
  Pass();
  EXPECT_EQ(OnHost(), (FileTree{{"a+b.txt", "plus"}, {"a_b.txt", "line"}}));
}

TEST_F(Losses, NamesThatClash_GuardedKeepsThemApart) {
  folder.File("host/a+b.txt", "plus").File("host/a_b.txt", "line");
  BuildAndAgree();
  const std::string plus = OnDisk().at("A_B.TXT") == "plus" ? "A_B.TXT" : "A_B   ~1.TXT";
  GuestWrites(plus, "edited");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"a+b.txt", "edited"}, {"a_b.txt", "line"}}));
}

TEST_F(Losses, Conflict_PlainLosesTheHostsEdit) {
  BuildUsual();
  PlainPass();
  folder.File("host/A.TXT", "of the host");
  GuestWrites("A.TXT", "of the guest");
  PlainPass();
  EXPECT_EQ(OnHost().at("A.TXT"), "of the guest");
}

TEST_F(Losses, Conflict_GuardedKeepsBoth) {
  BuildUsual();
  Pass();
  folder.File("host/A.TXT", "of the host");
  GuestWrites("A.TXT", "of the guest");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost().at("A.TXT"), "of the host");
  EXPECT_THAT(OnHost(), Contains(testing::Pair(testing::StartsWith("A (disk 2"), "of the guest")));
}

// A builder that reads the folder, and before it writes the image somebody else's turn comes.
class HeldUpBuilder final : public IFatImageBuilder {
 public:
  explicit HeldUpBuilder(std::function<void()> ofOther) : meanwhile(std::move(ofOther)) {}

  bool Build(const fs::path& sourceFolder, const fs::path& outputImage,
             std::uint64_t sizeBytes) override {
    const fs::path made = outputImage.string() + ".made";
    if (!builder->Build(sourceFolder, made, sizeBytes)) return false;
    meanwhile();
    fs::rename(made, outputImage);
    return true;
  }
  std::uint64_t MeasureFolderSize(const fs::path& source) const override {
    return builder->MeasureFolderSize(source);
  }
  std::string LastError() const override { return builder->LastError(); }
  std::vector<std::string> SkippedFiles() const override { return builder->SkippedFiles(); }

 private:
  const std::unique_ptr<IFatImageBuilder> builder = CreateFat16Builder();
  const std::function<void()> meanwhile;
};

TEST_F(Losses, TwoSyncsOnOnePair_PlainDeletesWhatTheOtherBrought) {
  BuildUsual();
  SyncState other;
  PlainPass();
  RunSyncPass(Image(), Host(), other);
  folder.File("host/OFHOST.TXT", "of the host");
  const auto otherBringsFile = [&] {
    GuestWrites("GUEST.TXT", "of the guest");
    RunSyncPass(Image(), Host(), other);
    ASSERT_EQ(OnHost().at("GUEST.TXT"), "of the guest");
  };
  RunSyncPass(Image(), Host(), plainState,
              [&] { return std::make_unique<HeldUpBuilder>(otherBringsFile); });
  RunSyncPass(Image(), Host(), other);
  EXPECT_THAT(OnHost(), Not(Contains(testing::Pair("GUEST.TXT", "of the guest"))));
  EXPECT_THAT(OnDisk(), Not(Contains(testing::Pair("GUEST.TXT", "of the guest"))));
}

TEST_F(Losses, TwoSyncsOnOnePair_GuardedTellsTheSecondWhoIsFirst) {
  BuildUsual();
  const auto first = Sync();
  EXPECT_EQ(first->Pass().outcome, kNothingToDo);
  const GuardedReport second = Sync()->Pass();
  EXPECT_EQ(second.outcome, kNotNow);
  EXPECT_EQ(second.message,
            "process " + std::to_string(::getpid()) + " keeps this pair in step already");
}

// Half of what a guest writes is in the image when the pass comes.
TEST_F(Losses, GuestThatIsWriting_PlainTakesAMixture) {
  folder.File("host/A.TXT", std::string(1000, 'o'));
  BuildImage();
  PlainPass();
  std::vector<std::uint8_t> bytes = test::ReadBytes(Image());
  const auto content = std::search_n(bytes.begin(), bytes.end(), 1000, std::uint8_t{'o'});
  ASSERT_NE(content, bytes.end());
  std::fill_n(content, 512, std::uint8_t{'n'});
  const auto earlier = fs::last_write_time(Image());
  test::WriteBytes(Image(), bytes);
  fs::last_write_time(Image(), earlier + std::chrono::seconds(1));
  PlainPass();
  EXPECT_EQ(OnHost().at("A.TXT"), std::string(512, 'n') + std::string(488, 'o'));
}

// Where the content of a file lies that says "ooo...".
::off_t PlaceOfOldBytes(const fs::path& image) {
  const std::vector<std::uint8_t> bytes = test::ReadBytes(image);
  const auto content = std::search_n(bytes.begin(), bytes.end(), 1000, std::uint8_t{'o'});
  EXPECT_NE(content, bytes.end());
  return content - bytes.begin();
}

void WriteNewBytes(int image, ::off_t at, std::size_t size) {
  const std::string bytes(size, 'n');
  EXPECT_EQ(::pwrite(image, bytes.data(), size, at), static_cast<::ssize_t>(size));
}

TEST_F(Losses, GuestThatIsWriting_GuardedWaitsForAndTakesTheWhole) {
  folder.File("host/A.TXT", std::string(1000, 'o'));
  BuildAndAgree();
  const ::off_t place = PlaceOfOldBytes(Image());
  const int guest = ::open(Image().c_str(), O_WRONLY | O_CLOEXEC);
  WriteNewBytes(guest, place, 512);
  const GuardedReport report = Sync()->Pass();
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_THAT(report.message, HasSubstr("has the image open for writing"));
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", std::string(1000, 'o')}}));
  WriteNewBytes(guest, place + 512, 488);
  ::close(guest);
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", std::string(1000, 'n')}}));
}

// Nobody has the image open when the pass comes: what has changed just now is left to settle.
TEST_F(Losses, GuestThatWritesInTwoGoes_GuardedWaitsForAndTakesTheWhole) {
  folder.File("host/A.TXT", std::string(1000, 'o'));
  BuildAndAgree();
  fs::last_write_time(Host(), fs::file_time_type::clock::now() - std::chrono::hours(2));
  options.settle = std::chrono::minutes(1);
  const ::off_t place = PlaceOfOldBytes(Image());
  for (const auto& [begin, size] : {std::pair{0, 512}, std::pair{512, 488}}) {
    const int guest = ::open(Image().c_str(), O_WRONLY | O_CLOEXEC);
    WriteNewBytes(guest, place + begin, static_cast<std::size_t>(size));
    ::close(guest);
    const GuardedReport report = Sync()->Pass();
    EXPECT_EQ(report.outcome, kNotNow);
    EXPECT_EQ(report.message, "the image is being changed just now");
    EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", std::string(1000, 'o')}}));
  }
  test::secondsAhead = 120;
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_EQ(OnHost(), (FileTree{{"A.TXT", std::string(1000, 'n')}}));
}

TEST_F(Losses, GuestThatHasTheImageOpen_IsWaitedFor) {
  BuildUsual();
  Pass();
  folder.File("host/NEW.TXT", "new");
  const int writer = ::open(Image().c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(writer, 0);
  const GuardedReport report = Sync()->Pass();
  EXPECT_EQ(report.outcome, kNotNow);
  EXPECT_THAT(report.message, HasSubstr("has the image open for writing"));
  ::close(writer);
  EXPECT_EQ(Pass().outcome, kDone);
}

// Edits B.TXT as soon as a pass has brought A.TXT up to date, and so before its second look.
void EditWhenOtherArrives(const fs::path& host, const std::string& edit) {
  while (fs::file_size(host / "A.TXT") == 1) std::this_thread::yield();
  test::WriteWholeFile(host / "B.TXT", edit);
}

TEST_F(Losses, EditWhileAPassRuns_PlainOverwritesItLater) {
  BuildUsual();
  bool wasLost = false;
  // The edit comes too late at times.
  for (int attempt = 0; attempt < 100 && !wasLost; ++attempt) {
    GuestWrites("A.TXT", "a");
    GuestWrites("B.TXT", "b");
    RestartPlain();
    PlainPass();
    GuestWrites("A.TXT", "of the guest");
    std::thread editor([&] { EditWhenOtherArrives(Host(), "of the host"); });
    PlainPass();
    editor.join();
    GuestWrites("NEW.TXT", "n" + std::to_string(attempt));
    PlainPass();
    wasLost = OnHost().at("B.TXT") != "of the host";
  }
  EXPECT_TRUE(wasLost);
}

TEST_F(Losses, EditWhileAPassRuns_GuardedLeavesItForTheNextOne) {
  BuildUsual();
  Pass();
  for (int attempt = 0; attempt < 10; ++attempt) {
    GuestWrites("A.TXT", "a");
    GuestWrites("B.TXT", "b");
    Pass();
    GuestWrites("A.TXT", "of the guest");
    std::thread editor([&] { EditWhenOtherArrives(Host(), "of the host"); });
    EXPECT_EQ(Sync()->Pass().outcome, kDone);
    editor.join();
    EXPECT_EQ(Pass().outcome, kDone);
    EXPECT_EQ(OnHost().at("B.TXT"), "of the host");
    EXPECT_EQ(OnDisk().at("B.TXT"), "of the host");
  }
}

TEST_F(Losses, DotFiles_PlainPutsThemIntoTheImageAndNeverInStep) {
  folder.File("host/A.TXT", "a").File("host/.profile", "p");
  BuildImage();
  PlainPass();
  folder.File("host/.profile", "edited").File("host/A.TXT", "b");
  PlainPass();
  EXPECT_THAT(test::ReadWholeFile(Image()), HasSubstr("edited"));
}

TEST_F(Losses, DotFiles_GuardedLeavesThemOutAndSaysSo) {
  folder.File("host/A.TXT", "a").File("host/.profile", "p");
  BuildAndAgree();
  folder.File("host/A.TXT", "b").File("host/.profile", "edited");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone);
  EXPECT_THAT(report.notes, Contains(testing::Field(&GuardedNote::path, ".profile")));
  EXPECT_THAT(test::ReadWholeFile(Image()), Not(HasSubstr("edited")));
}

TEST_F(Losses, EmptyFolderOfTheGuest_PlainLosesIt) {
  BuildUsual();
  PlainPass();
  GuestMakesFolder("EMPTY");
  PlainPass();
  folder.File("host/A.TXT", "edited");
  PlainPass();
  EXPECT_FALSE(test::GuestEditor(Image()).Exists("EMPTY"));
}

TEST_F(Losses, EmptyFolderOfTheGuest_GuardedCarriesIt) {
  BuildUsual();
  Pass();
  GuestMakesFolder("EMPTY");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_TRUE(fs::is_directory(Host() / "EMPTY"));
  folder.File("host/A.TXT", "edited");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_TRUE(test::GuestEditor(Image()).Exists("EMPTY"));
}

TEST_F(Losses, FilesBehindALinkToAFolder_PlainLosesTheGuestsEdit) {
  folder.File("elsewhere/L.TXT", "l").File("host/A.TXT", "a").Link("host/LINK", "../elsewhere");
  BuildImage();
  PlainPass();
  GuestWrites("LINK/L.TXT", "of the guest");
  PlainPass();
  folder.File("host/A.TXT", "edited");
  PlainPass();
  EXPECT_EQ(folder.Read("elsewhere/L.TXT"), "l");
  EXPECT_EQ(OnDisk().at("LINK/L.TXT"), "l");
}

TEST_F(Losses, FilesBehindALinkToAFolder_GuardedKeepsTheGuestsEdit) {
  folder.File("elsewhere/L.TXT", "l").File("host/A.TXT", "a").Link("host/LINK", "../elsewhere");
  BuildAndAgree();
  GuestWrites("LINK/L.TXT", "of the guest");
  EXPECT_EQ(Pass().outcome, kDone);
  EXPECT_THAT(OnHost(), Contains(testing::Pair(HasSubstr("L.TXT"), "of the guest")));
  EXPECT_EQ(folder.Read("elsewhere/L.TXT"), "l");
}

TEST_F(Losses, EditBehindALinkToAFolder_PlainLeavesTheDiskStale) {
  folder.File("elsewhere/L.TXT", "l").File("host/A.TXT", "a").Link("host/LINK", "../elsewhere");
  BuildImage();
  PlainPass();
  folder.File("elsewhere/L.TXT", "edited");
  PlainPass();
  EXPECT_EQ(OnDisk().at("LINK/L.TXT"), "l");
}

// Nothing stale is left, and what takes no part is told.
TEST_F(Losses, EditBehindALinkToAFolder_GuardedLeavesTheFolderOutAndSaysSo) {
  folder.File("elsewhere/L.TXT", "l").File("host/A.TXT", "a").Link("host/LINK", "../elsewhere");
  BuildAndAgree();
  folder.File("elsewhere/L.TXT", "edited").File("host/A.TXT", "b");
  const GuardedReport report = Pass();
  EXPECT_EQ(report.outcome, kDone);
  EXPECT_THAT(report.notes,
              Contains(testing::AllOf(
                  testing::Field(&GuardedNote::path, "LINK"),
                  testing::Field(&GuardedNote::text, HasSubstr("a link to a folder")))));
  EXPECT_EQ(OnDisk(), (FileTree{{"A.TXT", "b"}}));
  EXPECT_EQ(folder.Read("elsewhere/L.TXT"), "edited");
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
