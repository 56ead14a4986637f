#ifndef QUORBIX_VIRTDISK_TOOL_ARGUMENTS_H_
#define QUORBIX_VIRTDISK_TOOL_ARGUMENTS_H_

#include <functional>
#include <memory>

#include "terminal/console.h"

namespace CLI {
class App;
}

namespace quorbix::virtdisk::tool {

// The commands of the program, with all that each takes.
class Arguments {
 public:
  // Adds the commands to `app`, which has to outlive this, and so has `console`.
  Arguments(CLI::App& app, Console& console);
  ~Arguments();
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  // Runs the command that was parsed, with what was given to it. Returns the program's exit status.
  int RunCommand() const { return chosen(); }

 private:
  class Commands;

  std::function<int()> chosen;
  std::unique_ptr<Commands> commands;
};

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_ARGUMENTS_H_
