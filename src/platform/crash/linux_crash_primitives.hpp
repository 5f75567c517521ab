// Crash primitives on Linux: sigaction, std::set_terminate, glibc's
// backtrace, pipes, and flock-guarded slot files.
#pragma once

#include "kiv/platform/crash.hpp"

namespace kiv {

class LinuxCrashPrimitives final : public CrashPrimitives {
 public:
  // Slots go to `slotDirectory`, else to the secure store's default location.
  explicit LinuxCrashPrimitives(std::optional<std::filesystem::path> slotDirectory = std::nullopt);

  void prepareCapture() override;
  void installAlternateStack() override;

  SavedCrashHandlerPtr installSignalHandler(int signal, CrashSignalHandler handler,
                                            std::span<const int> blocked) override;
  void restoreSignalHandler(int signal, const SavedCrashHandler* saved) noexcept override;

  SavedCrashHandlerPtr installExceptionHandler(CrashExceptionHandler handler) override;
  void restoreExceptionHandler(const SavedCrashHandler* saved) override;

  std::size_t captureFrames(std::span<void*> frames) noexcept override;
  std::size_t describeFrame(void* frame, std::span<char> out) noexcept override;
  std::vector<std::string> symbolizeFrames(std::span<void* const> frames) override;

  std::optional<std::string> environmentValue(const std::string& name) override;
  void abort() override;

  std::unique_ptr<CrashPipe> makePipe() override;
  std::shared_ptr<CrashSlot> openCrashSlot() override;
  std::vector<std::shared_ptr<CrashSlot>> leftCrashSlots() override;

 private:
  std::optional<std::filesystem::path> slotDirectory_;
};

}  // namespace kiv
