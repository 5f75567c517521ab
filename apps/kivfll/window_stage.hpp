// The attempt in a GTK window: the host's page (a bank asking the person to
// confirm it is them), the SDK's loading view over it, the capture vendor's
// screen, and the outcome on the host's page. Built when GTK is installed.
//
//   auto stage = WindowStage::open({.screens = "docs/screens"});   // absent without a display
//   AttemptOptions options{..., .stage = *stage};
//
// With `screens` set it writes one PNG per stage of the attempt into that
// folder (host, loading, capture, outcome), drawn with
// animations frozen, and starts the attempt by itself; without it a person
// presses the host's button (or `autoStart` does).
#pragma once

#include <expected>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "attempt_host.hpp"
#include "kiv/platform/ui/image.hpp"

namespace kiv::cli {

struct WindowSettings {
  std::optional<std::filesystem::path> screens{};
  ImageRef gif{};            // shown in the SDK's GIF overlay over the outcome, as gif-overlay.png
  bool everyStatus = false;  // capture-<status>.png for every status, not capture.png at 50 %
  bool autoStart = true;
  double lingerSeconds = 1.5;  // how long the outcome stays up
  // Camera access through the desktop's camera portal (its prompt, for a
  // sandboxed app) rather than the attempt's fixed answer.
  bool portalCamera = false;
};

// The stage, or why there is none (no display to open a window on, no
// window module).
std::expected<std::shared_ptr<AttemptStage>, std::string> openWindowStage(WindowSettings settings);

// The PNGs written so far, in order.
std::vector<std::filesystem::path> writtenScreens(const AttemptStage& stage);

}  // namespace kiv::cli

// The same two in the window module (window_stage.cpp, built as
// kivfll-window.so), which the program loads when a command needs a window
// (window_module.cpp).
extern "C" {
std::expected<std::shared_ptr<kiv::cli::AttemptStage>, std::string> kivfll_window_open(
    kiv::cli::WindowSettings settings);
std::vector<std::filesystem::path> kivfll_window_written(const kiv::cli::AttemptStage& stage);
}
