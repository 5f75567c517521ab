// What every view toolkit must do, whatever draws it: one set of tests that
// the headless toolkit (tests/platform) and the GTK toolkit (tests/gtk) both
// run. Each executable instantiates ViewToolkitContract with a factory of
// its toolkit, installed on the platform with a current main queue:
//
//   INSTANTIATE_TEST_SUITE_P(Headless, ViewToolkitContract,
//                            ::testing::Values(ToolkitUnderTest{"headless", [] { return ...; }}));
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>

#include "kiv/platform/ui/view_toolkit.hpp"

namespace kiv::testing {

// Installs a platform whose toolkit is the one under test for as long as it
// lives; the thread that makes it is the main thread.
class ToolkitHarness {
 public:
  virtual ~ToolkitHarness() = default;
  virtual ViewToolkit& ui() = 0;
  // Runs what the main queue holds, and lets the toolkit draw; afterwards
  // checks that what it shows matches `view`'s tree (nothing to check
  // headless).
  virtual void expectShown(View& /*view*/) {}
};

struct ToolkitUnderTest {
  const char* name;
  std::function<std::unique_ptr<ToolkitHarness>()> make;
};
inline void PrintTo(const ToolkitUnderTest& toolkit, std::ostream* os) { *os << toolkit.name; }

class ViewToolkitContract : public ::testing::TestWithParam<ToolkitUnderTest> {
 protected:
  void SetUp() override { harness_ = GetParam().make(); }
  void TearDown() override { harness_.reset(); }
  ViewToolkit& ui() { return harness_->ui(); }
  ToolkitHarness& harness() { return *harness_; }

 private:
  std::unique_ptr<ToolkitHarness> harness_;
};

}  // namespace kiv::testing
