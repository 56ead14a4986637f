#ifndef QUORBIX_VIRTDISK_TESTS_TOOLS_BUILT_PROGRAM_H_
#define QUORBIX_VIRTDISK_TESTS_TOOLS_BUILT_PROGRAM_H_

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/child_process.h"

// The built program, run as its users run it.

namespace quorbix::virtdisk::test {

inline constexpr char kProgram[] = VIRTDISK_PROGRAM;

inline CommandResult RunProgram(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), kProgram);
  return RunCommand(arguments);
}

// By a shell, where the program's streams are to go somewhere.
inline CommandResult RunInShell(const std::string& line) {
  return RunCommand(
      {"sh", "-c",
       "PATH=" + std::filesystem::path(kProgram).parent_path().string() + ":$PATH; " + line});
}

inline bool WaitFor(const std::function<bool()>& happened) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!happened()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// The program in the background, its output in a file.
class Background {
 public:
  Background(std::vector<std::string> arguments, const std::filesystem::path& output) {
    arguments.insert(arguments.begin(), kProgram);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    child = ::fork();
    if (child != 0) return;
    // Of a script's background, where they are ignored, the program would leave them so.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) ::signal(signal, SIG_DFL);
    if (::freopen(output.c_str(), "w", stdout) == nullptr) ::_exit(126);
    if (::freopen((output.string() + ".err").c_str(), "w", stderr) == nullptr) ::_exit(126);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  ~Background() {
    if (child <= 0) return;
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
  }
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;

  // Whether it has got as far as to handle this signal, and so is past the loading of libraries.
  bool Handles(int signal) const {
    std::ifstream status("/proc/" + std::to_string(child) + "/status");
    const std::string label = "SigCgt:";
    for (std::string line; std::getline(status, line);) {
      if (!line.starts_with(label)) continue;
      return (std::stoull(line.substr(label.size()), nullptr, 16) >> (signal - 1) & 1) != 0;
    }
    return false;
  }

  ::pid_t Process() const { return child; }

  int End(int signal) {
    ::kill(child, signal);
    return Wait();
  }

  // Its status when it has ended by itself, or 256 and the signal's number.
  int Wait() {
    int status = 0;
    ::waitpid(child, &status, 0);
    child = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 256 + WTERMSIG(status);
  }

 private:
  ::pid_t child = 0;
};

}  // namespace quorbix::virtdisk::test

#endif  // QUORBIX_VIRTDISK_TESTS_TOOLS_BUILT_PROGRAM_H_
