// The kernels of the on-screen overlays: composing a picture with its
// overlay layer (dimmed outside a rectangle), the 5 x 5 blur, the faded
// picture and the dashed line. Pixels are BGRA in memory; overlays are
// premultiplied.
//
// ComposeRow runs for every pixel of every presented frame, so it has a
// plain and an SSE2 form that give the same bytes; the rest run once per
// picture and are plain.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ov::pixels {

// dst[x] for x in [xBegin, xEnd): the base is picture[x], or its muted and
// darkened form when dim is set (each channel becomes
// (sum of the three channels) * 0.075 + channel * 0.25 + 25.5); the
// premultiplied overlay[x] is laid over the base; alpha becomes 255.
using ComposeRowFn = void (*)(uint32_t* dst, const uint32_t* picture, const uint32_t* overlay,
                              int xBegin, int xEnd, bool dim);

void ComposeRowPlain(uint32_t* dst, const uint32_t* picture, const uint32_t* overlay, int xBegin,
                     int xEnd, bool dim);
#if defined(__x86_64__) || defined(__i386__)
void ComposeRowSse2(uint32_t* dst, const uint32_t* picture, const uint32_t* overlay, int xBegin,
                    int xEnd, bool dim);
#endif
// The fastest form this processor runs.
ComposeRowFn ComposeRow();

// Composes a whole picture: pixels whose column lies in [cropLeft, cropRight]
// and whose row lies in [cropTop, cropBottom] (edges included) are kept,
// the others dimmed. Pitches in bytes.
void ComposeOverlay(uint8_t* dst, ptrdiff_t dstPitch, const uint8_t* picture,
                    ptrdiff_t picturePitch, const uint8_t* overlay, ptrdiff_t overlayPitch,
                    int width, int height, int cropLeft, int cropTop, int cropRight,
                    int cropBottom);

// One pass of the 5 x 5 filter (weights 1 4 7 4 1 / 4 16 26 16 4 / 7 26 41
// 26 7, over 273), the picture's edge clamped; alpha becomes 255. src and
// dst must not overlap.
void GaussianBlurPass(uint8_t* dst, ptrdiff_t dstPitch, const uint8_t* src, ptrdiff_t srcPitch,
                      int width, int height);

// All four channels multiplied by alpha (0 to 255) / 255, rounded.
void FadeRow(uint32_t* dst, const uint32_t* src, int width, uint32_t alpha);

// A dashed line of 12 pixels colour1 and 12 pixels colour2; offset shifts
// the pattern.
void DashRow(uint32_t* dst, int width, uint32_t colour1, uint32_t colour2, int offset);

}  // namespace ov::pixels
