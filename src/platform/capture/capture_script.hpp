// What the simulated capture vendor plays: statuses and pauses, in order.
//
// Text form, one step per line or between semicolons (empty steps are
// skipped); words are case-sensitive, texts are in double quotes with \" and
// \\ as the only escapes:
//
//   wait SECONDS                    pause; SECONDS >= 0, e.g. 2 or 0.5
//   connecting | connected          progress statuses
//   processing PROGRESS ["TEXT"]    progress status; 0 <= PROGRESS <= 1
//   success                         final
//   failure [CODE ["TEXT"]]...      final; the reasons in order (none is
//                                   allowed); TEXT is the reason's
//                                   description, by default derived from
//                                   CODE ("eyes_closed" -> "Eyes closed");
//                                   CODE is letters, digits and _
//   canceled [user|integration]     final; user when not given
//   error CODE ["TEXT"]             final; CODE an IProovError code
//                                   (network, notSupported, ...); TEXT its
//                                   errorDescription, absent when not given
//
// A final status must be the last step: the vendor reports nothing after it.
//
//   CaptureScript::parse("connected; wait 2; failure eyes_closed")
//   CaptureScript::parse("error network \"The connection was lost\"")
#pragma once

#include <expected>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "kiv/platform/capture/status.hpp"

namespace kiv {

struct CaptureScript {
  struct Wait {
    double seconds = 0;
  };
  using Step = std::variant<Wait, Status>;

  std::vector<Step> steps;

  // The script, or a one-line message naming the first step that is wrong
  // and why: step 2 ("wait soon"): "soon" is not a number of seconds.
  static std::expected<CaptureScript, std::string> parse(std::string_view text);

  // The description a failure reason gets when the script gives none.
  static std::string defaultDescription(std::string_view feedbackCode);
};

}  // namespace kiv
