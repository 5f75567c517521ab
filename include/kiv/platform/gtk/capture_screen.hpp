// The capture vendor's screen, drawn for a vendor that draws none of its own
// (the simulated vendor of the command-line host and of a designer's preview).
//
//   bundle.capture = kiv::gtk::withCaptureScreen(std::make_shared<kiv::SimulatedCaptureVendor>(script));
//
// Each capture launched through the returned vendor fills the controller the
// inner vendor presents with the vendor's screen in the launch options'
// look: the app bar (title, its colours, the close button in its tint, the
// logo), the camera picture through the line-drawing or natural filter, the
// oval in the surround colour (the picture outside it blurred unless the
// exterior effects are off), the prompt in its colours and corners, all text
// in the options' font, and the progress while processing. The picture is
// the camera's, through GStreamer (the camera portal's PipeWire stream once
// this app was granted the camera, else the first /dev/video* device), and a
// moving test pattern without one or with animations frozen (screenshots).
// The last status stays on screen half a second before
// the screen goes down. The statuses still come from the inner vendor;
// pressing close cancels the capture as the person would (the caller hears
// canceled by the user).
//
// Under any toolkit other than the GTK one the vendor passes through
// untouched. Part of the optional kivfll-gtk library.
#pragma once

#include <memory>

#include "kiv/platform/capture/capture_vendor.hpp"

namespace kiv::gtk {

std::shared_ptr<CaptureVendor> withCaptureScreen(std::shared_ptr<CaptureVendor> inner);

}  // namespace kiv::gtk
