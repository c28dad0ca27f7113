#include "overlay/BoxStyles.h"

#include <cairo.h>

#include <mutex>

#include "core/Globals.h"
#include "core/Log.h"

namespace ov {

namespace {

constexpr BoxRing Solid(int32_t width, uint32_t colour) { return {width, 1, colour, 0}; }
constexpr BoxRing Dashed(int32_t width, uint32_t colour1, uint32_t colour2) {
  return {width, 2, colour1, colour2};
}

std::mutex g_tipsLock;
std::wstring g_zoomTips = L"%d x %d\nLeft:%d Top:%d";

uint32_t Premultiplied(uint32_t c) {
  const uint32_t a = c >> 24;
  uint32_t out = c & 0xFF000000u;
  for (int shift = 0; shift < 24; shift += 8) out |= (((c >> shift) & 0xFF) * a / 255) << shift;
  return out;
}

void CopyStyle(BoxStyle* to, const BoxStyle& from) {
  for (int i = 0; i < 8; ++i) {
    BoxRing ring = from.rings[i];
    ring.color1 = Premultiplied(ring.color1);
    ring.color2 = Premultiplied(ring.color2);
    to->rings[i] = ring;
  }
}

bool Inside(const RECT& r, POINT p) {
  return p.x >= r.left && p.x < r.right && p.y >= r.top && p.y < r.bottom;
}

void SetSource(cairo_t* cr, uint32_t argb) {
  cairo_set_source_rgba(cr, ((argb >> 16) & 0xFF) / 255.0, ((argb >> 8) & 0xFF) / 255.0,
                        (argb & 0xFF) / 255.0, (argb >> 24) / 255.0);
}

// One ring of width w on (a, b, c, d), its dash counter running clockwise
// from the top-left corner.
void DrawRing(uint32_t* pixels, int32_t stride, int32_t width, int32_t height, int32_t a, int32_t b,
              int32_t c, int32_t d, int32_t w, uint32_t colour1, uint32_t colour2) {
  const int32_t period = g_nDashPeriod > 0 ? g_nDashPeriod : 1;
  const int32_t on = g_nDashOn;
  int32_t counter = 0;
  auto step = [&](int32_t x, int32_t y, int32_t dx, int32_t dy) {
    const uint32_t colour = counter++ % period < on ? colour1 : colour2;
    for (int32_t k = 0; k < w; ++k, x += dx, y += dy)
      if (x >= 0 && y >= 0 && x < width && y < height)
        pixels[static_cast<ptrdiff_t>(y) * stride + x] = colour;
  };
  for (int32_t x = a - w + 1; x <= c + w - 1; ++x) step(x, b, 0, -1);
  for (int32_t y = b + 1; y <= d + w - 1; ++y) step(c, y, 1, 0);
  for (int32_t x = c - 1; x >= a - w + 1; --x) step(x, d, 0, 1);
  for (int32_t y = d - 1; y >= b + 1; --y) step(a, y, -1, 0);
}

}  // namespace

BoxStyle g_StaticBoxStyle = {{Solid(2, 0xFFFFFFFF)}};
BoxStyle g_ScreenBoxStyle = {{Solid(2, 0), Solid(1, 0), Solid(1, 0)}};
BoxStyle g_ScreenCropBoxStyle = {
    {Solid(1, 0xFF000000), Dashed(4, 0xFFFFFFFF, 0xFF000000), Solid(1, 0x40000000)}};
BoxStyle g_WindowBoxStyle = {{Solid(2, 0), Solid(1, 0), Solid(1, 0), Solid(1, 0)}};
BoxStyle g_WindowCropBoxStyle = {{Dashed(1, 0xFFFFFFFF, 0xFF000000)}};
BoxStyle g_ZoomGlassStyle = {
    {Solid(1, 0), Solid(1, 0xC0000000), Solid(1, 0x80000000), Solid(1, 0x40000000)}};
BoxStyle g_ImageBoxStyle = {{Solid(2, 0), Solid(1, 0), Solid(1, 0), Solid(1, 0x20000000)}};
BoxStyle g_ImageCropBoxStyle = {{Dashed(1, 0xFFFFFFFF, 0xFF000000)}};
HandleStyle g_ScreenCropHandle = {10, 0xFF000000, 0xFFFFFFFF};
HandleStyle g_WindowCropHandle = {10, 0xFF000000, 0xFFFFFFFF};
HandleStyle g_ImageCropHandle = {10, 0xFF000000, 0xFFFFFFFF};
int32_t g_nDashPeriod = 8;
int32_t g_nDashOn = 4;
uint32_t g_RecordBoxColor[2] = {0xFFA67C40, 0xFFFFD700};
uint32_t g_PauseBoxColor[2] = {0xFFFFFF00, 0xFF808000};

std::wstring ZoomTipsFormat() {
  std::lock_guard<std::mutex> lock(g_tipsLock);
  return g_zoomTips;
}

int32_t TotalRingWidth(const BoxStyle& style) {
  int32_t total = 0;
  for (const BoxRing& ring : style.rings) {
    if (ring.nType == 0) break;
    total += ring.nWidth;
  }
  return total;
}

void DrawRings(uint32_t* pixels, int32_t stride, int32_t width, int32_t height,
               const BoxStyle& style, const RECT& rect) {
  int32_t a = rect.left - 1, b = rect.top - 1, c = rect.right, d = rect.bottom;
  for (const BoxRing& ring : style.rings) {
    if (ring.nType == 0) break;
    const int32_t w = ring.nWidth;
    if (w <= 0) continue;
    DrawRing(pixels, stride, width, height, a, b, c, d, w, ring.color1,
             ring.nType == 2 ? ring.color2 : ring.color1);
    a -= w;
    b -= w;
    c += w;
    d += w;
  }
}

void DrawHandles(cairo_t* cr, const HandleStyle& handle, int32_t x, int32_t y, int32_t width,
                 int32_t height, bool noCorners) {
  const int32_t s = handle.nSize;
  const int32_t x1 = x - 1, y1 = y - 1;
  const int32_t cx = x1 + (width - s) / 2, cy = y1 + (height - s) / 2;
  const int32_t right = x + width - s, bottom = y + height - s;
  const POINT sides[] = {{cx, y1}, {cx, bottom}, {x1, cy}, {right, cy}};
  const POINT corners[] = {{x1, y1}, {right, y1}, {x1, bottom}, {right, bottom}};
  cairo_save(cr);
  cairo_set_line_width(cr, 1.0);
  auto square = [&](POINT p) {
    cairo_rectangle(cr, p.x, p.y, s, s);
    SetSource(cr, handle.fillColor);
    cairo_fill(cr);
    cairo_rectangle(cr, p.x + 0.5, p.y + 0.5, s, s);
    SetSource(cr, handle.penColor);
    cairo_stroke(cr);
  };
  for (POINT p : sides) square(p);
  if (!noCorners)
    for (POINT p : corners) square(p);
  cairo_restore(cr);
}

void BuildHitTable(RECT t[kHitZones], const RECT& r, int32_t s, int32_t h, bool noCorners) {
  const int32_t L = r.left, T = r.top, R = r.right, B = r.bottom;
  const int32_t mx = (L + R) / 2 - h / 2 - 1, my = (T + B) / 2 - h / 2 - 1;
  t[0] = {};
  t[kHitTop] = {mx, T - 1, mx + h + 2, T + h + 1};
  t[kHitBottom] = {mx, B - h - 1, mx + h + 2, B + 1};
  t[kHitLeft] = {L - 1, my, L + h + 1, my + h + 2};
  t[kHitRight] = {R - h - 1, my, R + 1, my + h + 2};
  t[kHitTopLeft] = {L - s - 1, T - s - 1, L + h + 1, T + h + 1};
  t[kHitTopRight] = {R - h - 1, T - s - 1, R + s + 1, T + h + 1};
  t[kHitBottomLeft] = {L - s - 1, B - h - 1, L + h + 1, B + s + 1};
  t[kHitBottomRight] = {R - h - 1, B - h - 1, R + s + 1, B + s + 1};
  if (noCorners)
    for (int i = kHitTopLeft; i <= kHitBottomRight; ++i) t[i] = {};
  t[kHitTopEdge] = {L, T - s - 3, R, T + 3};
  t[kHitBottomEdge] = {L, B - s - 3, R, B + 3};
  t[kHitLeftEdge] = {L - s - 3, T, L + 3, B};
  t[kHitRightEdge] = {R - s - 3, T, R + 3, B};
  t[kHitMove] = {L, T, R, B};
}

int32_t HitTest(const RECT t[kHitZones], bool noMove, POINT p, bool noCorners) {
  for (int32_t i = kHitTop; i <= kHitMove; ++i) {
    if (noCorners && i >= kHitTopLeft && i <= kHitBottomRight) continue;
    if (noMove && i == kHitMove) continue;
    if (Inside(t[i], p)) return i >= kHitTopEdge && i <= kHitRightEdge ? i - 8 : i;
  }
  return kHitNone;
}

bool RectOnDisplay(const RECT* rect) {
  const RECT& d = g_rcDisplay;
  if (rect && rect->left < rect->right && rect->top < rect->bottom && rect->left >= d.left &&
      rect->top >= d.top && rect->right <= d.right && rect->bottom <= d.bottom)
    return true;
  const RECT r = rect ? *rect : RECT{};
  WriteLog(kErr, "Error rect={%dx%d-%dx%d}(%dx%d), Display rect={%dx%d-%dx%d}(%dx%d)\n", r.left,
           r.top, r.right, r.bottom, r.right - r.left, r.bottom - r.top, d.left, d.top, d.right,
           d.bottom, d.right - d.left, d.bottom - d.top);
  return false;
}

}  // namespace ov

namespace {

void SetBox(BoxStyle* to, const BoxStyle* style, const char* name) {
  if (!style) {
    ov::LogBadArgument(name, OV_FILE, __LINE__);
    return;
  }
  ov::CopyStyle(to, *style);
}

void SetCropBox(BoxStyle* to, HandleStyle* handleTo, const BoxStyle* style,
                const HandleStyle* handle) {
  if (!style || !handle) {
    ov::LogBadArgument(style ? "handle" : "style", OV_FILE, __LINE__);
    return;
  }
  ov::CopyStyle(to, *style);
  *handleTo = *handle;
}

}  // namespace

extern "C" {

OV_API void SetStaticBox(const BoxStyle* style) { SetBox(&ov::g_StaticBoxStyle, style, "style"); }
OV_API void SetScreenBox(const BoxStyle* style) { SetBox(&ov::g_ScreenBoxStyle, style, "style"); }
OV_API void SetWindowBox(const BoxStyle* style) { SetBox(&ov::g_WindowBoxStyle, style, "style"); }
OV_API void SetImageBox(const BoxStyle* style) { SetBox(&ov::g_ImageBoxStyle, style, "style"); }

OV_API void SetScreenCropBox(const BoxStyle* style, const HandleStyle* handle) {
  SetCropBox(&ov::g_ScreenCropBoxStyle, &ov::g_ScreenCropHandle, style, handle);
}
OV_API void SetWindowCropBox(const BoxStyle* style, const HandleStyle* handle) {
  SetCropBox(&ov::g_WindowCropBoxStyle, &ov::g_WindowCropHandle, style, handle);
}
OV_API void SetImageCropBox(const BoxStyle* style, const HandleStyle* handle) {
  SetCropBox(&ov::g_ImageCropBoxStyle, &ov::g_ImageCropHandle, style, handle);
}

OV_API void SetRecordBox(uint32_t color1, uint32_t color2) {
  ov::g_RecordBoxColor[0] = color1;
  ov::g_RecordBoxColor[1] = color2;
}
OV_API void SetPauseBox(uint32_t color1, uint32_t color2) {
  ov::g_PauseBoxColor[0] = color1;
  ov::g_PauseBoxColor[1] = color2;
}

OV_API void SetDashValue(int32_t period, int32_t onLength) {
  if (period <= 0) {
    OV_BAD_ARG(period);
    return;
  }
  ov::g_nDashPeriod = period;
  ov::g_nDashOn = onLength;
}

OV_API void SetZoomTips(const wchar_t* format) {
  if (!format) {
    OV_BAD_ARG(format);
    return;
  }
  std::lock_guard<std::mutex> lock(ov::g_tipsLock);
  ov::g_zoomTips = format;
}
}
