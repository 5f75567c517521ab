#include "support/child_process.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string_view>

extern char** environ;

namespace kiv::testing {

double monotonicSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

namespace {

std::size_t occurrences(const std::string& text, std::string_view what) {
  std::size_t count = 0;
  for (auto at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++count;
  return count;
}

}  // namespace

bool endedAsCrash(const ChildEnd& end) {
  if (!kSanitized) return end.exitSignal != 0;
  const std::size_t deadly = occurrences(end.errors, "Sanitizer:DEADLYSIGNAL");
  if (occurrences(end.errors, "WARNING: ThreadSanitizer") > 0) return false;
  if (occurrences(end.errors, "runtime error:") > 0) return false;
  if (occurrences(end.errors, "ERROR: AddressSanitizer") > deadly) return false;
  return end.exitSignal != 0 || deadly > 0;
}

ChildEnd runToEnd(const std::string& program, const std::vector<std::string>& arguments, double boundSeconds) {
  ChildEnd end;
  end.hung = true;  // until it is seen to end
  int out[2] = {-1, -1};
  int err[2] = {-1, -1};
  pid_t pid = 0;
  if (pipe2(out, O_CLOEXEC) == 0 && pipe2(err, O_CLOEXEC) == 0) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    if (posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) pid = 0;
    posix_spawn_file_actions_destroy(&actions);
  }
  for (int fd : {out[1], err[1]}) close(fd);
  if (pid == 0) {
    for (int fd : {out[0], err[0]}) close(fd);
    return end;
  }
  end.hung = false;

  // The process's descriptor is readable once it has ended; the pipes are
  // read until they close.
  const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  const double deadline = monotonicSeconds() + boundSeconds;
  pollfd waits[3] = {{process, POLLIN, 0}, {out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
  std::string* texts[3] = {nullptr, &end.output, &end.errors};
  while (waits[0].fd >= 0 || waits[1].fd >= 0 || waits[2].fd >= 0) {
    const double left = deadline - monotonicSeconds();
    if (left <= 0) {
      end.hung = true;
      kill(pid, SIGKILL);
      break;
    }
    if (poll(waits, 3, static_cast<int>(left * 1000) + 1) <= 0) continue;
    if (waits[0].revents) {
      end.endedAt = monotonicSeconds();
      waits[0].fd = -1;  // poll ignores negative descriptors
    }
    for (int i = 1; i < 3; ++i) {
      if (!waits[i].revents) continue;
      char chunk[4096];
      const ssize_t n = read(waits[i].fd, chunk, sizeof chunk);
      if (n > 0) {
        texts[i]->append(chunk, static_cast<std::size_t>(n));
      } else {
        waits[i].fd = -1;  // closed
      }
    }
  }
  int status = 0;
  waitpid(pid, &status, 0);
  for (int fd : {process, out[0], err[0]}) close(fd);
  if (WIFSIGNALED(status)) end.exitSignal = WTERMSIG(status);
  if (WIFEXITED(status)) end.exitCode = WEXITSTATUS(status);
  return end;
}

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "kivfll-test-XXXXXX").string();
  if (mkdtemp(pattern.data())) path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

}  // namespace kiv::testing
