#include "terminal/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "terminal/exit_status.h"
#include "terminal/text.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr unsigned kDefaultWidth = 80;

bool WantsColour() {
  const char* noColour = std::getenv("NO_COLOR");
  return ::isatty(STDOUT_FILENO) == 1 && (noColour == nullptr || *noColour == '\0');
}

unsigned TerminalWidth() {
  ::winsize size{};
  const bool known = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  return known ? size.ws_col : kDefaultWidth;
}

}  // namespace

Console StandardConsole() { return {std::cout, std::cerr, WantsColour(), TerminalWidth()}; }

int Fail(Console& console, std::string_view message, std::string_view hint) {
  console.err << "virtdisk: " << Printable(message) << "\n";
  if (!hint.empty()) console.err << "  " << Printable(hint) << "\n";
  return kFailed;
}

void Warn(Console& console, std::string_view message) {
  console.err << "virtdisk: warning: " << Printable(message) << "\n";
}

void Remark(Console& console, std::string_view message) {
  console.err << "virtdisk: remark: " << Printable(message) << "\n";
}

}  // namespace quorbix::virtdisk::tool
