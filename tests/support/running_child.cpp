#include "support/running_child.hpp"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <utility>

extern char** environ;

namespace kiv::testing {
namespace {

// Appends what `fd` has to `text`; false once it is closed.
bool drain(int fd, std::string& text) {
  char chunk[4096];
  const ssize_t n = read(fd, chunk, sizeof chunk);
  if (n <= 0) return false;
  text.append(chunk, static_cast<std::size_t>(n));
  return true;
}

}  // namespace

RunningChild::RunningChild(const std::string& program, const std::vector<std::string>& arguments) {
  int out[2] = {-1, -1};
  int err[2] = {-1, -1};
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) return;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
  std::vector<std::string> command = commandLine(program, arguments);
  std::vector<char*> argv;
  for (auto& word : command) argv.push_back(word.data());
  argv.push_back(nullptr);
  if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid_ = 0;
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(err[1]);
  output_ = out[0];
  errors_ = err[0];
  if (pid_ > 0) process_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
}

RunningChild::~RunningChild() {
  if (pid_ > 0 && !waited_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  for (int fd : {process_, output_, errors_}) {
    if (fd >= 0) close(fd);
  }
}

std::optional<std::string> RunningChild::readLine(double boundSeconds) {
  const double deadline = monotonicSeconds() + boundSeconds;
  while (true) {
    if (const auto end = pending_.find('\n'); end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    const double left = deadline - monotonicSeconds();
    if (output_ < 0 || left <= 0) return std::nullopt;
    // Standard error is read too, so a chatty child never blocks on it.
    pollfd waits[2] = {{output_, POLLIN, 0}, {errors_, POLLIN, 0}};
    if (poll(waits, 2, static_cast<int>(left * 1000) + 1) <= 0) continue;
    if (waits[1].revents && !drain(errors_, errorText_)) {
      close(errors_);
      errors_ = -1;
    }
    if (waits[0].revents && !drain(output_, pending_)) {
      close(output_);
      output_ = -1;
    }
  }
}

void RunningChild::signal(int number) const {
  if (pid_ > 0) kill(pid_, number);
}

ChildEnd RunningChild::wait(double boundSeconds) {
  ChildEnd end;
  if (pid_ <= 0 || waited_) {
    end.hung = pid_ <= 0;
    return end;
  }
  const double deadline = monotonicSeconds() + boundSeconds;
  pollfd waits[3] = {{process_, POLLIN, 0}, {output_, POLLIN, 0}, {errors_, POLLIN, 0}};
  std::string* texts[3] = {nullptr, &pending_, &errorText_};
  while (waits[0].fd >= 0 || waits[1].fd >= 0 || waits[2].fd >= 0) {
    const double left = deadline - monotonicSeconds();
    if (left <= 0) {
      end.hung = true;
      kill(pid_, SIGKILL);
      break;
    }
    if (poll(waits, 3, static_cast<int>(left * 1000) + 1) <= 0) continue;
    if (waits[0].revents) {
      end.endedAt = monotonicSeconds();
      waits[0].fd = -1;  // poll ignores negative descriptors
    }
    for (int i = 1; i < 3; ++i) {
      if (waits[i].revents && !drain(waits[i].fd, *texts[i])) waits[i].fd = -1;
    }
  }
  int status = 0;
  waitpid(pid_, &status, 0);
  waited_ = true;
  if (WIFSIGNALED(status)) end.exitSignal = WTERMSIG(status);
  if (WIFEXITED(status)) end.exitCode = WEXITSTATUS(status);
  end.output = std::exchange(pending_, {});
  end.errors = errorText_;
  return end;
}

ChildEnd runToEnd(const std::string& program, const std::vector<std::string>& arguments, double boundSeconds) {
  return RunningChild(program, arguments).wait(boundSeconds);
}

}  // namespace kiv::testing
