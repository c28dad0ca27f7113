// The pointer as the session follows it: a hook thread that watches its
// position and buttons, and the moving region of the follow and centre
// modes, which the session's UI thread moves after it.
#pragma once

#include <atomic>
#include <cstdint>

#include "orvanta/types.h"

namespace ov {
class MessageQueue;
}  // namespace ov

// Pointer state; g_csMouse guards it.
extern POINT g_ptMouse;
// Where the pointer really is: g_ptMouse before it is kept on the display.
extern POINT g_ptCursor;
extern POINT g_ptClick;
extern uint32_t g_dwClickTick;
extern BOOL g_bLeftDown;
extern BOOL g_bRightDown;

// Told by the recorder box: a drawing tool is chosen on its canvas, a shape
// is being drawn there, its move bar is being dragged. The pointer is then
// not drawn into frames, and the region does not follow it.
extern std::atomic<bool> g_bCanvasToolSelected;
extern std::atomic<bool> g_bCanvasDrawing;
extern std::atomic<bool> g_bMoveBarDragging;

namespace ov {

// The recorder box as the pointer moves it, on the session's UI thread.
class PointerMoveTarget {
 public:
  virtual ~PointerMoveTarget() = default;
  // The recorded window moved or changed size: the box follows it.
  virtual void FollowWindow() = 0;
  // Moves the box's region to topLeft; returns where it ended.
  virtual POINT MoveRegionTo(POINT topLeft) = 0;
};
// Set by the box once it exists, null before it goes.
void SetPointerMoveTarget(PointerMoveTarget* target);

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
