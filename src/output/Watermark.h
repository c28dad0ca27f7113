// The watermark: a picture that the host names, laid on the video when the
// final file is made (the temp video stays untouched).
//
// Its raster, for a frame of w x h pixels, is one block of w * h * 4 bytes:
// an I420 picture (Y, then U and V at a quarter each) followed by an alpha
// plane for Y (one byte a pixel) and one for the chroma planes (one byte per
// 2 x 2 block). Colours are straight, not multiplied by alpha, in BT.709
// limited range like the encoders' pictures; a frame pixel becomes
// (frame * (255 - alpha) + picture * alpha) / 255.
#pragma once

#include <cstdint>

#include "orvanta/types.h"

extern wchar_t g_szWatermarkFile[OV_MAX_PATH];  // empty: no watermark
extern int32_t g_nWatermarkAlignX;              // 0 left, 1 centre, 2 right
extern int32_t g_nWatermarkAlignY;              // 0 top, 1 centre, 2 bottom

namespace ov {
// Distance of the picture from the frame's edges it is aligned to.
inline constexpr int kWatermarkMargin = 16;
}  // namespace ov

// Fills a raster of w * h * 4 bytes for the current watermark. A picture that
// can't be loaded covers nothing: all alpha is 0.
void DrawWatermark(uint8_t* raster, int w, int h);
