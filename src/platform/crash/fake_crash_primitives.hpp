// Crash primitives that never reach the OS. Installs are recorded; a test
// "delivers" a signal or an uncaught exception by calling whatever entry is
// installed for it, on its own thread, without crashing anything. Slots live
// in memory; slots left by an "ended process" are planted by the test.
//
// Frames are always 0x1000 and 0x2000, described as "fake(+0x1000)" and
// symbolised as "fake(symbol+0x1000)".
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "kiv/platform/crash.hpp"

namespace kiv {

class FakeCrashPrimitives final : public CrashPrimitives {
 public:
  // What is installed for a signal or for uncaught exceptions, as a test
  // reads it: "default", "sdk" or the name a test gave a host handler.
  std::string signalDisposition(int signal) const;
  std::string exceptionDisposition() const;
  // Plants a host's own handler, as if installed before the SDK.
  void setHostSignalHandler(int signal, std::string name);
  void setHostExceptionHandler(std::string name);
  // Signals in the order installSignalHandler() saw them.
  std::vector<int> installOrder() const;
  // The mask the last install of `signal` asked for.
  std::vector<int> blockedDuring(int signal) const;

  // Calls the SDK's entry installed for `signal`; false when none is.
  bool deliverSignal(int signal);
  bool deliverException(std::string_view name, std::string_view reason);

  void setEnvironment(const std::string& name, std::string value);
  int abortCount() const { return aborts_; }
  int prepareCount() const { return prepares_; }

  // This process's slot content ("" when cleared or never opened) and how
  // many times it was written.
  std::string ownSlotContent() const;
  int ownSlotWrites() const;
  // A slot left by an ended process; the store import takes it.
  void leaveSlot(std::string content);
  // Contents of the left slots not cleared yet.
  std::vector<std::string> remainingLeftSlots() const;

  void prepareCapture() override { ++prepares_; }
  void installAlternateStack() override {}
  SavedCrashHandlerPtr installSignalHandler(int signal, CrashSignalHandler handler,
                                            std::span<const int> blocked) override;
  void restoreSignalHandler(int signal, const SavedCrashHandler* saved) noexcept override;
  SavedCrashHandlerPtr installExceptionHandler(CrashExceptionHandler handler) override;
  void restoreExceptionHandler(const SavedCrashHandler* saved) override;
  std::size_t captureFrames(std::span<void*> frames) noexcept override;
  std::size_t describeFrame(void* frame, std::span<char> out) noexcept override;
  std::vector<std::string> symbolizeFrames(std::span<void* const> frames) override;
  std::optional<std::string> environmentValue(const std::string& name) override;
  void abort() override { ++aborts_; }
  std::unique_ptr<CrashPipe> makePipe() override;
  std::shared_ptr<CrashSlot> openCrashSlot() override;
  std::vector<std::shared_ptr<CrashSlot>> leftCrashSlots() override;

 private:
  struct Disposition {
    CrashSignalHandler signalEntry = nullptr;
    CrashExceptionHandler exceptionEntry = nullptr;
    std::string host{};  // empty: the default
  };
  struct Saved;
  struct MemorySlot;

  SavedCrashHandlerPtr save(const Disposition& current) const;
  std::vector<std::shared_ptr<MemorySlot>> uncleared() const;

  mutable std::mutex mutex_;
  std::map<int, Disposition> signals_;
  std::map<int, std::vector<int>> blocked_;
  Disposition exception_;
  std::vector<int> installOrder_;
  std::map<std::string, std::string> environment_;
  std::atomic<int> aborts_{0};
  std::atomic<int> prepares_{0};
  std::shared_ptr<MemorySlot> ownSlot_;
  std::vector<std::shared_ptr<MemorySlot>> leftSlots_;
};

}  // namespace kiv
