// Pictures the engine hands to the X server: the image behind a window that
// the engine paints, and pointer shapes.
#pragma once

#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>

#include <cstdint>
#include <vector>

#include "platform/NonCopyable.h"

namespace ov {

struct PointerShape;

// A picture in the engine's memory that a window shows: shared with the
// server through MIT-SHM where it can be (a local server), else a buffer of
// our own sent with XPutImage.
class XShownImage : private NonCopyable {
 public:
  explicit XShownImage(Display* display) : m_display(display) {}
  ~XShownImage() { Release(); }

  // A clear picture of the size, made anew; false when none could be made.
  bool Make(Visual* visual, int depth, int width, int height);
  void Release();
  XImage* Image() const { return m_image; }
  // Sends the part at (x, y) to the same place of the target; no round trip.
  void Put(Drawable target, GC gc, int x, int y, int width, int height);

 private:
  Display* m_display;
  XImage* m_image = nullptr;
  XShmSegmentInfo m_shm{};
  bool m_shmAttached = false;
  std::vector<uint8_t> m_buffer;
};

// The shape as a cursor, None when the server refuses it (the window then
// keeps the default pointer). The hot spot is held inside the picture.
Cursor CursorFromShape(Display* display, const PointerShape& shape);

}  // namespace ov
