#include "capture/MouseOverlay.h"

#include <cairo.h>

#include <algorithm>
#include <mutex>
#include <thread>

#include "core/Globals.h"
#include "core/Log.h"
#include "core/Rect.h"
#include "platform/Clock.h"
#include "platform/Library.h"
#include "platform/MessageQueue.h"
#include "platform/PointerWatcher.h"
#include "platform/Thread.h"

POINT g_ptMouse;
POINT g_ptClick;
uint32_t g_dwClickTick;
BOOL g_bLeftDown;
BOOL g_bRightDown;

using ov::Height;
using ov::Width;

namespace {

constexpr uint32_t kClickShowMs = 300;
constexpr int32_t kFollowMargin = 32;
constexpr int32_t kFollowStep = 48;
constexpr int kDiscSize = 32;

uint32_t g_notifyThread;
std::unique_ptr<ov::PointerWatcher> g_hook;
std::thread g_hookThread;
cairo_surface_t* g_pClickDisc;
cairo_surface_t* g_pHighlightDisc;
cairo_surface_t* g_pLeftClickImage;
cairo_surface_t* g_pRightClickImage;
POINT g_lastMoveRound{-1, -1};

bool Inside(POINT p, const RECT& r) {
  return p.x >= r.left && p.x < r.right && p.y >= r.top && p.y < r.bottom;
}

POINT ClampToDisplay(int32_t x, int32_t y) {
  return {std::clamp(x, g_rcDisplay.left, g_rcDisplay.right - 1),
          std::clamp(y, g_rcDisplay.top, g_rcDisplay.bottom - 1)};
}

cairo_surface_t* CreateDisc(uint32_t colour) {
  double r = ((colour >> 16) & 0xFF) / 255.0, g = ((colour >> 8) & 0xFF) / 255.0,
         b = (colour & 0xFF) / 255.0;
  cairo_surface_t* disc = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kDiscSize, kDiscSize);
  cairo_t* cr = cairo_create(disc);
  cairo_pattern_t* gradient = cairo_pattern_create_radial(16, 16, 0, 16, 16, 16);
  cairo_pattern_add_color_stop_rgba(gradient, 0, r, g, b, 0xE0 / 255.0);
  cairo_pattern_add_color_stop_rgba(gradient, 1, r, g, b, 0x10 / 255.0);
  cairo_arc(cr, 16, 16, 16, 0, 2 * 3.14159265358979);
  cairo_set_source(cr, gradient);
  cairo_fill(cr);
  cairo_pattern_destroy(gradient);
  cairo_destroy(cr);
  g_nGdiplusBitmaps.fetch_add(1);
  return disc;
}

cairo_surface_t* LoadClickImage(const char* name) {
  std::string path = ov::HelperFolder() + "/Resource/" + name;
  cairo_surface_t* image = cairo_image_surface_create_from_png(path.c_str());
  if (cairo_surface_status(image) != CAIRO_STATUS_SUCCESS) {
    cairo_surface_destroy(image);
    return nullptr;  // drawn as nothing
  }
  g_nGdiplusBitmaps.fetch_add(1);
  return image;
}

void Release(cairo_surface_t*& surface) {
  if (!surface) return;
  cairo_surface_destroy(surface);
  g_nGdiplusBitmaps.fetch_sub(1);
  surface = nullptr;
}

void OnHookEvent(ov::PointerEvent event, int32_t x, int32_t y) {
  std::lock_guard<std::recursive_mutex> lock(g_csMouse);
  POINT p = ClampToDisplay(x, y);
  if ((p.x != g_ptMouse.x || p.y != g_ptMouse.y) && g_notifyThread)
    ov::MessageQueue::PostThreadMessage(g_notifyThread, ov::kPointerMovedMessage, 0, 0);
  g_ptMouse = p;
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

void PaintAt(cairo_t* cr, cairo_surface_t* surface, double x, double y, double scale = 1.0,
             double alpha = 1.0) {
  cairo_save(cr);
  cairo_translate(cr, x, y);
  if (scale != 1.0) cairo_scale(cr, scale, scale);
  cairo_set_source_surface(cr, surface, 0, 0);
  if (alpha < 1.0)
    cairo_paint_with_alpha(cr, alpha);
  else
    cairo_paint(cr);
  cairo_restore(cr);
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
  if (flag & MOUSE_DRAW_CLICKS) {
    g_pLeftClickImage = LoadClickImage("Mouse-Left-Click.png");
    g_pRightClickImage = LoadClickImage("Mouse-Right-Click.png");
  }
  if (flag & MOUSE_CLICK_HIGHLIGHT) g_pClickDisc = CreateDisc(g_mouseOpt.clickColor);
  if (flag & MOUSE_POINTER_HIGHLIGHT) g_pHighlightDisc = CreateDisc(g_mouseOpt.highlightColor);

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
  Release(g_pLeftClickImage);
  Release(g_pRightClickImage);
  Release(g_pClickDisc);
  Release(g_pHighlightDisc);
  g_lastMoveRound = {-1, -1};
}

void OnPointerMoved(MessageQueue& queue) {
  queue.RemoveMessages(kPointerMovedMessage);
  int32_t x, y;
  if (!QueryPointer(&x, &y)) return;
  if (x == g_lastMoveRound.x && y == g_lastMoveRound.y) return;
  g_lastMoveRound = {x, y};
  if (g_mouseOpt.Mode == MOUSE_MODE_FOLLOW)
    MoveFollowRegion(x, y);
  else if (g_mouseOpt.Mode == MOUSE_MODE_CENTER)
    MoveCenterRegion(x, y);
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

CMouseOverlay::CMouseOverlay() {
  if (g_mouseOpt.Flag & MOUSE_DRAW_CURSOR) m_cursor = ov::CreateCursorMonitor();
}

CMouseOverlay::~CMouseOverlay() {
  if (m_cursorSurface) cairo_surface_destroy(m_cursorSurface);
}

void CMouseOverlay::DrawMouse(cairo_t* cr, const RECT& rc) {
  const uint32_t flag = g_mouseOpt.Flag;
  if (flag == 0 || !cr) return;
  uint32_t clickTick;
  BOOL leftDown, rightDown;
  POINT mouse, click;
  {
    std::lock_guard<std::recursive_mutex> lock(g_csMouse);
    clickTick = g_dwClickTick;
    leftDown = g_bLeftDown;
    rightDown = g_bRightDown;
    mouse = g_ptMouse;
    click = g_ptClick;
  }
  bool clickDrawn = false;
  if ((flag & MOUSE_CLICK_HIGHLIGHT) && g_pClickDisc &&
      ov::TickCount() - clickTick < kClickShowMs && Inside(click, rc)) {
    PaintAt(cr, g_pClickDisc, click.x - rc.left - 16, click.y - rc.top - 16);
    clickDrawn = true;
  }
  if ((flag & MOUSE_POINTER_HIGHLIGHT) && g_pHighlightDisc && Inside(mouse, rc)) {
    RECT disc{click.x - 16, click.y - 16, click.x + 16, click.y + 16};
    if (!(clickDrawn && Inside(mouse, disc)))
      PaintAt(cr, g_pHighlightDisc, mouse.x - rc.left - 16, mouse.y - rc.top - 16);
  }
  if (!Inside(mouse, rc)) return;
  if (flag & MOUSE_DRAW_CURSOR) DrawCursor(cr, rc, mouse);
  if (flag & MOUSE_DRAW_CLICKS) {
    int32_t hotX = 0, hotY = 0;
    if (m_cursor) {
      hotX = m_cursor->Current().xHot;
      hotY = m_cursor->Current().yHot;
    }
    double x = mouse.x - rc.left - hotX + 16, y = mouse.y - rc.top - hotY + 16;
    if (leftDown && g_pLeftClickImage) PaintAt(cr, g_pLeftClickImage, x, y);
    if (rightDown && g_pRightClickImage) PaintAt(cr, g_pRightClickImage, x, y);
  }
}

void CMouseOverlay::DrawCursor(cairo_t* cr, const RECT& rc, POINT pointer) {
  if (!m_cursor) return;
  const ov::CursorImage& image = m_cursor->Current();
  if (image.width <= 0 || image.height <= 0) return;
  if (image.serial != m_cursorSerial || !m_cursorSurface) {
    if (m_cursorSurface) cairo_surface_destroy(m_cursorSurface);
    m_cursorSurface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(const_cast<uint32_t*>(image.pixels.data())),
        CAIRO_FORMAT_ARGB32, image.width, image.height, image.width * 4);
    m_cursorSerial = image.serial;
  }
  double scale = 1.0, left, top;
  switch (g_mouseOpt.cursorScale) {
    case 1:
      scale = 2.0;
      left = pointer.x - 2 * image.xHot - rc.left;
      top = pointer.y - 2 * image.yHot - rc.top;
      break;
    case 2:
      scale = 0.5;
      left = pointer.x - image.xHot / 2 - rc.left;
      top = pointer.y - image.yHot / 2 - rc.top;
      break;
    default:
      left = pointer.x - image.xHot - rc.left;
      top = pointer.y - image.yHot - rc.top;
      break;
  }
  int32_t alpha =
      g_mouseOpt.cursorAlpha <= 0 || g_mouseOpt.cursorAlpha > 255 ? 255 : g_mouseOpt.cursorAlpha;
  PaintAt(cr, m_cursorSurface, left, top, scale, alpha / 255.0);
}
