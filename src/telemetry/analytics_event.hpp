// What a caller hands to the analytics client's track(): a standard name
// with a type of the caller's choosing, a free name with a type, or one of
// the fixed events, which carry both.
//
//   track(KivAnalyticsEvent::standard(KivAnalyticsEventName::sdkResult, KivAnalyticsEventType::sdkStep), ...);
//   track(KivAnalyticsFixedEvent::startSdk, ...);   // a fixed event is an event
#pragma once

#include <map>
#include <string>
#include <variant>

#include "telemetry/analytics_vocabulary.hpp"

namespace kiv {

// Parameters whose values are all texts.
using AnalyticsTextParams = std::map<std::string, std::string>;

// The result entry of an event's parameters: {"result": raw value}.
inline AnalyticsTextParams::value_type resultParameter(KivAnalyticsResult result) {
  return {std::string(kAnalyticsResultKey), std::string(rawValue(result))};
}

class KivAnalyticsEvent {
 public:
  struct Standard {
    KivAnalyticsEventName name;
    KivAnalyticsEventType type;
    friend bool operator==(const Standard&, const Standard&) = default;
  };
  struct Custom {
    std::string name;
    KivAnalyticsEventType type;
    friend bool operator==(const Custom&, const Custom&) = default;
  };
  using Form = std::variant<Standard, Custom, KivAnalyticsFixedEvent>;

  static KivAnalyticsEvent standard(KivAnalyticsEventName name, KivAnalyticsEventType type) {
    return KivAnalyticsEvent(Standard{name, type});
  }
  static KivAnalyticsEvent custom(std::string name, KivAnalyticsEventType type) {
    return KivAnalyticsEvent(Custom{std::move(name), type});
  }
  KivAnalyticsEvent(KivAnalyticsFixedEvent event) : form_(event) {}  // NOLINT(google-explicit-constructor)

  // The `event` field of the body.
  std::string name() const;
  // The kind, whose raw value is the `eventType` field.
  KivAnalyticsEventType type() const;
  const Form& form() const { return form_; }

  friend bool operator==(const KivAnalyticsEvent&, const KivAnalyticsEvent&) = default;

 private:
  explicit KivAnalyticsEvent(Form form) : form_(std::move(form)) {}
  Form form_;
};

}  // namespace kiv
