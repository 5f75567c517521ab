// The C interface over the facade. Everything a C caller hands in is checked
// and copied here; every C++ exception stops here.
#include "kiv/face_liveness_lite.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "base/no_destructor.hpp"
#include "base/state_manager.hpp"
#include "base/unicode_text.hpp"
#include "c_api/c_delegate.hpp"
#include "c_api/c_ui_customization.hpp"
#include "c_api/guarded.hpp"
#include "c_api/host_services.hpp"
#include "kiv/face_liveness_lite.hpp"
#include "kiv/platform/crash.hpp"
#include "kiv/platform/secure_store.hpp"
#include "kiv/platform/traffic_counter.hpp"
#include "platform/defaults/sqlite_user_defaults.hpp"
#include "platform/secure_store/sqlite_secure_store.hpp"
#include "platform/secure_store/store_database.hpp"

struct kiv_sdk {
  std::shared_ptr<kiv::KivFaceLivenessLiteSDK> facade;
  std::shared_ptr<kiv::c_api::CDelegate> delegate;
  // Expires when the handle is destroyed, for starts queued on the loop.
  std::shared_ptr<int> lifetime = std::make_shared<int>(0);
};

namespace kiv::c_api {
namespace {

// The SDK's lines, to the standard output until the host hands them
// elsewhere.
class HandlerConsole final : public Console {
 public:
  // Lines waiting beyond this many are dropped.
  static constexpr std::size_t kMaximumWaiting = 1024;

  explicit HandlerConsole(std::shared_ptr<Console> fallback) : fallback_(std::move(fallback)) {}

  // Once it returns the previous handler is not running and is never called
  // again (unless it is the caller: a handler may replace itself).
  void route(kiv_log_handler handler, void* userData) {
    std::unique_lock lock(mutex_);
    routed_ = true;
    handler_ = handler;
    userData_ = userData;
    if (deliverer_ != std::this_thread::get_id()) callEnded_.wait(lock, [this] { return !inCall_; });
  }

  void writeLine(std::string_view line) override {
    std::unique_lock lock(mutex_);
    if (!routed_) {
      lock.unlock();
      return fallback_->writeLine(line);
    }
    if (handler_ == nullptr || waiting_.size() >= kMaximumWaiting) return;
    waiting_.emplace_back(line);
    if (delivering_) return;  // the deliverer takes it, after the line in hand
    delivering_ = true;
    deliverer_ = std::this_thread::get_id();
    while (!waiting_.empty() && handler_ != nullptr) {
      const std::string text = std::move(waiting_.front());
      waiting_.pop_front();
      const auto handler = handler_;
      void* const userData = userData_;
      inCall_ = true;
      lock.unlock();
      handler(userData, text.c_str());
      lock.lock();
      inCall_ = false;
      callEnded_.notify_all();
    }
    waiting_.clear();  // what a NULL handler would have dropped
    delivering_ = false;
    deliverer_ = std::thread::id{};
  }

 private:
  std::mutex mutex_;
  std::condition_variable callEnded_;
  std::shared_ptr<Console> fallback_;
  bool routed_ = false;
  kiv_log_handler handler_ = nullptr;
  void* userData_ = nullptr;
  std::deque<std::string> waiting_;
  bool delivering_ = false;
  bool inCall_ = false;
  std::thread::id deliverer_;
};

// What the C layer keeps of the platform it installed.
struct CPlatform {
  std::shared_ptr<MainLoop> loop;  // null when the main queue is not one the SDK runs
  std::shared_ptr<HandlerConsole> console;
  std::shared_ptr<TrafficCounter> traffic;
};

// What a host lent before the platform was made.
struct HostServices {
  std::optional<kiv_main_queue> mainQueue;
  std::optional<kiv_capture_vendor> vendor;
  std::optional<kiv_camera> camera;
  std::optional<ItemKey> storeKey;
};

struct ProcessState {
  std::mutex mutex;
  std::optional<std::filesystem::path> dataDirectory;
  HostServices lent;
  kiv_presentation presentation{};  // all NULL until lent
  std::optional<CPlatform> installed;
  std::atomic<bool> loopRunning{false};
};

ProcessState& state() {
  static NoDestructor<ProcessState> instance;
  return *instance;
}

// Installs the platform on first use: the bundle installed so far (the
// Linux one unless a C++ caller or the testing library installed another),
// with the storage of the data directory, the log handler's console and the
// traffic counter that tells when background work is done.
CPlatform ensurePlatform() {
  auto& s = state();
  std::lock_guard lock(s.mutex);
  if (s.installed) return *s.installed;
  Platform bundle = *platform();
  if (s.lent.storeKey) {
    bundle.secureStore =
        std::make_shared<SqliteSecureStore>(std::make_shared<StoreDatabase>(s.dataDirectory, s.lent.storeKey));
    bundle.defaults =
        std::make_shared<SqliteUserDefaults>(std::make_shared<StoreDatabase>(s.dataDirectory, s.lent.storeKey));
  } else if (s.dataDirectory) {
    bundle.secureStore = makeLinuxSecureStore(s.dataDirectory);
    bundle.defaults = makeLinuxUserDefaults(s.dataDirectory);
  }
  if (s.dataDirectory) bundle.crash = makeLinuxCrashPrimitives(s.dataDirectory);
  if (s.lent.mainQueue) bundle.mainQueue = makeHostMainQueue(*s.lent.mainQueue);
  if (s.lent.vendor) bundle.capture = makeHostCaptureVendor(*s.lent.vendor);
  if (s.lent.camera) bundle.camera = makeHostCamera(*s.lent.camera);
  CPlatform made{std::dynamic_pointer_cast<MainLoop>(bundle.mainQueue),
                 std::make_shared<HandlerConsole>(bundle.console), std::make_shared<TrafficCounter>()};
  bundle.http = made.traffic->wrap(bundle.http);
  bundle.taskPool = made.traffic->wrap(bundle.taskPool);
  bundle.console = made.console;
  installPlatform(std::move(bundle));
  s.installed = made;
  return made;
}

std::shared_ptr<MainQueue> mainQueue() {
  ensurePlatform();
  return platform()->mainQueue;
}

bool onMainThread() { return mainQueue()->isCurrent(); }

// A required text: present and well-formed.
kiv_status checkText(const char* text) {
  if (text == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return unicode::isValidUtf8(text) ? KIV_OK : KIV_ERROR_INVALID_UTF8;
}

// An optional text: NULL is fine.
kiv_status checkOptionalText(const char* text) { return text == nullptr ? KIV_OK : checkText(text); }

std::optional<std::string> optionalText(const char* text) {
  return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

std::optional<KivEnvironment> environmentOf(kiv_environment environment) {
  return fromRawValue<KivEnvironment>(static_cast<int>(environment));
}

using SteadyClock = std::chrono::steady_clock;
constexpr double kSettlePoll = 0.02;  // seconds between two looks at the traffic
constexpr auto kSettleBound = std::chrono::seconds(2);

// Looks at the traffic every kSettlePoll seconds on the main queue and runs
// `done` there once it was idle twice in a row (a chain of work never reads
// idle twice across a poll) or the bound passed.
void settle(const CPlatform& p, SteadyClock::time_point deadline, bool wasIdle, Task done) {
  const bool idle = p.traffic->idle();
  if ((idle && wasIdle) || SteadyClock::now() >= deadline) return done();
  platform()->mainQueue->postAfter(kSettlePoll, [p, deadline, idle, done = std::move(done)]() mutable {
    settle(p, deadline, idle, std::move(done));
  });
}

// Records a service lent by the host, unless the platform exists already.
template <typename Change>
kiv_status lend(Change&& change) {
  return guarded([&] {
    auto& s = state();
    std::lock_guard lock(s.mutex);
    if (s.installed) return KIV_ERROR_INVALID_STATE;
    change(s);
    return KIV_OK;
  });
}

struct TaskBox {
  kiv_task task;
  void* userData;
};

}  // namespace
}  // namespace kiv::c_api

using namespace kiv;
using namespace kiv::c_api;

extern "C" {

const char* kiv_status_name(kiv_status status) {
  switch (status) {
    case KIV_OK:
      return "KIV_OK";
    case KIV_ERROR_NULL_ARGUMENT:
      return "KIV_ERROR_NULL_ARGUMENT";
    case KIV_ERROR_INVALID_UTF8:
      return "KIV_ERROR_INVALID_UTF8";
    case KIV_ERROR_INVALID_ARGUMENT:
      return "KIV_ERROR_INVALID_ARGUMENT";
    case KIV_ERROR_WRONG_THREAD:
      return "KIV_ERROR_WRONG_THREAD";
    case KIV_ERROR_INVALID_STATE:
      return "KIV_ERROR_INVALID_STATE";
    case KIV_ERROR_INTERNAL:
      return "KIV_ERROR_INTERNAL";
  }
  return "unknown";
}

kiv_status kiv_run_main_loop(void) {
  return guarded([] {
    auto loop = ensurePlatform().loop;
    if (!loop) return KIV_ERROR_INVALID_STATE;
    bool expected = false;
    if (!state().loopRunning.compare_exchange_strong(expected, true)) return KIV_ERROR_INVALID_STATE;
    struct Reset {
      ~Reset() { state().loopRunning = false; }
    } reset;
    loop->run();
    return KIV_OK;
  });
}

kiv_status kiv_stop_main_loop(void) {
  return guarded([] {
    auto loop = ensurePlatform().loop;
    if (!loop) return KIV_ERROR_INVALID_STATE;
    loop->stop();
    return KIV_OK;
  });
}

kiv_status kiv_post_to_main_loop(kiv_task task, void* user_data) {
  if (task == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return guarded([&] {
    mainQueue()->post([box = TaskBox{task, user_data}] { box.task(box.userData); });
    return KIV_OK;
  });
}

kiv_status kiv_wait_for_background_work(void) {
  return guarded([] {
    auto p = ensurePlatform();
    if (!p.loop) return KIV_ERROR_INVALID_STATE;
    if (p.loop->isCurrent()) return KIV_ERROR_WRONG_THREAD;
    bool expected = false;
    if (!state().loopRunning.compare_exchange_strong(expected, true)) return KIV_ERROR_INVALID_STATE;
    struct Reset {
      ~Reset() { state().loopRunning = false; }
    } reset;
    // Completions hand their follow-up work to the main loop, so it runs
    // while the traffic settles.
    auto settled = std::make_shared<bool>(false);
    p.loop->post([p, settled] {
      settle(p, SteadyClock::now() + kSettleBound, false, [p, settled] {
        *settled = true;
        p.loop->stop();
      });
    });
    // A stop left from before (or made by a task meanwhile) ends a run early;
    // the wait goes on until the traffic has settled.
    while (!*settled) p.loop->run();
    return KIV_OK;
  });
}

kiv_status kiv_on_background_work_done(kiv_task task, void* user_data) {
  if (task == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return guarded([&] {
    auto p = ensurePlatform();
    platform()->mainQueue->post([p, box = TaskBox{task, user_data}] {
      settle(p, SteadyClock::now() + kSettleBound, false, [box] { box.task(box.userData); });
    });
    return KIV_OK;
  });
}

kiv_status kiv_use_host_main_queue(const kiv_main_queue* queue) {
  if (queue == nullptr || queue->post == nullptr || queue->post_after == nullptr || queue->is_current == nullptr) {
    return KIV_ERROR_NULL_ARGUMENT;
  }
  return lend([&](ProcessState& s) { s.lent.mainQueue = *queue; });
}

kiv_status kiv_use_host_capture_vendor(const kiv_capture_vendor* vendor) {
  if (vendor == nullptr || vendor->launch == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return lend([&](ProcessState& s) { s.lent.vendor = *vendor; });
}

kiv_status kiv_use_host_camera(const kiv_camera* camera) {
  if (camera == nullptr || camera->status == nullptr || camera->request_access == nullptr) {
    return KIV_ERROR_NULL_ARGUMENT;
  }
  return lend([&](ProcessState& s) { s.lent.camera = *camera; });
}

kiv_status kiv_use_host_presentation(const kiv_presentation* presentation) {
  if (presentation == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return lend([&](ProcessState& s) { s.presentation = *presentation; });
}

kiv_status kiv_set_secure_store_key(const unsigned char* key, size_t length) {
  if (key == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  if (length != kItemKeySize) return KIV_ERROR_INVALID_ARGUMENT;
  return lend([&](ProcessState& s) {
    s.lent.storeKey = ItemKey(std::span<const std::uint8_t, kItemKeySize>(key, kItemKeySize));
  });
}

kiv_status kiv_set_data_directory(const char* path) {
  if (auto status = checkText(path); status != KIV_OK) return status;
  if (*path == '\0') return KIV_ERROR_INVALID_ARGUMENT;
  return guarded([&] {
    auto& s = state();
    std::lock_guard lock(s.mutex);
    if (s.installed) return KIV_ERROR_INVALID_STATE;
    s.dataDirectory = std::filesystem::path(path);
    return KIV_OK;
  });
}

kiv_status kiv_set_backend_root_url(kiv_environment environment, const char* url) {
  if (auto status = checkText(url); status != KIV_OK) return status;
  auto env = environmentOf(environment);
  if (!env) return KIV_ERROR_INVALID_ARGUMENT;
  return guarded([&] { return setBackendRootURL(*env, url) ? KIV_OK : KIV_ERROR_INVALID_ARGUMENT; });
}

kiv_status kiv_post_application_did_enter_background(void) {
  return guarded([] {
    ensurePlatform();
    platform()->notifications->post(kApplicationDidEnterBackgroundNotification);
    return KIV_OK;
  });
}

kiv_status kiv_set_log_handler(kiv_log_handler handler, void* user_data) {
  return guarded([&] {
    ensurePlatform().console->route(handler, user_data);
    return KIV_OK;
  });
}

kiv_status kiv_sdk_create(kiv_sdk** out_sdk) {
  if (out_sdk == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return guarded([&] {
    if (!onMainThread()) return KIV_ERROR_WRONG_THREAD;
    auto handle = std::make_unique<kiv_sdk>();
    handle->facade = KivFaceLivenessLiteSDK::make();
    *out_sdk = handle.release();
    return KIV_OK;
  });
}

kiv_status kiv_sdk_destroy(kiv_sdk* sdk) {
  if (sdk == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return guarded([&] {
    if (!onMainThread()) return KIV_ERROR_WRONG_THREAD;
    std::unique_ptr<kiv_sdk> handle(sdk);
    if (handle->delegate) handle->delegate->detach();
    if (CDelegate::insideCall()) {
      // The facade is the caller of this delegate call: it is released once
      // the call has unwound, never under its own feet.
      mainQueue()->post([facade = std::move(handle->facade), delegate = std::move(handle->delegate)] {});
    }
    return KIV_OK;
  });
}

kiv_status kiv_sdk_set_delegate(kiv_sdk* sdk, const kiv_delegate* delegate) {
  if (sdk == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return guarded([&] {
    if (!onMainThread()) return KIV_ERROR_WRONG_THREAD;
    // The old adapter stays alive for a run that heard it; it just stops
    // forwarding once the host's user_data may be gone.
    if (sdk->delegate) sdk->delegate->detach();
    sdk->delegate = delegate == nullptr ? nullptr : std::make_shared<CDelegate>(*delegate);
    sdk->facade->setDelegate(sdk->delegate);
    return KIV_OK;
  });
}

kiv_status kiv_sdk_setup(kiv_sdk* sdk, const char* mobile_token, const char* person_id, const char* custom_localization,
                         const char* localization_bundle_dir, const char* ui_customization_json,
                         kiv_environment environment, int loading) {
  if (sdk == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  for (auto status : {checkText(mobile_token), checkText(person_id), checkOptionalText(custom_localization),
                      checkOptionalText(localization_bundle_dir), checkOptionalText(ui_customization_json)}) {
    if (status != KIV_OK) return status;
  }
  auto env = environmentOf(environment);
  if (!env) return KIV_ERROR_INVALID_ARGUMENT;
  return guarded([&] {
    if (!onMainThread()) return KIV_ERROR_WRONG_THREAD;
    std::optional<DorvinUiCustomization> look;
    if (ui_customization_json != nullptr) {
      auto parsed = parseUiCustomization(ui_customization_json);
      if (!parsed) return KIV_ERROR_INVALID_ARGUMENT;
      look = std::move(*parsed);
    }
    ResourceBundleRef bundle =
        localization_bundle_dir == nullptr ? nullptr : ResourceBundle::make(localization_bundle_dir);
    sdk->facade->setup(mobile_token, person_id, optionalText(custom_localization), std::move(bundle), std::move(look),
                       *env, loading != 0);
    return KIV_OK;
  });
}

kiv_status kiv_sdk_prewarm(kiv_sdk* sdk) {
  if (sdk == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return guarded([&] {
    sdk->facade->prewarm();
    return KIV_OK;
  });
}

kiv_status kiv_sdk_start(kiv_sdk* sdk) {
  if (sdk == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return guarded([&] {
    if (!onMainThread()) return KIV_ERROR_WRONG_THREAD;
    // The facade would only print a line; a C host hears it as a status.
    if (KivSDKStateManager::shared().isRunning()) return KIV_ERROR_INVALID_STATE;
    sdk->facade->startSDK(platform()->ui->makeViewController());
    return KIV_OK;
  });
}

kiv_status kiv_sdk_post_start(kiv_sdk* sdk) {
  if (sdk == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return guarded([&] {
    mainQueue()->post([facade = std::weak_ptr(sdk->facade), handle = std::weak_ptr(sdk->lifetime)] {
      const auto live = facade.lock();
      if (handle.expired() || !live) return;
      live->startSDK(platform()->ui->makeViewController());
    });
    return KIV_OK;
  });
}

kiv_status kiv_sdk_start_over(kiv_sdk* sdk, void* host_view) {
  if (sdk == nullptr || host_view == nullptr) return KIV_ERROR_NULL_ARGUMENT;
  return guarded([&] {
    if (!onMainThread()) return KIV_ERROR_WRONG_THREAD;
    if (KivSDKStateManager::shared().isRunning()) return KIV_ERROR_INVALID_STATE;
    kiv_presentation presentation;
    {
      std::lock_guard lock(state().mutex);
      presentation = state().presentation;
    }
    sdk->facade->startSDK(makeHostViewController(presentation, host_view));
    return KIV_OK;
  });
}

}  // extern "C"
