#include "service/jwt_decoder.hpp"
#include "base/text.hpp"
#include "platform/console/debug_line.hpp"

#include <array>
#include <expected>
#include <utility>

#include "base/json.hpp"
#include "base/unicode_text.hpp"
#include "kiv/platform/console.hpp"
#include "kiv/platform/platform.hpp"

namespace kiv {
namespace {

constexpr std::string_view kInvalidTokenLine = "Invalid JWT token";
constexpr std::string_view kUndecodablePayloadLine = "Failed to decode payload";
constexpr std::string_view kUnparsablePayloadLine = "Failed to parse JSON payload";
constexpr std::string_view kIssuerMissingLine = "Issuer (iss) claim not found in the token";

constexpr std::string_view kIssuerKey = "iss";
constexpr std::string_view kExtraSettingsKey = "extraSettings";
constexpr std::string_view kLivenessKey = "liveness";
constexpr std::string_view kSupplierKey = "supplier";
constexpr std::string_view kNameKey = "name";
constexpr std::string_view kProductKey = "product";
constexpr std::string_view kServiceLocationKey = "serviceLocation";

// The payload records the supplier read decodes; every other key of the
// payload is ignored.
struct Supplier {
  std::string name;
  std::string product;
  std::optional<std::string> serviceLocation;
};
struct Liveness {
  Supplier supplier;
};
struct ExtraSettings {
  Liveness liveness;
};
struct JWTPayload {
  std::optional<ExtraSettings> extraSettings;
};

template <typename T>
using Decoded = std::expected<T, json::FieldError>;

json::FieldError missing(std::string_view key) { return {std::string(key), "required field missing"}; }

template <typename T>
Decoded<T> required(json::Field<T> field, std::string_view key) {
  if (!field) return std::unexpected(std::move(field.error()));
  if (!*field) return std::unexpected(missing(key));
  return std::move(**field);
}

Decoded<Supplier> decodeSupplier(const Json& object) {
  auto name = required(json::optionalString(object, kNameKey), kNameKey);
  if (!name) return std::unexpected(name.error());
  auto product = required(json::optionalString(object, kProductKey), kProductKey);
  if (!product) return std::unexpected(product.error());
  auto serviceLocation = json::optionalString(object, kServiceLocationKey);
  if (!serviceLocation) return std::unexpected(serviceLocation.error());
  return Supplier{std::move(*name), std::move(*product), std::move(*serviceLocation)};
}

Decoded<JWTPayload> decodePayload(const Json& payload) {
  if (!payload.is_object()) return std::unexpected(json::FieldError{"", "expected object"});
  auto extraSettings = json::optionalObject(payload, kExtraSettingsKey);
  if (!extraSettings) return std::unexpected(extraSettings.error());
  if (!*extraSettings) return JWTPayload{};

  auto liveness = required(json::optionalObject(**extraSettings, kLivenessKey), kLivenessKey);
  if (!liveness) return std::unexpected(liveness.error());
  auto supplierObject = required(json::optionalObject(*liveness, kSupplierKey), kSupplierKey);
  if (!supplierObject) return std::unexpected(supplierObject.error());
  auto supplier = decodeSupplier(*supplierObject);
  if (!supplier) return std::unexpected(supplier.error());
  return JWTPayload{ExtraSettings{Liveness{std::move(*supplier)}}};
}

// The payload piece of a token split at every ".", empty pieces dropped, or
// absent unless there are exactly three pieces.
std::optional<std::string_view> payloadSegment(std::string_view token) {
  std::array<std::string_view, 3> pieces;
  std::size_t count = 0;
  std::size_t start = 0;
  while (start <= token.size()) {
    std::size_t dot = token.find('.', start);
    if (dot == std::string_view::npos) dot = token.size();
    if (dot > start) {
      if (count == pieces.size()) return std::nullopt;
      pieces[count++] = token.substr(start, dot - start);
    }
    start = dot + 1;
  }
  if (count != pieces.size()) return std::nullopt;
  return pieces[1];
}

// The token is host input of any size and shape: the payload is parsed
// straight into the SDK's Json, in linear time and with the depth bound, and
// never copied through a recursive conversion.
std::optional<Json> parsePayload(std::string_view bytes) { return json::parse(bytes); }

}  // namespace

std::optional<std::string> KivJWTDecoder::base64UrlDecode(std::string_view segment) {
  std::string base64(segment);
  for (char& c : base64) {
    if (c == '-') c = '+';
  }
  for (char& c : base64) {
    if (c == '_') c = '/';
  }
  if (const std::size_t remainder = base64.size() % 4; remainder != 0) base64.append(4 - remainder, '=');

  return base64Decoded(base64);
}

std::optional<std::string> KivJWTDecoder::issuer(std::string_view token) {
  const auto segment = payloadSegment(token);
  if (!segment) {
    printDebugLine(kInvalidTokenLine);
    return std::nullopt;
  }
  const auto bytes = base64UrlDecode(*segment);
  if (!bytes || !unicode::isValidUtf8(*bytes)) {
    printDebugLine(kUndecodablePayloadLine);
    return std::nullopt;
  }
  const auto payload = parsePayload(*bytes);
  if (!payload || !payload->is_object()) {
    printDebugLine(kUnparsablePayloadLine);
    return std::nullopt;
  }
  auto issuer = json::optionalString(*payload, kIssuerKey);
  if (!issuer || !*issuer) {
    printDebugLine(kIssuerMissingLine);
    return std::nullopt;
  }
  return std::move(**issuer);
}

std::optional<std::string> KivJWTDecoder::serviceLocation(std::string_view token) {
  const auto segment = payloadSegment(token);
  if (!segment) return std::nullopt;
  const auto bytes = base64UrlDecode(*segment);
  if (!bytes) return std::nullopt;
  const auto document = parsePayload(*bytes);
  if (!document) return std::nullopt;
  auto payload = decodePayload(*document);
  if (!payload || !payload->extraSettings) return std::nullopt;
  return std::move(payload->extraSettings->liveness.supplier.serviceLocation);
}

}  // namespace kiv
