// The windows that the engine draws over the desktop: borderless, above
// every other window, never taking the focus, shown with per-pixel alpha
// where a compositing manager runs and opaque where none does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "orvanta/types.h"

namespace ov {

// A pointer shape: premultiplied BGRA rows without gaps, and its hot spot.
struct PointerShape {
  int32_t width = 0, height = 0;
  int32_t xHot = 0, yHot = 0;
  std::vector<uint32_t> pixels;
};

// A shape of the desktop's cursor theme, by its X name ("sb_v_double_arrow",
// "fleur", ...); false when the theme has none.
bool LoadThemeCursor(const char* name, PointerShape* shape);

struct OverlayWindowOptions {
  RECT rect = {};             // in root coordinates, or the parent's
  bool clickThrough = false;  // pointer events go to the windows below
  HWND parent = 0;            // a child of this window (shown opaque), not a top-level one
};

class OverlayWindow {
 public:
  virtual ~OverlayWindow() = default;
  virtual HWND Handle() const = 0;
  // True when the window shows per-pixel alpha (a 32-bit visual under a
  // compositing manager); false when it shows opaque.
  virtual bool Translucent() const = 0;
  virtual int32_t Width() const = 0;
  virtual int32_t Height() const = 0;
  // Shows premultiplied BGRA pixels of the window's size; waits until the
  // server has them, so that the caller may reuse the buffer.
  virtual bool Present(const uint8_t* pixels, ptrdiff_t pitch) = 0;
  // The pointer's shape over the window; a null shape means the parent's.
  virtual void SetCursor(const PointerShape* shape) = 0;
  virtual void Show(bool show) = 0;
  // Moves the window to rect (root coordinates); false when it cannot take
  // the new size, and the window then keeps its old one.
  virtual bool MoveResize(const RECT& rect) = 0;
  // Limits what shows of the window to rects (window coordinates); no
  // rects shows all of it. For an opaque window that must leave the rest
  // of the screen seen.
  virtual void SetVisibleParts(const RECT* rects, int count) = 0;
};

// Null without a server or for an empty rectangle.
std::unique_ptr<OverlayWindow> CreateOverlayWindow(const OverlayWindowOptions& options);

// True when a compositing manager owns the screen's selection.
bool CompositingManagerRunning();

}  // namespace ov
