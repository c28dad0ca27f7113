// The kernels of the on-screen overlays: composing a picture with its
// overlay layer (dimmed outside a rectangle), the 5 x 5 blur, the faded
// picture and the dashed line. Pixels are BGRA in memory; overlays are
// premultiplied.
//
// The layers are laid over each other for every pixel of every presented
// frame, so that kernel, and the dimming beside it, have a plain and an SSE2
// form that give the same bytes; the rest run once per picture and are plain.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ov::pixels {

// dst[x] for x in [xBegin, xEnd): src[x] muted and darkened, each channel
// becoming (sum of the three channels) * 0.075 + channel * 0.25 + 25.5, as
// the picture shows outside the kept rectangle; alpha becomes 255.
using DimRowFn = void (*)(uint32_t* dst, const uint32_t* src, int xBegin, int xEnd);
// dst[x]: the premultiplied overlay[x] laid over base[x]; alpha becomes 255.
using OverRowFn = void (*)(uint32_t* dst, const uint32_t* base, const uint32_t* overlay, int xBegin,
                           int xEnd);

struct OverlayKernels {
  DimRowFn dimRow;
  OverRowFn overRow;
};
const OverlayKernels& PlainOverlayKernels();
#if defined(__x86_64__) || defined(__i386__)
const OverlayKernels& Sse2OverlayKernels();
#endif
// The fastest kernels this processor runs.
const OverlayKernels& ActiveOverlayKernels();

// The dimmed form of a whole picture, made once per picture. Pitches in bytes.
void DimPicture(uint8_t* dst, ptrdiff_t dstPitch, const uint8_t* src, ptrdiff_t srcPitch, int width,
                int height);

// One presented frame: the picture where the column lies in [cropLeft,
// cropRight] and the row in [cropTop, cropBottom] (edges included), its
// dimmed form elsewhere, under the overlay. The three share one pitch.
void ComposeOverlay(uint8_t* dst, const uint8_t* picture, const uint8_t* dimmed,
                    const uint8_t* overlay, ptrdiff_t pitch, int width, int height, int cropLeft,
                    int cropTop, int cropRight, int cropBottom);

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
