#include "sync/host_write.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <system_error>

#include "common/fail.h"
#include "common/folder_walk.h"
#include "common/host_file.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

constexpr char kTemporarySuffix[] = ".quorbix_tmp";
constexpr char kCreateDirectoriesFailed[] = "create_directories failed: ";
constexpr char kCannotOpenTempFile[] = "Cannot open temp file: ";
constexpr char kWriteFailed[] = "Write failed: ";
constexpr char kRenameFailed[] = "rename failed: ";

std::string InParentheses(const std::error_code& ec) { return " (" + ec.message() + ")"; }

// Takes away what an open would write through or wait at. An old regular file stays, to be
// truncated, and so does a folder, which no open can take for a file.
void ClearTheWay(const fs::path& temporary) {
  std::error_code ignored;
  const fs::file_status status = fs::symlink_status(temporary, ignored);
  const bool stays = !fs::exists(status) || fs::is_regular_file(status) || fs::is_directory(status);
  if (!stays) fs::remove(temporary, ignored);
}

// The permission bits of the file that is to be replaced; nothing when there is none.
std::optional<::mode_t> ModeOf(const fs::path& target) {
  struct ::stat status;
  if (::stat(target.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  return status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
}

bool WriteTemporary(const fs::path& temporary, std::optional<::mode_t> mode,
                    const std::vector<std::uint8_t>& bytes, std::string& err) {
  ClearTheWay(temporary);
  const Descriptor out = OpenHostFile(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW,
                                      mode ? S_IRUSR | S_IWUSR : 0666);
  if (!out) return Fail(err, kCannotOpenTempFile + temporary.native());
  // Before the first byte is in it: the old file may be nobody else's to read. Where the file
  // system has no such bits, the file gets what it gives.
  if (mode) static_cast<void>(::fchmod(out.Get(), *mode));
  return WriteFully(out.Get(), bytes) || Fail(err, kWriteFailed + temporary.native());
}

bool MoveOnto(const fs::path& temporary, const fs::path& target, std::string& err) {
  std::error_code ec;
  fs::rename(temporary, target, ec);
  if (!ec) return true;
  fs::remove(target, ec);
  fs::rename(temporary, target, ec);
  if (!ec) return true;
  // The message tells of this removal, not of the rename; that is meant.
  fs::remove(temporary, ec);
  return Fail(err,
              kRenameFailed + temporary.native() + " -> " + target.native() + InParentheses(ec));
}

std::vector<std::string> FoldersBelow(const fs::path& root) {
  std::vector<std::string> folders;
  std::error_code ec;
  FolderWalk walk(root, ec);
  // An entry of unknown kind, a dangling link for instance, ends the walk early; that is meant.
  for (; !walk.AtEnd() && !ec; walk.Advance()) {
    if (walk.IsFolder(ec)) folders.push_back(walk.Path());
  }
  return folders;
}

}  // namespace

bool WriteFileAtomically(const fs::path& target, const std::vector<std::uint8_t>& bytes,
                         std::string& err) {
  const fs::path parent = target.parent_path();
  std::error_code ec;
  fs::create_directories(parent, ec);
  if (ec) return Fail(err, kCreateDirectoriesFailed + parent.native() + InParentheses(ec));
  const fs::path temporary = target.native() + kTemporarySuffix;
  return WriteTemporary(temporary, ModeOf(target), bytes, err) && MoveOnto(temporary, target, err);
}

void RemoveEmptyDirsRec(const fs::path& root) {
  std::vector<std::string> folders = FoldersBelow(root);
  // A folder's path is longer than its parent's, so the innermost come first.
  std::sort(folders.begin(), folders.end(),
            [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
  std::error_code ignored;
  for (const std::string& folder : folders) fs::remove(folder, ignored);
}

}  // namespace quorbix::virtdisk::internal
