// Pixels of one window, read from the window itself rather than from the
// screen, so that whatever covers it stays out of the picture.
#pragma once

#include <cstdint>
#include <memory>

#include "orvanta/types.h"

namespace ov {

enum class WindowSource {
  Pixmap,  // the window's off-screen pixmap (the server keeps it for us)
  Window,  // the window's own contents as the server reads them
};

class WindowGrabber {
 public:
  virtual ~WindowGrabber() = default;

  // The window's outer rectangle in root coordinates, and the size of its
  // inside. False once the window is gone.
  virtual bool Locate(RECT* outer, int32_t* innerWidth, int32_t* innerHeight) = 0;
  // Copies the part (x, y, width, height) of the window, counted from its
  // outer corner, into dst (rows pitch bytes apart, BGRX); what the window
  // does not cover of the part is written black. False when the server
  // refused.
  virtual bool Grab(WindowSource source, int32_t x, int32_t y, int32_t width, int32_t height,
                    uint8_t* dst, int32_t pitch) = 0;
};

// A grabber of window on its own X connection, for parts up to maxWidth x
// maxHeight. Null without a server or when the window does not exist.
std::unique_ptr<WindowGrabber> CreateWindowGrabber(HWND window, int32_t maxWidth,
                                                   int32_t maxHeight);

}  // namespace ov
