// The camera's picture for the capture screen, through GStreamer: the
// desktop camera portal's PipeWire stream when the portal lets this app have
// the camera, else the first video device, else none (and the screen keeps
// its moving test pattern). Main thread only; needs the platform installed.
#pragma once

#include <cairo.h>

#include <filesystem>
#include <memory>

#include "kiv/platform/task_pool.hpp"

using GstElement = struct _GstElement;

namespace kiv::gtk {

class CameraFeed {
 public:
  // The camera this process may use, started; null when there is none.
  static std::unique_ptr<CameraFeed> open(const std::filesystem::path& deviceDirectory = "/dev");
  ~CameraFeed();
  CameraFeed(const CameraFeed&) = delete;
  CameraFeed& operator=(const CameraFeed&) = delete;

  // The newest picture, or the one before while no newer came; null before
  // the first. Owned by the feed, valid until the next call.
  cairo_surface_t* latest();

 private:
  CameraFeed(GstElement* pipeline, int fd);

  GstElement* const pipeline_;
  GstElement* const sink_;
  const int fd_;                               // the portal's PipeWire connection, or -1
  const std::shared_ptr<SerialQueue> states_;  // the pipeline's state changes, in order
  cairo_surface_t* picture_ = nullptr;
};

}  // namespace kiv::gtk
