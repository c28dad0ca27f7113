// The pointer in the picture: the hook that follows the mouse, the moving
// region of the follow and centre modes, and the drawing of the cursor,
// clicks and highlight into each frame.
#pragma once

#include <cstdint>
#include <memory>

#include "orvanta/types.h"

typedef struct _cairo cairo_t;
typedef struct _cairo_surface cairo_surface_t;

namespace ov {
class CursorMonitor;
class MessageQueue;
}  // namespace ov

// Pointer state; g_csMouse guards it.
extern POINT g_ptMouse;
extern POINT g_ptClick;
extern uint32_t g_dwClickTick;
extern BOOL g_bLeftDown;
extern BOOL g_bRightDown;

namespace ov {

// The message the hook posts to the session's UI thread when the pointer moved.
inline constexpr uint32_t kPointerMovedMessage = 0x0400 + 1;

// On the session's UI thread, before the session is ready.
void StartMouseHook(uint32_t uiThreadId);
// At the UI thread's tear-down.
void StopMouseHook();
// The UI thread's handling of kPointerMovedMessage.
void OnPointerMoved(MessageQueue& queue);

bool MoveFollowRegion(int32_t x, int32_t y);
void MoveCenterRegion(int32_t x, int32_t y);

}  // namespace ov

// Draws the pointer into a capture stream's frames; one per stream, used on
// the stream's thread only.
class CMouseOverlay {
 public:
  CMouseOverlay();
  ~CMouseOverlay();
  CMouseOverlay(const CMouseOverlay&) = delete;
  CMouseOverlay& operator=(const CMouseOverlay&) = delete;

  // rc is this frame's region in virtual-screen pixels.
  void DrawMouse(cairo_t* graphics, const RECT& rc);

 private:
  void DrawCursor(cairo_t* graphics, const RECT& rc, POINT pointer);

  std::unique_ptr<ov::CursorMonitor> m_cursor;
  cairo_surface_t* m_cursorSurface = nullptr;
  uint64_t m_cursorSerial = ~0ull;
};
