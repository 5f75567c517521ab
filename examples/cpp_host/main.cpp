// One liveness attempt from C++, through the facade of the installed package.
//
//   cpp_host BACKEND_URL MOBILE_TOKEN [PERSON_ID [CAPTURE_SCRIPT]]
//
// Prints how the attempt ended and exits 0 on success, 1 on a failure, 2 on
// an error and 3 when cancelled.
#include <iostream>
#include <memory>
#include <mutex>
#include <string>

#include "kiv/face_liveness_lite.hpp"
#include "kiv/testing/face_liveness_lite_testing.hpp"

namespace {

// The SDK's diagnostic lines, kept off the standard output.
class StderrConsole final : public kiv::Console {
 public:
  void writeLine(std::string_view line) override {
    std::lock_guard lock(mutex_);
    std::cerr << line << '\n';
  }

 private:
  std::mutex mutex_;
};

class PrintingDelegate final : public kiv::KivFaceLivenessLiteDelegate {
 public:
  explicit PrintingDelegate(std::shared_ptr<kiv::MainLoop> loop) : loop_(std::move(loop)) {}
  int exitCode = 2;

  void didFinishWithSuccess(const kiv::KivFaceLivenessLiteResult& result) override {
    std::cout << "success " << result.signedResponse().value_or("") << "\n";
    end(0);
  }
  void didFinishWithFailure(kiv::KivFailureType type, const std::optional<std::string>& description,
                            const std::optional<std::string>&) override {
    std::cout << "failure " << kiv::rawValue(type) << ": " << description.value_or("") << "\n";
    end(1);
  }
  void didFinishWithError(kiv::KivErrorType type, const std::string& description) override {
    std::cout << "error " << kiv::rawValue(type) << ": " << description << "\n";
    end(2);
  }
  void cancelled() override {
    std::cout << "cancelled\n";
    end(3);
  }
  void loading() override {}
  void loaded() override {}

 private:
  void end(int code) {
    exitCode = code;
    loop_->stop();
  }
  std::shared_ptr<kiv::MainLoop> loop_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3 || argc > 5) {
    std::cerr << "usage: cpp_host BACKEND_URL MOBILE_TOKEN [PERSON_ID [CAPTURE_SCRIPT]]\n";
    return 64;
  }
  const std::string token = argv[2];
  const std::string person = argc > 3 ? argv[3] : "person-1";

  auto bundle = kiv::makeLinuxPlatform();
  auto loop = std::static_pointer_cast<kiv::MainLoop>(bundle.mainQueue);
  bundle.console = std::make_shared<StderrConsole>();
  // A kiosk decides itself; a phone host asks the user first.
  bundle.camera = std::make_shared<kiv::FixedCameraAuthorization>(kiv::CameraAuthorizationStatus::authorized);
  if (argc > 4) {
    auto script = kiv::CaptureScript::parse(argv[4]);
    if (!script) {
      std::cerr << "cpp_host: " << script.error() << "\n";
      return 64;
    }
    bundle.capture = std::make_shared<kiv::SimulatedCaptureVendor>(*script);
  }
  kiv::installPlatform(bundle);
  if (!kiv::setBackendRootURL(kiv::KivEnvironment::dev, argv[1])) {
    std::cerr << "cpp_host: not a backend URL: " << argv[1] << "\n";
    return 64;
  }

  auto delegate = std::make_shared<PrintingDelegate>(loop);
  std::shared_ptr<kiv::KivFaceLivenessLiteSDK> sdk;
  // isCurrent() is false until run() starts, so the first calls are posted.
  loop->post([&] {
    sdk = kiv::KivFaceLivenessLiteSDK::make();
    sdk->setDelegate(delegate);
    sdk->setup(token, person, std::nullopt, nullptr, std::nullopt, kiv::KivEnvironment::dev, true);
    sdk->startSDK(kiv::platform()->ui->makeViewController());
  });
  loop->run();
  loop->post([&] { sdk.reset(); });  // released on the main thread, like every facade call
  loop->post([&] { loop->stop(); });
  loop->run();
  kiv::platform()->taskPool->waitIdle();  // the attempt's analytics posts
  return delegate->exitCode;
}
