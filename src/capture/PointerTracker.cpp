#include "capture/PointerTracker.h"

#include <algorithm>
#include <mutex>
#include <thread>

#include "core/Globals.h"
#include "core/Log.h"
#include "core/Rect.h"
#include "platform/Clock.h"
#include "platform/MessageQueue.h"
#include "platform/PointerWatcher.h"
#include "platform/Thread.h"

POINT g_ptMouse;
POINT g_ptCursor;
POINT g_ptClick;
uint32_t g_dwClickTick;
BOOL g_bLeftDown;
BOOL g_bRightDown;
std::atomic<bool> g_bCanvasToolSelected;
std::atomic<bool> g_bCanvasDrawing;
std::atomic<bool> g_bMoveBarDragging;

using ov::Height;
using ov::Width;

namespace {

constexpr int32_t kFollowMargin = 32;
constexpr int32_t kFollowStep = 48;

uint32_t g_notifyThread;
std::unique_ptr<ov::PointerWatcher> g_hook;
std::thread g_hookThread;
POINT g_lastMoveRound{-1, -1};
std::atomic<ov::PointerMoveTarget*> g_moveTarget;

// Moves the box to g_ptRegion, and keeps where the box ended.
void MoveBoxToRegion() {
  ov::PointerMoveTarget* target = g_moveTarget.load();
  if (!target) return;
  POINT region;
  {
    std::lock_guard<std::recursive_mutex> lock(g_csMouse);
    region = g_ptRegion;
  }
  POINT ended = target->MoveRegionTo(region);
  std::lock_guard<std::recursive_mutex> lock(g_csMouse);
  g_ptRegion = ended;
}

POINT ClampToDisplay(int32_t x, int32_t y) {
  return {std::clamp(x, g_rcDisplay.left, g_rcDisplay.right - 1),
          std::clamp(y, g_rcDisplay.top, g_rcDisplay.bottom - 1)};
}

void OnHookEvent(ov::PointerEvent event, int32_t x, int32_t y) {
  std::lock_guard<std::recursive_mutex> lock(g_csMouse);
  POINT p = ClampToDisplay(x, y);
  if ((p.x != g_ptMouse.x || p.y != g_ptMouse.y) && g_notifyThread)
    ov::MessageQueue::PostThreadMessage(g_notifyThread, ov::kPointerMovedMessage, 0, 0);
  g_ptMouse = p;
  g_ptCursor = {x, y};
  switch (event) {
    case ov::PointerEvent::LeftDown:
    case ov::PointerEvent::RightDown:
      (event == ov::PointerEvent::LeftDown ? g_bLeftDown : g_bRightDown) = 1;
      g_dwClickTick = ov::TickCount();
      g_ptClick = p;
      break;
    case ov::PointerEvent::LeftUp:
      g_bLeftDown = 0;
      break;
    case ov::PointerEvent::RightUp:
      g_bRightDown = 0;
      break;
    case ov::PointerEvent::Move:
      break;
  }
}

}  // namespace

namespace ov {

void StartMouseHook(uint32_t uiThreadId) {
  const uint32_t flag = g_mouseOpt.Flag;
  const int32_t mode = g_mouseOpt.Mode;
  const bool moving = mode == MOUSE_MODE_FOLLOW || mode == MOUSE_MODE_CENTER;
  if (flag == 0 && !moving && !g_videoOpt.hWindow) {
    WriteLog(kMsg, "Do not hook mouse \n");
    return;
  }
  WriteLog(kMsg, "Hook mouse ...\n");
  g_notifyThread = moving || g_videoOpt.hWindow ? uiThreadId : 0;

  const RECT& rc = g_videoOpt.rcScreen;
  {
    std::lock_guard<std::recursive_mutex> lock(g_csMouse);
    g_ptRegion = {rc.left, rc.top};
  }
  int32_t px = 0, py = 0;
  if (moving && QueryPointer(&px, &py)) {
    POINT p = ClampToDisplay(px, py);
    if (mode == MOUSE_MODE_FOLLOW) {
      int32_t w = Width(rc), h = Height(rc);
      int32_t x = std::max(p.x - w / 2, g_rcDisplay.left);
      if (x + w > g_rcDisplay.right) x = g_rcDisplay.right - w;
      int32_t y = std::max(p.y - h / 2, g_rcDisplay.top);
      if (y + h > g_rcDisplay.bottom) y = g_rcDisplay.bottom - h;
      {
        std::lock_guard<std::recursive_mutex> lock(g_csMouse);
        g_ptRegion = {x, y};
      }
      MoveFollowRegion(p.x, p.y);
    } else {
      MoveCenterRegion(p.x, p.y);
    }
    if (g_bRunning) MoveBoxToRegion();
  }
  g_hook = CreatePointerWatcher();
  if (!g_hook) {
    WriteLog(kErr, "Failed to watch the pointer: no XInput2\n");
    return;
  }
  g_hookThread = std::thread([] {
    SetCurrentThreadName("ov-mouse-hook");
    SetCurrentThreadPriority(ThreadPriority::Highest);
    g_hook->Run(OnHookEvent);
  });
}

void StopMouseHook() {
  if (g_hook) {
    g_hook->Stop();
    if (g_hookThread.joinable()) g_hookThread.join();
    g_hook.reset();
  }
  g_notifyThread = 0;
  g_lastMoveRound = {-1, -1};
}

void SetPointerMoveTarget(PointerMoveTarget* target) { g_moveTarget = target; }

void OnPointerMoved(MessageQueue& queue) {
  // A burst of moves costs one round.
  queue.RemoveMessages(kPointerMovedMessage);
  std::this_thread::yield();
  if (g_bCanvasDrawing || g_bMoveBarDragging) return;
  int32_t x, y;
  if (!QueryPointer(&x, &y)) return;
  if (x == g_lastMoveRound.x && y == g_lastMoveRound.y) return;
  g_lastMoveRound = {x, y};
  if (g_videoOpt.hWindow) {
    if (PointerMoveTarget* target = g_moveTarget.load()) target->FollowWindow();
    return;
  }
  if (g_mouseOpt.Mode == MOUSE_MODE_FOLLOW) {
    if (!MoveFollowRegion(x, y)) return;
  } else if (g_mouseOpt.Mode == MOUSE_MODE_CENTER) {
    MoveCenterRegion(x, y);
  } else {
    return;
  }
  MoveBoxToRegion();
}

bool MoveFollowRegion(int32_t x, int32_t y) {
  const int32_t w = Width(g_videoOpt.rcScreen), h = Height(g_videoOpt.rcScreen);
  std::lock_guard<std::recursive_mutex> lock(g_csMouse);
  POINT o = g_ptRegion;
  if (x < o.x + kFollowMargin)
    o.x = std::max(g_rcDisplay.left, x - kFollowStep);
  else if (x > o.x + w - kFollowMargin)
    o.x = std::min(g_rcDisplay.right - w, x + kFollowStep - w);
  if (y < o.y + kFollowMargin)
    o.y = std::max(g_rcDisplay.top, y - kFollowStep);
  else if (y > o.y + h - kFollowMargin)
    o.y = std::min(g_rcDisplay.bottom - h, y + kFollowStep - h);
  bool changed = o.x != g_ptRegion.x || o.y != g_ptRegion.y;
  g_ptRegion = o;
  return changed;
}

void MoveCenterRegion(int32_t x, int32_t y) {
  const int32_t w = Width(g_videoOpt.rcScreen), h = Height(g_videoOpt.rcScreen);
  std::lock_guard<std::recursive_mutex> lock(g_csMouse);
  g_ptRegion = {x - w / 2, y - h / 2};
}

}  // namespace ov
