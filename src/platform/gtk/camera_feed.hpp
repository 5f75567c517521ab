// The camera's picture for the capture screen, through GStreamer: the
// desktop camera portal's PipeWire stream when the portal lets this app have
// the camera, else the first video device, else none (and the screen keeps
// its moving test pattern). Main thread only; needs the platform installed.
#pragma once

#include <cairo.h>

#include <filesystem>
#include <memory>

#include "kiv/platform/task_pool.hpp"

namespace kiv::gtk {

class CameraFeed {
 public:
  // Starts looking for the camera this process may use, off the main thread.
  explicit CameraFeed(std::filesystem::path deviceDirectory = "/dev");
  ~CameraFeed();
  CameraFeed(const CameraFeed&) = delete;
  CameraFeed& operator=(const CameraFeed&) = delete;

  // The newest picture, or the one before while no newer came; null before
  // the first and without a camera. Owned by the feed, valid until the next
  // call.
  cairo_surface_t* latest();

 private:
  struct Source;
  const std::shared_ptr<Source> source_;
  const std::shared_ptr<SerialQueue> states_;  // the source's start and stop, in order
  cairo_surface_t* picture_ = nullptr;
};

}  // namespace kiv::gtk
