#include "host/stop_signals.h"

#include <limits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <utility>

#include "terminal/exit_status.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr std::array<int, 3> kAskingForAnEnd{SIGINT, SIGTERM, SIGHUP};

// What the handler looks at. Nothing here may allocate or lock.
struct Slot {
  std::atomic<bool> taken{false};
  std::atomic<bool> ready{false};  // the path is complete
  std::array<char, PATH_MAX> path{};
};
std::array<Slot, 8> slots;
std::atomic<unsigned> shownColumns{0};
std::atomic<const std::string*> lastWords{nullptr};
static_assert(std::atomic<bool>::is_always_lock_free && std::atomic<unsigned>::is_always_lock_free);
static_assert(std::atomic<const std::string*>::is_always_lock_free);

void EraseShownLine() {
  static constexpr char kBlanks[] = "                                ";
  std::size_t columns = shownColumns;
  if (columns == 0) return;
  [[maybe_unused]] ::ssize_t ignored = ::write(STDERR_FILENO, "\r", 1);
  while (columns > 0) {
    const std::size_t part = std::min(columns, sizeof kBlanks - 1);
    ignored = ::write(STDERR_FILENO, kBlanks, part);
    columns -= part;
  }
  ignored = ::write(STDERR_FILENO, "\r", 1);
}

void SpeakLastWords() {
  const std::string* text = lastWords;
  if (text == nullptr) return;
  [[maybe_unused]] const ::ssize_t ignored = ::write(STDERR_FILENO, text->data(), text->size());
}

void End(int signal) {
  for (const Slot& slot : slots) {
    if (slot.ready) ::unlink(slot.path.data());
  }
  if (signal != SIGPIPE) {
    EraseShownLine();
    SpeakLastWords();
  }
  ::_exit(kEndedBySignal + signal);
}

::sigset_t EndingSet() {
  ::sigset_t set;
  ::sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) ::sigaddset(&set, signal);
  return set;
}

bool IsIgnored(int signal) {
  struct ::sigaction present {};
  return ::sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_IGN;
}

}  // namespace

void EndOnSignals() {
  struct ::sigaction action {};
  action.sa_handler = End;
  action.sa_mask = EndingSet();
  for (const int signal : kAskingForAnEnd) {
    if (!IsIgnored(signal)) ::sigaction(signal, &action, nullptr);
  }
  ::sigaction(SIGPIPE, &action, nullptr);
}

int LeaveToSignals(const char* path) {
  const std::size_t size = std::strlen(path) + 1;
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (size > slots[i].path.size() || slots[i].taken.exchange(true)) continue;
    std::memcpy(slots[i].path.data(), path, size);
    slots[i].ready = true;
    return static_cast<int>(i);
  }
  return -1;
}

void TakeBackFromSignals(int number) {
  if (number < 0) return;
  Slot& slot = slots[static_cast<std::size_t>(number)];
  slot.ready = false;
  slot.taken = false;
}

void EraseOnSignals(unsigned columns) { shownColumns = columns; }

LastWords::LastWords(std::string spoken) : text(std::move(spoken)) { lastWords = &text; }

LastWords::~LastWords() { lastWords = nullptr; }

SignalsHeld::SignalsHeld() {
  const ::sigset_t ending = EndingSet();
  ::pthread_sigmask(SIG_BLOCK, &ending, &before);
}

SignalsHeld::~SignalsHeld() { ::pthread_sigmask(SIG_SETMASK, &before, nullptr); }

bool SignalsHeld::IsAnyWaiting() {
  ::sigset_t waiting;
  return ::sigpending(&waiting) == 0 &&
         std::any_of(kAskingForAnEnd.begin(), kAskingForAnEnd.end(),
                     [&](int signal) { return ::sigismember(&waiting, signal) == 1; });
}

}  // namespace quorbix::virtdisk::tool
