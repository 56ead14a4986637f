#include "terminal_run.h"

#include <pty.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <sstream>

namespace quorbix::virtdisk::test {

std::size_t TerminalRun::Widest() const {
  std::istringstream lines(shown);
  std::size_t widest = 0;
  for (std::string line; std::getline(lines, line);) {
    widest = std::max(widest, line.find_last_not_of('\r') + 1);
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
