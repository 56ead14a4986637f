#include "terminal_run.h"

#include <pty.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace quorbix::virtdisk::test {

namespace {

// Escape sequences as the program prints them begin with ESC and "[" and end with a letter.
std::size_t ColumnsOf(const std::string& line) {
  std::size_t columns = 0;
  bool isEscape = false;
  for (const char c : line) {
    if (c == '\x1b') {
      isEscape = true;
    } else if (isEscape) {
      isEscape = !((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'));
    } else {
      const bool goesOn = (static_cast<unsigned char>(c) & 0xC0) == 0x80;
      columns += goesOn ? 0 : 1;
    }
  }
  return columns;
}

}  // namespace

std::size_t TerminalRun::Widest() const {
  std::size_t widest = 0;
  for (std::size_t begin = 0; begin < shown.size();) {
    const std::size_t end = std::min(shown.find_first_of("\r\n", begin), shown.size());
    widest = std::max(widest, ColumnsOf(shown.substr(begin, end - begin)));
    begin = end + 1;
  }
  return widest;
}

TerminalRun RunOnTerminal(std::vector<std::string> arguments, const TerminalOptions& options) {
  arguments.insert(arguments.begin(), VIRTDISK_PROGRAM);
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const ::winsize size{24, options.columns, 0, 0};
  int terminal = -1;
  const ::pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
  if (child == 0) {
    ::unsetenv("NO_COLOR");
    if (options.noColour != nullptr) ::setenv("NO_COLOR", options.noColour, 1);
    ::setenv("TERM", options.term, 1);
    ::setenv("LC_ALL", options.locale, 1);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  TerminalRun run;
  run.shown = ReadTerminal(terminal, child, &run.status);
  return run;
}

std::string ReadTerminal(int terminal, ::pid_t child, int* status) {
  std::string shown;
  std::array<char, 4096> buffer;
  // The end of the child ends the reading, with an error on this kind of device.
  for (::ssize_t got; (got = ::read(terminal, buffer.data(), buffer.size())) > 0;) {
    shown.append(buffer.data(), static_cast<std::size_t>(got));
  }
  ::close(terminal);
  int ended = 0;
  ::waitpid(child, &ended, 0);
  if (status != nullptr) *status = WIFEXITED(ended) ? WEXITSTATUS(ended) : 256 + WTERMSIG(ended);
  return shown;
}

}  // namespace quorbix::virtdisk::test
