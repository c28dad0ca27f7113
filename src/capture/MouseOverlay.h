// The pointer in the picture: the cursor, clicks and highlight drawn into
// each frame from what the pointer tracker last saw.
#pragma once

#include <cstdint>
#include <memory>

#include "core/Resources.h"
#include "orvanta/types.h"
#include "platform/NonCopyable.h"

typedef struct _cairo cairo_t;

namespace ov {
class CursorMonitor;
}  // namespace ov

// Draws the pointer into a capture stream's frames; one per stream, made and
// used on the stream's thread only.
class CMouseOverlay : private ov::NonCopyable {
 public:
  CMouseOverlay();
  ~CMouseOverlay();

  // rc is this frame's region in virtual-screen pixels.
  void DrawMouse(cairo_t* graphics, const RECT& rc);

 private:
  void DrawCursor(cairo_t* graphics, const RECT& rc, POINT pointer);

  std::unique_ptr<ov::CursorMonitor> m_cursor;
  ov::Surface m_cursorSurface;
  uint64_t m_cursorSerial = ~0ull;
  ov::Surface m_clickDisc;
  ov::Surface m_highlightDisc;
  ov::Surface m_leftClickImage;
  ov::Surface m_rightClickImage;
};
