#include "host/new_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>

#include "common/file_rights.h"
#include "common/host_file.h"
#include "guard/host_view.h"
#include "guard/renames.h"
#include "host/host_file.h"
#include "host/stop_signals.h"

namespace quorbix::virtdisk::tool {
namespace {

namespace fs = std::filesystem;

constexpr int kMostTries = 1000;

fs::path FolderOf(const fs::path& file) {
  return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

std::string NameByDescriptor(int file) { return "/proc/self/fd/" + std::to_string(file); }

// Tries short hidden names beside `target` until `take` accepts one, or fails for another reason
// than that it is taken. Short ones, because the target's own may be as long as can be.
bool FindFreeName(const fs::path& target, std::string& name,
                  const std::function<bool(const char*)>& take) {
  const std::string prefix =
      (FolderOf(target) / (".virtdisk-" + std::to_string(::getpid()) + "-")).string();
  for (int i = 0; i < kMostTries; ++i) {
    name = prefix + std::to_string(i);
    if (take(name.c_str())) return true;
    if (errno != EEXIST) break;
  }
  name.clear();
  return false;
}

}  // namespace

NewFile::~NewFile() {
  const SignalsHeld held;
  if (!name.empty()) ::unlink(name.c_str());
  TakeBackFromSignals(leftToSignals);
}

bool NewFile::Create(const fs::path& path, std::string& err, Naming naming) {
  target = path;
  struct ::stat old {};
  struct ::stat end {};
  if (::lstat(path.c_str(), &old) == 0) before = old;
  const bool isSpecial = ::stat(path.c_str(), &end) == 0 && !S_ISREG(end.st_mode);
  if (isSpecial) return FailToWriteFile(err, target, kNotRegular);
  if (naming == Naming::kNamelessIfPossible && CreateNameless()) return true;
  return CreateNamed() || Fail(err, errno);
}

fs::path NewFile::PathSoFar() const { return name.empty() ? NameByDescriptor(file.Get()) : name; }

bool NewFile::Commit(std::string& err) {
  const bool isReady = !ReplacesFile() || internal::TakeOverRights(file.Get(), target, *before);
  if (!isReady || ::fsync(file.Get()) != 0) return Fail(err, errno);
  if (!TakePlace()) {
    return errno == EEXIST ? FailToWriteFile(err, target, kChangedMeanwhile) : Fail(err, errno);
  }
  file.Close();
  // The file is in its place already; not every file system can write a folder out.
  [[maybe_unused]] const bool flushed = internal::FlushFolder(FolderOf(target));
  return true;
}

bool NewFile::CreateNameless() {
  file = internal::OpenHostPath(FolderOf(target).c_str(), O_TMPFILE | O_RDWR, FirstMode());
  if (file && ::access(NameByDescriptor(file.Get()).c_str(), F_OK) == 0) return true;
  file.Close();
  return false;
}

bool NewFile::CreateNamed() {
  const SignalsHeld held;
  FindFreeName(target, name, [this](const char* freeName) {
    file = internal::OpenHostPath(freeName, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, FirstMode());
    return static_cast<bool>(file);
  });
  if (file) leftToSignals = LeaveToSignals(name.c_str());
  return static_cast<bool>(file);
}

bool NewFile::MoveIntoPlace() const {
  struct ::stat now {};
  const bool isThere = ::lstat(target.c_str(), &now) == 0;
  if (!isThere || !before) {
    return internal::guard::RenameIfFree(AT_FDCWD, name.c_str(), AT_FDCWD, target.c_str());
  }
  if (internal::guard::StampOf(now) == internal::guard::StampOf(*before)) {
    return ::rename(name.c_str(), target.c_str()) == 0;
  }
  errno = EEXIST;
  return false;
}

bool NewFile::TakePlace() {
  const SignalsHeld held;
  if (name.empty() && !Name()) return false;
  const bool inPlace = MoveIntoPlace();
  const int reason = errno;
  if (!inPlace) ::unlink(name.c_str());
  name.clear();
  errno = reason;
  return inPlace;
}

bool NewFile::Fail(std::string& err, int number) {
  error = number;
  return FailToWriteFile(err, target, SystemText(number));
}

bool NewFile::Name() {
  return FindFreeName(target, name, [this](const char* freeName) {
    return ::linkat(AT_FDCWD, NameByDescriptor(file.Get()).c_str(), AT_FDCWD, freeName,
                    AT_SYMLINK_FOLLOW) == 0;
  });
}

}  // namespace quorbix::virtdisk::tool
