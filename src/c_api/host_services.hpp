// The services a host lends through the C interface, as the platform
// interfaces the SDK runs on: each adapter turns a struct of the host's
// function pointers into one service of the bundle.
#pragma once

#include <memory>

#include "kiv/face_liveness_lite.h"
#include "kiv/platform/camera_authorization.hpp"
#include "kiv/platform/capture/capture_vendor.hpp"
#include "kiv/platform/main_queue.hpp"
#include "kiv/platform/ui/view_controller.hpp"

namespace kiv::c_api {

// The host's main loop. Tasks wait in a process-wide table under a number
// that the host gets as task_data, so a task that the host runs late, runs
// after a cancel or never runs costs nothing and breaks nothing.
std::shared_ptr<MainQueue> makeHostMainQueue(const kiv_main_queue& functions);

// The host's camera prompt; kiv_camera_answer() finds the request by number.
std::shared_ptr<CameraAuthorization> makeHostCamera(const kiv_camera& functions);

// The host's capture vendor; the kiv_capture_report_* calls find the capture
// by number. Statuses reach the SDK on the main thread, in the order they
// were reported, and none after the capture's final status or its cancel.
std::shared_ptr<CaptureVendor> makeHostCaptureVendor(const kiv_capture_vendor& functions);

// The root controller of a start over a host's view. A host vendor's screen
// presented on it, or dismissed from it, and the loading overlay shown or
// hidden in its view reach the host's presentation functions. Main thread.
std::shared_ptr<ViewController> makeHostViewController(const kiv_presentation& functions, void* hostView);

// The stand-in for the screen of a host vendor's `capture`: presented over
// a host's view it asks the host to show that screen. Main thread.
std::shared_ptr<ViewController> makeHostCaptureScreen(kiv_capture capture);

}  // namespace kiv::c_api
