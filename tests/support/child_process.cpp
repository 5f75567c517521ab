#include "support/child_process.hpp"

#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

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

std::vector<std::string> commandLine(const std::string& program, const std::vector<std::string>& arguments) {
  std::vector<std::string> command;
#ifdef KIV_TEST_EMULATOR
  const char* built = std::getenv("KIV_TEST_BINARY_DIR");
  if (built && program.starts_with(built)) command.emplace_back(KIV_TEST_EMULATOR);
#endif
  command.push_back(program);
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
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
