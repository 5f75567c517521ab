#include "sandbox/mobile_token.hpp"

#include <nlohmann/json.hpp>

namespace kiv::sandbox {
namespace {

constexpr std::string_view kSupplierName = "iproov";
constexpr std::string_view kSupplierProduct = "liveness";
constexpr std::string_view kBearer = "Bearer ";

}  // namespace

std::string mintMobileToken(std::string_view issuer, const std::optional<std::string>& serviceLocation,
                            const SigningKey& key) {
  nlohmann::ordered_json supplier{{"name", kSupplierName}, {"product", kSupplierProduct}};
  if (serviceLocation) supplier["serviceLocation"] = *serviceLocation;
  const nlohmann::ordered_json payload{{"iss", issuer},
                                       {"extraSettings", {{"liveness", {{"supplier", std::move(supplier)}}}}}};
  return signCompactJws(payload.dump(), key);
}

std::string mintMobileToken(std::string_view issuer, const std::optional<std::string>& serviceLocation) {
  return mintMobileToken(issuer, serviceLocation, SigningKey::generate());
}

std::optional<std::string> tokenIssuer(std::string_view token) {
  if (token.starts_with(kBearer)) token.remove_prefix(kBearer.size());
  const auto firstDot = token.find('.');
  const auto lastDot = token.rfind('.');
  if (firstDot == std::string_view::npos || firstDot == lastDot) return std::nullopt;
  const auto payload = base64Decode(token.substr(firstDot + 1, lastDot - firstDot - 1));
  if (!payload) return std::nullopt;
  const auto claims = nlohmann::json::parse(*payload, nullptr, false);
  if (!claims.is_object() || !claims.contains("iss") || !claims["iss"].is_string()) return std::nullopt;
  return claims["iss"].get<std::string>();
}

}  // namespace kiv::sandbox
