#include "guard/state.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "guard/vocabulary.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

using testing::HasSubstr;

State SmallState() {
  State state;
  state.folder = Identity{2049, 131};
  state.image = SeenImage{.volumeId = 0x1A2B3C4D,
                          .stamp = {{2049, 77}, 3145728, 1763745605000000001, 1763745605000000002},
                          .taken = 1763745609000000000};
  state.lastReadInFull = 1763745600;
  state.memory =
      Knows({{"Docs/", "DOCS/", 'f'}, {"Docs/Long name%.txt", "DOCS/LONG_NAM.TXT", 'a'}});
  state.memory.pairs.push_back({"only named", "ONLY_NAM", EntryType::kFile, {}});
  state.memory.ignored = {{"link", {EntryType::kFolder, {}}},
                          {"link/a", {EntryType::kFile, Says('l')}}};
  state.seen["Docs/Long name%.txt"] = {
      .stamp = {{2049, 5}, 1, -5, 6}, .taken = 7, .content = Says('a')};
  return state;
}

State Parsed(std::string_view text) {
  State state;
  std::string err;
  EXPECT_TRUE(ParseState(text, state, err)) << err;
  return state;
}

std::string Fault(std::string_view text) {
  State state = SmallState();
  std::string err;
  EXPECT_FALSE(ParseState(text, state, err));
  EXPECT_EQ(state, State());
  return err;
}

TEST(State, Text_IsALineAFact) {
  State state;
  state.memory = Knows({{"Long name.txt", "LONG_NAM.TXT", 'a'}});
  state.folder = Identity{1, 2};
  EXPECT_THAT(FormatState(state),
              testing::MatchesRegex("virtdisk sync state 1\n"
                                    "checksum [0-9a-f]+\n"
                                    "host-folder 1 2\n"
                                    "file 61 1 LONG_NAM.TXT Long%20name.txt\n"));
}

TEST(State, EverythingWritten_IsReadBack) {
  const State state = SmallState();
  EXPECT_EQ(Parsed(FormatState(state)), state);
  EXPECT_EQ(Parsed(FormatState(State())), State());
}

TEST(State, PendingPass_IsReadBack) {
  State state = SmallState();
  state.pending = Pending{.memory = Knows({{"x", "X", 'x'}}),
                          .volumeId = 9,
                          .tornId = 10,
                          .wholeImage = ".quorbix-1.tmp"};
  EXPECT_EQ(Parsed(FormatState(state)), state);
  state.pending->wholeImage.clear();
  state.pending->memory.ignored = {{"y", {EntryType::kFile, Says('y')}}};
  EXPECT_EQ(Parsed(FormatState(state)), state);
}

TEST(State, AnyBytesInNames_AreReadBack) {
  std::mt19937 random(3);
  for (int i = 0; i < 300; ++i) {
    State state;
    Pair pair{.host = "a/x", .disk = {}, .type = EntryType::kFile, .agreed = Says('a')};
    for (auto size = 1 + random() % 12; size > 0; --size) {
      const char plain = "% \n\r\t.-"[random() % 7];
      const char any = static_cast<char>(random());
      // Which no name has.
      const bool isNone = any == '/' || any == '\0';
      pair.host += isNone || random() % 4 == 0 ? plain : any;
    }
    pair.disk = pair.host.substr(0, 14);
    state.memory.pairs.push_back(pair);
    EXPECT_EQ(Parsed(FormatState(state)), state);
  }
}

TEST(State, EveryByteThatIsChanged_IsNoticed) {
  const std::string text = FormatState(SmallState());
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (const int change : {1, 0x20, 0x80}) {
      std::string damaged = text;
      damaged[i] = static_cast<char>(damaged[i] ^ change);
      State state;
      std::string err;
      // Upper-case digits of the checksum say the same.
      EXPECT_TRUE(!ParseState(damaged, state, err) || state == SmallState()) << i;
    }
  }
}

TEST(State, EveryCutText_IsNoticed) {
  const std::string text = FormatState(SmallState());
  for (std::size_t size = 0; size < text.size(); ++size) Fault(text.substr(0, size));
}

TEST(State, OtherVersion_IsToldAsSuch) {
  std::string text = FormatState(SmallState());
  text.replace(text.find("state 1"), 7, "state 2");
  EXPECT_THAT(Fault(text), HasSubstr("version"));
}

TEST(State, OtherText_IsToldAsSuch) {
  EXPECT_EQ(Fault("hello"), "it is no state of this program");
  EXPECT_EQ(Fault(""), "it is no state of this program");
}

// With a right checksum, as another version might write it.
// Whoever has written it: no plan made of it could be carried out.
TEST(State, NamesThatContradictEachOther_AreAFault) {
  for (const bool isPending : {false, true}) {
    const auto faultOf = [&](const Memory& memory) {
      State state;
      if (isPending) {
        state.pending = Pending{.memory = memory};
      } else {
        state.memory = memory;
      }
      return Fault(FormatState(state));
    };
    EXPECT_EQ(faultOf(Knows({{"a", "A", 'a'}, {"a", "B", 'b'}})), "it names something twice");
    EXPECT_EQ(faultOf(Knows({{"a", "A.TXT", 'a'}, {"b", "a.txt", 'b'}})),
              "it names something twice");
    EXPECT_EQ(faultOf(Knows({{"a", "LONG_NAM.TXT", 'a'}, {"b", "SUB/LONG_NAME.TXT", 'b'}})),
              "it has a name that no disk has");
  }
}

TEST(State, LineOfUnknownKind_IsNotPassedOver) {
  const auto withLine = [](const std::string& line) {
    State state;
    state.memory.pairs.push_back({"x", "X", EntryType::kFile, {}});
    std::string text = FormatState(state);
    const std::string facts = line + "\n";
    std::uint64_t hash = 0x14650FB0739D0383;
    for (const char c : facts) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    char digits[17];
    std::snprintf(digits, sizeof digits, "%llx", static_cast<unsigned long long>(hash));
    return "virtdisk sync state 1\nchecksum " + std::string(digits) + "\n" + facts;
  };
  EXPECT_EQ(Parsed(withLine("file 61 1 X x")).memory, Knows({{"x", "X", 'a'}}));
  for (const char* line :
       {"fiel 61 1 X x", "file 61 1 X", "file 61 1 X x y", "file zz 1 X x", "", "file 61 -1 X x",
        "file 61 1 X%4 x", "pending-file 61 1 X x", "image 1 2 3", "file 61 1 X ../x",
        "file 61 1 .. x", "folder 0 0 X /x", "file 61 1 X x//y", "file 61 1 X %",
        "file 61 1 X x%00", "pending 1 0 x.img", "pending 1 0 /.quorbix-1.tmp",
        "file 61 99999999999999999999 X x"}) {
    EXPECT_EQ(Fault(withLine(line)), "it has a line that cannot be read") << line;
  }
}

TEST(IsTrustworthy, FileChangedShortlyBeforeItWasRead_IsNot) {
  const std::int64_t second = 1'000'000'000;
  const Stamp stamp{.modified = 100 * second, .changed = 100 * second};
  EXPECT_FALSE(IsTrustworthy(stamp, 100 * second));
  EXPECT_FALSE(IsTrustworthy(stamp, 102 * second));
  EXPECT_TRUE(IsTrustworthy(stamp, 102 * second + 1));
  EXPECT_FALSE(IsTrustworthy(stamp, 99 * second));  // the clock was set back, or the file forward
}

TEST(IsTrustworthy, LaterOfBothTimes_Counts) {
  EXPECT_FALSE(IsTrustworthy({.modified = 5, .changed = 100'000'000'000}, 101'000'000'000));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
