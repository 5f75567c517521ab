#include "platform/gtk/camera_feed.hpp"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <libportal/portal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "kiv/platform/platform.hpp"
#include "kiv/platform/task_pool.hpp"

namespace kiv::gtk {
namespace {

// The layout of cairo's RGB24 in memory: a native-endian 0xXXRRGGBB.
constexpr const char* kPictureCaps =
    G_BYTE_ORDER == G_LITTLE_ENDIAN ? "video/x-raw,format=BGRx" : "video/x-raw,format=xRGB";

// Only the newest picture is kept: the screen draws at its own pace.
GstElement* makePipeline(const std::string& source) {
  const std::string description =
      source + " ! videoconvert ! " + kPictureCaps + " ! appsink name=picture max-buffers=1 drop=true sync=false";
  GError* error = nullptr;
  GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
  if (error) {
    g_error_free(error);
    if (pipeline) gst_object_unref(pipeline);
    return nullptr;
  }
  return pipeline;
}

// The portal's PipeWire connection, which shows only the cameras, once this
// app was granted the camera; -1 otherwise (no session bus, no portal, not
// granted).
int portalCamera() {
  if (!g_getenv("DBUS_SESSION_BUS_ADDRESS")) return -1;
  XdpPortal* portal = xdp_portal_new();
  if (!portal) return -1;
  const int fd = xdp_portal_open_pipewire_remote_for_camera(portal);
  g_object_unref(portal);
  return fd;
}

}  // namespace

// What the feed's serial queue owns; the sink, once there, is also read on
// the main thread.
struct CameraFeed::Source {
  GstElement* pipeline = nullptr;
  int fd = -1;  // the portal's PipeWire connection
  std::atomic<GstElement*> sink{nullptr};

  void start(const std::filesystem::path& deviceDirectory) {
    if (!gst_init_check(nullptr, nullptr, nullptr)) return;
    if ((fd = portalCamera()) >= 0) {
      // Without a media type WirePlumber links the stream to nothing.
      pipeline = makePipeline("pipewiresrc fd=" + std::to_string(fd) +
                              " stream-properties=\"props,media.type=Video,media.category=Capture,media.role=Camera\"");
      if (pipeline) g_debug("camera picture: the camera portal's PipeWire stream");
    }
    // A host without a portal (a kiosk): the first video device.
    std::vector<std::filesystem::path> devices;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(deviceDirectory, error)) {
      if (entry.path().filename().string().starts_with("video") && entry.is_character_file(error))
        devices.push_back(entry.path());
    }
    std::sort(devices.begin(), devices.end());
    for (auto device = devices.begin(); !pipeline && device != devices.end(); ++device) {
      pipeline = makePipeline("v4l2src device=" + device->string());
      if (pipeline) g_debug("camera picture: %s", device->c_str());
    }
    if (!pipeline) return;
    sink.store(gst_bin_get_by_name(GST_BIN(pipeline), "picture"), std::memory_order_release);
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
  }

  void stop() {
    if (pipeline) {
      gst_element_set_state(pipeline, GST_STATE_NULL);
      gst_object_unref(sink.load(std::memory_order_relaxed));
      gst_object_unref(pipeline);
    }
    if (fd >= 0) ::close(fd);
  }
};

CameraFeed::CameraFeed(std::filesystem::path deviceDirectory)
    : source_(std::make_shared<Source>()), states_(platform()->taskPool->makeSerialQueue("kivfll-gtk camera")) {
  // Asking the portal is a D-Bus call, and pipewiresrc waits for its
  // stream's format on the way to playing (half a minute when nothing links
  // it): never on the main thread. Until a picture comes, and when none
  // does, the screen shows its test pattern.
  states_->post([source = source_, deviceDirectory = std::move(deviceDirectory)] { source->start(deviceDirectory); });
}

CameraFeed::~CameraFeed() {
  // After the start, whenever that ends; the main thread reads the sink no more.
  states_->post([source = source_] { source->stop(); });
  if (picture_) cairo_surface_destroy(picture_);
}

cairo_surface_t* CameraFeed::latest() {
  GstElement* sink = source_->sink.load(std::memory_order_acquire);
  GstSample* sample = sink ? gst_app_sink_try_pull_sample(GST_APP_SINK(sink), 0) : nullptr;
  if (!sample) return picture_;
  GstVideoInfo info;
  GstVideoFrame frame;
  if (gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) &&
      gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ)) {
    const int width = GST_VIDEO_FRAME_WIDTH(&frame), height = GST_VIDEO_FRAME_HEIGHT(&frame);
    if (!picture_ || cairo_image_surface_get_width(picture_) != width ||
        cairo_image_surface_get_height(picture_) != height) {
      if (picture_) cairo_surface_destroy(picture_);
      picture_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
      g_debug("camera picture: first frame, %dx%d", width, height);
    }
    cairo_surface_flush(picture_);
    const auto* from = static_cast<const unsigned char*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0));
    const int fromStride = GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
    unsigned char* to = cairo_image_surface_get_data(picture_);
    const int toStride = cairo_image_surface_get_stride(picture_);
    for (int y = 0; y < height; ++y) {
      std::memcpy(to + static_cast<std::ptrdiff_t>(y) * toStride, from + static_cast<std::ptrdiff_t>(y) * fromStride,
                  static_cast<std::size_t>(width) * 4);
    }
    cairo_surface_mark_dirty(picture_);
    gst_video_frame_unmap(&frame);
  }
  gst_sample_unref(sample);
  return picture_;
}

}  // namespace kiv::gtk
