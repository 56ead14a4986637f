#include "sync/host_write.h"

#include <algorithm>
#include <fstream>
#include <ios>
#include <system_error>

#include "common/fail.h"

namespace quorbix::virtdisk::internal {
namespace fs = std::filesystem;

namespace {

constexpr char kTemporarySuffix[] = ".quorbix_tmp";
constexpr char kCreateDirectoriesFailed[] = "create_directories failed: ";
constexpr char kCannotOpenTempFile[] = "Cannot open temp file: ";
constexpr char kWriteFailed[] = "Write failed: ";
constexpr char kRenameFailed[] = "rename failed: ";

std::string InParentheses(const std::error_code& ec) { return " (" + ec.message() + ")"; }

bool WriteTemporary(const fs::path& temporary, const std::vector<std::uint8_t>& bytes,
                    std::string& err) {
  std::ofstream out;
  // Unbuffered: a full disk has to show at the write, not at the close, which nobody looks at.
  out.rdbuf()->pubsetbuf(nullptr, 0);
  out.open(temporary, std::ios::binary | std::ios::trunc);
  if (!out) return Fail(err, kCannotOpenTempFile + temporary.native());
  if (bytes.empty()) return true;
  out.write(reinterpret_cast<const char*>(bytes.data()),
            static_cast<std::streamsize>(bytes.size()));
  return out.good() || Fail(err, kWriteFailed + temporary.native());
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

std::vector<fs::path> FoldersBelow(const fs::path& root) {
  std::vector<fs::path> folders;
  std::error_code ec;
  fs::recursive_directory_iterator it(root, ec);
  // An entry of unknown kind, a dangling link for instance, ends the walk early; that is meant.
  for (; it != fs::recursive_directory_iterator() && !ec; ++it) {
    if (it->is_directory(ec)) folders.push_back(it->path());
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
  return WriteTemporary(temporary, bytes, err) && MoveOnto(temporary, target, err);
}

void RemoveEmptyDirsRec(const fs::path& root) {
  std::vector<fs::path> folders = FoldersBelow(root);
  // A folder's path is longer than its parent's, so the innermost come first.
  std::sort(folders.begin(), folders.end(), [](const fs::path& a, const fs::path& b) {
    return a.native().size() > b.native().size();
  });
  std::error_code ignored;
  for (const fs::path& folder : folders) fs::remove(folder, ignored);
}

}  // namespace quorbix::virtdisk::internal
