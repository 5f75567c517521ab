// The half of crash capture that runs on the crashing thread, and the thread
// started in advance that does the rest.
//
// On a crash, in this order, without allocating or taking a lock:
//  1. The first crash of the process wins an atomic flag. Later ones, on any
//     thread, wait for it to be dealt with and then return: a repeated fault
//     then reaches the handlers put back below.
//  2. The signal number or the exception, the date and the raw frames go to
//     fixed storage, and a record built from them is written and flushed to
//     this process's crash slot, so it survives whatever happens next.
//  3. The crash worker is woken. On its ordinary thread it runs the work
//     given at arming (store the full record, post it within the bound,
//     uninstall) and answers whether the post finished.
//  4. The crashing thread waits for that answer at most kPostBound seconds
//     from the crash, puts the previous signal handlers back, and when the
//     post did not finish outside a test run has the watchdog thread abort
//     the process kAbortGrace seconds later, should nothing else have ended
//     it by then.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kiv/platform/clock.hpp"
#include "kiv/platform/crash.hpp"
#include "telemetry/crash_record.hpp"

namespace kiv {

class CrashRecorder {
 public:
  using Deadline = std::chrono::steady_clock::time_point;
  // The crash worker's work; true when the post finished by `deadline`.
  using CrashWork = std::function<bool(const CrashCapture& capture, Deadline deadline)>;

  static constexpr double kPostBound = 1.0;
  // The worker's own bound ends this much earlier, so that in the normal
  // case its answer, not the timeout, releases the crashing thread.
  static constexpr double kWorkerMargin = 0.05;
  static constexpr double kAbortGrace = 0.2;

  struct Arming {
    std::shared_ptr<CrashPrimitives> primitives;
    std::shared_ptr<Clock> clock;
    // Put back by the crashing thread once the crash is dealt with.
    std::vector<std::pair<int, SavedCrashHandlerPtr>> previousSignalHandlers;
    bool testRun = false;
    CrashWork work;
  };

  // Makes the entries below record crashes. Starts the worker and the
  // watchdog and opens the slot on first use; arming again replaces what the
  // entries use. Ordinary context.
  static void arm(Arming arming);
  // The entries do nothing from now on. Stops the threads unless a crash is
  // being dealt with (the worker itself calls this while it is).
  static void disarm();

  // This process's slot; null before the first arm or when it could not be
  // opened.
  static std::shared_ptr<CrashSlot> slot();
  // True once a crash has won the flag, until resetForTests().
  static bool crashed();

  // Entries for the platform's hooks.
  static void onSignal(int signal) noexcept;
  static void onException(std::string_view name, std::string_view reason) noexcept;

  // Back to the state of a new process. Tests only.
  static void resetForTests();
};

}  // namespace kiv
