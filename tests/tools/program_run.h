#ifndef QUORBIX_VIRTDISK_TESTS_TOOLS_PROGRAM_RUN_H_
#define QUORBIX_VIRTDISK_TESTS_TOOLS_PROGRAM_RUN_H_

#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "program.h"

namespace quorbix::virtdisk::test {

struct ProgramRun {
  int status = 0;
  std::string out;
  std::string err;

  nlohmann::json Json() const { return nlohmann::json::parse(out); }
  // One value per line of the output.
  std::vector<nlohmann::json> JsonLines() const {
    std::vector<nlohmann::json> values;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
      values.push_back(nlohmann::json::parse(line));
    }
    return values;
  }
};

// Runs the program within this process, as on a terminal of 80 columns.
inline ProgramRun RunVirtdisk(std::vector<std::string> arguments, bool colour = false) {
  std::ostringstream out;
  std::ostringstream err;
  tool::Console console{out, err, colour, 80};
  const int status = tool::RunProgram(console, std::move(arguments));
  return {status, out.str(), err.str()};
}

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_TOOLS_PROGRAM_RUN_H_
