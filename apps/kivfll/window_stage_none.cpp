// Without GTK there is no window to run an attempt in.
#include "window_stage.hpp"

namespace kiv::cli {

std::expected<std::shared_ptr<AttemptStage>, std::string> openWindowStage(WindowSettings) {
  return std::unexpected("this kivfll was built without GTK 4 (install libgtk-4-dev and libportal-gtk4-dev)");
}

std::vector<std::filesystem::path> writtenScreens(const AttemptStage&) { return {}; }

}  // namespace kiv::cli
