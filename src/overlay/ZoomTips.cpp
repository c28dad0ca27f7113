#include "overlay/ZoomTips.h"

#include <cairo.h>
#include <pango/pangocairo.h>

#include <algorithm>

#include "core/Globals.h"
#include "core/Rect.h"
#include "overlay/BoxStyles.h"
#include "platform/Text.h"

namespace ov {

namespace {

constexpr int32_t kCell = 4;
constexpr int32_t kQuarterWidth = 96, kQuarterHeight = 64;  // 24 x 16 cells
constexpr int32_t kPictureHeight = 132;
constexpr int32_t kDistance = 48;  // from the pointer

void SetSource(cairo_t* cr, uint32_t argb) {
  cairo_set_source_rgba(cr, ((argb >> 16) & 0xFF) / 255.0, ((argb >> 8) & 0xFF) / 255.0,
                        (argb & 0xFF) / 255.0, (argb >> 24) / 255.0);
}

uint32_t SourceCell(const ZoomRecord& r, int32_t x, int32_t y) {
  if (x < 0 || y < 0 || x >= r.sourceWidth || y >= r.sourceHeight) return 0xFF000000u;
  return r.source[static_cast<ptrdiff_t>(y) * r.sourceWidth + x];
}

uint32_t ThresholdInverse(uint32_t c) {
  uint32_t out = 0xFF000000u;
  for (int shift = 0; shift < 24; shift += 8)
    if (((c >> shift) & 0xFF) < 128) out |= 0xFFu << shift;
  return out;
}

void Put(const ZoomRecord& r, int32_t x, int32_t y, uint32_t c) {
  if (x >= 0 && y >= 0 && x < r.targetWidth && y < r.targetHeight)
    r.target[static_cast<ptrdiff_t>(y) * r.targetStride + x] = c;
}

// Pixels of [x, x + w) x [y, y + h), each showing the colour that cell(px, py)
// gives.
template <class CellOf>
void Block(const ZoomRecord& r, int32_t x, int32_t y, int32_t w, int32_t h, CellOf cellOf) {
  for (int32_t j = 0; j < h; ++j)
    for (int32_t i = 0; i < w; ++i) Put(r, x + i, y + j, cellOf(i, j));
}

PangoLayout* TipLayout(cairo_t* cr, PangoFontDescription* font, const RECT& rect) {
  PangoLayout* layout = pango_cairo_create_layout(cr);
  pango_layout_set_font_description(layout, font);
  pango_layout_set_text(layout, ToUtf8(FormatTip(ZoomTipsFormat(), rect)).c_str(), -1);
  return layout;
}

}  // namespace

void FontRelease::operator()(PangoFontDescription* font) const {
  pango_font_description_free(font);
}

Font MakeFont(const char* name, int32_t size) {
  // Pango falls back to its sans-serif family by itself when the system has
  // no font of the name.
  PangoFontDescription* font = pango_font_description_new();
  pango_font_description_set_family(font, name && *name ? name : "Sans");
  pango_font_description_set_weight(font, PANGO_WEIGHT_BOLD);
  pango_font_description_set_absolute_size(font, size * PANGO_SCALE);
  return Font(font);
}

std::wstring FormatTip(const std::wstring& format, const RECT& rect) {
  const int32_t values[4] = {Width(rect), Height(rect), rect.left, rect.top};
  std::wstring out;
  size_t next = 0;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] == L'%' && i + 1 < format.size() && format[i + 1] == L'%') {
      out += L'%';
      ++i;
    } else if (format[i] == L'%' && i + 1 < format.size() && format[i + 1] == L'd' && next < 4) {
      out += std::to_wstring(values[next++]);
      ++i;
    } else {
      out += format[i];
    }
  }
  return out;
}

POINT DrawZoomGlass(const ZoomRecord& r, int32_t x, int32_t y, int32_t sx, int32_t sy,
                    const RECT& rect) {
  const int32_t ring = 2 * TotalRingWidth(g_ZoomGlassStyle);
  const int32_t x0 = x + ring + kZoomGlassWidth < Width(g_rcDisplay)
                         ? x + kDistance
                         : x - (ring + kZoomGlassWidth) - kDistance;
  const int32_t y0 = y + ring + kZoomGlassHeight < Height(g_rcDisplay)
                         ? y + kDistance
                         : y - (ring + kZoomGlassHeight) - kDistance;
  cairo_surface_t* surface = r.graphics ? cairo_get_target(r.graphics) : nullptr;
  if (surface) cairo_surface_flush(surface);
  DrawRings(r.target, r.targetStride, r.targetWidth, r.targetHeight, g_ZoomGlassStyle,
            {x0, y0, x0 + kZoomGlassWidth, y0 + kZoomGlassHeight});

  // The four quarters at four times the size; the right and lower ones
  // begin at the pointer's own column and row.
  const int32_t cx = x0 + kQuarterWidth, cy = y0 + kQuarterHeight;
  const POINT at[4] = {{x0, y0}, {cx + kCell, y0}, {x0, cy + kCell}, {cx + kCell, cy + kCell}};
  const POINT first[4] = {{sx - 24, sy - 16}, {sx, sy - 16}, {sx - 24, sy}, {sx, sy}};
  for (int q = 0; q < 4; ++q)
    Block(r, at[q].x, at[q].y, kQuarterWidth, kQuarterHeight, [&](int32_t i, int32_t j) {
      return SourceCell(r, first[q].x + i / kCell, first[q].y + j / kCell);
    });
  // The pointer's cell, and the crosshair's arms in the inverse of the
  // cells they cover.
  Block(r, cx, cy, kCell, kCell, [&](int32_t, int32_t) { return SourceCell(r, sx, sy); });
  auto inverse = [&](int32_t cellX, int32_t cellY) {
    return ThresholdInverse(SourceCell(r, cellX, cellY));
  };
  Block(r, cx, y0, kCell, kQuarterHeight,
        [&](int32_t, int32_t j) { return inverse(sx, sy - 16 + j / kCell); });
  Block(r, cx, cy + kCell, kCell, kQuarterHeight,
        [&](int32_t, int32_t j) { return inverse(sx, sy + j / kCell); });
  Block(r, x0, cy, kQuarterWidth, kCell,
        [&](int32_t i, int32_t) { return inverse(sx - 24 + i / kCell, sy); });
  Block(r, cx + kCell, cy, kQuarterWidth, kCell,
        [&](int32_t i, int32_t) { return inverse(sx + i / kCell, sy); });
  if (surface) cairo_surface_mark_dirty(surface);
  if (!r.graphics) return {x0, y0};

  cairo_t* cr = r.graphics;
  cairo_save(cr);
  const struct {
    int32_t top, height;
    uint32_t colour;
  } bands[] = {{kPictureHeight, 1, 0xFF0080FF},
               {kPictureHeight + 1, 1, 0xC0000000},
               {kPictureHeight + 2, 38, 0x70000000}};
  for (const auto& band : bands) {
    cairo_rectangle(cr, x0, y0 + band.top, kZoomGlassWidth, band.height);
    SetSource(cr, band.colour);
    cairo_fill(cr);
  }
  if (r.font) {
    PangoLayout* layout = TipLayout(cr, r.font, rect);
    cairo_move_to(cr, x0 + 4, y0 + 138);
    SetSource(cr, 0xFFFFFFFF);
    pango_cairo_show_layout(cr, layout);
    g_object_unref(layout);
  }
  cairo_restore(cr);
  return {x0, y0};
}

void DrawSizeTip(cairo_t* cr, PangoFontDescription* font, uint32_t brush, int32_t x, int32_t y,
                 const RECT& rect) {
  if (!cr || !font) return;
  cairo_save(cr);
  PangoLayout* layout = TipLayout(cr, font, rect);
  int textWidth = 0, textHeight = 0;
  pango_layout_get_pixel_size(layout, &textWidth, &textHeight);
  const int32_t w = textWidth + 3, h = textHeight + 3;
  cairo_rectangle(cr, x, y, w, h);
  SetSource(cr, brush);
  cairo_fill(cr);
  cairo_move_to(cr, x + 2, y + 2);
  SetSource(cr, 0xFF000000);
  pango_cairo_show_layout(cr, layout);
  g_object_unref(layout);
  // A soft shadow: outlines fading outwards.
  const uint32_t shades[4] = {0x10000000, 0x20000000, 0x40000000, 0xFF000000};
  cairo_set_line_width(cr, 1.0);
  for (int i = 0; i < 4; ++i) {
    const int32_t grow = 3 - i;
    cairo_rectangle(cr, x - grow + 0.5, y - grow + 0.5, w + 2 * grow, h + 2 * grow);
    SetSource(cr, shades[i]);
    cairo_stroke(cr);
  }
  cairo_restore(cr);
}

void DrawCrosshair(const ZoomRecord& r, int32_t x, int32_t y) {
  auto inverse = [](uint32_t p) {
    uint32_t out = 0xFF000000u;
    for (int shift = 0; shift < 24; shift += 8)
      if (((p >> shift) & 0xFF) < 128) out |= 0xFFu << shift;
    return out;
  };
  const int32_t w = std::min(r.targetWidth, r.sourceWidth);
  const int32_t h = std::min(r.targetHeight, r.sourceHeight);
  if (x < 0 || y < 0 || x >= w || y >= h) return;
  for (int32_t i = 0; i < w; ++i)
    r.target[y * r.targetStride + i] = inverse(r.source[y * r.sourceWidth + i]);
  for (int32_t i = 0; i < h; ++i)
    r.target[i * r.targetStride + x] = inverse(r.source[i * r.sourceWidth + x]);
  r.target[y * r.targetStride + x] = 0;
}

}  // namespace ov
