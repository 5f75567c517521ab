#include "kiv/testing/simulated_capture_vendor.hpp"

#include <atomic>
#include <thread>
#include <utility>

#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"

namespace kiv {
namespace {

CaptureScript defaultScript() {
  auto script = CaptureScript::parse(SimulatedCaptureVendor::kDefaultScript);
  return script ? std::move(*script) : CaptureScript{};
}

// One capture playing its script. The player (which step is next, the
// screen) runs on the main queue; a status travels through the vendor's own
// queue and reaches the callback there or back on the main queue, and the
// next step follows once it was delivered.
class ScriptedRun final : public CaptureRun, public std::enable_shared_from_this<ScriptedRun> {
 public:
  using Report = CaptureScript::Report;

  ScriptedRun(CaptureScript script, std::weak_ptr<IProovPresentationDelegate> delegate, StatusCallback callback)
      : script_(std::move(script)),
        delegate_(std::move(delegate)),
        callback_(std::move(callback)),
        main_(platform()->mainQueue),
        queue_(platform()->taskPool->makeSerialQueue(std::string(SimulatedCaptureVendor::kQueueLabel))) {}

  // Inside launch(), on the main thread: the leading sync statuses reach the
  // callback now; the rest of the capture starts from the main queue.
  void start() {
    while (next_ < script_.steps.size()) {
      const auto* report = std::get_if<Report>(&script_.steps[next_]);
      if (!report || !report->sync) break;
      ++next_;
      deliver(*report);
    }
    if (auto main = main_.lock()) {
      main->post([self = shared_from_this()] {
        self->presentScreen();
        self->proceed();
      });
    }
  }

  void cancel() override {
    if (cancelled_.exchange(true)) return;
    {
      std::lock_guard lock(mutex_);
      pause_.cancel();
    }
    // A status being delivered on another thread finishes before cancel()
    // returns; none starts after (forced ones aside).
    if (deliveringThread_.load() != std::this_thread::get_id()) std::lock_guard wait(deliveryMutex_);
    auto main = main_.lock();
    if (!main) return;
    auto cancelled = [self = shared_from_this()] { self->onCancelled(); };
    if (main->isCurrent()) {
      cancelled();
    } else {
      main->post(std::move(cancelled));
    }
  }

 private:
  void presentScreen() {
    // After a final status inside launch() the capture never started.
    if (cancelled_.load() || ended_.load()) return;
    auto ui = platform()->ui;
    auto delegate = delegate_.lock();
    if (!ui || !delegate) return;  // nowhere to show it; the capture runs unseen
    controller_ = ui->makeViewController();
    delegate->present(controller_, {});
  }

  void takeScreenDown() {
    if (!controller_ || tookScreenDown_) return;
    tookScreenDown_ = true;
    if (auto delegate = delegate_.lock()) {
      delegate->dismiss(controller_, {});
    } else {
      controller_->dismiss(false, {});
    }
  }

  // Main queue, after cancel(): the screen goes down, and a cancelled pause
  // no longer holds back the forced statuses behind it.
  void onCancelled() {
    takeScreenDown();
    if (pausing_) {
      pausing_ = false;
      proceed();
    }
  }

  // Plays steps until one has to wait (a pause or a status on its way). Once
  // cancelled, only forced statuses are played.
  void proceed() {
    while (next_ < script_.steps.size()) {
      const auto& step = script_.steps[next_++];
      const bool cancelled = cancelled_.load();
      if (const auto* pause = std::get_if<CaptureScript::Wait>(&step)) {
        auto main = main_.lock();
        if (cancelled || !main) continue;
        std::lock_guard lock(mutex_);
        if (cancelled_.load()) continue;  // cancel() ran since: it did not see this pause
        pausing_ = true;
        pause_ = main->postAfter(pause->seconds, [self = shared_from_this()] {
          self->pausing_ = false;
          self->proceed();
        });
        return;
      }
      if (const auto* deliver = std::get_if<CaptureScript::Deliver>(&step)) {
        onVendorThread_ = deliver->thread == CaptureScript::Thread::vendor;
        continue;
      }
      if (std::holds_alternative<CaptureScript::Dismiss>(step)) {
        if (!cancelled) takeScreenDown();
        continue;
      }
      const auto& report = std::get<Report>(step);
      if (cancelled && !report.evenIfCancelled) continue;
      send(report);
      return;
    }
    if (ended_.load() && script_.dismissAtEnd && !cancelled_.load()) takeScreenDown();
  }

  // The status leaves from the vendor's own queue, as a real vendor's
  // statuses come from its capture threads.
  void send(const Report& report) {
    queue_->post([self = shared_from_this(), report, onVendorThread = onVendorThread_] {
      auto main = self->main_.lock();
      if (onVendorThread) {
        self->deliver(report);
        if (main) main->post([self] { self->proceed(); });
      } else if (main) {
        main->post([self, report] {
          self->deliver(report);
          self->proceed();
        });
      }
    });
  }

  // Any thread.
  void deliver(const Report& report) {
    std::lock_guard lock(deliveryMutex_);
    if (cancelled_.load() && !report.evenIfCancelled) return;
    if (report.status.isFinal()) ended_.store(true);
    deliveringThread_.store(std::this_thread::get_id());
    callback_(report.status);  // may cancel this run
    deliveringThread_.store(std::thread::id{});
  }

  const CaptureScript script_;
  const std::weak_ptr<IProovPresentationDelegate> delegate_;
  const StatusCallback callback_;
  const std::weak_ptr<MainQueue> main_;
  const std::shared_ptr<SerialQueue> queue_;

  std::atomic<bool> cancelled_{false};
  std::atomic<bool> ended_{false};  // a final status was delivered
  std::mutex mutex_;
  DelayedTaskHandle pause_;   // guarded by mutex_
  std::mutex deliveryMutex_;  // held while the callback runs
  std::atomic<std::thread::id> deliveringThread_{};

  // Main queue only.
  std::size_t next_ = 0;
  bool pausing_ = false;
  bool onVendorThread_ = false;
  std::shared_ptr<ViewController> controller_;
  bool tookScreenDown_ = false;
};

}  // namespace

SimulatedCaptureVendor::SimulatedCaptureVendor() : script_(defaultScript()) {}

SimulatedCaptureVendor::SimulatedCaptureVendor(CaptureScript script) : script_(std::move(script)) {}

void SimulatedCaptureVendor::setScript(CaptureScript script) {
  std::lock_guard lock(mutex_);
  script_ = std::move(script);
}

void SimulatedCaptureVendor::keepLaunches(bool keep) {
  std::lock_guard lock(mutex_);
  keepLaunches_ = keep;
  if (!keep) launches_.clear();
}

std::vector<SimulatedCaptureVendor::Launch> SimulatedCaptureVendor::launches() const {
  std::lock_guard lock(mutex_);
  return launches_;
}

std::shared_ptr<CaptureRun> SimulatedCaptureVendor::launch(std::string streamingURL, std::string token, Options options,
                                                           StatusCallback callback) {
  std::shared_ptr<ScriptedRun> run;
  {
    std::lock_guard lock(mutex_);
    run = std::make_shared<ScriptedRun>(script_, options.presentationDelegate, std::move(callback));
    if (keepLaunches_) launches_.push_back(Launch{std::move(streamingURL), std::move(token), std::move(options)});
  }
  // A capture keeps running when its caller drops the session, as the
  // vendor's would: each step it waits for (a pause, a status on its way)
  // holds it, and once the last one has run nothing does.
  run->start();
  return run;
}

}  // namespace kiv
