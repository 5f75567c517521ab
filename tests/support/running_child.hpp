// A program left running while a test talks to it: its standard output is
// read line by line, it can be signalled, and its end is waited for with a
// bound, never with a sleep.
//
//   RunningChild sandbox(kivfllPath, {"sandbox", "--port", "0"});
//   auto first = sandbox.readLine();          // absent at end of output or at the bound
//   sandbox.signal(SIGTERM);
//   ChildEnd end = sandbox.wait();
//   EXPECT_EQ(end.exitCode, 0);
//
// The destructor kills a child that is still running.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "support/child_process.hpp"

namespace kiv::testing {

class RunningChild {
 public:
  RunningChild(const std::string& program, const std::vector<std::string>& arguments);
  ~RunningChild();
  RunningChild(const RunningChild&) = delete;
  RunningChild& operator=(const RunningChild&) = delete;

  bool started() const { return pid_ > 0; }
  // The next line of standard output without its line break.
  std::optional<std::string> readLine(double boundSeconds = 20.0);
  void signal(int number) const;
  // Its end; `output` holds what was printed after the last line read, and
  // `errors` all of standard error. Killed and reported hung at the bound.
  ChildEnd wait(double boundSeconds = 20.0);

 private:
  pid_t pid_ = 0;
  int process_ = -1;  // a pidfd: readable once the child has ended
  int output_ = -1;
  int errors_ = -1;
  std::string pending_;  // read but not yet handed out
  std::string errorText_;
  bool waited_ = false;
};

}  // namespace kiv::testing
