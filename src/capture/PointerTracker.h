// The pointer as the session follows it: a hook thread that watches its
// position and buttons, and the moving region of the follow and centre
// modes, which the session's UI thread moves after it.
#pragma once

#include <cstdint>

#include "orvanta/types.h"

namespace ov {
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
