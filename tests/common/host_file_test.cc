#include "common/host_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/lease_holder.h"
#include "support/temp_folder.h"

namespace quorbix::virtdisk::internal {
namespace {

using test::RunInChild;
using test::TempFolder;

TEST(OpenHostFile, Descriptor_IsNotInherited) {
  TempFolder folder;
  folder.File("F");
  const Descriptor file = OpenHostFile((folder / "F").c_str(), O_RDONLY);
  ASSERT_TRUE(file);
  EXPECT_NE(::fcntl(file.Get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(OpenHostFile, PipeWithoutAReader_IsRefusedAtOnce) {
  TempFolder folder;
  folder.Pipe("pipe");
  EXPECT_FALSE(OpenHostFile((folder / "pipe").c_str(), O_WRONLY));
  EXPECT_EQ(errno, ENXIO);
}

TEST(OpenHostFile, FileUnderALease_IsWaitedFor) {
  TempFolder folder;
  folder.File("F");
  test::LeaseHolder holder(folder / "F");
  if (!holder.Holds()) GTEST_SKIP() << "this file system has no leases";
  EXPECT_TRUE(OpenHostFile((folder / "F").c_str(), O_RDONLY));
  EXPECT_TRUE(holder.WasAsked());
}

TEST(OpenRegularFile, AnythingElse_IsRefused) {
  TempFolder folder;
  folder.Pipe("pipe").Folder("sub");
  struct ::stat status;
  for (const std::string& path :
       {(folder / "pipe").string(), (folder / "sub").string(), std::string("/dev/zero")}) {
    EXPECT_FALSE(OpenRegularFile(path.c_str(), status)) << path;
  }
}

TEST(ReadFully, FileShorterThanTheBuffer_GivesWhatThereIs) {
  TempFolder folder;
  folder.File("F", "abc");
  const Descriptor file = OpenHostFile((folder / "F").c_str(), O_RDONLY);
  std::array<std::uint8_t, 8> buffer{};
  EXPECT_EQ(ReadFully(file.Get(), buffer), 3);
  EXPECT_EQ(ReadFully(file.Get(), buffer), 0);
}

TEST(ReadFully, PiecesThatArriveOneByOne_AreAllTaken) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const int status = RunInChild({}, [&] {
    for (const char* byte : {"a", "b", "c"}) {
      if (::write(ends[1], byte, 1) != 1) return 1;
      ::usleep(1000);
    }
    return 0;
  });
  ASSERT_EQ(status, 0);
  ::close(ends[1]);
  std::array<std::uint8_t, 3> buffer{};
  EXPECT_EQ(ReadFully(ends[0], buffer), 3);
  ::close(ends[0]);
}

TEST(ReadFully, Folder_Fails) {
  TempFolder folder;
  const Descriptor file = OpenHostFile(folder.Path().c_str(), O_RDONLY);
  std::array<std::uint8_t, 8> buffer{};
  EXPECT_EQ(ReadFully(file.Get(), buffer), -1);
}

TEST(WriteFully, WriteTheSystemCutsShort_Fails) {
  TempFolder folder;
  const int status = RunInChild({.fileSizeLimit = 100}, [&] {
    const Descriptor file = OpenHostFile((folder / "F").c_str(), O_WRONLY | O_CREAT);
    return WriteFully(file.Get(), std::vector<std::uint8_t>(101)) ? 1 : 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(FollowLinks, Links_LeadToTheirEnd) {
  TempFolder folder;
  folder.Folder("SUB").Link("A", "SUB/B").Link("SUB/B", "C").Link("ABS", folder / "C");
  EXPECT_EQ(FollowLinks(folder / "A"), folder / "SUB/C");
  EXPECT_EQ(FollowLinks(folder / "ABS"), folder / "C");
  EXPECT_EQ(FollowLinks(folder / "SUB"), folder / "SUB");
}

TEST(FollowLinks, LinksInACircle_End) {
  TempFolder folder;
  folder.Link("A", "B").Link("B", "A");
  EXPECT_EQ(FollowLinks(folder / "A").parent_path(), folder.Path());
}

}  // namespace
}  // namespace quorbix::virtdisk::internal
