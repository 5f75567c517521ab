// Helper programs run to their end, bounded, for tests of how a process ends
// (a crash, an abort), and a private directory for them to work in.
//
//   TemporaryDirectory scratch;
//   ChildEnd end = runToEnd(programPath("crash"), {scratch.path().string(), "segv"}, 10.0);
//   ASSERT_FALSE(end.hung);
//   EXPECT_EQ(end.exitSignal, SIGSEGV);
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kiv::testing {

struct ChildEnd {
  bool hung = false;   // still running at the bound (then killed), or never started
  int exitSignal = 0;  // the signal that ended it; 0 when it exited
  int exitCode = 0;
  std::string output;  // standard output
  std::string errors;  // standard error
  double endedAt = 0;  // monotonicSeconds() when its end was seen
};

// CLOCK_MONOTONIC in seconds: comparable across the processes of the machine.
double monotonicSeconds();

// The words that start `program` with `arguments`: in a cross build, the
// build's own programs go behind the emulator that runs the tests.
std::vector<std::string> commandLine(const std::string& program, const std::vector<std::string>& arguments);

// Starts `program` with `arguments` and the environment of this process and
// waits at most `boundSeconds` for it to end. No sleeping: the wait is on the
// process itself.
ChildEnd runToEnd(const std::string& program, const std::vector<std::string>& arguments, double boundSeconds);

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif

// Whether a child ended as a crash: by a signal, or under a sanitizer (whose
// handler is the one a crash handler puts back) possibly in its deadly-signal
// report. Any other sanitizer report (a race, a memory error, undefined
// behaviour) is no crash but a failure.
bool endedAsCrash(const ChildEnd& end);

// A fresh directory under the system's temporary one, removed with all it
// holds at destruction.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace kiv::testing
