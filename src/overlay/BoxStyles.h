// The look shared by all boxes: the process-wide ring and handle styles that
// the host sets, and the routines that draw them and find the handle under
// the pointer.
#pragma once

#include <cstdint>
#include <string>

#include "orvanta/styles.h"

typedef struct _cairo cairo_t;

namespace ov {

// Premultiplied copies of the host's styles, read at every drawing.
extern BoxStyle g_StaticBoxStyle;
extern BoxStyle g_ScreenBoxStyle;
extern BoxStyle g_ScreenCropBoxStyle;
extern BoxStyle g_WindowBoxStyle;
extern BoxStyle g_WindowCropBoxStyle;
extern BoxStyle g_ZoomGlassStyle;
extern BoxStyle g_ImageBoxStyle;
extern BoxStyle g_ImageCropBoxStyle;
extern HandleStyle g_ScreenCropHandle;
extern HandleStyle g_WindowCropHandle;
extern HandleStyle g_ImageCropHandle;
extern int32_t g_nDashPeriod;
extern int32_t g_nDashOn;
extern uint32_t g_RecordBoxColor[2];
extern uint32_t g_PauseBoxColor[2];
// The size tip's format: width, height, left, top.
std::wstring ZoomTipsFormat();

// Hit codes of a box's zones; 9 to 12 (the edges) report as 1 to 4.
enum HitCode : int32_t {
  kHitNone = 0,
  kHitTop = 1,
  kHitBottom,
  kHitLeft,
  kHitRight,
  kHitTopLeft,
  kHitTopRight,
  kHitBottomLeft,
  kHitBottomRight,
  kHitTopEdge,
  kHitBottomEdge,
  kHitLeftEdge,
  kHitRightEdge,
  kHitMove,
};
inline constexpr int kHitZones = 14;

// The sum of the widths of the style's rings, up to its end mark.
int32_t TotalRingWidth(const BoxStyle& style);

// Draws the rings outside rect (right and bottom exclusive) straight into
// the picture, without blending; pixels outside the picture are skipped.
// stride counts pixels.
void DrawRings(uint32_t* pixels, int32_t stride, int32_t width, int32_t height,
               const BoxStyle& style, const RECT& rect);

// The handles of a box at (x, y, width, height): filled squares with an
// outline, on the sides and, unless noCorners, at the corners.
void DrawHandles(cairo_t* graphics, const HandleStyle& handle, int32_t x, int32_t y, int32_t width,
                 int32_t height, bool noCorners);

void BuildHitTable(RECT table[kHitZones], const RECT& rect, int32_t ringWidth, int32_t handleSize,
                   bool noCorners);
// 0 or the code of the first zone, in the order 1 to 13, that holds point.
int32_t HitTest(const RECT table[kHitZones], bool noMove, POINT point, bool noCorners);

// Whether rect is a non-empty rectangle on the display; logs the two when
// not.
bool RectOnDisplay(const RECT* rect);

}  // namespace ov
