#include "guard/host_changes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "guard/host_view.h"
#include "guard/vocabulary.h"
#include "quorbix/virtdisk/guarded_folder_sync.h"
#include "support/child_process.h"
#include "support/temp_folder.h"
#include "sync/hash_bytes.h"

namespace quorbix::virtdisk::internal::guard {
namespace {

namespace fs = std::filesystem;
using Result = Ending::Result;
using test::TempFolder;
using testing::ElementsAre;
using testing::IsEmpty;
using Tree = std::map<std::string, std::string>;

// A folder "host" that has been looked at, and a disk that says of each file what is told here.
class HostChange : public testing::Test {
 protected:
  HostChange() { folder.Folder("state"); }

  void Look() { view = LookAtHost({.folder = folder / "host"}, monitor); }

  HostChanges& Changes() {
    if (!changes) changes.emplace(folder / "host", view.entryStamps, trash, monitor);
    return *changes;
  }

  // A write of `text` to `host`; the disk's file has the same name.
  HostWrite Write(const std::string& host, const std::string& text) {
    disk[host] = text;
    return {host, host, ContentOf(text), folder.Exists("host/" + host)};
  }

  Ending WriteAll(const std::vector<HostWrite>& writes) {
    return Changes().WriteFiles(writes, [&](const std::string& path, const Sink& sink) {
      if (beforeRead) beforeRead();
      const std::string& text = disk.at(path);
      sink(std::vector<std::uint8_t>(text.begin(), text.end()));
      return Ending{};
    });
  }

  Tree OnHost() const { return folder.Files("host"); }

  std::map<std::string, std::string> Trashed() const {
    std::vector<TrashedItem> items;
    std::string err;
    EXPECT_TRUE(ListTrash(folder / "state", items, err)) << err;
    std::map<std::string, std::string> contents;
    for (const TrashedItem& item : items) {
      contents[item.why + ' ' + item.path] =
          test::ReadWholeFile(folder / "state" / "trash" / item.id);
    }
    return contents;
  }

  TempFolder folder;
  HostView view;
  std::atomic<bool> stop = false;
  WorkMonitor monitor{&stop, {}};
  TrashRun trash{folder / "state", "2026-11-21 17.20.05"};
  std::map<std::string, std::string> disk;
  std::function<void()> beforeRead;
  std::optional<HostChanges> changes;
};

TEST_F(HostChange, LeftoverThatIsGone_IsNoFailure) {
  folder.File("host/.quorbix-there.tmp", "t");
  Look();
  const Ending ending = Changes().SweepLeftovers({".quorbix-gone.tmp", ".quorbix-there.tmp"}, {});
  EXPECT_TRUE(ending.IsDone()) << ending.text;
  EXPECT_THAT(OnHost(), IsEmpty());
}

TEST_F(HostChange, NewFile_GetsTheDisksContent) {
  folder.Folder("host");
  Look();
  EXPECT_TRUE(WriteAll({Write("a", "new")}).IsDone());
  EXPECT_EQ(OnHost(), (Tree{{"a", "new"}}));
  EXPECT_THAT(Trashed(), IsEmpty());
  EXPECT_EQ(Changes().Written().at("a").content, ContentOf("new"));
}

TEST_F(HostChange, ReplacedFile_GoesToTheTrashAndHandsItsModeOn) {
  folder.File("host/d/a", "old");
  fs::permissions(folder / "host/d/a", fs::perms{0640});
  Look();
  EXPECT_TRUE(WriteAll({Write("d/a", "new")}).IsDone());
  EXPECT_EQ(OnHost(), (Tree{{"d/a", "new"}}));
  EXPECT_EQ(Trashed(), (Tree{{"replaced d/a", "old"}}));
  EXPECT_EQ(static_cast<unsigned>(fs::status(folder / "host/d/a").permissions()), 0640u);
}

TEST_F(HostChange, ReplacedFileOfSomebodyElse_StaysHis) {
  if (::geteuid() != 0) GTEST_SKIP() << "nobody but root may give files away";
  folder.File("host/a", "old");
  ASSERT_EQ(::chown((folder / "host/a").c_str(), 12345, 23456), 0);
  fs::permissions(folder / "host/a", fs::perms{0600});
  Look();
  EXPECT_TRUE(WriteAll({Write("a", "new")}).IsDone());
  struct ::stat status {};
  ASSERT_EQ(::stat((folder / "host/a").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 12345u);
  EXPECT_EQ(status.st_gid, 23456u);
  EXPECT_EQ(status.st_mode & 07777u, 0600u);
  EXPECT_EQ(folder.Read("host/a"), "new");
}

TEST_F(HostChange, ReplacedProgramWithSpecialRights_HandsThemOnToNobody) {
  folder.File("host/a", "old");
  fs::permissions(folder / "host/a", fs::perms{06755});
  Look();
  EXPECT_TRUE(WriteAll({Write("a", "new")}).IsDone());
  EXPECT_EQ(static_cast<unsigned>(fs::status(folder / "host/a").permissions()), 0755u);
}

TEST_F(HostChange, ManyFiles_AreAllWritten) {
  std::vector<HostWrite> writes;
  folder.Folder("host");
  Look();
  for (int i = 0; i < 40; ++i) writes.push_back(Write("f" + std::to_string(i), std::to_string(i)));
  EXPECT_TRUE(WriteAll(writes).IsDone());
  EXPECT_EQ(OnHost().size(), 40u);
}

TEST_F(HostChange, FileEditedSinceTheLook_IsLeftAlone) {
  folder.File("host/a", "old").File("host/b", "old");
  Look();
  const std::vector<HostWrite> writes{Write("a", "new"), Write("b", "new")};
  beforeRead = [&] { folder.File("host/b", "edited meanwhile"); };
  const Ending ending = WriteAll(writes);
  EXPECT_EQ(ending.result, Result::kBusy);
  EXPECT_EQ(ending.text, "b has changed since it was looked at");
  EXPECT_EQ(OnHost(), (Tree{{"a", "new"}, {"b", "edited meanwhile"}}));
  EXPECT_EQ(Trashed(), (Tree{{"replaced a", "old"}}));
}

TEST_F(HostChange, FileMadeSinceTheLook_IsLeftAlone) {
  folder.Folder("host");
  Look();
  const std::vector<HostWrite> writes{Write("a", "new")};
  beforeRead = [&] { folder.File("host/a", "made meanwhile"); };
  EXPECT_EQ(WriteAll(writes).result, Result::kBusy);
  EXPECT_EQ(OnHost(), (Tree{{"a", "made meanwhile"}}));
}

TEST_F(HostChange, FileRemovedSinceTheLook_IsNotMadeAgain) {
  folder.File("host/a", "old");
  Look();
  const std::vector<HostWrite> writes{Write("a", "new")};
  beforeRead = [&] { folder.Remove("host/a"); };
  EXPECT_EQ(WriteAll(writes).result, Result::kBusy);
  EXPECT_EQ(OnHost(), Tree{});
}

TEST_F(HostChange, DiskThatSaysSomethingElseByNow_ChangesNothing) {
  folder.File("host/a", "old");
  Look();
  HostWrite write = Write("a", "new");
  disk["a"] = "newer";
  const Ending ending = WriteAll({write});
  EXPECT_EQ(ending.result, Result::kBusy);
  EXPECT_EQ(ending.text, "the image has changed meanwhile");
  EXPECT_EQ(OnHost(), (Tree{{"a", "old"}}));
}

TEST_F(HostChange, FullDisk_ChangesNothingAndLeavesNothing) {
  folder.File("host/a", "old").File("host/b", "old");
  Look();
  const std::vector<HostWrite> writes{Write("a", "n"), Write("b", std::string(5000, 'n'))};
  const int status = test::RunInChild({.fileSizeLimit = 1000}, [&] {
    const Ending ending = WriteAll(writes);
    if (ending.result != Result::kFailed) return 1;
    return ending.text == "cannot write b (File too large)" ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(OnHost(), (Tree{{"a", "old"}, {"b", "old"}}));
}

TEST_F(HostChange, LinkInTheFilesPlace_IsReplacedItselfAndKept) {
  folder.File("host/target", "old").Link("host/link", "target");
  Look();
  EXPECT_TRUE(WriteAll({Write("link", "new")}).IsDone());
  EXPECT_EQ(folder.Read("host/target"), "old");
  EXPECT_FALSE(fs::is_symlink(folder / "host/link"));
  std::vector<TrashedItem> items;
  std::string err;
  ASSERT_TRUE(ListTrash(folder / "state", items, err));
  ASSERT_EQ(items.size(), 1u);
  EXPECT_EQ(fs::read_symlink(folder / "state/trash" / items[0].id), "target");
}

TEST_F(HostChange, LinkThatTookAFoldersPlace_LeadsNowhere) {
  folder.File("host/d/a", "old").File("outside/a", "theirs");
  Look();
  const std::vector<HostWrite> writes{Write("d/a", "new")};
  fs::rename(folder / "host/d", folder / "host/e");
  folder.Link("host/d", "../outside");
  EXPECT_FALSE(WriteAll(writes).IsDone());
  EXPECT_EQ(folder.Read("outside/a"), "theirs");
}

TEST_F(HostChange, StopFlag_LeavesNothingBehind) {
  folder.File("host/a", "old");
  Look();
  const std::vector<HostWrite> writes{Write("a", "new")};
  beforeRead = [&] { stop = true; };
  EXPECT_EQ(WriteAll(writes).result, Result::kStopped);
  EXPECT_EQ(OnHost(), (Tree{{"a", "old"}}));
}

TEST_F(HostChange, TrashThatCannotBeMade_LeavesTheOldFile) {
  folder.File("host/a", "old").File("state/trash", "a file");
  Look();
  const Ending ending = WriteAll({Write("a", "new")});
  EXPECT_EQ(ending.result, Result::kFailed);
  EXPECT_THAT(ending.text, testing::HasSubstr("cannot make the trash"));
  EXPECT_EQ(OnHost(), (Tree{{"a", "old"}}));
}

TEST_F(HostChange, DeletedFile_GoesToTheTrash) {
  folder.File("host/d/a", "old");
  Look();
  EXPECT_TRUE(Changes().DeleteFiles({"d/a"}).IsDone());
  EXPECT_EQ(OnHost(), Tree{});
  EXPECT_EQ(Trashed(), (Tree{{"deleted d/a", "old"}}));
}

TEST_F(HostChange, FileToDeleteThatWasEdited_Stays) {
  folder.File("host/a", "old");
  Look();
  folder.File("host/a", "edited");
  EXPECT_EQ(Changes().DeleteFiles({"a"}).result, Result::kBusy);
  EXPECT_EQ(OnHost(), (Tree{{"a", "edited"}}));
}

TEST_F(HostChange, Folders_AreMadeAndRemoved) {
  folder.Folder("host/x/y");
  Look();
  EXPECT_TRUE(Changes().MakeFolders({"d", "d/e"}).IsDone());
  EXPECT_TRUE(folder.Exists("host/d/e"));
  EXPECT_TRUE(Changes().RemoveFolders({"x/y", "x"}).IsDone());
  EXPECT_FALSE(folder.Exists("host/x"));
}

TEST_F(HostChange, FolderToRemoveThatHoldsSomething_Stays) {
  folder.Folder("host/x");
  Look();
  folder.File("host/x/.new", "n");
  EXPECT_EQ(Changes().RemoveFolders({"x"}).result, Result::kBusy);
  EXPECT_TRUE(folder.Exists("host/x/.new"));
}

TEST_F(HostChange, Leftovers_GoToTheTrash) {
  folder.File("host/d/.quorbix-1-7fffffff-3.tmp", "half way");
  Look();
  EXPECT_TRUE(Changes().SweepLeftovers(view.leftovers, {}).IsDone());
  EXPECT_EQ(OnHost(), Tree{});
  EXPECT_EQ(Trashed(), (Tree{{"left over d/.quorbix-1-7fffffff-3.tmp", "half way"}}));
}

}  // namespace
}  // namespace quorbix::virtdisk::internal::guard
