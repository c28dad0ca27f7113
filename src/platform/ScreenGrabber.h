// Pixels of the screen, as one copy per frame from the X server.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace ov {

class ScreenGrabber {
 public:
  virtual ~ScreenGrabber() = default;

  // Copies the screen's pixels of the rectangle (x, y, width, height) into
  // dst, whose rows are pitch bytes apart, as BGRX. The part of the
  // rectangle outside the screen is written black. False when the server
  // refused; errno-like detail in LastError().
  virtual bool Grab(int32_t x, int32_t y, int32_t width, int32_t height, uint8_t* dst,
                    int32_t pitch) = 0;
  virtual int LastError() const = 0;

  // Memory that the server writes grabs into itself: `bytes` long, zero-filled,
  // and valid as long as the returned owner lives, also after the grabber is
  // gone. A Grab of a whole on-screen rectangle to its start, with a pitch of
  // width * 4, costs no copy. Null where the server cannot reach this
  // process's memory, and after the second.
  virtual std::shared_ptr<uint8_t> CreateSharedFrame(size_t bytes) {
    (void)bytes;
    return nullptr;
  }
};

// A grabber on its own X connection, for rectangles up to maxWidth x
// maxHeight; MIT-SHM when the server has it. Null without a server.
std::unique_ptr<ScreenGrabber> CreateScreenGrabber(int32_t maxWidth, int32_t maxHeight);

}  // namespace ov
