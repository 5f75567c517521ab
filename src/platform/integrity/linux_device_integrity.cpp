#include "platform/integrity/linux_device_integrity.hpp"
#include "base/text.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <mutex>
#include <thread>

#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {

constexpr std::string_view kTracerField = "TracerPid:";
constexpr std::array<std::string_view, 2> kInstrumentationMarks{"frida", "gum-js"};
constexpr std::size_t kMaxNameBytes = 120;

constexpr std::string_view kBlanks = " \t\r";
bool isSpace(char c) { return kBlanks.find(c) != std::string_view::npos; }

// Calls `visit(line)` for each line until it returns true.
template <typename Visit>
void forEachLine(std::string_view text, Visit&& visit) {
  while (!text.empty()) {
    auto end = text.find('\n');
    auto line = text.substr(0, end);
    if (visit(line)) return;
    if (end == std::string_view::npos) return;
    text.remove_prefix(end + 1);
  }
}

std::string lowered(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return out;
}

// The path of a maps line: what follows the five fields address, perms,
// offset, dev and inode; empty for an anonymous mapping or a short line.
std::string_view mappedPath(std::string_view line) {
  std::size_t i = 0;
  for (int field = 0; field < 5; ++field) {
    while (i < line.size() && isSpace(line[i])) ++i;
    if (i == line.size()) return {};
    while (i < line.size() && !isSpace(line[i])) ++i;
  }
  return trimmed(line.substr(i), kBlanks);
}

// Up to `limit` bytes of the file, or nothing when it cannot be opened.
// /proc files report a size of 0, so this reads until the end.
std::optional<std::string> readBounded(const std::filesystem::path& path, std::size_t limit) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string text;
  std::array<char, 16384> chunk{};
  while (text.size() < limit && file) {
    file.read(chunk.data(), static_cast<std::streamsize>(std::min(chunk.size(), limit - text.size())));
    text.append(chunk.data(), static_cast<std::size_t>(file.gcount()));
  }
  return text;
}

std::optional<std::string> checkDirectory(const std::filesystem::path& directory) {
  if (auto status = readBounded(directory / "status", LinuxDeviceIntegrity::kMaxFileBytes)) {
    if (auto violation = tracerViolation(*status)) return violation;
  }
  if (auto maps = readBounded(directory / "maps", LinuxDeviceIntegrity::kMaxFileBytes)) {
    if (auto violation = instrumentationViolation(*maps)) return violation;
  }
  return std::nullopt;
}

// Re-checks on its own serial queue each time the main queue's timer fires,
// until it reports once or is stopped. Every task holds it weakly: dropping
// the last handle stops it as well.
class IntervalMonitor final : public DeviceIntegrityMonitor, public std::enable_shared_from_this<IntervalMonitor> {
 public:
  IntervalMonitor(std::filesystem::path directory, std::function<void(std::string)> onViolation)
      : directory_(std::move(directory)),
        onViolation_(std::move(onViolation)),
        main_(platform()->mainQueue),
        queue_(platform()->taskPool->makeSerialQueue(std::string(LinuxDeviceIntegrity::kMonitorQueueLabel))) {}

  ~IntervalMonitor() override { timer_.cancel(); }

  void schedule() {
    auto main = main_.lock();
    if (!main) return;
    std::lock_guard lock(mutex_);
    if (stopped_) return;
    timer_ = main->postAfter(LinuxDeviceIntegrity::kMonitorInterval, [weak = weak_from_this()] {
      auto self = weak.lock();
      if (!self) return;
      // The files are read off the main thread: /proc reads can stall.
      self->queue_->post([weak] {
        if (auto monitor = weak.lock()) monitor->recheck();
      });
    });
  }

  void stop() override {
    {
      std::lock_guard lock(mutex_);
      stopped_ = true;
      timer_.cancel();
    }
    // A report running on the queue finishes before stop() returns, unless
    // the report itself is what called stop().
    if (reportingThread_.load() != std::this_thread::get_id()) std::lock_guard wait(reportMutex_);
  }

 private:
  void recheck() {
    {
      std::lock_guard lock(mutex_);
      if (stopped_) return;
    }
    auto violation = checkDirectory(directory_);
    if (!violation) {
      schedule();
      return;
    }
    std::lock_guard report(reportMutex_);
    {
      std::lock_guard lock(mutex_);
      if (stopped_) return;
      stopped_ = true;  // one report per monitor
    }
    reportingThread_.store(std::this_thread::get_id());
    onViolation_(std::move(*violation));
    reportingThread_.store(std::thread::id{});
  }

  const std::filesystem::path directory_;
  const std::function<void(std::string)> onViolation_;
  const std::weak_ptr<MainQueue> main_;
  const std::shared_ptr<SerialQueue> queue_;

  std::mutex mutex_;
  bool stopped_ = false;     // guarded by mutex_
  DelayedTaskHandle timer_;  // guarded by mutex_
  std::mutex reportMutex_;   // held while the callback runs
  std::atomic<std::thread::id> reportingThread_{};
};

}  // namespace

std::optional<std::string> tracerViolation(std::string_view status) {
  std::optional<std::string> violation;
  forEachLine(status, [&](std::string_view line) {
    if (!line.starts_with(kTracerField)) return false;
    auto value = trimmed(line.substr(kTracerField.size()), kBlanks);
    long long pid = 0;
    auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), pid);
    if (error == std::errc() && end == value.data() + value.size() && pid != 0) {
      violation = "a debugger is attached (TracerPid " + std::to_string(pid) + ")";
    }
    return true;
  });
  return violation;
}

std::optional<std::string> instrumentationViolation(std::string_view maps) {
  std::optional<std::string> violation;
  forEachLine(maps, [&](std::string_view line) {
    auto path = mappedPath(line);
    auto slash = path.rfind('/');
    auto name = slash == std::string_view::npos ? path : path.substr(slash + 1);
    auto lower = lowered(name);
    for (auto mark : kInstrumentationMarks) {
      if (lower.find(mark) == std::string::npos) continue;
      violation = "an instrumentation toolkit is loaded (" + std::string(name.substr(0, kMaxNameBytes)) + ")";
      return true;
    }
    return false;
  });
  return violation;
}

LinuxDeviceIntegrity::LinuxDeviceIntegrity(std::filesystem::path processDirectory)
    : directory_(std::move(processDirectory)) {}

std::optional<std::string> LinuxDeviceIntegrity::check() { return checkDirectory(directory_); }

std::shared_ptr<DeviceIntegrityMonitor> LinuxDeviceIntegrity::startMonitor(
    std::function<void(std::string)> onViolation) {
  auto monitor = std::make_shared<IntervalMonitor>(directory_, std::move(onViolation));
  monitor->schedule();
  return monitor;
}

}  // namespace kiv
