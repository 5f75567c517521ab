#include "telemetry/crash_recorder.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <thread>

#include "base/no_destructor.hpp"
#include "base/process_exit.hpp"

namespace kiv {
namespace {

using SteadyClock = std::chrono::steady_clock;

// What the crash path reads, published whole by arm(). A published path is
// never freed before resetForTests(): a handler may still hold it.
struct Path {
  std::shared_ptr<CrashPrimitives> primitives;
  std::shared_ptr<Clock> clock;
  std::vector<std::pair<int, SavedCrashHandlerPtr>> previous;
  std::shared_ptr<CrashSlot> slot;
  bool testRun = false;
  CrashRecorder::CrashWork work;
};

// Bytes on the pipes.
constexpr std::uint8_t kQuit = 0;
constexpr std::uint8_t kCrashed = 1;
constexpr std::uint8_t kPostFinished = 2;
constexpr std::uint8_t kPostUnfinished = 3;
constexpr std::uint8_t kAbortDue = 4;

// The crash path touches only these, all set up in advance.
std::atomic<Path*> gArmed{nullptr};
std::atomic<Path*> gCrashPath{nullptr};
std::atomic<bool> gCrashed{false};
std::atomic<bool> gCaptured{false};
std::atomic<bool> gDealtWith{false};
std::atomic<SteadyClock::rep> gCrashStart{0};
std::atomic<CrashPipe*> gWake{nullptr};
std::atomic<CrashPipe*> gAnswer{nullptr};
std::atomic<CrashPipe*> gWatchdog{nullptr};
CrashCapture gCapture;
// Room for the longest exception message escaped, plus the frames.
char gSlotText[8 * CrashCapture::kMaxReason];

struct Machinery {
  std::mutex mutex;
  std::vector<std::unique_ptr<Path>> paths;
  std::shared_ptr<CrashPrimitives> pipeOwner;
  std::unique_ptr<CrashPipe> wake;
  std::unique_ptr<CrashPipe> answer;
  std::unique_ptr<CrashPipe> watchdog;
  std::thread worker;
  std::thread watchdogThread;
  std::shared_ptr<CrashSlot> slot;
};

void stopForExit();

Machinery& machinery() {
  static NoDestructor<Machinery> instance;
  static const bool hooked = (process_exit::addHook(stopForExit), true);
  (void)hooked;
  return *instance;
}

void joinOrDetach(std::thread& thread) {
  if (!thread.joinable()) return;
  if (thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
  } else {
    thread.join();
  }
}

// A process that exits is not crashing: from here on nothing is recorded,
// the previous signal handlers are back, and the threads end (the worker
// once a crash it is dealing with has been). The lock is let go before the
// joins, as the worker's own work disarms.
void stopForExit() {
  auto& m = machinery();
  std::thread worker;
  std::thread watchdog;
  {
    std::lock_guard lock(m.mutex);
    if (Path* armed = gArmed.exchange(nullptr)) {
      for (const auto& [signal, saved] : armed->previous) armed->primitives->restoreSignalHandler(signal, saved.get());
    }
    if (m.wake) m.wake->post(kQuit);
    if (m.watchdog) m.watchdog->post(kQuit);
    worker = std::move(m.worker);
    watchdog = std::move(m.watchdogThread);
  }
  joinOrDetach(worker);
  joinOrDetach(watchdog);
}

SteadyClock::time_point crashStart() { return SteadyClock::time_point(SteadyClock::duration(gCrashStart.load())); }

void runWorker(CrashPipe* wake, CrashPipe* answer) {
  for (;;) {
    const auto byte = wake->receive(-1);
    if (!byte || *byte == kQuit) return;
    if (*byte != kCrashed || !gCaptured.load(std::memory_order_acquire)) continue;
    Path* path = gCrashPath.load();
    bool finished = false;
    if (path && path->work) {
      const auto deadline =
          crashStart() + std::chrono::duration_cast<SteadyClock::duration>(
                             std::chrono::duration<double>(CrashRecorder::kPostBound - CrashRecorder::kWorkerMargin));
      try {
        finished = path->work(gCapture, deadline);
      } catch (...) {
        finished = false;
      }
    }
    answer->post(finished ? kPostFinished : kPostUnfinished);
    return;  // only the first crash of the process is dealt with
  }
}

void runWatchdog(CrashPipe* pipe) {
  for (;;) {
    const auto byte = pipe->receive(-1);
    if (!byte || *byte == kQuit) return;
    if (*byte != kAbortDue) continue;
    // The main queue has this long to run its abort first.
    const auto stop = pipe->receive(CrashRecorder::kAbortGrace);
    if (stop && *stop == kQuit) return;
    if (Path* path = gCrashPath.load()) path->primitives->abort();
    return;
  }
}

void stopThreads(Machinery& m) {
  if (m.wake) m.wake->post(kQuit);
  if (m.watchdog) m.watchdog->post(kQuit);
  joinOrDetach(m.worker);
  joinOrDetach(m.watchdogThread);
}

// A later crash, on any thread: wait, bounded, for the first to be dealt with.
void waitForFirstCrash() noexcept {
  const auto limit = SteadyClock::now() + std::chrono::milliseconds(1500);
  while (!gDealtWith.load() && SteadyClock::now() < limit) std::this_thread::sleep_for(std::chrono::milliseconds(5));
}

template <typename Fill>
void recordCrash(Fill&& fill) noexcept {
  const int savedErrno = errno;  // the interrupted code may be reading it
  Path* path = gArmed.load(std::memory_order_acquire);
  if (!path) return;
  if (gCrashed.exchange(true)) {
    waitForFirstCrash();
    errno = savedErrno;
    return;
  }
  const auto start = SteadyClock::now();
  gCrashStart.store(start.time_since_epoch().count());
  gCrashPath.store(path);

  gCapture.createdAt = path->clock->now();
  fill(gCapture);
  gCapture.frameCount = path->primitives->captureFrames(gCapture.frames);
  if (path->slot) {
    const std::size_t length = writeSlotRecord(gCapture, *path->primitives, gSlotText);
    if (length > 0) path->slot->write(std::string_view(gSlotText, length));
  }
  gCaptured.store(true, std::memory_order_release);

  bool finished = false;
  if (CrashPipe* wake = gWake.load()) {
    wake->post(kCrashed);
    const double left = CrashRecorder::kPostBound - std::chrono::duration<double>(SteadyClock::now() - start).count();
    if (CrashPipe* answer = gAnswer.load(); answer && left > 0) {
      const auto reply = answer->receive(left);
      finished = reply && *reply == kPostFinished;
    }
  }
  // However the worker fared, the previous handlers are back from here on.
  for (const auto& [signal, saved] : path->previous) path->primitives->restoreSignalHandler(signal, saved.get());
  if (!finished && !path->testRun) {
    if (CrashPipe* watchdog = gWatchdog.load()) watchdog->post(kAbortDue);
  }
  gDealtWith.store(true);
  errno = savedErrno;
}

void copyText(std::string_view text, char* out, std::size_t capacity, std::size_t& length) noexcept {
  length = std::min(text.size(), capacity);
  std::memcpy(out, text.data(), length);
}

}  // namespace

void CrashRecorder::arm(Arming arming) {
  auto& m = machinery();
  std::lock_guard lock(m.mutex);
  if (!m.wake || m.pipeOwner != arming.primitives) {
    stopThreads(m);
    m.pipeOwner = arming.primitives;
    m.wake = arming.primitives->makePipe();
    m.answer = arming.primitives->makePipe();
    m.watchdog = arming.primitives->makePipe();
    m.slot = arming.primitives->openCrashSlot();
    gWake.store(m.wake.get());
    gAnswer.store(m.answer.get());
    gWatchdog.store(m.watchdog.get());
  }
  // A clean disarm removed the slot; each arming after it gets a new one.
  if (!m.slot && m.pipeOwner) m.slot = m.pipeOwner->openCrashSlot();
  if (!m.wake || !m.answer || !m.watchdog) return;
  if (!m.worker.joinable()) m.worker = std::thread(runWorker, m.wake.get(), m.answer.get());
  if (!m.watchdogThread.joinable()) m.watchdogThread = std::thread(runWatchdog, m.watchdog.get());

  auto path = std::make_unique<Path>();
  path->primitives = std::move(arming.primitives);
  path->clock = std::move(arming.clock);
  path->previous = std::move(arming.previousSignalHandlers);
  path->slot = m.slot;
  path->testRun = arming.testRun;
  path->work = std::move(arming.work);
  gArmed.store(path.get(), std::memory_order_release);
  m.paths.push_back(std::move(path));
}

void CrashRecorder::disarm() {
  auto& m = machinery();
  std::lock_guard lock(m.mutex);
  gArmed.store(nullptr);
  if (gCrashed.load()) return;  // the crash path still needs the threads
  // Nothing crashed: the slot has nothing to keep, and its file would lie in
  // the store's directory until the next install.
  if (m.slot) m.slot->clear();
  m.slot.reset();
  stopThreads(m);
}

std::shared_ptr<CrashSlot> CrashRecorder::slot() {
  auto& m = machinery();
  std::lock_guard lock(m.mutex);
  return m.slot;
}

bool CrashRecorder::crashed() { return gCrashed.load(); }

void CrashRecorder::onSignal(int signal) noexcept {
  recordCrash([signal](CrashCapture& capture) noexcept {
    capture.kind = CrashCapture::Kind::signal;
    capture.signal = signal;
    capture.nameLength = 0;
    capture.reasonLength = 0;
  });
}

void CrashRecorder::onException(std::string_view name, std::string_view reason) noexcept {
  recordCrash([name, reason](CrashCapture& capture) noexcept {
    capture.kind = CrashCapture::Kind::exception;
    capture.signal = 0;
    copyText(name, capture.name.data(), capture.name.size(), capture.nameLength);
    copyText(reason, capture.reason.data(), capture.reason.size(), capture.reasonLength);
  });
}

void CrashRecorder::resetForTests() {
  auto& m = machinery();
  std::lock_guard lock(m.mutex);
  gArmed.store(nullptr);
  // A worker still busy with a crash posts its answer and ends by itself.
  stopThreads(m);
  gWake.store(nullptr);
  gAnswer.store(nullptr);
  gWatchdog.store(nullptr);
  gCrashPath.store(nullptr);
  m.wake.reset();
  m.answer.reset();
  m.watchdog.reset();
  m.pipeOwner.reset();
  m.slot.reset();
  m.paths.clear();
  gCrashed.store(false);
  gCaptured.store(false);
  gDealtWith.store(false);
}

}  // namespace kiv
