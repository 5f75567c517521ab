#include "telemetry/crash_handler.hpp"

#include <condition_variable>
#include <optional>
#include <vector>

#include "base/no_destructor.hpp"
#include "base/process_state.hpp"
#include "kiv/platform/platform.hpp"
#include "service/key_chain_manager.hpp"
#include "telemetry/crash_recorder.hpp"
#include "telemetry/crash_report_sender.hpp"

namespace kiv {
namespace {

struct SharedSlot {
  std::mutex mutex;
  bool created = false;
  std::shared_ptr<KivCrashHandler> instance;
};

SharedSlot& sharedSlot() {
  static NoDestructor<SharedSlot> slot;
  return *slot;
}

void clearSharedIf(const KivCrashHandler* handler) {
  auto& slot = sharedSlot();
  std::shared_ptr<KivCrashHandler> released;  // dropped outside the lock
  std::lock_guard lock(slot.mutex);
  if (slot.instance.get() == handler) released = std::move(slot.instance);
}

// A new process as far as crash capture goes: handlers back, slot refillable.
const process_state::ResetRegistration kReset{[] {
  std::shared_ptr<KivCrashHandler> current;
  {
    auto& slot = sharedSlot();
    std::lock_guard lock(slot.mutex);
    current = slot.instance;
  }
  if (current) current->uninstall();
  CrashRecorder::resetForTests();
  auto& slot = sharedSlot();
  std::lock_guard lock(slot.mutex);
  slot.created = false;
  slot.instance.reset();
}};

// Waits for one completion, like a dispatch group entered once.
class CompletionGroup {
 public:
  void leave() {
    std::lock_guard lock(mutex_);
    left_ = true;
    done_.notify_all();
  }
  bool waitUntil(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    return done_.wait_until(lock, deadline, [this] { return left_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable done_;
  bool left_ = false;
};

// Whether the store already holds this crash, or would refuse it as a
// duplicate of its stack trace.
bool storeHolds(KivCrashLogsManagerProtocol& manager, const CrashRecord& record) {
  const auto logs = manager.getCrashLogs();
  if (!logs) return false;
  const auto trace = record.find(crash_keys::stackTrace);
  const bool hasTrace = trace != record.end() && trace->is_string();
  for (const CrashRecord& stored : *logs) {
    if (sameCrashRecord(stored, record)) return true;
    if (!hasTrace) continue;
    const auto storedTrace = stored.find(crash_keys::stackTrace);
    if (storedTrace != stored.end() && *storedTrace == *trace) return true;
  }
  return false;
}

}  // namespace

std::shared_ptr<KivCrashHandler> KivCrashHandler::shared() {
  auto& slot = sharedSlot();
  std::lock_guard lock(slot.mutex);
  if (!slot.created) {
    slot.created = true;
    std::weak_ptr<KeyChainManagerProtocol> store = KivKeyChainManager::shared();
    slot.instance = std::make_shared<KivCrashHandler>(std::make_shared<KivCrashLogsManager>(store));
  }
  return slot.instance;
}

KivCrashHandler::KivCrashHandler(std::shared_ptr<KivCrashLogsManagerProtocol> crashLogsManager)
    : crashLogsManager_(std::move(crashLogsManager)), queue_(platform()->taskPool) {}

KivCrashHandler::~KivCrashHandler() = default;

std::shared_ptr<KivCrashLogsManagerProtocol> KivCrashHandler::crashLogsManager() const {
  std::lock_guard lock(mutex_);
  return crashLogsManager_;
}

void KivCrashHandler::install(std::string serviceName, bool useBFFAnalytics) {
  const auto bundle = platform();
  const auto primitives = bundle->crash;
  if (!primitives) return;
  CrashRecorder::Arming arming;
  {
    std::lock_guard lock(mutex_);
    if (crashLogsManager_) KivCrashLogsManager::setServiceName(std::move(serviceName));
    useBFFAnalytics_.store(useBFFAnalytics);
    primitives_ = primitives;
    mainQueue_ = bundle->mainQueue;
    primitives->prepareCapture();
    // Installed again, the handlers hand back our own entries: those are
    // never remembered, or a crash would put them back and fault forever.
    const bool again = installed_;
    auto previousException = primitives->installExceptionHandler(&KivCrashHandler::handleException);
    if (!again) originalExceptionHandler_ = std::move(previousException);
    for (int signal : kCrashSignals) {
      // sigaction hands back the previous handler as it installs ours: no
      // moment where the signal is ignored.
      auto previous = primitives->installSignalHandler(signal, &KivCrashHandler::handleSignal, kCrashSignals);
      if (!again) originalSignalHandlers_[signal] = std::move(previous);
    }
    installed_ = true;
    for (int signal : kCrashSignals)
      arming.previousSignalHandlers.emplace_back(signal, originalSignalHandlers_[signal]);
  }
  arming.primitives = primitives;
  arming.clock = bundle->clock;
  arming.testRun = isTestRun();
  arming.work = [weak = weak_from_this()](const CrashCapture& capture, std::chrono::steady_clock::time_point deadline) {
    auto self = weak.lock();
    return self && self->recordCapturedCrash(capture, deadline);
  };
  CrashRecorder::arm(std::move(arming));

  queue_->post([weak = weak_from_this()] {
    if (auto self = weak.lock()) self->resendStoredCrashLogs();
  });
}

void KivCrashHandler::uninstall() {
  bool wasInstalled = false;
  {
    std::lock_guard lock(mutex_);
    wasInstalled = installed_;
    installed_ = false;
    if (wasInstalled && primitives_) {
      primitives_->restoreExceptionHandler(originalExceptionHandler_.get());
      for (const auto& [signal, saved] : originalSignalHandlers_)
        primitives_->restoreSignalHandler(signal, saved.get());
    }
    crashLogsManager_.reset();
  }
  if (wasInstalled) CrashRecorder::disarm();
  clearSharedIf(this);
}

void KivCrashHandler::handleException(std::string_view name, std::string_view reason) noexcept {
  CrashRecorder::onException(name, reason);
}

void KivCrashHandler::handleSignal(int signal) noexcept { CrashRecorder::onSignal(signal); }

void KivCrashHandler::handleCrash(CrashRecord record) {
  const auto bound = std::chrono::duration_cast<std::chrono::steady_clock::duration>(
      std::chrono::duration<double>(CrashRecorder::kPostBound));
  handleCrash(std::move(record), std::chrono::steady_clock::now() + bound);
}

bool KivCrashHandler::recordCapturedCrash(const CrashCapture& capture, std::chrono::steady_clock::time_point deadline) {
  std::shared_ptr<CrashPrimitives> primitives;
  {
    std::lock_guard lock(mutex_);
    primitives = primitives_;
  }
  if (!primitives) return false;
  CrashRecord record = makeCrashRecord(capture, *primitives);
  // The slot now holds the very record the store is about to get, so that
  // the next install recognises it there if this process dies in between.
  if (auto slot = CrashRecorder::slot()) slot->write(json::dumpCompact(record));
  return handleCrash(std::move(record), deadline);
}

bool KivCrashHandler::handleCrash(CrashRecord record, std::chrono::steady_clock::time_point deadline) {
  if (crashed_.exchange(true)) return false;
  if (auto manager = crashLogsManager()) {
    std::lock_guard lock(storeMutex_);
    manager->saveCrashLog(record);
    // Emptied only once the store holds the record: a failed write leaves
    // it for the next install to import.
    if (auto slot = CrashRecorder::slot(); slot && storeHolds(*manager, record)) slot->clear();
  }

  auto group = std::make_shared<CompletionGroup>();
  std::optional<std::string> trace;
  if (auto it = record.find(crash_keys::stackTrace); it != record.end() && it->is_string()) {
    trace = it->get<std::string>();
  }
  sendCrashLog(std::move(record), [weak = weak_from_this(), group, trace](bool success) {
    if (auto self = weak.lock()) {
      if (success && trace) {
        if (auto manager = self->crashLogsManager()) {
          std::lock_guard lock(self->storeMutex_);
          if (auto id = manager->findCrashLogId(*trace)) manager->deleteCrashLog(*id);
        }
      }
      self->uninstall();
    }
    group->leave();
  });
  const bool finished = group->waitUntil(deadline);
  // The handlers go back even when the post never ends, so that a repeated
  // fault reaches them.
  if (!finished) uninstall();
  if (isTestRun()) return finished;
  if (!finished) {
    std::shared_ptr<MainQueue> mainQueue;
    std::shared_ptr<CrashPrimitives> primitives;
    {
      std::lock_guard lock(mutex_);
      mainQueue = mainQueue_;
      primitives = primitives_;
    }
    if (mainQueue && primitives) mainQueue->post([primitives] { primitives->abort(); });
  }
  return finished;
}

void KivCrashHandler::sendCrashLog(CrashRecord record, Completion completion) {
  queue_->post([weak = weak_from_this(), record = std::move(record), completion = std::move(completion)] {
    auto self = weak.lock();
    if (!self || !self->useBFFAnalytics_.load()) return;
    std::string trace = crashStackTraceText(record);
    const bool isSignal = record.is_object() && record.contains(crash_keys::signal);
    const auto result = isSignal ? CrashReportResult::signal : CrashReportResult::exception;
    auto sender = crashReportSender();
    if (!sender || !sender(record, std::move(trace), result, completion)) completion(false);
  });
}

void KivCrashHandler::resendStoredCrashLogs() {
  auto manager = crashLogsManager();
  if (!manager) return;
  std::unique_lock storeLock(storeMutex_);
  importLeftCrashSlots(*manager);
  auto logs = manager->getCrashLogs();
  storeLock.unlock();
  if (!logs) return;
  const bool onlyOne = logs->size() == 1;
  for (CrashRecord record : *logs) {
    record[crash_keys::type] = kStoredCrashType;
    std::optional<std::string> id;
    if (auto it = record.find(crash_keys::id); it != record.end() && it->is_string()) id = it->get<std::string>();
    sendCrashLog(std::move(record), [weak = weak_from_this(), id, onlyOne](bool success) {
      if (!success || !id) return;
      auto self = weak.lock();
      auto current = self ? self->crashLogsManager() : nullptr;
      if (!current) return;
      std::lock_guard lock(self->storeMutex_);
      if (onlyOne) {
        current->clearCrashLogs();
      } else {
        current->deleteCrashLog(*id);
      }
    });
  }
}

void KivCrashHandler::importLeftCrashSlots(KivCrashLogsManagerProtocol& manager) {
  std::shared_ptr<CrashPrimitives> primitives;
  {
    std::lock_guard lock(mutex_);
    primitives = primitives_;
  }
  if (!primitives) return;
  for (const auto& slot : primitives->leftCrashSlots()) {
    const std::string text = slot->read();
    const auto record = text.empty() ? std::nullopt : json::parse(text);
    // An empty slot, or one caught half-written, has nothing to import.
    if (!record || !record->is_object()) {
      slot->clear();
      continue;
    }
    if (!storeHolds(manager, *record)) manager.saveCrashLog(*record);
    if (storeHolds(manager, *record)) slot->clear();
  }
}

bool KivCrashHandler::isTestRun() const {
  std::shared_ptr<CrashPrimitives> primitives;
  {
    std::lock_guard lock(mutex_);
    primitives = primitives_;
  }
  return primitives && primitives->environmentValue(std::string(kTestRunEnvironmentVariable)).has_value();
}

}  // namespace kiv
