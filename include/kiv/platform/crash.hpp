// What crash capture needs of the operating system: fatal-signal and
// uncaught-exception hooks, the crashing thread's call stack, a file that
// survives the process, and wake-ups that work from a signal handler.
//
// The crash handler installs its entry points here and does its real work on
// a thread started in advance; the calls marked async-signal-safe are the only
// ones it makes on the crashing thread. A host that bridges another OS
// implements this interface; on Linux the SDK brings its own.
//
// A host that wants a stack overflow on one of its own threads recorded calls
// kiv::prepareThreadForCrashCapture() on that thread (the thread that installs
// the crash handler is prepared by the install itself).
#pragma once

// Exported from the shared library, which hides everything else.
#pragma GCC visibility push(default)

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kiv {

// The SDK's entry for a fatal signal: runs on the signalled thread, in signal
// context, with the handled signals blocked.
using CrashSignalHandler = void (*)(int signal);

// The SDK's entry for an exception nobody caught: runs on the throwing thread
// before the process aborts. `name` is the exception's type as written in the
// source, `reason` its message ("" when it has none).
using CrashExceptionHandler = void (*)(std::string_view name, std::string_view reason);

// A handler that was in place before the SDK's, kept only to be put back.
class SavedCrashHandler {
 public:
  virtual ~SavedCrashHandler() = default;
};
using SavedCrashHandlerPtr = std::shared_ptr<const SavedCrashHandler>;

// A one-way channel of single bytes between threads, usable from a signal
// handler on either end.
class CrashPipe {
 public:
  virtual ~CrashPipe() = default;
  // Async-signal-safe; never blocks.
  virtual void post(std::uint8_t byte) noexcept = 0;
  // Waits up to `timeoutSeconds` (forever when negative) for a byte.
  // Async-signal-safe.
  virtual std::optional<std::uint8_t> receive(double timeoutSeconds) noexcept = 0;
};

// A small file that keeps one crash record across the death of the process.
class CrashSlot {
 public:
  virtual ~CrashSlot() = default;
  // Replaces the content and flushes it to the disk before returning.
  // Async-signal-safe. False when the bytes may not all have reached it.
  virtual bool write(std::string_view bytes) noexcept = 0;
  // The current content ("" when empty). Ordinary context.
  virtual std::string read() = 0;
  // Empties the slot and removes its file. This process's own slot stays
  // writable, but what is written to it afterwards is not kept.
  virtual void clear() = 0;
};

class CrashPrimitives {
 public:
  virtual ~CrashPrimitives() = default;

  // Loads now what capturing a crash would otherwise load at the worst time
  // (the stack walker, the map of loaded modules) and gives the calling
  // thread an alternate signal stack. Call before installing the handlers.
  virtual void prepareCapture() = 0;

  // Gives the calling thread an alternate signal stack of at least 64 KiB,
  // unless it already has one that large; freed when the thread ends.
  virtual void installAlternateStack() = 0;

  // Makes `handler` run for `signal` on the alternate stack, with `blocked`
  // masked while it runs; returns what was installed before.
  virtual SavedCrashHandlerPtr installSignalHandler(int signal, CrashSignalHandler handler,
                                                    std::span<const int> blocked) = 0;
  // Puts back a handler returned above; null gives the default action.
  // Async-signal-safe.
  virtual void restoreSignalHandler(int signal, const SavedCrashHandler* saved) noexcept = 0;

  virtual SavedCrashHandlerPtr installExceptionHandler(CrashExceptionHandler handler) = 0;
  virtual void restoreExceptionHandler(const SavedCrashHandler* saved) = 0;

  // Return addresses of the calling thread, innermost first; how many were
  // written. Async-signal-safe after prepareCapture().
  virtual std::size_t captureFrames(std::span<void*> frames) noexcept = 0;
  // One line for a frame without the symbol tables: the module and the
  // offset in it when known, and the address. Truncated to `out`; returns the
  // length written. Async-signal-safe.
  virtual std::size_t describeFrame(void* frame, std::span<char> out) noexcept = 0;
  // The symbolised lines of `frames`, one each. Ordinary context.
  virtual std::vector<std::string> symbolizeFrames(std::span<void* const> frames) = 0;

  virtual std::optional<std::string> environmentValue(const std::string& name) = 0;

  // Ends the process abnormally. The real one never returns.
  virtual void abort() = 0;

  virtual std::unique_ptr<CrashPipe> makePipe() = 0;

  // A new slot for this process, already open; null when it cannot be
  // created. Slots live beside the secure store's files.
  virtual std::shared_ptr<CrashSlot> openCrashSlot() = 0;
  // Slots whose process has ended, now owned by the caller.
  virtual std::vector<std::shared_ptr<CrashSlot>> leftCrashSlots() = 0;
};

// The Linux primitives. Slots are files (0600) in `slotDirectory` (created
// 0700 when missing), by default the secure store's own location: pass the
// directory given to makeLinuxSecureStore, if any.
std::shared_ptr<CrashPrimitives> makeLinuxCrashPrimitives(
    std::optional<std::filesystem::path> slotDirectory = std::nullopt);

// Gives the calling thread an alternate signal stack so that a stack
// overflow on it can still be recorded. Safe to call more than once.
void prepareThreadForCrashCapture();

}  // namespace kiv

#pragma GCC visibility pop
