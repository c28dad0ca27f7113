#include "capture/MouseOverlay.h"

#include <cairo.h>

#include <mutex>

#include "capture/DisplayCatalogue.h"
#include "capture/PointerTracker.h"
#include "core/Globals.h"
#include "platform/Clock.h"
#include "platform/CursorMonitor.h"

namespace {

constexpr uint32_t kClickShowMs = 300;
constexpr int kDiscSize = 32;

constexpr int kClickImageSize = 16;

using ov::CountedSurface;

bool Inside(POINT p, const RECT& r) {
  return p.x >= r.left && p.x < r.right && p.y >= r.top && p.y < r.bottom;
}

ov::Surface CreateDisc(uint32_t colour) {
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
  return CountedSurface(disc);
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

CMouseOverlay::CMouseOverlay() {
  const uint32_t flag = g_mouseOpt.Flag;
  if (flag & MOUSE_DRAW_CURSOR) m_cursor = ov::CreateCursorMonitor();
  if (flag & MOUSE_DRAW_CLICKS) {
    m_leftClickImage = ov::LoadImageSized("Mouse-Left-Click.png", kClickImageSize, kClickImageSize);
    m_rightClickImage =
        ov::LoadImageSized("Mouse-Right-Click.png", kClickImageSize, kClickImageSize);
  }
  if (flag & MOUSE_CLICK_HIGHLIGHT) m_clickDisc = CreateDisc(g_mouseOpt.clickColor);
  if (flag & MOUSE_POINTER_HIGHLIGHT) m_highlightDisc = CreateDisc(g_mouseOpt.highlightColor);
}

CMouseOverlay::~CMouseOverlay() = default;

void CMouseOverlay::DrawMouse(cairo_t* cr, const RECT& rc) {
  const uint32_t flag = g_mouseOpt.Flag;
  if (flag == 0 || !cr || g_bCanvasToolSelected || g_bMoveBarDragging) return;
  uint32_t clickTick;
  BOOL leftDown, rightDown;
  POINT mouse, click, cursor;
  {
    std::lock_guard<std::recursive_mutex> lock(g_csMouse);
    clickTick = g_dwClickTick;
    leftDown = g_bLeftDown;
    rightDown = g_bRightDown;
    mouse = g_ptMouse;
    click = g_ptClick;
    cursor = g_ptCursor;
  }
  bool clickDrawn = false;
  if ((flag & MOUSE_CLICK_HIGHLIGHT) && m_clickDisc && ov::TickCount() - clickTick < kClickShowMs &&
      Inside(click, rc)) {
    PaintAt(cr, m_clickDisc.get(), click.x - rc.left - 16, click.y - rc.top - 16);
    clickDrawn = true;
  }
  if ((flag & MOUSE_POINTER_HIGHLIGHT) && m_highlightDisc && Inside(mouse, rc)) {
    RECT disc{click.x - 16, click.y - 16, click.x + 16, click.y + 16};
    if (!(clickDrawn && Inside(mouse, disc)))
      PaintAt(cr, m_highlightDisc.get(), mouse.x - rc.left - 16, mouse.y - rc.top - 16);
  }
  if (!Inside(mouse, rc)) return;
  // On another display the pointer is not this one's, though its position
  // was kept on this display's edge.
  if (GetDisplayCount() > 1 && !Inside(cursor, g_rcDisplay)) return;
  if (flag & MOUSE_DRAW_CURSOR) DrawCursor(cr, rc, mouse);
  if (flag & MOUSE_DRAW_CLICKS) {
    int32_t hotX = 0, hotY = 0;
    if (m_cursor) {
      hotX = m_cursor->Current().xHot;
      hotY = m_cursor->Current().yHot;
    }
    double x = mouse.x - rc.left - hotX + 16, y = mouse.y - rc.top - hotY + 16;
    if (leftDown && m_leftClickImage) PaintAt(cr, m_leftClickImage.get(), x, y);
    if (rightDown && m_rightClickImage) PaintAt(cr, m_rightClickImage.get(), x, y);
  }
}

void CMouseOverlay::DrawCursor(cairo_t* cr, const RECT& rc, POINT pointer) {
  if (!m_cursor) return;
  const ov::CursorImage& image = m_cursor->Current();
  if (image.width <= 0 || image.height <= 0) return;
  if (image.serial != m_cursorSerial || !m_cursorSurface) {
    m_cursorSurface = CountedSurface(cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(const_cast<uint32_t*>(image.pixels.data())),
        CAIRO_FORMAT_ARGB32, image.width, image.height, image.width * 4));
    m_cursorSerial = image.serial;
    if (!m_cursorSurface) return;
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
  PaintAt(cr, m_cursorSurface.get(), left, top, scale, alpha / 255.0);
}
