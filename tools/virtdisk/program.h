#ifndef QUORBIX_VIRTDISK_TOOL_PROGRAM_H_
#define QUORBIX_VIRTDISK_TOOL_PROGRAM_H_

#include <string>
#include <vector>

#include "terminal/console.h"

namespace quorbix::virtdisk::tool {

// Runs the program with `arguments`, which do not include its name, and returns its exit status.
int RunProgram(Console& console, std::vector<std::string> arguments);

}  // namespace quorbix::virtdisk::tool

#endif  // QUORBIX_VIRTDISK_TOOL_PROGRAM_H_
