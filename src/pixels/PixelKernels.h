// The per-instruction-set kernels behind the pixel routines. The routines
// check their arguments and find the planes; a kernel gets sizes it can work
// on whole (even where the format works by 2 x 2 blocks) and valid pointers.
//
// Every kernel table computes exactly the same bytes as the plain one; the
// vector kernels hand the columns left over at the right edge of a row to
// the plain row functions below.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ov::pixels {

enum class PackedLayout { kYuy2, kUyvy, kYvyu };

// Video-range BT.601: c = y * Y - bias, then blue (c + ub * u) >> 16,
// green (c - ug * u - vg * v) >> 16, red (c + vr * v) >> 16.
struct YuvConstants {
  int32_t y, ub, ug, vg, vr, bias;
};
inline constexpr YuvConstants kYuvBt601 = {76284, 132186, 25690, 53281, 104595, 1187776};
// The UYVY routine's own rounding of the same factors.
inline constexpr YuvConstants kYuvBt601Uyvy = {76282, 132184, 25689, 53279, 104593, 1187744};

inline const YuvConstants& ConstantsOf(PackedLayout layout) {
  return layout == PackedLayout::kUyvy ? kYuvBt601Uyvy : kYuvBt601;
}

struct PixelKernels {
  // width and height even.
  void (*bgr32ToI420)(uint8_t* y, ptrdiff_t yPitch, uint8_t* u, uint8_t* v, ptrdiff_t uvPitch,
                      const uint8_t* src, ptrdiff_t srcPitch, int width, int height);
  // width and height even; the UV plane has the Y plane's pitch.
  void (*bgr32ToNv12)(uint8_t* y, uint8_t* uv, ptrdiff_t pitch, const uint8_t* src,
                      ptrdiff_t srcPitch, int width, int height);
  // width and height even.
  void (*i420ToRgb32)(uint8_t* dst, ptrdiff_t pitch, const uint8_t* y, ptrdiff_t yPitch,
                      const uint8_t* u, const uint8_t* v, ptrdiff_t uvPitch, int width, int height);
  // width and height even.
  void (*nv12ToBgr32)(uint8_t* dst, ptrdiff_t pitch, const uint8_t* y, const uint8_t* uv,
                      ptrdiff_t srcPitch, int width, int height);
  void (*packedToBgr32)(uint8_t* dst, ptrdiff_t pitch, const uint8_t* src, ptrdiff_t srcPitch,
                        int width, int height, PackedLayout layout);
  void (*bgr24ToBgr32)(uint8_t* dst, ptrdiff_t pitch, const uint8_t* src, ptrdiff_t srcPitch,
                       int width, int height);
  void (*fill32)(uint32_t value, uint8_t* dst, ptrdiff_t pitch, int width, int height);
  void (*flipRows32)(uint8_t* data, int width, int height);
  void (*flipRows24)(uint8_t* data, int width, int height);
  // The encoders' input: video-range BT.709 4:2:0, chroma the mean of each
  // 2 x 2 block. width and height even; chroma sample k of a row goes to
  // u[k * chromaStep] and v[k * chromaStep] (I420: 1; NV12: uv, uv + 1, 2).
  void (*bgr32ToVideoYuv)(uint8_t* y, ptrdiff_t yPitch, uint8_t* u, uint8_t* v, ptrdiff_t uvPitch,
                          int chromaStep, const uint8_t* src, ptrdiff_t srcPitch, int width,
                          int height);
};

// Video-range BT.709 from full-range 8-bit RGB, in units of 1 / 32768:
// Y = (yr R + yg G + yb B + yBias) >> 15 per pixel, and per 2 x 2 block, from
// the sums of the four pixels' colours, C = (cr R + cg G + cb B + cBias) >> 17.
// Each chroma row sums to 0, so that grey has no colour.
struct VideoRangeConstants {
  static constexpr int32_t yr = 5983, yg = 20127, yb = 2032;
  static constexpr int32_t yBias = (16 << 15) + (1 << 14);
  static constexpr int32_t ur = -3298, ug = -11094, ub = 14392;
  static constexpr int32_t vr = 14392, vg = -13072, vb = -1320;
  static constexpr int32_t cBias = (128 << 17) + (1 << 16);
};

const PixelKernels& PlainKernels();
#if defined(__x86_64__) || defined(__i386__)
const PixelKernels& Sse2Kernels();
const PixelKernels& Avx2Kernels();
#endif

// Plain row functions, for the whole image and for the vector kernels' right
// edges. Columns [xBegin, xEnd); block functions need both even.

// Two source rows to two luma rows and one row of chroma; chroma sample k of
// the range goes to u[k * chromaStep] and v[k * chromaStep], so NV12 passes
// uv, uv + 1 and 2.
void Bgr32ToYuvBlockRow(const uint8_t* src0, const uint8_t* src1, uint8_t* y0, uint8_t* y1,
                        uint8_t* u, uint8_t* v, int chromaStep, int xBegin, int xEnd);
void Bgr32ToVideoYuvBlockRow(const uint8_t* src0, const uint8_t* src1, uint8_t* y0, uint8_t* y1,
                             uint8_t* u, uint8_t* v, int chromaStep, int xBegin, int xEnd);
void I420ToRgb32BlockRow(uint8_t* dst0, uint8_t* dst1, const uint8_t* y0, const uint8_t* y1,
                         const uint8_t* u, const uint8_t* v, int xBegin, int xEnd);
void Nv12ToBgr32BlockRow(uint8_t* dst0, uint8_t* dst1, const uint8_t* y0, const uint8_t* y1,
                         const uint8_t* uv, int xBegin, int xEnd);
// xBegin even; width is the row's, so that an odd last pixel is handled.
void PackedToBgr32Row(uint8_t* dst, const uint8_t* src, int xBegin, int width, PackedLayout layout);
void Bgr24ToBgr32Row(uint8_t* dst, const uint8_t* src, int xBegin, int xEnd);
void Fill32Row(uint32_t value, uint8_t* dst, int xBegin, int xEnd);
void SwapRows32(uint8_t* row0, uint8_t* row1, int xBegin, int xEnd);
// Byte ranges.
void SwapBytes(uint8_t* row0, uint8_t* row1, int begin, int end);

}  // namespace ov::pixels
