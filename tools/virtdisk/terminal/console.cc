#include "terminal/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "host/stop_signals.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr unsigned kDefaultWidth = 80;

bool WantsColour() {
  const char* noColour = std::getenv("NO_COLOR");
  return ::isatty(STDOUT_FILENO) == 1 && (noColour == nullptr || *noColour == '\0');
}

unsigned TerminalWidth(int terminal) {
  ::winsize size{};
  const bool known = ::ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  return known ? size.ws_col : kDefaultWidth;
}

void Print(Console& console, std::string_view kind, std::string_view message) {
  EraseProgress(console);
  console.err << "virtdisk: " << kind << Printable(message) << "\n";
}

}  // namespace

Console StandardConsole() {
  return {.out = std::cout,
          .err = std::cerr,
          .colour = WantsColour(),
          .width = TerminalWidth(STDOUT_FILENO),
          .progress = ::isatty(STDERR_FILENO) == 1,
          .errWidth = TerminalWidth(STDERR_FILENO)};
}

int Fail(Console& console, std::string_view message, std::string_view hint) {
  Print(console, "", message);
  if (!hint.empty()) console.err << "  " << Printable(hint) << "\n";
  return kFailed;
}

void Warn(Console& console, std::string_view message) {
  if (!console.quiet) Print(console, "warning: ", message);
}

void Remark(Console& console, std::string_view message) {
  if (!console.quiet) Print(console, "remark: ", message);
}

void EraseProgress(Console& console) {
  if (console.progressColumns == 0) return;
  console.err << "\r" << std::string(console.progressColumns, ' ') << "\r" << std::flush;
  console.progressColumns = 0;
  EraseOnSignals(0);
}

}  // namespace quorbix::virtdisk::tool
