// KivFaceLivenessLite: everything a host includes.
//
// A whole integration, for a host without a UI toolkit of its own (one with a
// toolkit installs a bundle whose mainQueue, ui, camera... bridge to it):
//
//   auto bundle = kiv::makeLinuxPlatform();
//   auto loop = std::static_pointer_cast<kiv::MainLoop>(bundle.mainQueue);
//   auto traffic = std::make_shared<kiv::TrafficCounter>(); // to know when background posts are done
//   bundle.http = traffic->wrap(bundle.http);
//   bundle.taskPool = traffic->wrap(bundle.taskPool);
//   kiv::installPlatform(bundle);                          // before the first SDK call
//   auto sdk = kiv::KivFaceLivenessLiteSDK::make();
//   auto delegate = std::make_shared<MyDelegate>();        // a KivFaceLivenessLiteDelegate; stops the loop
//   // isCurrent() is false until run() starts, so the first calls are posted into the loop.
//   loop->post([&] {
//     sdk->setDelegate(delegate);
//     sdk->setup(token, personId, std::nullopt, nullptr, std::nullopt, kiv::KivEnvironment::prod, true);
//     sdk->prewarm();
//     sdk->startSDK(kiv::platform()->ui->makeViewController());
//   });
//   loop->run();                                           // delegate calls arrive here
//
// Analytics posts end on the HTTP session's thread, not on the pool: before
// exiting, keep running the loop (bounded) until traffic->idle() holds twice
// in a row, as the command-line host does (apps/kivfll/attempt_host.cpp).
//
// When the application goes to the background, the host posts
// kiv::kApplicationDidEnterBackgroundNotification to platform()->notifications.
#pragma once

#include "kiv/backend.hpp"
#include "kiv/delegate.hpp"
#include "kiv/environment.hpp"
#include "kiv/error_types.hpp"
#include "kiv/face_liveness_lite_sdk.hpp"
#include "kiv/gif_overlay_view.hpp"
#include "kiv/image_helpers.hpp"
#include "kiv/log_level.hpp"
#include "kiv/platform/camera_authorization.hpp"
#include "kiv/platform/clock.hpp"
#include "kiv/platform/console.hpp"
#include "kiv/platform/device_integrity.hpp"
#include "kiv/platform/http.hpp"
#include "kiv/platform/main_loop.hpp"
#include "kiv/platform/main_queue.hpp"
#include "kiv/platform/notification_center.hpp"
#include "kiv/platform/platform.hpp"
#include "kiv/platform/task_pool.hpp"
#include "kiv/platform/traffic_counter.hpp"
#include "kiv/platform/ui/view_controller.hpp"
#include "kiv/platform/ui/view_toolkit.hpp"
#include "kiv/platform/user_defaults.hpp"
#include "kiv/raw_value.hpp"
#include "kiv/resource_bundle.hpp"
#include "kiv/results.hpp"
#include "kiv/ui_customization.hpp"
