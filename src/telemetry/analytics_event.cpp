#include "telemetry/analytics_event.hpp"

#include "base/overloaded.hpp"

namespace kiv {

std::string KivAnalyticsEvent::name() const {
  return std::visit(Overloaded{
                        [](const Standard& standard) { return std::string(rawValue(standard.name)); },
                        [](const Custom& custom) { return custom.name; },
                        [](KivAnalyticsFixedEvent fixed) { return std::string(rawValue(fixedEventForm(fixed).name)); },
                    },
                    form_);
}

KivAnalyticsEventType KivAnalyticsEvent::type() const {
  return std::visit(Overloaded{
                        [](const Standard& standard) { return standard.type; },
                        [](const Custom& custom) { return custom.type; },
                        [](KivAnalyticsFixedEvent fixed) { return fixedEventForm(fixed).type; },
                    },
                    form_);
}

}  // namespace kiv
