// Opens the window stage from the window module (kivfll-window.so beside
// the program), loaded the first time a command asks for a window: the
// commands without one (run, demo, sandbox, ...) start without GTK.
#include <dlfcn.h>

#include <filesystem>

#include "window_stage.hpp"

namespace kiv::cli {
namespace {

struct WindowModule {
  decltype(&kivfll_window_open) open = nullptr;
  decltype(&kivfll_window_written) written = nullptr;
};

const std::expected<WindowModule, std::string>& windowModule() {
  // Never unloaded: GTK cannot be.
  static const auto module = []() -> std::expected<WindowModule, std::string> {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    const auto path = program.parent_path() / "kivfll-window.so";
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) return std::unexpected("cannot load the window module: " + std::string(::dlerror()));
    WindowModule found{reinterpret_cast<decltype(&kivfll_window_open)>(::dlsym(handle, "kivfll_window_open")),
                       reinterpret_cast<decltype(&kivfll_window_written)>(::dlsym(handle, "kivfll_window_written"))};
    if (!found.open || !found.written)
      return std::unexpected("the window module " + path.string() + " is not this kivfll's");
    return found;
  }();
  return module;
}

}  // namespace

std::expected<std::shared_ptr<AttemptStage>, std::string> openWindowStage(WindowSettings settings) {
  const auto& module = windowModule();
  if (!module) return std::unexpected(module.error());
  return module->open(std::move(settings));
}

std::vector<std::filesystem::path> writtenScreens(const AttemptStage& stage) {
  const auto& module = windowModule();
  return module ? module->written(stage) : std::vector<std::filesystem::path>{};
}

}  // namespace kiv::cli
