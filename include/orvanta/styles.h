// The look of the on-screen boxes: the rings round a rectangle, the handles
// of the crop boxes, the recorder box's colours, the size tip's text, and
// the folder of pictures and cursors the overlays use.
#pragma once

#include "orvanta/types.h"

// One ring round a box, the innermost first.
struct BoxRing {
  int32_t nWidth;   // thickness in pixels; 0 skips the record
  int32_t nType;    // 0 ends the list; 2 dashed; any other value solid
  uint32_t color1;  // 0xAARRGGBB
  uint32_t color2;  // the other colour of a dashed ring
};

// Eight rings; a record of type 0 ends the list early.
struct BoxStyle {
  BoxRing rings[8];
};
static_assert(sizeof(BoxStyle) == 128, "a box style is 128 bytes");

struct HandleStyle {
  int32_t nSize;       // side of the square, in pixels
  uint32_t penColor;   // 0xAARRGGBB
  uint32_t fillColor;  // 0xAARRGGBB
};
static_assert(sizeof(HandleStyle) == 12, "a handle style is 12 bytes");

extern "C" {

// Each copies the style (colours premultiplied); the next repaint shows it.
OV_API void SetStaticBox(const BoxStyle* style);
OV_API void SetScreenBox(const BoxStyle* style);
OV_API void SetWindowBox(const BoxStyle* style);
OV_API void SetImageBox(const BoxStyle* style);
OV_API void SetScreenCropBox(const BoxStyle* style, const HandleStyle* handle);
OV_API void SetWindowCropBox(const BoxStyle* style, const HandleStyle* handle);
OV_API void SetImageCropBox(const BoxStyle* style, const HandleStyle* handle);
// The recorder box's two colours while recording and while paused; read
// when a box is made.
OV_API void SetRecordBox(uint32_t color1, uint32_t color2);
OV_API void SetPauseBox(uint32_t color1, uint32_t color2);
// A dash pixel is on when its counter mod period is below onLength. A
// period of 0 or below is refused.
OV_API void SetDashValue(int32_t period, int32_t onLength);
// printf format of the size tip, given width, height, left and top.
OV_API void SetZoomTips(const wchar_t* format);
// The folder that holds "Images" and "Cursors"; at most 259 characters are
// kept, and a final separator is dropped.
OV_API void SetResourceFilePath(const wchar_t* path);
}
