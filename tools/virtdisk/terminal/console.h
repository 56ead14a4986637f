#ifndef QUORBIX_VIRTDISK_TOOL_CONSOLE_H_
#define QUORBIX_VIRTDISK_TOOL_CONSOLE_H_

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

namespace quorbix::virtdisk::tool {

// Where a command prints. Data goes to `out`, everything else to `err`.
struct Console {
  std::ostream& out;
  std::ostream& err;
  bool colour = false;  // `out` is a terminal that knows colour and NO_COLOR is not set
  unsigned width = 80;  // of the terminal, in columns
  bool outIsTerminal = false;
  bool errIsTerminal = false;
  unsigned errWidth = 80;           // of that terminal, in columns
  bool quiet = false;               // the user wants errors and data, nothing else
  std::string error{};              // what Fail was told first
  std::string errorHint{};          // likewise
  bool isErrorInJson = false;       // an object that was printed has it
  std::size_t progressColumns = 0;  // that a progress line takes at the moment
};

// The process's own standard streams.
Console StandardConsole();

// Print text that is safe to print, with lines as wide as the terminal where the stream is one.
void PrintToOut(Console& console, const std::string& text);
void PrintToErr(Console& console, const std::string& text);

// Prints "virtdisk: MESSAGE" and, below it, what to do about it. Returns kFailed, so that a failing
// branch is one line.
int Fail(Console& console, std::string_view message, std::string_view hint = {});

// What Fail would print, for who prints it himself.
std::string FailureText(const Console& console, std::string_view message,
                        std::string_view hint = {});

// As Fail, for what is not done for a reason. Returns kRefused.
int Refuse(Console& console, std::string_view message, std::string_view hint);

// As Fail, for what cannot have been meant. Returns kUsage.
int FailUsage(Console& console, std::string_view message, std::string_view hint);

// FailUsage for an argument that is empty, as an unset variable of a script makes it.
int FailAsEmpty(Console& console, std::string_view argument);

// Prints "virtdisk: KIND: MESSAGE" to the error stream, for what does not fail a command, unless
// the console is quiet.
void Warn(Console& console, std::string_view message);
void Remark(Console& console, std::string_view message);

// Takes away the line of a Progress, if there is one, before something else is printed.
void EraseProgress(Console& console);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_CONSOLE_H_
