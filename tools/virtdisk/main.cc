#include <signal.h>

#include <iostream>
#include <string>
#include <vector>

#include "host/stop_signals.h"
#include "program.h"

int main(int argc, char** argv) {
  quorbix::virtdisk::tool::EndOnSignals();
  // Writing past a limit on files is then an error to be told like any other.
  ::signal(SIGXFSZ, SIG_IGN);
  std::ios::sync_with_stdio(false);
  quorbix::virtdisk::tool::Console console = quorbix::virtdisk::tool::StandardConsole();
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return quorbix::virtdisk::tool::RunProgram(console, arguments);
}
