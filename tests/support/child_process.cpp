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

extern char** environ;

namespace kiv::testing {

double monotonicSeconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

ChildEnd runToEnd(const std::string& program, const std::vector<std::string>& arguments, double boundSeconds) {
  int out[2];
  int err[2];
  ChildEnd end;
  end.hung = true;  // until it is seen to end
  if (pipe2(out, O_CLOEXEC) != 0) return end;
  if (pipe2(err, O_CLOEXEC) != 0) {
    close(out[0]);
    close(out[1]);
    return end;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(err[1]);
  if (spawned != 0) {
    close(out[0]);
    close(err[0]);
    return end;
  }
  end.hung = false;

  // Readable once the process has ended, whatever became of its pipes.
  const int process = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  const double deadline = monotonicSeconds() + boundSeconds;
  int streams[2] = {out[0], err[0]};
  std::string* texts[2] = {&end.output, &end.errors};
  for (bool ended = false; !ended;) {
    const double left = deadline - monotonicSeconds();
    if (left <= 0) {
      end.hung = true;
      kill(pid, SIGKILL);
      break;
    }
    pollfd waits[3] = {{process, POLLIN, 0}, {streams[0], POLLIN, 0}, {streams[1], POLLIN, 0}};
    if (poll(waits, 3, static_cast<int>(left * 1000) + 1) <= 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (!waits[i + 1].revents) continue;
      char chunk[4096];
      const ssize_t n = read(streams[i], chunk, sizeof chunk);
      if (n > 0) {
        texts[i]->append(chunk, static_cast<std::size_t>(n));
      } else {
        streams[i] = -1;  // closed: poll ignores negative descriptors
      }
    }
    if (waits[0].revents) {
      end.endedAt = monotonicSeconds();
      ended = true;
    }
  }
  int status = 0;
  waitpid(pid, &status, 0);
  // What was still in the pipes when it ended.
  for (int i = 0; i < 2; ++i) {
    char chunk[4096];
    ssize_t n = 0;
    while (streams[i] >= 0 && (n = read(streams[i], chunk, sizeof chunk)) > 0) {
      texts[i]->append(chunk, static_cast<std::size_t>(n));
    }
  }
  if (process >= 0) close(process);
  close(out[0]);
  close(err[0]);
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
