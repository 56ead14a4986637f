#ifndef QUORBIX_VIRTDISK_TOOL_CONSOLE_H_
#define QUORBIX_VIRTDISK_TOOL_CONSOLE_H_

#include <ostream>
#include <string_view>

namespace quorbix::virtdisk::tool {

// Where a command prints. Data goes to `out`, everything else to `err`.
struct Console {
  std::ostream& out;
  std::ostream& err;
  bool colour = false;  // `out` is a terminal and NO_COLOR is not set
  unsigned width = 80;  // of the terminal, in columns
};

// The process's own standard streams.
Console StandardConsole();

// Prints "virtdisk: MESSAGE" and, below it, what to do about it. Returns kFailed, so that a failing
// branch is one line.
int Fail(Console& console, std::string_view message, std::string_view hint = {});

// Prints "virtdisk: KIND: MESSAGE" to the error stream, for what does not fail a command.
void Warn(Console& console, std::string_view message);
void Remark(Console& console, std::string_view message);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_CONSOLE_H_
