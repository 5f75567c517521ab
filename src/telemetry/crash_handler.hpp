// Crash capture: records an uncaught exception or a fatal signal of the host
// process while the SDK is installed, stores the record in the crash log
// store so that it survives the process, and tries for at most one second to
// post it as a crash report. At install it resends what earlier runs left.
//
//   if (auto handler = KivCrashHandler::shared()) handler->install(std::string(kKivSDKService), true);
//   ...
//   if (auto handler = KivCrashHandler::shared()) handler->uninstall();   // the slot stays empty afterwards
//
// The crashing thread itself only captures the crash into fixed storage and a
// crash slot file (see CrashRecorder); storing, posting and uninstalling run
// on the crash worker, an ordinary thread started at install.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "kiv/platform/crash.hpp"
#include "kiv/platform/main_queue.hpp"
#include "kiv/platform/task_pool.hpp"
#include "telemetry/crash_logs_manager.hpp"
#include "telemetry/crash_record.hpp"

namespace kiv {

// The handled signals, in the order they are installed.
inline constexpr std::array<int, 10> kCrashSignals = {SIGABRT, SIGSEGV, SIGILL,  SIGFPE,  SIGBUS,
                                                      SIGPIPE, SIGSYS,  SIGXCPU, SIGXFSZ, SIGTRAP};

// Present in the environment of a test run: a crash then never aborts.
inline constexpr std::string_view kTestRunEnvironmentVariable = "XCTestConfigurationFilePath";

// The label of the crash handler's queue.
inline constexpr std::string_view kCrashHandlerQueueLabel = "kiv.sdk.crash.handler";

class KivCrashHandler : public std::enable_shared_from_this<KivCrashHandler> {
 public:
  using Completion = std::function<void(bool success)>;

  // The process-wide handler: created on first use (once per process) over
  // the shared secure store, empty for good once uninstalled.
  static std::shared_ptr<KivCrashHandler> shared();

  explicit KivCrashHandler(std::shared_ptr<KivCrashLogsManagerProtocol> crashLogsManager);
  ~KivCrashHandler();
  KivCrashHandler(const KivCrashHandler&) = delete;
  KivCrashHandler& operator=(const KivCrashHandler&) = delete;

  // Sets the store's service name, installs the exception handler and the
  // ten signal handlers (remembering what was there; installing again keeps
  // what the first install remembered), and starts resending
  // what the store holds, after importing records that ended processes left
  // in crash slots. Call from the thread whose stack overflow should be
  // recorded too (the host's main thread).
  void install(std::string serviceName, bool useBFFAnalytics);

  // Puts the remembered handlers back (the default action where none was
  // remembered), removes this process's crash slot unless a crash is being
  // dealt with, clears `shared` and drops the store. Safe from any thread;
  // harmless when already done.
  void uninstall();

  // The installed entries: plain functions that do nothing once `shared` is
  // empty. handleSignal runs in signal context.
  static void handleException(std::string_view name, std::string_view reason) noexcept;
  static void handleSignal(int signal) noexcept;

  // The common crash path: only the first crash is dealt with. Stores the
  // record, posts it (deleting it from the store once posted), uninstalls,
  // and outside a test run has abort() run on the main queue when the post
  // did not finish within one second. Blocks the caller up to that second.
  void handleCrash(CrashRecord record);

  // Posts one record on the queue: its stack trace text, with result
  // "signal" when it has a "signal" key and "exception" otherwise. Without
  // useBFFAnalytics nothing is posted and `completion` is never called; with
  // it and no analytics client, completion(false).
  void sendCrashLog(CrashRecord record, Completion completion);

  bool crashed() const { return crashed_.load(); }
  std::shared_ptr<KivCrashLogsManagerProtocol> crashLogsManager() const;

 private:
  bool handleCrash(CrashRecord record, std::chrono::steady_clock::time_point deadline);
  bool recordCapturedCrash(const CrashCapture& capture, std::chrono::steady_clock::time_point deadline);
  void resendStoredCrashLogs();
  void importLeftCrashSlots(KivCrashLogsManagerProtocol& manager);
  bool isTestRun() const;

  mutable std::mutex mutex_;  // guards the fields up to originalSignalHandlers_
  std::shared_ptr<KivCrashLogsManagerProtocol> crashLogsManager_;
  SavedCrashHandlerPtr originalExceptionHandler_;
  std::map<std::int32_t, SavedCrashHandlerPtr> originalSignalHandlers_;
  bool installed_ = false;
  std::shared_ptr<CrashPrimitives> primitives_;
  std::shared_ptr<MainQueue> mainQueue_;

  // The store's read-change-write sequences take no lock of their own; the
  // posts' completions run concurrently, so their changes are serialised
  // here (a lost delete would post a record again on the next run).
  std::mutex storeMutex_;
  std::shared_ptr<TaskPool> queue_;
  std::atomic<bool> crashed_{false};
  std::atomic<bool> useBFFAnalytics_{false};
};

}  // namespace kiv
