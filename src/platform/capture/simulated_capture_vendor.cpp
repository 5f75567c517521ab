#include "platform/capture/simulated_capture_vendor.hpp"

#include <atomic>
#include <utility>

#include "kiv/platform/platform.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"

namespace kiv {
namespace {

CaptureScript defaultScript() {
  auto script = CaptureScript::parse(SimulatedCaptureVendor::kDefaultScript);
  return script ? std::move(*script) : CaptureScript{};
}

// One capture playing its script. Everything but cancel() and isOver() runs
// on the main queue.
class ScriptedRun final : public CaptureRun, public std::enable_shared_from_this<ScriptedRun> {
 public:
  ScriptedRun(std::vector<CaptureScript::Step> steps, std::weak_ptr<IProovPresentationDelegate> delegate,
              StatusCallback callback)
      : steps_(std::move(steps)),
        delegate_(std::move(delegate)),
        callback_(std::move(callback)),
        main_(platform()->mainQueue),
        queue_(platform()->taskPool->makeSerialQueue(std::string(SimulatedCaptureVendor::kQueueLabel))) {}

  void start() {
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
    auto main = main_.lock();
    if (!main) return;
    auto takeDown = [self = shared_from_this()] { self->takeScreenDown(); };
    if (main->isCurrent()) {
      takeDown();
    } else {
      main->post(std::move(takeDown));
    }
  }

  // Nothing more will happen: the vendor may forget it.
  bool isOver() const { return cancelled_.load() || finished_.load(); }

 private:
  void presentScreen() {
    if (cancelled_.load()) return;
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

  // Plays the next step.
  void proceed() {
    if (cancelled_.load()) return;
    if (next_ == steps_.size()) {
      if (ended_) {
        takeScreenDown();
        finished_.store(true);
      }
      return;
    }
    const auto& step = steps_[next_++];
    if (const auto* pause = std::get_if<CaptureScript::Wait>(&step)) {
      auto main = main_.lock();
      if (!main) return;
      std::lock_guard lock(mutex_);
      pause_ = main->postAfter(pause->seconds, [self = shared_from_this()] { self->proceed(); });
      return;
    }
    // The status leaves from the vendor's own queue, as a real vendor's
    // statuses come from its capture threads.
    queue_->post([weak = weak_from_this(), status = std::get<Status>(step)] {
      auto self = weak.lock();
      if (!self || self->cancelled_.load()) return;
      if (auto main = self->main_.lock()) main->post([self, status] { self->deliver(status); });
    });
  }

  void deliver(const Status& status) {
    if (cancelled_.load()) return;
    if (status.isFinal()) ended_ = true;
    callback_(status);  // may cancel this run
    proceed();
  }

  const std::vector<CaptureScript::Step> steps_;
  const std::weak_ptr<IProovPresentationDelegate> delegate_;
  const StatusCallback callback_;
  const std::weak_ptr<MainQueue> main_;
  const std::shared_ptr<SerialQueue> queue_;

  std::atomic<bool> cancelled_{false};
  std::atomic<bool> finished_{false};
  std::mutex mutex_;
  DelayedTaskHandle pause_;  // guarded by mutex_

  // Main queue only.
  std::size_t next_ = 0;
  bool ended_ = false;  // the final status was delivered
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

std::vector<SimulatedCaptureVendor::Launch> SimulatedCaptureVendor::launches() const {
  std::lock_guard lock(mutex_);
  return launches_;
}

std::shared_ptr<CaptureRun> SimulatedCaptureVendor::launch(std::string streamingURL, std::string token, Options options,
                                                           StatusCallback callback) {
  std::shared_ptr<ScriptedRun> run;
  {
    std::lock_guard lock(mutex_);
    run = std::make_shared<ScriptedRun>(script_.steps, options.presentationDelegate, std::move(callback));
    launches_.push_back(Launch{std::move(streamingURL), std::move(token), std::move(options)});
    // A capture keeps running when its caller drops the session, as the
    // vendor's would: the vendor holds it until it is over.
    std::erase_if(runs_, [](const auto& held) { return std::static_pointer_cast<ScriptedRun>(held)->isOver(); });
    runs_.push_back(run);
  }
  run->start();
  return run;
}

}  // namespace kiv
