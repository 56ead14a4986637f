#include "guard/state_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <optional>
#include <system_error>

#include "common/fail.h"
#include "common/host_file.h"
#include "common/text_bytes.h"
#include "guard/renames.h"
#include "guard/system_text.h"

namespace quorbix::virtdisk::internal::guard {
namespace fs = std::filesystem;

namespace {

constexpr char kStateName[] = "state";
constexpr char kLockName[] = "lock";
// Several times as much as a folder of millions of files comes to. What is larger is nobody's
// state, and would not fit into memory.
constexpr ::off_t kLargestText = ::off_t{1} << 30;

// "1234", as whoever has the lock wrote it there. Nothing when it says anything else: then it is
// no lock, but somebody's file of that name.
std::optional<std::string> HolderIn(int file) {
  std::array<char, 32> text{};
  const ::ssize_t size = ::pread(file, text.data(), text.size(), 0);
  const std::string_view said(text.data(), static_cast<std::size_t>(std::max<::ssize_t>(size, 0)));
  const std::size_t digits = std::min(said.find_first_not_of("0123456789"), said.size());
  const bool isHolder = size >= 0 && said.size() < text.size() &&
                        said.find_first_not_of('\n', digits) == std::string_view::npos;
  return isHolder ? std::optional(std::string(said.substr(0, digits))) : std::nullopt;
}

std::string CannotLock(const fs::path& lock) {
  return "cannot lock " + lock.string() + " (" + SystemText() + ")";
}

// What comes of locking a file: one that is no lock is none that could be had.
Locking Judge(const Descriptor& lock, Locking locking, const fs::path& path, std::string& err) {
  if (locking == Locking::kFailed) {
    err = CannotLock(path);
    return locking;
  }
  const std::optional<std::string> holder = HolderIn(lock.Get());
  if (locking == Locking::kHeld) {
    err = (!holder || holder->empty() ? "another process" : "process " + *holder) +
          " keeps this pair in step already";
    return locking;
  }
  if (holder) return Locking::kTaken;
  err = path.string() + " is no lock of this program";
  return Locking::kFailed;
}

}  // namespace

StateLoad LoadText(const fs::path& file, ByteBuffer& text, std::string& err) {
  struct ::stat status;
  const Descriptor opened = OpenRegularFile(file.c_str(), status);
  if (!opened) {
    if (errno == ENOENT || errno == ENOTDIR) return StateLoad::kNone;
    err = SystemText();
    return StateLoad::kDamaged;
  }
  if (status.st_size > kLargestText) {
    err = "it is too large";
    return StateLoad::kDamaged;
  }
  text = ByteBuffer(static_cast<std::size_t>(status.st_size));
  if (ReadFully(opened.Get(), text.Span()) == status.st_size) return StateLoad::kLoaded;
  err = "it cannot be read to its end";
  return StateLoad::kDamaged;
}

bool SaveText(const fs::path& file, std::string_view text, std::string& err) {
  const fs::path folder = file.parent_path();
  const fs::path temporary = folder / (".quorbix-" + file.filename().string() + ".tmp");
  Descriptor opened =
      OpenHostFile(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0600);
  const bool written = opened && WriteFully(opened.Get(), AsBytes(text)) &&
                       ::fdatasync(opened.Get()) == 0 && opened.Close() &&
                       ::rename(temporary.c_str(), file.c_str()) == 0 && FlushFolder(folder);
  if (written) return true;
  err = "cannot write " + file.string() + " (" + SystemText() + ")";
  // It would take room that is short, perhaps.
  if (opened) ::unlink(temporary.c_str());
  return false;
}

fs::path StateFileIn(const fs::path& folder) { return folder / kStateName; }

StateLoad LoadState(const fs::path& folder, State& state, std::string& err) {
  state = State();
  ByteBuffer bytes;
  const StateLoad load = LoadText(StateFileIn(folder), bytes, err);
  if (load != StateLoad::kLoaded) return load;
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return ParseState(text, state, err) ? StateLoad::kLoaded : StateLoad::kDamaged;
}

bool SaveState(const fs::path& folder, const State& state, std::string& err) {
  return SaveText(StateFileIn(folder), FormatState(state), err);
}

bool SetStateAside(const fs::path& folder, const std::string& when, std::string& err) {
  const fs::path state = StateFileIn(folder);
  const std::string name = std::string(kStateName) + "-damaged-" + when;
  for (int n = 1;; ++n) {
    const fs::path aside = folder / (n == 1 ? name : name + '#' + std::to_string(n));
    if (RenameIfFree(AT_FDCWD, state.c_str(), AT_FDCWD, aside.c_str())) return true;
    if (errno != EEXIST) break;
  }
  return Fail(err, "cannot rename " + state.string() + " (" + SystemText() + ")");
}

bool HoldsState(const fs::path& folder) {
  const auto holds = [&](const char* name) {
    struct ::stat status;
    return ::lstat((folder / name).c_str(), &status) == 0;
  };
  return holds(kStateName) || holds(kLockName);
}

bool MakeStateFolder(const fs::path& folder, std::string& err) {
  std::error_code failed;
  fs::create_directories(folder, failed);
  return !failed || Fail(err, "cannot make " + folder.string() + " (" + failed.message() + ")");
}

// The lock of a folder that is gone keeps nobody out.
bool StateLock::IsHeldIn(const fs::path& folder) const {
  return IsHeld() && IsOpenAt(file.Get(), folder / kLockName);
}

Locking StateLock::Look(const fs::path& folder, std::string& err) const {
  const fs::path path = folder / kLockName;
  if (IsHeldIn(folder)) return Locking::kTaken;
  const Descriptor lock = OpenHostFile(path.c_str(), O_RDWR | O_NOFOLLOW);
  if (!lock && (errno == ENOENT || errno == ENOTDIR)) return Locking::kTaken;
  return Judge(lock, lock ? LookAtLock(lock.Get()) : Locking::kFailed, path, err);
}

Locking StateLock::Take(const fs::path& folder, std::string& err) {
  const fs::path path = folder / kLockName;
  if (IsHeldIn(folder)) return Locking::kTaken;
  file.Close();
  Descriptor lock = OpenHostFile(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
  const Locking locking = Judge(lock, lock ? TryLock(lock.Get()) : Locking::kFailed, path, err);
  if (locking != Locking::kTaken) return locking;
  const std::string self = std::to_string(::getpid()) + "\n";
  // For the message of others alone: without it they say less.
  if (::ftruncate(lock.Get(), 0) == 0) static_cast<void>(WriteFully(lock.Get(), AsBytes(self)));
  file = std::move(lock);
  return Locking::kTaken;
}

}  // namespace quorbix::virtdisk::internal::guard
