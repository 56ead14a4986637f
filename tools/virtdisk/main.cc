#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <iostream>
#include <string>
#include <vector>

#include "host/stop_signals.h"
#include "program.h"

namespace {

// A standard stream that the caller has closed would be the number of the next file opened, an
// image perhaps, and what is printed would go there. What stands in its place fails instead.
void OccupyStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) >= 0 || errno != EBADF) continue;
    // The lowest number that is free.
    [[maybe_unused]] const int opened =
        ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace

int main(int argc, char** argv) {
  OccupyStandardStreams();
  quorbix::virtdisk::tool::EndOnSignals();
  // Writing past a limit on files is then an error to be told like any other.
  ::signal(SIGXFSZ, SIG_IGN);
  std::ios::sync_with_stdio(false);
  quorbix::virtdisk::tool::Console console = quorbix::virtdisk::tool::StandardConsole();
  const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  return quorbix::virtdisk::tool::RunProgram(console, arguments);
}
