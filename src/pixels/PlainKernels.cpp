// The reference arithmetic: one pixel or one 2 x 2 block at a time, in 32-bit
// integers. The vector kernels must match these bytes exactly.
#include <cstring>

#include "pixels/PixelKernels.h"

namespace ov::pixels {
namespace {

inline uint8_t Clip(int32_t value) {
  return value < 0 ? 0 : value > 255 ? 255 : static_cast<uint8_t>(value);
}

// 65536 times the luma: the weights sum to 65536, so Y = q >> 16 spans 0..255.
inline int32_t LumaQ(const uint8_t* px) { return 19595 * px[2] + 38470 * px[1] + 7471 * px[0]; }

// Chroma of a block from the sum of one colour and the sum of the block's q;
// 0x1FFFF rounds the four-pixel sum before it is scaled down.
inline int32_t ChromaDiff(int32_t colourSum, int32_t lumaSum) {
  return (colourSum * 65536 - lumaSum + 0x1FFFF) >> 16;
}

inline void YuvToPixel(uint8_t* dst, int32_t y, int32_t u, int32_t v, const YuvConstants& k,
                       uint8_t fourth) {
  const int32_t c = k.y * y - k.bias;
  dst[0] = Clip((c + k.ub * u) >> 16);
  dst[1] = Clip((c - k.ug * u - k.vg * v) >> 16);
  dst[2] = Clip((c + k.vr * v) >> 16);
  dst[3] = fourth;
}

}  // namespace

void Bgr32ToYuvBlockRow(const uint8_t* src0, const uint8_t* src1, uint8_t* y0, uint8_t* y1,
                        uint8_t* u, uint8_t* v, int chromaStep, int xBegin, int xEnd) {
  for (int x = xBegin; x < xEnd; x += 2) {
    const uint8_t* px[4] = {src0 + 4 * x, src0 + 4 * x + 4, src1 + 4 * x, src1 + 4 * x + 4};
    int32_t q[4];
    int32_t sumB = 0, sumR = 0;
    for (int i = 0; i < 4; ++i) {
      q[i] = LumaQ(px[i]);
      sumB += px[i][0];
      sumR += px[i][2];
    }
    y0[x] = static_cast<uint8_t>(q[0] >> 16);
    y0[x + 1] = static_cast<uint8_t>(q[1] >> 16);
    y1[x] = static_cast<uint8_t>(q[2] >> 16);
    y1[x + 1] = static_cast<uint8_t>(q[3] >> 16);
    const int32_t sum = q[0] + q[1] + q[2] + q[3];
    const int k = x / 2 * chromaStep;
    // U cannot leave 17..239, so keeping eight bits loses nothing; V can.
    u[k] = static_cast<uint8_t>((ChromaDiff(sumB, sum) * 32244 >> 18) + 128);
    v[k] = Clip((ChromaDiff(sumR, sum) * 57475 >> 18) + 128);
  }
}

void Bgr32ToVideoYuvBlockRow(const uint8_t* src0, const uint8_t* src1, uint8_t* y0, uint8_t* y1,
                             uint8_t* u, uint8_t* v, int chromaStep, int xBegin, int xEnd) {
  using K = VideoRangeConstants;
  for (int x = xBegin; x < xEnd; x += 2) {
    const uint8_t* px[4] = {src0 + 4 * x, src0 + 4 * x + 4, src1 + 4 * x, src1 + 4 * x + 4};
    uint8_t* out[4] = {y0 + x, y0 + x + 1, y1 + x, y1 + x + 1};
    int32_t sumB = 0, sumG = 0, sumR = 0;
    for (int i = 0; i < 4; ++i) {
      *out[i] = static_cast<uint8_t>(
          (K::yr * px[i][2] + K::yg * px[i][1] + K::yb * px[i][0] + K::yBias) >> 15);
      sumB += px[i][0];
      sumG += px[i][1];
      sumR += px[i][2];
    }
    const int k = x / 2 * chromaStep;
    u[k] = static_cast<uint8_t>((K::ur * sumR + K::ug * sumG + K::ub * sumB + K::cBias) >> 17);
    v[k] = static_cast<uint8_t>((K::vr * sumR + K::vg * sumG + K::vb * sumB + K::cBias) >> 17);
  }
}

void I420ToRgb32BlockRow(uint8_t* dst0, uint8_t* dst1, const uint8_t* y0, const uint8_t* y1,
                         const uint8_t* u, const uint8_t* v, int xBegin, int xEnd) {
  for (int x = xBegin; x < xEnd; x += 2) {
    const int32_t cu = u[x / 2] - 128;
    const int32_t cv = v[x / 2] - 128;
    const int32_t fromV = 74711 * cv + 32768;
    const int32_t fromUV = -38076 * cv - 25821 * cu + 32768;
    const int32_t fromU = 133169 * cu + 32768;
    uint8_t* out[4] = {dst0 + 4 * x, dst0 + 4 * x + 4, dst1 + 4 * x, dst1 + 4 * x + 4};
    const uint8_t luma[4] = {y0[x], y0[x + 1], y1[x], y1[x + 1]};
    for (int i = 0; i < 4; ++i) {
      const int32_t y = luma[i] * 65536;
      out[i][0] = Clip((y + fromV) >> 16);
      out[i][1] = Clip((y + fromUV) >> 16);
      out[i][2] = Clip((y + fromU) >> 16);
      out[i][3] = 0;
    }
  }
}

void Nv12ToBgr32BlockRow(uint8_t* dst0, uint8_t* dst1, const uint8_t* y0, const uint8_t* y1,
                         const uint8_t* uv, int xBegin, int xEnd) {
  for (int x = xBegin; x < xEnd; x += 2) {
    const int32_t u = uv[x] - 128;
    const int32_t v = uv[x + 1] - 128;
    YuvToPixel(dst0 + 4 * x, y0[x], u, v, kYuvBt601, 255);
    YuvToPixel(dst0 + 4 * x + 4, y0[x + 1], u, v, kYuvBt601, 255);
    YuvToPixel(dst1 + 4 * x, y1[x], u, v, kYuvBt601, 255);
    YuvToPixel(dst1 + 4 * x + 4, y1[x + 1], u, v, kYuvBt601, 255);
  }
}

void PackedToBgr32Row(uint8_t* dst, const uint8_t* src, int xBegin, int width,
                      PackedLayout layout) {
  // Byte offsets inside a pair: Y0, Y1, U, V.
  int oy = 0, ou = 1, ov = 3;
  if (layout == PackedLayout::kUyvy) {
    oy = 1, ou = 0, ov = 2;
  } else if (layout == PackedLayout::kYvyu) {
    ou = 3, ov = 1;
  }
  const YuvConstants& k = ConstantsOf(layout);
  int x = xBegin;
  for (; x + 1 < width; x += 2) {
    const uint8_t* pair = src + 2 * x;
    const int32_t u = pair[ou] - 128;
    const int32_t v = pair[ov] - 128;
    YuvToPixel(dst + 4 * x, pair[oy], u, v, k, 255);
    YuvToPixel(dst + 4 * x + 4, pair[oy + 2], u, v, k, 255);
  }
  if (x < width) {
    // Half a pair: its first two bytes hold Y and one chroma sample.
    const uint8_t* half = src + 2 * x;
    const uint8_t* lender = x > 0 ? half - 4 : nullptr;
    const int present = 1 - oy;
    const int32_t u = (ou == present ? half[ou] : lender ? lender[ou] : half[present]) - 128;
    const int32_t v = (ov == present ? half[ov] : lender ? lender[ov] : half[present]) - 128;
    YuvToPixel(dst + 4 * x, half[oy], u, v, k, 255);
  }
}

void Bgr24ToBgr32Row(uint8_t* dst, const uint8_t* src, int xBegin, int xEnd) {
  for (int x = xBegin; x < xEnd; ++x) {
    dst[4 * x] = src[3 * x];
    dst[4 * x + 1] = src[3 * x + 1];
    dst[4 * x + 2] = src[3 * x + 2];
  }
}

void Fill32Row(uint32_t value, uint8_t* dst, int xBegin, int xEnd) {
  for (int x = xBegin; x < xEnd; ++x) std::memcpy(dst + 4 * x, &value, 4);
}

void SwapRows32(uint8_t* row0, uint8_t* row1, int xBegin, int xEnd) {
  for (int x = xBegin; x < xEnd; ++x) {
    for (int i = 0; i < 3; ++i) {
      const uint8_t b = row0[4 * x + i];
      row0[4 * x + i] = row1[4 * x + i];
      row1[4 * x + i] = b;
    }
  }
}

void SwapBytes(uint8_t* row0, uint8_t* row1, int begin, int end) {
  for (int i = begin; i < end; ++i) {
    const uint8_t b = row0[i];
    row0[i] = row1[i];
    row1[i] = b;
  }
}

namespace {

void Bgr32ToI420(uint8_t* y, ptrdiff_t yPitch, uint8_t* u, uint8_t* v, ptrdiff_t uvPitch,
                 const uint8_t* src, ptrdiff_t srcPitch, int width, int height) {
  for (int row = 0; row < height; row += 2) {
    const uint8_t* s = src + row * srcPitch;
    uint8_t* d = y + row * yPitch;
    const ptrdiff_t c = row / 2 * uvPitch;
    Bgr32ToYuvBlockRow(s, s + srcPitch, d, d + yPitch, u + c, v + c, 1, 0, width);
  }
}

void Bgr32ToNv12(uint8_t* y, uint8_t* uv, ptrdiff_t pitch, const uint8_t* src, ptrdiff_t srcPitch,
                 int width, int height) {
  for (int row = 0; row < height; row += 2) {
    const uint8_t* s = src + row * srcPitch;
    uint8_t* d = y + row * pitch;
    uint8_t* c = uv + row / 2 * pitch;
    Bgr32ToYuvBlockRow(s, s + srcPitch, d, d + pitch, c, c + 1, 2, 0, width);
  }
}

void I420ToRgb32(uint8_t* dst, ptrdiff_t pitch, const uint8_t* y, ptrdiff_t yPitch,
                 const uint8_t* u, const uint8_t* v, ptrdiff_t uvPitch, int width, int height) {
  for (int row = 0; row < height; row += 2) {
    uint8_t* d = dst + row * pitch;
    const uint8_t* s = y + row * yPitch;
    const ptrdiff_t c = row / 2 * uvPitch;
    I420ToRgb32BlockRow(d, d + pitch, s, s + yPitch, u + c, v + c, 0, width);
  }
}

void Nv12ToBgr32(uint8_t* dst, ptrdiff_t pitch, const uint8_t* y, const uint8_t* uv,
                 ptrdiff_t srcPitch, int width, int height) {
  for (int row = 0; row < height; row += 2) {
    uint8_t* d = dst + row * pitch;
    const uint8_t* s = y + row * srcPitch;
    Nv12ToBgr32BlockRow(d, d + pitch, s, s + srcPitch, uv + row / 2 * srcPitch, 0, width);
  }
}

void PackedToBgr32(uint8_t* dst, ptrdiff_t pitch, const uint8_t* src, ptrdiff_t srcPitch, int width,
                   int height, PackedLayout layout) {
  for (int row = 0; row < height; ++row) {
    PackedToBgr32Row(dst + row * pitch, src + row * srcPitch, 0, width, layout);
  }
}

void Bgr24ToBgr32(uint8_t* dst, ptrdiff_t pitch, const uint8_t* src, ptrdiff_t srcPitch, int width,
                  int height) {
  for (int row = 0; row < height; ++row) {
    Bgr24ToBgr32Row(dst + row * pitch, src + row * srcPitch, 0, width);
  }
}

void Fill32(uint32_t value, uint8_t* dst, ptrdiff_t pitch, int width, int height) {
  for (int row = 0; row < height; ++row) Fill32Row(value, dst + row * pitch, 0, width);
}

void FlipRows32(uint8_t* data, int width, int height) {
  const ptrdiff_t pitch = ptrdiff_t{width} * 4;
  for (int row = 0; row < height / 2; ++row) {
    SwapRows32(data + row * pitch, data + (height - 1 - row) * pitch, 0, width);
  }
}

void FlipRows24(uint8_t* data, int width, int height) {
  const ptrdiff_t pitch = ptrdiff_t{width} * 3;
  for (int row = 0; row < height / 2; ++row) {
    SwapBytes(data + row * pitch, data + (height - 1 - row) * pitch, 0, width * 3);
  }
}

void Bgr32ToVideoYuv(uint8_t* y, ptrdiff_t yPitch, uint8_t* u, uint8_t* v, ptrdiff_t uvPitch,
                     int chromaStep, const uint8_t* src, ptrdiff_t srcPitch, int width,
                     int height) {
  for (int row = 0; row < height; row += 2) {
    const uint8_t* s = src + row * srcPitch;
    uint8_t* d = y + row * yPitch;
    const ptrdiff_t c = row / 2 * uvPitch;
    Bgr32ToVideoYuvBlockRow(s, s + srcPitch, d, d + yPitch, u + c, v + c, chromaStep, 0, width);
  }
}

}  // namespace

const PixelKernels& PlainKernels() {
  static constexpr PixelKernels kKernels = {
      Bgr32ToI420,  Bgr32ToNv12, I420ToRgb32, Nv12ToBgr32, PackedToBgr32,
      Bgr24ToBgr32, Fill32,      FlipRows32,  FlipRows24,  Bgr32ToVideoYuv,
  };
  return kKernels;
}

}  // namespace ov::pixels
