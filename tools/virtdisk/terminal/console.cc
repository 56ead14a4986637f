#include "terminal/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include "host/stop_signals.h"
#include "terminal/exit_status.h"
#include "terminal/text.h"
#include "terminal/wrapping.h"

namespace quorbix::virtdisk::tool {
namespace {

constexpr unsigned kDefaultWidth = 80;

bool WantsColour() {
  const char* noColour = std::getenv("NO_COLOR");
  const char* terminal = std::getenv("TERM");
  const bool knowsColour = terminal != nullptr && std::string_view(terminal) != "dumb";
  return ::isatty(STDOUT_FILENO) == 1 && knowsColour && (noColour == nullptr || *noColour == '\0');
}

unsigned TerminalWidth(int terminal) {
  ::winsize size{};
  const bool known = ::ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  return known ? size.ws_col : kDefaultWidth;
}

}  // namespace

Console StandardConsole() {
  return {.out = std::cout,
          .err = std::cerr,
          .colour = WantsColour(),
          .width = TerminalWidth(STDOUT_FILENO),
          .outIsTerminal = ::isatty(STDOUT_FILENO) == 1,
          .errIsTerminal = ::isatty(STDERR_FILENO) == 1,
          .errWidth = TerminalWidth(STDERR_FILENO)};
}

void PrintToOut(Console& console, const std::string& text) {
  EraseProgress(console);
  console.out << (console.outIsTerminal ? Wrap(text, console.width) : text);
}

void PrintToErr(Console& console, const std::string& text) {
  EraseProgress(console);
  console.err << (console.errIsTerminal ? Wrap(text, console.errWidth) : text);
}

int Fail(Console& console, std::string_view message, std::string_view hint) {
  if (console.error.empty()) {
    console.error = message;
    console.errorHint = hint;
  }
  EraseProgress(console);
  console.err << FailureText(console, message, hint);
  return kFailed;
}

std::string FailureText(const Console& console, std::string_view message, std::string_view hint) {
  std::string text = "virtdisk: " + Printable(message) + "\n";
  if (!hint.empty()) text += "  " + Printable(hint) + "\n";
  return console.errIsTerminal ? Wrap(text, console.errWidth) : text;
}

int Refuse(Console& console, std::string_view message, std::string_view hint) {
  Fail(console, message, hint);
  return kRefused;
}

int FailUsage(Console& console, std::string_view message, std::string_view hint) {
  Fail(console, message, hint);
  return kUsage;
}

int FailAsEmpty(Console& console, std::string_view argument) {
  return FailUsage(console, std::string(argument) + " is empty",
                   "The whole disk is /; `virtdisk COMMAND --help` tells the arguments.");
}

void Warn(Console& console, std::string_view message) {
  if (!console.quiet) PrintToErr(console, "virtdisk: warning: " + Printable(message) + "\n");
}

void Remark(Console& console, std::string_view message) {
  if (!console.quiet) PrintToErr(console, "virtdisk: remark: " + Printable(message) + "\n");
}

void EraseProgress(Console& console) {
  if (console.progressColumns == 0) return;
  console.err << "\r" << std::string(console.progressColumns, ' ') << "\r" << std::flush;
  console.progressColumns = 0;
  EraseOnSignals(0);
}

}  // namespace quorbix::virtdisk::tool
