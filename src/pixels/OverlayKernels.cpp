#include "pixels/OverlayKernels.h"

#include <algorithm>

#if defined(__x86_64__) || defined(__i386__)
#include <emmintrin.h>
#endif

namespace ov::pixels {

namespace {

// Dimmed channel, 16-bit fixed point: 0.075 = 4915 / 65536, 0.25 = 16384 /
// 65536, 25.5 + rounding = 1703936 / 65536.
constexpr int32_t kDimSum = 4915;
constexpr int32_t kDimChannel = 16384;
constexpr int32_t kDimBias = 1703936;

inline uint32_t Div255(uint32_t t) {
  t += 128;
  return (t + (t >> 8)) >> 8;
}

inline uint32_t DimPixel(uint32_t c) {
  const uint32_t sum = (c & 0xFF) + ((c >> 8) & 0xFF) + ((c >> 16) & 0xFF);
  uint32_t out = 0xFF000000u;
  for (int shift = 0; shift < 24; shift += 8)
    out |= ((sum * kDimSum + ((c >> shift) & 0xFF) * kDimChannel + kDimBias) >> 16) << shift;
  return out;
}

inline uint32_t OverPixel(uint32_t c, uint32_t o) {
  const uint32_t ia = 255 - (o >> 24);
  uint32_t out = 0xFF000000u;
  for (int shift = 0; shift < 24; shift += 8) {
    uint32_t v = Div255(((c >> shift) & 0xFF) * ia) + ((o >> shift) & 0xFF);
    out |= std::min<uint32_t>(v, 255) << shift;
  }
  return out;
}

void DimRowPlain(uint32_t* dst, const uint32_t* src, int xBegin, int xEnd) {
  for (int x = xBegin; x < xEnd; ++x) dst[x] = DimPixel(src[x]);
}

void OverRowPlain(uint32_t* dst, const uint32_t* base, const uint32_t* overlay, int xBegin,
                  int xEnd) {
  for (int x = xBegin; x < xEnd; ++x) dst[x] = OverPixel(base[x], overlay[x]);
}

#if defined(__x86_64__) || defined(__i386__)

// Eight 16-bit channels (two pixels) dimmed.
inline __m128i Dim16(__m128i p) {
  // b+g+r in each colour lane: p + p rotated by one and by two channels.
  __m128i r1 =
      _mm_shufflelo_epi16(_mm_shufflehi_epi16(p, _MM_SHUFFLE(3, 0, 2, 1)), _MM_SHUFFLE(3, 0, 2, 1));
  __m128i r2 =
      _mm_shufflelo_epi16(_mm_shufflehi_epi16(p, _MM_SHUFFLE(3, 1, 0, 2)), _MM_SHUFFLE(3, 1, 0, 2));
  __m128i sum = _mm_add_epi16(_mm_add_epi16(p, r1), r2);
  const __m128i factors = _mm_set1_epi32(kDimChannel << 16 | kDimSum);
  const __m128i bias = _mm_set1_epi32(kDimBias);
  __m128i lo = _mm_add_epi32(_mm_madd_epi16(_mm_unpacklo_epi16(sum, p), factors), bias);
  __m128i hi = _mm_add_epi32(_mm_madd_epi16(_mm_unpackhi_epi16(sum, p), factors), bias);
  return _mm_packs_epi32(_mm_srli_epi32(lo, 16), _mm_srli_epi32(hi, 16));
}

// base * (255 - overlay alpha) / 255, rounded, on eight 16-bit channels;
// o16 holds the overlay's channels.
inline __m128i Under16(__m128i base, __m128i o16) {
  __m128i a = _mm_shufflelo_epi16(_mm_shufflehi_epi16(o16, _MM_SHUFFLE(3, 3, 3, 3)),
                                  _MM_SHUFFLE(3, 3, 3, 3));
  __m128i ia = _mm_sub_epi16(_mm_set1_epi16(255), a);
  __m128i t = _mm_add_epi16(_mm_mullo_epi16(base, ia), _mm_set1_epi16(128));
  return _mm_srli_epi16(_mm_add_epi16(t, _mm_srli_epi16(t, 8)), 8);
}

void DimRowSse2(uint32_t* dst, const uint32_t* src, int xBegin, int xEnd) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i opaque = _mm_set1_epi32(static_cast<int32_t>(0xFF000000u));
  int x = xBegin;
  for (; x + 4 <= xEnd; x += 4) {
    __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + x));
    __m128i out =
        _mm_packus_epi16(Dim16(_mm_unpacklo_epi8(c, zero)), Dim16(_mm_unpackhi_epi8(c, zero)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm_or_si128(out, opaque));
  }
  DimRowPlain(dst, src, x, xEnd);
}

void OverRowSse2(uint32_t* dst, const uint32_t* base, const uint32_t* overlay, int xBegin,
                 int xEnd) {
  const __m128i zero = _mm_setzero_si128();
  const __m128i opaque = _mm_set1_epi32(static_cast<int32_t>(0xFF000000u));
  int x = xBegin;
  for (; x + 4 <= xEnd; x += 4) {
    __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i*>(base + x));
    __m128i o = _mm_loadu_si128(reinterpret_cast<const __m128i*>(overlay + x));
    // Most of an overlay is clear: the base shows as it is.
    if (_mm_movemask_epi8(_mm_cmpeq_epi32(o, zero)) == 0xFFFF) {
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm_or_si128(c, opaque));
      continue;
    }
    __m128i lo = Under16(_mm_unpacklo_epi8(c, zero), _mm_unpacklo_epi8(o, zero));
    __m128i hi = Under16(_mm_unpackhi_epi8(c, zero), _mm_unpackhi_epi8(o, zero));
    __m128i out = _mm_adds_epu8(_mm_packus_epi16(lo, hi), o);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + x), _mm_or_si128(out, opaque));
  }
  OverRowPlain(dst, base, overlay, x, xEnd);
}

#endif

}  // namespace

const OverlayKernels& PlainOverlayKernels() {
  static const OverlayKernels kernels = {DimRowPlain, OverRowPlain};
  return kernels;
}

#if defined(__x86_64__) || defined(__i386__)
const OverlayKernels& Sse2OverlayKernels() {
  static const OverlayKernels kernels = {DimRowSse2, OverRowSse2};
  return kernels;
}
#endif

const OverlayKernels& ActiveOverlayKernels() {
#if defined(__x86_64__) || defined(__i386__)
  return Sse2OverlayKernels();
#else
  return PlainOverlayKernels();
#endif
}

void DimPicture(uint8_t* dst, ptrdiff_t dstPitch, const uint8_t* src, ptrdiff_t srcPitch, int width,
                int height) {
  const DimRowFn dim = ActiveOverlayKernels().dimRow;
  for (int y = 0; y < height; ++y)
    dim(reinterpret_cast<uint32_t*>(dst + y * dstPitch),
        reinterpret_cast<const uint32_t*>(src + y * srcPitch), 0, width);
}

void ComposeOverlay(uint8_t* dst, const uint8_t* picture, const uint8_t* dimmed,
                    const uint8_t* overlay, ptrdiff_t pitch, int width, int height, int cropLeft,
                    int cropTop, int cropRight, int cropBottom) {
  const OverRowFn over = ActiveOverlayKernels().overRow;
  const int keepBegin = std::clamp(cropLeft, 0, width);
  const int keepEnd = std::clamp(cropRight + 1, keepBegin, width);
  for (int y = 0; y < height; ++y) {
    const ptrdiff_t at = y * pitch;
    auto* d = reinterpret_cast<uint32_t*>(dst + at);
    auto* p = reinterpret_cast<const uint32_t*>(picture + at);
    auto* m = reinterpret_cast<const uint32_t*>(dimmed + at);
    auto* o = reinterpret_cast<const uint32_t*>(overlay + at);
    if (y < cropTop || y > cropBottom || keepBegin == keepEnd) {
      over(d, m, o, 0, width);
      continue;
    }
    over(d, m, o, 0, keepBegin);
    over(d, p, o, keepBegin, keepEnd);
    over(d, m, o, keepEnd, width);
  }
}

void GaussianBlurPass(uint8_t* dst, ptrdiff_t dstPitch, const uint8_t* src, ptrdiff_t srcPitch,
                      int width, int height) {
  static constexpr int kWeights[5][5] = {
      {1, 4, 7, 4, 1}, {4, 16, 26, 16, 4}, {7, 26, 41, 26, 7}, {4, 16, 26, 16, 4}, {1, 4, 7, 4, 1}};
  for (int y = 0; y < height; ++y) {
    const uint32_t* rows[5];
    for (int i = 0; i < 5; ++i)
      rows[i] =
          reinterpret_cast<const uint32_t*>(src + std::clamp(y + i - 2, 0, height - 1) * srcPitch);
    auto* out = reinterpret_cast<uint32_t*>(dst + y * dstPitch);
    for (int x = 0; x < width; ++x) {
      uint32_t sum[3] = {0, 0, 0};
      for (int j = 0; j < 5; ++j) {
        const int sx = std::clamp(x + j - 2, 0, width - 1);
        for (int i = 0; i < 5; ++i) {
          const uint32_t c = rows[i][sx];
          const uint32_t w = kWeights[i][j];
          sum[0] += (c & 0xFF) * w;
          sum[1] += ((c >> 8) & 0xFF) * w;
          sum[2] += ((c >> 16) & 0xFF) * w;
        }
      }
      out[x] = 0xFF000000u | (sum[2] + 136) / 273 << 16 | (sum[1] + 136) / 273 << 8 |
               (sum[0] + 136) / 273;
    }
  }
}

void FadeRow(uint32_t* dst, const uint32_t* src, int width, uint32_t alpha) {
  for (int x = 0; x < width; ++x) {
    uint32_t c = src[x], out = 0;
    for (int shift = 0; shift < 32; shift += 8)
      out |= Div255(((c >> shift) & 0xFF) * alpha) << shift;
    dst[x] = out;
  }
}

void DashRow(uint32_t* dst, int width, uint32_t colour1, uint32_t colour2, int offset) {
  for (int x = 0; x < width; ++x) {
    int r = ((x + offset) % 24 + 24) % 24;
    dst[x] = r < 12 ? colour1 : colour2;
  }
}

}  // namespace ov::pixels
