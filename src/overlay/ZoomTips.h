// The zoom glass beside the pointer of the selections, and the size tip: the
// region's size and place as text, in the format the host may set.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "orvanta/types.h"

typedef struct _cairo cairo_t;
typedef struct _PangoFontDescription PangoFontDescription;

namespace ov {

struct FontRelease {
  void operator()(PangoFontDescription* font) const;
};
using Font = std::unique_ptr<PangoFontDescription, FontRelease>;

// A bold font of the family (the generic sans-serif one where the system has
// no such family), size in pixels.
Font MakeFont(const char* name, int32_t size);

// The tip's text: format's %d take width, height, left and top of rect in
// turn, %% is a percent sign, and anything else is shown as it stands.
std::wstring FormatTip(const std::wstring& format, const RECT& rect);

// What one box's glass draws into and magnifies.
struct ZoomRecord {
  PangoFontDescription* font = nullptr;
  cairo_t* graphics = nullptr;  // on the target's pixels
  uint32_t* target = nullptr;   // premultiplied BGRA
  int32_t targetStride = 0;     // in pixels
  int32_t targetWidth = 0, targetHeight = 0;
  const uint32_t* source = nullptr;  // the picture under the glass
  int32_t sourceWidth = 0, sourceHeight = 0;
};

inline constexpr int32_t kZoomGlassWidth = 196, kZoomGlassHeight = 172;

// The glass near (x, y): 49 x 33 source cells round (sourceX, sourceY), each
// 4 x 4 pixels, a crosshair on the pointer's cell, and the tip of rect in a
// band below. Returns where the glass's top-left corner went.
POINT DrawZoomGlass(const ZoomRecord& record, int32_t x, int32_t y, int32_t sourceX,
                    int32_t sourceY, const RECT& rect);

// Lines through (x, y) across the target, each pixel the threshold inverse
// of the source's below it so that they show on any picture; the crossing
// itself stays clear.
void DrawCrosshair(const ZoomRecord& record, int32_t x, int32_t y);

// A label with the tip of rect at (x, y) on a brush of colour (0xAARRGGBB),
// with a soft shadow round it.
void DrawSizeTip(cairo_t* target, PangoFontDescription* font, uint32_t brush, int32_t x, int32_t y,
                 const RECT& rect);

}  // namespace ov
