#include "platform/crash/linux_crash_primitives.hpp"

#include <cxxabi.h>
#include <dirent.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <limits>
#include <mutex>

#include "base/delay.hpp"
#include "platform/crash/fixed_text.hpp"
#include "platform/secure_store/store_database.hpp"

namespace kiv {
namespace {

// ---------------------------------------------------------------------------
// Signal and terminate entries. The OS calls a plain function; it forwards to
// the SDK's entry stored here.

std::atomic<CrashSignalHandler> gSignalHandlers[NSIG];
std::atomic<CrashExceptionHandler> gExceptionHandler{nullptr};

void onSignal(int signal, siginfo_t*, void*) {
  if (signal <= 0 || signal >= NSIG) return;
  if (auto handler = gSignalHandlers[signal].load()) handler(signal);
}

[[noreturn]] void onTerminate() {
  auto handler = gExceptionHandler.load();
  // std::terminate is also reached without an exception (a joinable thread
  // destroyed, an explicit call): nothing to record then.
  if (std::exception_ptr current = std::current_exception(); handler && current) {
    std::string name;
    if (const std::type_info* type = abi::__cxa_current_exception_type()) {
      int status = 0;
      char* demangled = abi::__cxa_demangle(type->name(), nullptr, nullptr, &status);
      name = status == 0 && demangled ? demangled : type->name();
      std::free(demangled);
    }
    std::string reason;
    try {
      std::rethrow_exception(current);
    } catch (const std::exception& e) {
      reason = e.what();
    } catch (...) {
      // Not derived from std::exception: it has no message.
    }
    handler(name, reason);
  }
  std::abort();
}

struct SavedSignal final : SavedCrashHandler {
  struct sigaction action {};
};

struct SavedTerminate final : SavedCrashHandler {
  std::terminate_handler handler = nullptr;
};

// ---------------------------------------------------------------------------
// Alternate signal stacks, one per prepared thread, with a guard page below so
// that overflowing it faults instead of writing over other memory.

constexpr std::size_t kMinimumAlternateStackSize = std::size_t{64} * 1024;
constexpr std::size_t kAlternateStackSize = std::size_t{128} * 1024;

struct AlternateStack {
  void* mapping = nullptr;
  std::size_t mappingSize = 0;
  void* stack = nullptr;

  ~AlternateStack() {
    if (!mapping) return;
    stack_t current{};
    if (sigaltstack(nullptr, &current) == 0 && current.ss_sp == stack) {
      stack_t off{};
      off.ss_flags = SS_DISABLE;
      sigaltstack(&off, nullptr);
    }
    munmap(mapping, mappingSize);
  }
};

thread_local AlternateStack tAlternateStack;

// ---------------------------------------------------------------------------
// The loaded modules, copied at prepare time so that a frame can be named
// module+offset from a signal handler (dladdr takes the loader's lock).

struct Module {
  std::uintptr_t start = 0;
  std::uintptr_t end = 0;
  std::uintptr_t base = 0;
  char path[240] = {};
};

constexpr std::size_t kMaxModules = 256;
Module gModules[kMaxModules];
std::atomic<std::size_t> gModuleCount{0};
std::mutex gModulesMutex;

int collectModule(dl_phdr_info* info, std::size_t, void* data) {
  auto& count = *static_cast<std::size_t*>(data);
  if (count >= kMaxModules) return 1;
  std::uintptr_t low = UINTPTR_MAX;
  std::uintptr_t high = 0;
  for (int i = 0; i < info->dlpi_phnum; ++i) {
    const auto& header = info->dlpi_phdr[i];
    if (header.p_type != PT_LOAD) continue;
    low = std::min<std::uintptr_t>(low, info->dlpi_addr + header.p_vaddr);
    high = std::max<std::uintptr_t>(high, info->dlpi_addr + header.p_vaddr + header.p_memsz);
  }
  if (low >= high) return 0;
  Module& module = gModules[count];
  module.start = low;
  module.end = high;
  module.base = info->dlpi_addr;
  const char* path = info->dlpi_name;
  char self[sizeof module.path] = {};
  if (!path || !*path) {  // the main program
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n > 0) self[n] = '\0';
    path = self;
  }
  std::strncpy(module.path, path, sizeof module.path - 1);
  module.path[sizeof module.path - 1] = '\0';
  ++count;
  return 0;
}

void snapshotModules() {
  std::lock_guard lock(gModulesMutex);
  // Readers in a signal handler only look at the first gModuleCount entries:
  // hide them while they are rewritten.
  gModuleCount.store(0);
  std::size_t count = 0;
  dl_iterate_phdr(collectModule, &count);
  gModuleCount.store(count);
}

// ---------------------------------------------------------------------------

double monotonicSeconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

class LinuxCrashPipe final : public CrashPipe {
 public:
  explicit LinuxCrashPipe(int readFd, int writeFd) : read_(readFd), write_(writeFd) {}
  ~LinuxCrashPipe() override {
    close(read_);
    close(write_);
  }
  LinuxCrashPipe(const LinuxCrashPipe&) = delete;
  LinuxCrashPipe& operator=(const LinuxCrashPipe&) = delete;

  void post(std::uint8_t byte) noexcept override {
    while (write(write_, &byte, 1) < 0 && errno == EINTR) {
    }
  }

  std::optional<std::uint8_t> receive(double timeoutSeconds) noexcept override {
    const double deadline = monotonicSeconds() + timeoutSeconds;
    for (;;) {
      int waitMs = -1;
      if (timeoutSeconds >= 0) {
        const double left = deadline - monotonicSeconds();
        if (left <= 0) return std::nullopt;
        const auto leftMs = std::chrono::duration_cast<std::chrono::milliseconds>(delayFromSeconds(left)).count();
        waitMs = static_cast<int>(std::min<long long>(leftMs, std::numeric_limits<int>::max() - 1)) + 1;
      }
      pollfd entry{read_, POLLIN, 0};
      const int ready = poll(&entry, 1, waitMs);
      if (ready < 0 && errno != EINTR) return std::nullopt;
      if (ready <= 0) continue;  // interrupted or woke early: recompute what is left
      std::uint8_t byte = 0;
      const ssize_t n = read(read_, &byte, 1);
      if (n == 1) return byte;
      if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) return std::nullopt;
    }
  }

 private:
  int read_;
  int write_;
};

// A slot file: this process's own (locked for its lifetime, so other processes
// know it is alive) or one left by an ended process (locked by whoever
// imports it).
class LinuxCrashSlot final : public CrashSlot {
 public:
  LinuxCrashSlot(int fd, std::string path, bool own) : fd_(fd), path_(std::move(path)), own_(own) {}
  ~LinuxCrashSlot() override {
    if (fd_ >= 0) close(fd_);
  }
  LinuxCrashSlot(const LinuxCrashSlot&) = delete;
  LinuxCrashSlot& operator=(const LinuxCrashSlot&) = delete;

  bool write(std::string_view bytes) noexcept override {
    if (fd_ < 0) return false;
    // Written first, cut to length after: a slot caught half-written is
    // unreadable and dropped, never mistaken for a shorter record.
    std::size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t n = pwrite(fd_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      done += static_cast<std::size_t>(n);
    }
    if (ftruncate(fd_, static_cast<off_t>(bytes.size())) != 0) return false;
    return fsync(fd_) == 0;
  }

  std::string read() override {
    std::string content;
    if (fd_ < 0) return content;
    char chunk[4096];
    off_t offset = 0;
    for (;;) {
      const ssize_t n = pread(fd_, chunk, sizeof chunk, offset);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      content.append(chunk, static_cast<std::size_t>(n));
      offset += n;
    }
    return content;
  }

  void clear() override {
    if (fd_ < 0) return;
    if (own_) {
      // The descriptor stays open: a handler may still hold this slot, and
      // its write then lands in the removed file, harmlessly.
      if (ftruncate(fd_, 0) == 0) fsync(fd_);
      unlink(path_.c_str());
      return;
    }
    unlink(path_.c_str());
    close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
  std::string path_;
  bool own_;
};

constexpr std::string_view kSlotPrefix = "crash-";
constexpr std::string_view kSlotSuffix = ".slot";

std::string randomHex() {
  std::uint64_t value = 0;
  if (getrandom(&value, sizeof value, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof value)) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    value = static_cast<std::uint64_t>(now.tv_nsec) ^ (static_cast<std::uint64_t>(now.tv_sec) << 20);
  }
  char text[17];
  FixedText out(text);
  for (int shift = 60; shift >= 0; shift -= 4)
    out.append(std::string_view(&"0123456789abcdef"[(value >> shift) & 0xF], 1));
  return std::string(out.view());
}

bool ensureDirectory(const std::filesystem::path& directory) {
  std::error_code error;
  if (std::filesystem::is_directory(directory, error)) return true;
  if (!std::filesystem::create_directories(directory, error)) return false;
  return chmod(directory.c_str(), 0700) == 0;
}

}  // namespace

std::shared_ptr<CrashPrimitives> makeLinuxCrashPrimitives(std::optional<std::filesystem::path> slotDirectory) {
  return std::make_shared<LinuxCrashPrimitives>(std::move(slotDirectory));
}

LinuxCrashPrimitives::LinuxCrashPrimitives(std::optional<std::filesystem::path> slotDirectory)
    : slotDirectory_(slotDirectory ? std::move(slotDirectory) : defaultStoreDirectory()) {}

void LinuxCrashPrimitives::prepareCapture() {
  // glibc's backtrace loads libgcc_s (malloc, the loader's lock) on its first
  // call: make that call now rather than in a signal handler.
  void* warmUp[4];
  backtrace(warmUp, 4);
  snapshotModules();
  installAlternateStack();
}

void LinuxCrashPrimitives::installAlternateStack() {
  if (tAlternateStack.mapping) return;
  stack_t current{};
  if (sigaltstack(nullptr, &current) == 0 && !(current.ss_flags & SS_DISABLE) &&
      current.ss_size >= kMinimumAlternateStackSize)
    return;
  const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t size = kAlternateStackSize + page;
  void* mapping = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (mapping == MAP_FAILED) return;
  mprotect(mapping, page, PROT_NONE);  // stacks grow down: the guard is the lowest page
  stack_t stack{};
  stack.ss_sp = static_cast<char*>(mapping) + page;
  stack.ss_size = kAlternateStackSize;
  if (sigaltstack(&stack, nullptr) != 0) {
    munmap(mapping, size);
    return;
  }
  tAlternateStack.mapping = mapping;
  tAlternateStack.mappingSize = size;
  tAlternateStack.stack = stack.ss_sp;
}

SavedCrashHandlerPtr LinuxCrashPrimitives::installSignalHandler(int signal, CrashSignalHandler handler,
                                                                std::span<const int> blocked) {
  if (signal <= 0 || signal >= NSIG) return nullptr;
  gSignalHandlers[signal].store(handler);
  struct sigaction action {};
  action.sa_sigaction = onSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK;
  sigemptyset(&action.sa_mask);
  for (int s : blocked) sigaddset(&action.sa_mask, s);
  auto saved = std::make_shared<SavedSignal>();
  if (sigaction(signal, &action, &saved->action) != 0) return nullptr;
  return saved;
}

void LinuxCrashPrimitives::restoreSignalHandler(int signal, const SavedCrashHandler* saved) noexcept {
  if (signal <= 0 || signal >= NSIG) return;
  struct sigaction fallback {};
  fallback.sa_handler = SIG_DFL;
  sigemptyset(&fallback.sa_mask);
  // Only this class makes SavedCrashHandler objects for signals.
  const auto* previous = static_cast<const SavedSignal*>(saved);
  sigaction(signal, previous ? &previous->action : &fallback, nullptr);
}

SavedCrashHandlerPtr LinuxCrashPrimitives::installExceptionHandler(CrashExceptionHandler handler) {
  gExceptionHandler.store(handler);
  auto saved = std::make_shared<SavedTerminate>();
  saved->handler = std::set_terminate(onTerminate);
  return saved;
}

void LinuxCrashPrimitives::restoreExceptionHandler(const SavedCrashHandler* saved) {
  const auto* previous = static_cast<const SavedTerminate*>(saved);
  std::set_terminate(previous ? previous->handler : nullptr);
}

std::size_t LinuxCrashPrimitives::captureFrames(std::span<void*> frames) noexcept {
  const int count = backtrace(frames.data(), static_cast<int>(std::min<std::size_t>(frames.size(), 1024)));
  return count > 0 ? static_cast<std::size_t>(count) : 0;
}

std::size_t LinuxCrashPrimitives::describeFrame(void* frame, std::span<char> out) noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(frame);
  FixedText text(out);
  const std::size_t count = gModuleCount.load();
  for (std::size_t i = 0; i < count; ++i) {
    const Module& module = gModules[i];
    if (address < module.start || address >= module.end) continue;
    // The shape backtrace_symbols gives a frame it has no symbol for.
    text.append(module.path).append("(+").appendHex(address - module.base).append(") [").appendHex(address).append("]");
    return text.size();
  }
  text.append("[").appendHex(address).append("]");
  return text.size();
}

std::vector<std::string> LinuxCrashPrimitives::symbolizeFrames(std::span<void* const> frames) {
  std::vector<std::string> lines;
  if (frames.empty()) return lines;
  char** symbols = backtrace_symbols(frames.data(), static_cast<int>(frames.size()));
  if (!symbols) return lines;
  lines.reserve(frames.size());
  for (std::size_t i = 0; i < frames.size(); ++i) lines.emplace_back(symbols[i] ? symbols[i] : "");
  std::free(static_cast<void*>(symbols));
  return lines;
}

std::optional<std::string> LinuxCrashPrimitives::environmentValue(const std::string& name) {
  // Read-only use; the SDK never changes the environment.
  const char* value = std::getenv(name.c_str());  // NOLINT(concurrency-mt-unsafe)
  if (!value) return std::nullopt;
  return std::string(value);
}

void LinuxCrashPrimitives::abort() { std::abort(); }

std::unique_ptr<CrashPipe> LinuxCrashPrimitives::makePipe() {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return nullptr;
  // The writing end never blocks a signal handler.
  fcntl(fds[1], F_SETFL, fcntl(fds[1], F_GETFL) | O_NONBLOCK);
  return std::make_unique<LinuxCrashPipe>(fds[0], fds[1]);
}

std::shared_ptr<CrashSlot> LinuxCrashPrimitives::openCrashSlot() {
  if (!slotDirectory_ || !ensureDirectory(*slotDirectory_)) return nullptr;
  const std::string name = std::string(kSlotPrefix) + std::to_string(getpid()) + "-" + randomHex();
  const std::string temporary = (*slotDirectory_ / (name + ".tmp")).string();
  const std::string path = (*slotDirectory_ / (name + std::string(kSlotSuffix))).string();
  const int fd = open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return nullptr;
  // Locked before it gets the name other processes look for, so that none of
  // them takes a live process's slot for one left behind.
  if (flock(fd, LOCK_EX | LOCK_NB) != 0 || rename(temporary.c_str(), path.c_str()) != 0) {
    unlink(temporary.c_str());
    close(fd);
    return nullptr;
  }
  return std::make_shared<LinuxCrashSlot>(fd, path, true);
}

std::vector<std::shared_ptr<CrashSlot>> LinuxCrashPrimitives::leftCrashSlots() {
  std::vector<std::shared_ptr<CrashSlot>> slots;
  if (!slotDirectory_) return slots;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(*slotDirectory_, error)) {
    const std::string name = entry.path().filename().string();
    if (!name.starts_with(kSlotPrefix) || !name.ends_with(kSlotSuffix)) continue;
    const std::string path = entry.path().string();
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) continue;
    // The lock of a live process (this one included) is held; an ended
    // process's lock went with it.
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
      close(fd);
      continue;
    }
    slots.push_back(std::make_shared<LinuxCrashSlot>(fd, path, false));
  }
  return slots;
}

}  // namespace kiv
