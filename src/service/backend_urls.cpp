#include "service/backend_urls.hpp"

#include <array>
#include <optional>
#include <string_view>

#include "base/no_destructor.hpp"
#include "base/process_state.hpp"
#include "platform/http/url.hpp"

namespace kiv {
namespace {

// Set at configuration time (cmake -DKIV_BACKEND_ROOT_PROD=...).
constexpr std::string_view kCompiledRoots[] = {KIV_BACKEND_ROOT_DEV, KIV_BACKEND_ROOT_BETA, KIV_BACKEND_ROOT_PROD};
static_assert(std::string_view(KIV_BACKEND_ROOT_DEV).ends_with('/'), "KIV_BACKEND_ROOT_DEV must end in /");
static_assert(std::string_view(KIV_BACKEND_ROOT_BETA).ends_with('/'), "KIV_BACKEND_ROOT_BETA must end in /");
static_assert(std::string_view(KIV_BACKEND_ROOT_PROD).ends_with('/'), "KIV_BACKEND_ROOT_PROD must end in /");

constexpr std::string_view kBffPath = "bff/";

std::size_t indexOf(KivEnvironment environment) {
  switch (environment) {
    case KivEnvironment::dev:
      return 0;
    case KivEnvironment::beta:
      return 1;
    case KivEnvironment::prod:
      break;
  }
  return 2;
}

using Roots = std::array<std::optional<std::string>, 3>;

ProcessSlot<Roots>& overrides() {
  static NoDestructor<ProcessSlot<Roots>> instance;
  return *instance;
}

void setOverride(KivEnvironment environment, std::optional<std::string> root) {
  overrides().update([&](Roots& roots) { roots[indexOf(environment)] = std::move(root); });
}

}  // namespace

bool setBackendRootURL(KivEnvironment environment, std::string_view rootURL) {
  // Paths are appended to the root as text, so a query or fragment in it
  // would swallow them.
  if (!url::isHttp(rootURL) || url::parse(rootURL)->query || rootURL.find('#') != std::string_view::npos) return false;
  std::string root(rootURL);
  if (!root.ends_with('/')) root += '/';
  setOverride(environment, std::move(root));
  return true;
}

void resetBackendRootURL(KivEnvironment environment) { setOverride(environment, std::nullopt); }

std::string backendRootURL(KivEnvironment environment) {
  const auto index = indexOf(environment);
  return overrides().update(
      [&](const Roots& roots) { return roots[index].value_or(std::string(kCompiledRoots[index])); });
}

std::string analyticsBaseURL(KivEnvironment environment) { return backendRootURL(environment) + std::string(kBffPath); }

}  // namespace kiv
