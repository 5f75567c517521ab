// A device-integrity service for attempt tests: clean unless told, and the
// running monitor's callback in the test's hands.
//
//   integrity->atStart = "debugger attached";       // check() reports it
//   integrity->report("agent mapped");               // as the monitor would
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "kiv/platform/device_integrity.hpp"

namespace kiv::testing {

class ScriptedIntegrity final : public DeviceIntegrity {
 public:
  std::optional<std::string> atStart;
  std::function<void(std::string)> report;  // the running monitor's callback
  int stops = 0;

  std::optional<std::string> check() override { return atStart; }
  std::shared_ptr<DeviceIntegrityMonitor> startMonitor(std::function<void(std::string)> onViolation) override {
    report = std::move(onViolation);
    return std::make_shared<Monitor>(*this);
  }

 private:
  struct Monitor final : DeviceIntegrityMonitor {
    explicit Monitor(ScriptedIntegrity& integrity) : owner(integrity) {}
    void stop() override { ++owner.stops; }
    ScriptedIntegrity& owner;
  };
};

}  // namespace kiv::testing
