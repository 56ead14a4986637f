#include "support/child_process.h"

#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <stdexcept>

namespace quorbix::virtdisk::test {
namespace {

constexpr int kSignalBase = 256;
constexpr int kCouldNotLimit = 253;
constexpr int kUncaughtException = 254;
constexpr ::uid_t kNobody = 65534;

bool Limit(__rlimit_resource resource, const std::optional<std::uint64_t>& value) {
  if (!value) return true;
  const ::rlimit limit{*value, *value};
  return ::setrlimit(resource, &limit) == 0;
}

bool Apply(const ChildLimits& limits) {
  ::signal(SIGXFSZ, SIG_IGN);
  if (!Limit(RLIMIT_FSIZE, limits.fileSizeLimit)) return false;
  if (!Limit(RLIMIT_NOFILE, limits.openFileLimit)) return false;
  if (!Limit(RLIMIT_AS, limits.addressSpaceLimit)) return false;
  if (!limits.dropRoot || ::geteuid() != 0) return true;
  return ::setgroups(0, nullptr) == 0 && ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0;
}

int WaitFor(::pid_t child) {
  int status = 0;
  if (::waitpid(child, &status, 0) != child) throw std::runtime_error("waitpid failed");
  return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
}

struct Pipe {
  Pipe() {
    if (::pipe(ends.data()) != 0) throw std::runtime_error("pipe failed");
  }
  std::array<int, 2> ends{};
};

void Drain(const Pipe& outPipe, const Pipe& errPipe, CommandResult& result) {
  std::array<::pollfd, 2> watched{{{outPipe.ends[0], POLLIN, 0}, {errPipe.ends[0], POLLIN, 0}}};
  std::array<std::string*, 2> texts{&result.out, &result.err};
  for (int open = 2; open > 0;) {
    ::poll(watched.data(), watched.size(), -1);
    for (std::size_t i = 0; i < watched.size(); ++i) {
      if (watched[i].fd < 0 || watched[i].revents == 0) continue;
      std::array<char, 65536> buffer;
      const ::ssize_t got = ::read(watched[i].fd, buffer.data(), buffer.size());
      if (got > 0) {
        texts[i]->append(buffer.data(), static_cast<std::size_t>(got));
        continue;
      }
      ::close(watched[i].fd);
      watched[i].fd = -1;
      --open;
    }
  }
}

}  // namespace

int RunInChild(const ChildLimits& limits, const std::function<int()>& body) {
  const ::pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child != 0) return WaitFor(child);
  if (!Apply(limits)) ::_exit(kCouldNotLimit);
  try {
    ::_exit(body());
  } catch (const std::exception&) {
    ::_exit(kUncaughtException);
  }
}

CommandResult RunCommand(const std::vector<std::string>& arguments) {
  const Pipe outPipe;
  const Pipe errPipe;
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const ::pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    ::dup2(outPipe.ends[1], STDOUT_FILENO);
    ::dup2(errPipe.ends[1], STDERR_FILENO);
    for (const Pipe* pipe : {&outPipe, &errPipe}) {
      ::close(pipe->ends[0]);
      ::close(pipe->ends[1]);
    }
    const char* path = ::getenv("PATH");
    ::setenv("PATH",
             (std::string(path != nullptr ? path : "/usr/bin:/bin") + ":/usr/sbin:/sbin").c_str(),
             1);
    ::execvp(argv[0], argv.data());
    ::_exit(127);
  }
  ::close(outPipe.ends[1]);
  ::close(errPipe.ends[1]);
  CommandResult result;
  Drain(outPipe, errPipe, result);
  result.status = WaitFor(child);
  return result;
}

}  // namespace quorbix::virtdisk::test
