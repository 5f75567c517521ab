#include "platform/crash/fake_crash_primitives.hpp"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>

#include "base/delay.hpp"
#include "platform/crash/fixed_text.hpp"

namespace kiv {

struct FakeCrashPrimitives::Saved final : SavedCrashHandler {
  Disposition disposition;
};

struct FakeCrashPrimitives::MemorySlot final : CrashSlot {
  mutable std::mutex mutex;
  std::string content;
  int writes = 0;
  bool removed = false;
  bool own = true;

  bool write(std::string_view bytes) noexcept override {
    std::lock_guard lock(mutex);
    content.assign(bytes);
    ++writes;
    return true;
  }
  std::string read() override {
    std::lock_guard lock(mutex);
    return content;
  }
  void clear() override {
    std::lock_guard lock(mutex);
    content.clear();
    removed = !own;
  }
};

namespace {

std::string describe(const auto& disposition) {
  if (disposition.signalEntry || disposition.exceptionEntry) return "sdk";
  return disposition.host.empty() ? "default" : disposition.host;
}

// Same contract as the real pipe, on a condition variable: deliveries in
// tests come from ordinary threads.
class MemoryPipe final : public CrashPipe {
 public:
  void post(std::uint8_t byte) noexcept override {
    std::lock_guard lock(mutex_);
    bytes_.push_back(byte);
    ready_.notify_all();
  }
  std::optional<std::uint8_t> receive(double timeoutSeconds) noexcept override {
    std::unique_lock lock(mutex_);
    auto has = [this] { return !bytes_.empty(); };
    if (timeoutSeconds < 0) {
      ready_.wait(lock, has);
    } else if (!ready_.wait_for(lock, delayFromSeconds(timeoutSeconds), has)) {
      return std::nullopt;
    }
    const std::uint8_t byte = bytes_.front();
    bytes_.pop_front();
    return byte;
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::uint8_t> bytes_;
};

}  // namespace

std::string FakeCrashPrimitives::signalDisposition(int signal) const {
  std::lock_guard lock(mutex_);
  auto it = signals_.find(signal);
  return it == signals_.end() ? "default" : describe(it->second);
}

std::string FakeCrashPrimitives::exceptionDisposition() const {
  std::lock_guard lock(mutex_);
  return describe(exception_);
}

void FakeCrashPrimitives::setHostSignalHandler(int signal, std::string name) {
  std::lock_guard lock(mutex_);
  signals_[signal] = Disposition{.host = std::move(name)};
}

void FakeCrashPrimitives::setHostExceptionHandler(std::string name) {
  std::lock_guard lock(mutex_);
  exception_ = Disposition{.host = std::move(name)};
}

std::vector<int> FakeCrashPrimitives::installOrder() const {
  std::lock_guard lock(mutex_);
  return installOrder_;
}

std::vector<int> FakeCrashPrimitives::blockedDuring(int signal) const {
  std::lock_guard lock(mutex_);
  auto it = blocked_.find(signal);
  return it == blocked_.end() ? std::vector<int>{} : it->second;
}

bool FakeCrashPrimitives::deliverSignal(int signal) {
  std::unique_lock lock(mutex_);
  auto it = signals_.find(signal);
  const CrashSignalHandler entry = it == signals_.end() ? nullptr : it->second.signalEntry;
  lock.unlock();  // the entry may restore handlers
  if (entry) entry(signal);
  return entry != nullptr;
}

bool FakeCrashPrimitives::deliverException(std::string_view name, std::string_view reason) {
  std::unique_lock lock(mutex_);
  const CrashExceptionHandler entry = exception_.exceptionEntry;
  lock.unlock();
  if (entry) entry(name, reason);
  return entry != nullptr;
}

void FakeCrashPrimitives::setEnvironment(const std::string& name, std::string value) {
  std::lock_guard lock(mutex_);
  environment_[name] = std::move(value);
}

std::string FakeCrashPrimitives::ownSlotContent() const {
  std::lock_guard lock(mutex_);
  return ownSlot_ ? ownSlot_->read() : std::string();
}

int FakeCrashPrimitives::ownSlotWrites() const {
  std::lock_guard lock(mutex_);
  if (!ownSlot_) return 0;
  std::lock_guard slotLock(ownSlot_->mutex);
  return ownSlot_->writes;
}

void FakeCrashPrimitives::leaveSlot(std::string content) {
  auto slot = std::make_shared<MemorySlot>();
  slot->content = std::move(content);
  slot->own = false;
  std::lock_guard lock(mutex_);
  leftSlots_.push_back(std::move(slot));
}

std::vector<std::string> FakeCrashPrimitives::remainingLeftSlots() const {
  std::vector<std::string> contents;
  for (const auto& slot : uncleared()) contents.push_back(slot->read());
  return contents;
}

SavedCrashHandlerPtr FakeCrashPrimitives::save(const Disposition& current) const {
  auto saved = std::make_shared<Saved>();
  saved->disposition = current;
  return saved;
}

SavedCrashHandlerPtr FakeCrashPrimitives::installSignalHandler(int signal, CrashSignalHandler handler,
                                                               std::span<const int> blocked) {
  std::lock_guard lock(mutex_);
  auto saved = save(signals_[signal]);
  signals_[signal] = Disposition{.signalEntry = handler};
  blocked_[signal].assign(blocked.begin(), blocked.end());
  installOrder_.push_back(signal);
  return saved;
}

void FakeCrashPrimitives::restoreSignalHandler(int signal, const SavedCrashHandler* saved) noexcept {
  std::lock_guard lock(mutex_);
  signals_[signal] = saved ? static_cast<const Saved*>(saved)->disposition : Disposition{};
}

SavedCrashHandlerPtr FakeCrashPrimitives::installExceptionHandler(CrashExceptionHandler handler) {
  std::lock_guard lock(mutex_);
  auto saved = save(exception_);
  exception_ = Disposition{.exceptionEntry = handler};
  return saved;
}

void FakeCrashPrimitives::restoreExceptionHandler(const SavedCrashHandler* saved) {
  std::lock_guard lock(mutex_);
  exception_ = saved ? static_cast<const Saved*>(saved)->disposition : Disposition{};
}

std::size_t FakeCrashPrimitives::captureFrames(std::span<void*> frames) noexcept {
  void* const fixed[] = {reinterpret_cast<void*>(0x1000), reinterpret_cast<void*>(0x2000)};
  const std::size_t count = std::min(frames.size(), std::size(fixed));
  std::copy_n(fixed, count, frames.begin());
  return count;
}

std::size_t FakeCrashPrimitives::describeFrame(void* frame, std::span<char> out) noexcept {
  FixedText text(out);
  text.append("fake(+").appendHex(reinterpret_cast<std::uintptr_t>(frame)).append(")");
  return text.size();
}

std::vector<std::string> FakeCrashPrimitives::symbolizeFrames(std::span<void* const> frames) {
  std::vector<std::string> lines;
  for (void* frame : frames) {
    char buffer[64];
    FixedText text(buffer);
    text.append("fake(symbol+").appendHex(reinterpret_cast<std::uintptr_t>(frame)).append(")");
    lines.emplace_back(text.view());
  }
  return lines;
}

std::optional<std::string> FakeCrashPrimitives::environmentValue(const std::string& name) {
  std::lock_guard lock(mutex_);
  auto it = environment_.find(name);
  return it == environment_.end() ? std::nullopt : std::optional(it->second);
}

std::unique_ptr<CrashPipe> FakeCrashPrimitives::makePipe() { return std::make_unique<MemoryPipe>(); }

std::shared_ptr<CrashSlot> FakeCrashPrimitives::openCrashSlot() {
  std::lock_guard lock(mutex_);
  ownSlot_ = std::make_shared<MemorySlot>();
  return ownSlot_;
}

std::vector<std::shared_ptr<CrashSlot>> FakeCrashPrimitives::leftCrashSlots() {
  const auto slots = uncleared();
  return {slots.begin(), slots.end()};
}

std::vector<std::shared_ptr<FakeCrashPrimitives::MemorySlot>> FakeCrashPrimitives::uncleared() const {
  std::lock_guard lock(mutex_);
  std::vector<std::shared_ptr<MemorySlot>> slots;
  for (const auto& slot : leftSlots_) {
    std::lock_guard slotLock(slot->mutex);
    if (!slot->removed) slots.push_back(slot);
  }
  return slots;
}

}  // namespace kiv
