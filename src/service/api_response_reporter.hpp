// Where the backend service reports every answered request, without knowing
// who listens: the analytics client implements this, so the service depends
// on nothing above it.
//
//   class Recorder final : public ApiResponseReporting {
//     void reportApiResponse(const ApiResponseReport& r) override { seen.push_back(r); }
//   };
#pragma once

#include <memory>

#include "service/api_response_report.hpp"

namespace kiv {

class ApiResponseReporting {
 public:
  virtual ~ApiResponseReporting() = default;
  // One answered request. Called on a detached task of the service's queue,
  // never on the thread waiting for the answer; safe from any thread.
  virtual void reportApiResponse(const ApiResponseReport& report) = 0;
};

// The process's shared reporter, asked at every report by a service created
// without one of its own (the shared analytics client comes and goes), or
// null when there is none. Defined by the room that owns that client
// (src/telemetry/analytics_api_reporter.cpp), as the library links it in.
std::shared_ptr<ApiResponseReporting> sharedApiResponseReporter();

}  // namespace kiv
