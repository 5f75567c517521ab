// What the simulated capture vendor plays: statuses and pauses, in order,
// and how the vendor behaves around them.
//
// Text form, one step per line or between semicolons (empty steps are
// skipped); words are case-sensitive, texts are in double quotes with \" and
// \\ as the only escapes:
//
//   wait SECONDS                    pause; 0 <= SECONDS <= 86400, e.g. 2 or 0.5
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
// How the vendor behaves (a real vendor may do each of these):
//
//   deliver main | vendor           where the statuses that follow reach the
//                                   callback: the main queue (the default)
//                                   or the vendor's own serial queue thread
//   dismiss                         asks the presentation delegate to take
//                                   the screen down now; the script plays on
//                                   and the run asks no second time
//   nodismiss                       anywhere: the run ends without asking the
//                                   delegate to take the screen down (cancel()
//                                   still does)
//   sync STATUS                     only as the first steps: STATUS reaches
//                                   the callback inside launch(), before it
//                                   returns; after a final one the screen is
//                                   never shown
//   force STATUS                    STATUS is delivered even after cancel():
//                                   cancel() drops the pauses and the other
//                                   statuses, and the forced ones follow at
//                                   once, in order
//   then STEP                       a step after the final status (a late
//                                   status, a late dismissal...); before
//                                   sync or force: then force canceled
//
// A final status ends the script: every step after it must be marked then,
// so that a typo does not pass for a misbehaving vendor.
//
//   CaptureScript::parse("connected; wait 2; failure eyes_closed")
//   CaptureScript::parse("error network \"The connection was lost\"")
//   CaptureScript::parse("deliver vendor; connected; dismiss; wait 5; success")
//   CaptureScript::parse("connected; success; then error network")
//   CaptureScript::parse("sync error captureAlreadyActive")
#pragma once

#include <expected>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "kiv/platform/capture/status.hpp"

namespace kiv {

struct CaptureScript {
  // A day: no capture waits longer.
  static constexpr double kLongestWaitSeconds = 24 * 60 * 60;
  struct Wait {
    double seconds = 0;
  };
  // A status to report.
  struct Report {
    Status status;
    bool sync = false;             // sync: inside launch()
    bool evenIfCancelled = false;  // force: also after cancel()
  };
  enum class Thread { main, vendor };
  // deliver: where the statuses that follow reach the callback.
  struct Deliver {
    Thread thread = Thread::main;
  };
  // dismiss: ask the delegate to take the screen down now.
  struct Dismiss {};
  using Step = std::variant<Wait, Report, Deliver, Dismiss>;

  std::vector<Step> steps;
  // False with nodismiss: the end of the run leaves the screen up.
  bool dismissAtEnd = true;

  // The script, or a one-line message naming the first step that is wrong
  // and why: step 2 ("wait soon"): "soon" is not a number of seconds.
  static std::expected<CaptureScript, std::string> parse(std::string_view text);

  // The description a failure reason gets when the script gives none.
  static std::string defaultDescription(std::string_view feedbackCode);
};

}  // namespace kiv
