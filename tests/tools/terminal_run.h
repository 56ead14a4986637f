#ifndef QUORBIX_VIRTDISK_TESTS_TOOLS_TERMINAL_RUN_H_
#define QUORBIX_VIRTDISK_TESTS_TOOLS_TERMINAL_RUN_H_

#include <sys/types.h>

#include <string>
#include <vector>

namespace quorbix::virtdisk::test {

struct TerminalOptions {
  unsigned short columns = 80;
  const char* noColour = nullptr;  // NO_COLOR; null: not set
  const char* term = "xterm";      // TERM
  const char* locale = "C.UTF-8";  // LC_ALL
};

struct TerminalRun {
  int status = 0;     // exit status, or 256 plus the signal's number
  std::string shown;  // both streams, as the terminal gets them: lines end in "\r\n"

  // The columns of the widest line, by the characters that the terminal shows: of what is no UTF-8
  // each byte, of escape sequences none. No character that these tests print is wide.
  std::size_t Widest() const;
};

// Runs the built program on a terminal of its own.
TerminalRun RunOnTerminal(std::vector<std::string> arguments, const TerminalOptions& options = {});

// All that a child prints on its terminal until it ends. Closes the terminal; leaves no zombie.
std::string ReadTerminal(int terminal, ::pid_t child, int* status = nullptr);

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_TOOLS_TERMINAL_RUN_H_
