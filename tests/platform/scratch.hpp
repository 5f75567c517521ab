// A private temporary directory, removed with everything in it afterwards,
// and a way to run a helper program to its end.
#pragma once

#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

extern char** environ;

namespace kiv::testing {

class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kivfll-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// Starts `program` with `arguments` and returns its exit status (-1 when it
// could not start or did not exit normally).
class ChildProcess {
 public:
  ChildProcess(const std::string& program, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), program);
    std::vector<char*> argv;
    for (auto& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    if (::posix_spawn(&pid_, program.c_str(), nullptr, nullptr, argv.data(), environ) != 0) pid_ = -1;
  }
  ~ChildProcess() { wait(); }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  int wait() {
    if (pid_ > 0) {
      int status = 0;
      const pid_t waited = ::waitpid(pid_, &status, 0);
      pid_ = 0;
      exitStatus_ = waited > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return exitStatus_;
  }

 private:
  pid_t pid_ = -1;
  int exitStatus_ = -1;
};

inline int runToEnd(const std::string& program, std::vector<std::string> arguments) {
  return ChildProcess(program, std::move(arguments)).wait();
}

}  // namespace kiv::testing
