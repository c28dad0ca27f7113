// The vector kernels, written once against a small register interface V and
// compiled once per instruction set (Sse2Kernels.cpp, Avx2Kernels.cpp).
//
// V's element operations work lane by lane: on a 256-bit register they act as
// two 128-bit registers side by side. The kernels are laid out so that each
// 128-bit lane carries a self-contained piece of work; V's few memory-order
// helpers (FixQuadOrder, StoreChromaPlanes, Store4, LoadSplit2) are the only
// places where the lanes meet.
//
// The arithmetic is the plain kernels' to the bit. Constants that do not fit
// the signed 16-bit multipliers of Madd are split into a multiple of 65536,
// which moves whole units past the final >> 16, and a small remainder.
//
// This file is included after the including file's instruction-set pragma, so
// that all of it is compiled for that set; the anonymous namespace keeps each
// file's copy to itself.
#pragma once

#include <cstddef>
#include <cstdint>

#include "pixels/PixelKernels.h"

namespace ov::pixels {
namespace {

// A 32-bit lane holding two 16-bit Madd operands, lo in the low half.
constexpr int32_t WordPair(int32_t lo, int32_t hi) {
  return static_cast<int32_t>((static_cast<uint32_t>(hi) & 0xFFFFu) << 16 |
                              (static_cast<uint32_t>(lo) & 0xFFFFu));
}

// --- BGR32 to Y and 2 x 2 chroma -------------------------------------------

// q = 19595 R + 38470 G + 7471 B per 32-bit pixel. 38470 does not fit a
// signed 16-bit multiplier, so green is taken twice at 19235. br receives the
// blue and red bytes as 16-bit halves, for the block sums.
// The chroma of a step's pixel pairs at column x: interleaved into u (NV12)
// or into the planes u and v.
template <class V, bool kNv12>
inline void StoreChroma(uint8_t* u, uint8_t* v, int x, typename V::R uw, typename V::R vw) {
  if constexpr (kNv12) {
    V::Store(u + x, V::FixQuadOrder(V::Packus16(V::Lo16(uw, vw), V::Hi16(uw, vw))));
  } else {
    V::StoreChromaPlanes(u + x / 2, v + x / 2, V::Packus16(uw, vw));
  }
}

template <class V>
inline typename V::R LumaQ(typename V::R px, typename V::R& br) {
  br = V::And(px, V::Set32(0x00FF00FF));
  const auto blueRed = V::Madd(br, V::Set32(WordPair(7471, 19595)));
  const auto green = V::Madd(V::Srli16(px, 8), V::Set32(WordPair(19235, 0)));
  return V::Add32(blueRed, V::Add32(green, green));
}

template <class V>
inline typename V::R LumaBytes(const typename V::R (&q)[4]) {
  const auto lo = V::Packs32(V::Srli32(q[0], 16), V::Srli32(q[1], 16));
  const auto hi = V::Packs32(V::Srli32(q[2], 16), V::Srli32(q[3], 16));
  return V::FixQuadOrder(V::Packus16(lo, hi));
}

// sumQ1 is the block's sum of q less 0x1FFFF. The difference d = x >> 16 is
// the high half of x, so Madd with (0, factor) multiplies it without a shift.
template <class V>
inline typename V::R ChromaU(typename V::R sumBR, typename V::R sumQ1) {
  const auto x = V::Sub32(V::Slli32(sumBR, 16), sumQ1);
  return V::Add32(V::Srai32(V::Madd(x, V::Set32(WordPair(0, 32244))), 18), V::Set32(128));
}

// 57475 = 65536 - 8061: d * 57475 is d * -8061 plus d << 16, the high half
// of x with the low half cleared.
template <class V>
inline typename V::R ChromaV(typename V::R sumBR, typename V::R sumQ1) {
  const auto high = V::Set32(static_cast<int32_t>(0xFFFF0000u));
  const auto x = V::Sub32(V::And(sumBR, high), sumQ1);
  const auto scaled = V::Add32(V::Madd(x, V::Set32(WordPair(0, -8061))), V::And(x, high));
  return V::Add32(V::Srai32(scaled, 18), V::Set32(128));
}

// Converts columns from 0 while a whole step fits and returns where it
// stopped. A step is four registers of pixels per row; within a lane the
// pixel pairs of each block sit side by side. With kNv12, u receives the
// interleaved chroma row and v is unused.
template <class V, bool kNv12>
int Bgr32ToYuvRowPair(const uint8_t* src0, const uint8_t* src1, uint8_t* y0, uint8_t* y1,
                      uint8_t* u, uint8_t* v, int width) {
  using R = typename V::R;
  constexpr int kStep = V::kBytes;
  int x = 0;
  for (; x + kStep <= width; x += kStep) {
    R q0[4], q1[4], sumQ[4], sumBR[4];
    for (int k = 0; k < 4; ++k) {
      R br0, br1;
      q0[k] = LumaQ<V>(V::Load(src0 + 4 * x + k * V::kBytes), br0);
      q1[k] = LumaQ<V>(V::Load(src1 + 4 * x + k * V::kBytes), br1);
      sumQ[k] = V::Add32(q0[k], q1[k]);
      sumBR[k] = V::Add32(br0, br1);
    }
    V::Store(y0 + x, LumaBytes<V>(q0));
    V::Store(y1 + x, LumaBytes<V>(q1));

    const R round = V::Set32(0x1FFFF);
    const R qa = V::Sub32(V::PairSum32(sumQ[0], sumQ[1]), round);
    const R qb = V::Sub32(V::PairSum32(sumQ[2], sumQ[3]), round);
    const R bra = V::PairSum32(sumBR[0], sumBR[1]);
    const R brb = V::PairSum32(sumBR[2], sumBR[3]);
    const R uw = V::Packs32(ChromaU<V>(bra, qa), ChromaU<V>(brb, qb));
    const R vw = V::Packs32(ChromaV<V>(bra, qa), ChromaV<V>(brb, qb));
    StoreChroma<V, kNv12>(u, v, x, uw, vw);
  }
  return x;
}

template <class V>
void Bgr32ToI420(uint8_t* y, ptrdiff_t yPitch, uint8_t* u, uint8_t* v, ptrdiff_t uvPitch,
                 const uint8_t* src, ptrdiff_t srcPitch, int width, int height) {
  for (int row = 0; row < height; row += 2) {
    const uint8_t* s = src + row * srcPitch;
    uint8_t* d = y + row * yPitch;
    const ptrdiff_t c = row / 2 * uvPitch;
    const int x = Bgr32ToYuvRowPair<V, false>(s, s + srcPitch, d, d + yPitch, u + c, v + c, width);
    if (x < width) Bgr32ToYuvBlockRow(s, s + srcPitch, d, d + yPitch, u + c, v + c, 1, x, width);
  }
}

template <class V>
void Bgr32ToNv12(uint8_t* y, uint8_t* uv, ptrdiff_t pitch, const uint8_t* src, ptrdiff_t srcPitch,
                 int width, int height) {
  for (int row = 0; row < height; row += 2) {
    const uint8_t* s = src + row * srcPitch;
    uint8_t* d = y + row * pitch;
    uint8_t* c = uv + row / 2 * pitch;
    const int x = Bgr32ToYuvRowPair<V, true>(s, s + srcPitch, d, d + pitch, c, nullptr, width);
    if (x < width) Bgr32ToYuvBlockRow(s, s + srcPitch, d, d + pitch, c, c + 1, 2, x, width);
  }
}

// --- BGR32 to video-range BT.709 ---------------------------------------------

// yr R + yg G + yb B + yBias per 32-bit pixel; br and ga receive the blue and
// red, and the green and fourth bytes as 16-bit pairs, for the block sums.
template <class V>
inline typename V::R VideoLumaQ(typename V::R px, typename V::R& br, typename V::R& ga) {
  using K = VideoRangeConstants;
  br = V::And(px, V::Set32(0x00FF00FF));
  ga = V::Srli16(px, 8);
  const auto sum = V::Add32(V::Madd(br, V::Set32(WordPair(K::yb, K::yr))),
                            V::Madd(ga, V::Set32(WordPair(K::yg, 0))));
  return V::Add32(sum, V::Set32(K::yBias));
}

template <class V>
inline typename V::R VideoLumaBytes(const typename V::R (&q)[4]) {
  const auto lo = V::Packs32(V::Srli32(q[0], 15), V::Srli32(q[1], 15));
  const auto hi = V::Packs32(V::Srli32(q[2], 15), V::Srli32(q[3], 15));
  return V::FixQuadOrder(V::Packus16(lo, hi));
}

// One chroma value per 32-bit lane from a block's summed pairs.
template <class V>
inline typename V::R VideoChroma(typename V::R br, typename V::R ga, int32_t r, int32_t g,
                                 int32_t b) {
  const auto sum =
      V::Add32(V::Madd(br, V::Set32(WordPair(b, r))), V::Madd(ga, V::Set32(WordPair(g, 0))));
  return V::Srai32(V::Add32(sum, V::Set32(VideoRangeConstants::cBias)), 17);
}

// As Bgr32ToYuvRowPair: four registers of pixels per row and step.
template <class V, bool kNv12>
int Bgr32ToVideoYuvRowPair(const uint8_t* src0, const uint8_t* src1, uint8_t* y0, uint8_t* y1,
                           uint8_t* u, uint8_t* v, int width) {
  using R = typename V::R;
  using K = VideoRangeConstants;
  constexpr int kStep = V::kBytes;
  int x = 0;
  for (; x + kStep <= width; x += kStep) {
    R q0[4], q1[4], sumBR[4], sumGA[4];
    for (int k = 0; k < 4; ++k) {
      R br0, ga0, br1, ga1;
      q0[k] = VideoLumaQ<V>(V::Load(src0 + 4 * x + k * V::kBytes), br0, ga0);
      q1[k] = VideoLumaQ<V>(V::Load(src1 + 4 * x + k * V::kBytes), br1, ga1);
      sumBR[k] = V::Add16(br0, br1);
      sumGA[k] = V::Add16(ga0, ga1);
    }
    V::Store(y0 + x, VideoLumaBytes<V>(q0));
    V::Store(y1 + x, VideoLumaBytes<V>(q1));

    // The pairs' 16-bit halves stay below 1021, so 32-bit sums keep them apart.
    const R bra = V::PairSum32(sumBR[0], sumBR[1]), brb = V::PairSum32(sumBR[2], sumBR[3]);
    const R gaa = V::PairSum32(sumGA[0], sumGA[1]), gab = V::PairSum32(sumGA[2], sumGA[3]);
    const R uw = V::Packs32(VideoChroma<V>(bra, gaa, K::ur, K::ug, K::ub),
                            VideoChroma<V>(brb, gab, K::ur, K::ug, K::ub));
    const R vw = V::Packs32(VideoChroma<V>(bra, gaa, K::vr, K::vg, K::vb),
                            VideoChroma<V>(brb, gab, K::vr, K::vg, K::vb));
    StoreChroma<V, kNv12>(u, v, x, uw, vw);
  }
  return x;
}

template <class V>
void Bgr32ToVideoYuv(uint8_t* y, ptrdiff_t yPitch, uint8_t* u, uint8_t* v, ptrdiff_t uvPitch,
                     int chromaStep, const uint8_t* src, ptrdiff_t srcPitch, int width,
                     int height) {
  const bool nv12 = chromaStep == 2 && v == u + 1;
  for (int row = 0; row < height; row += 2) {
    const uint8_t* s = src + row * srcPitch;
    uint8_t* d = y + row * yPitch;
    const ptrdiff_t c = row / 2 * uvPitch;
    int x = 0;
    if (nv12) {
      x = Bgr32ToVideoYuvRowPair<V, true>(s, s + srcPitch, d, d + yPitch, u + c, nullptr, width);
    } else if (chromaStep == 1) {
      x = Bgr32ToVideoYuvRowPair<V, false>(s, s + srcPitch, d, d + yPitch, u + c, v + c, width);
    }
    if (x < width)
      Bgr32ToVideoYuvBlockRow(s, s + srcPitch, d, d + yPitch, u + c, v + c, chromaStep, x, width);
  }
}

// --- Pixels out --------------------------------------------------------------

// Interleaves four byte registers of one step into 32-bit pixels and stores
// them.
template <class V>
inline void StorePixels(uint8_t* dst, typename V::R c0, typename V::R c1, typename V::R c2,
                        typename V::R c3) {
  const auto lo01 = V::Lo8(c0, c1), hi01 = V::Hi8(c0, c1);
  const auto lo23 = V::Lo8(c2, c3), hi23 = V::Hi8(c2, c3);
  V::Store4(dst, V::Lo16(lo01, lo23), V::Hi16(lo01, lo23), V::Lo16(hi01, hi23),
            V::Hi16(hi01, hi23));
}

// (x + 32768) >> 16.
template <class V>
inline typename V::R RoundHigh(typename V::R x) {
  return V::Srai32(V::Add32(x, V::Set32(32768)), 16);
}

// --- Full-range I420 to RGB32 ------------------------------------------------

// Per block, with y the luma: byte = clip(y + d), d = (k * c + 32768) >> 16
// for the chroma terms, as the luma term y * 65536 passes the shift whole.
// 74711 = 65536 + 9175, -38076 = -65536 + 27460, 133169 = 131072 + 2097.
template <class V>
inline void StoreRgbRow(uint8_t* dst, typename V::R luma, typename V::R d0, typename V::R d1,
                        typename V::R d2) {
  const auto zero = V::Zero();
  const auto lo = V::Lo8(luma, zero), hi = V::Hi8(luma, zero);
  const auto b0 = V::Packus16(V::Add16(lo, V::Lo16(d0, d0)), V::Add16(hi, V::Hi16(d0, d0)));
  const auto b1 = V::Packus16(V::Add16(lo, V::Lo16(d1, d1)), V::Add16(hi, V::Hi16(d1, d1)));
  const auto b2 = V::Packus16(V::Add16(lo, V::Lo16(d2, d2)), V::Add16(hi, V::Hi16(d2, d2)));
  StorePixels<V>(dst, b0, b1, b2, zero);
}

template <class V>
int I420ToRgb32RowPair(uint8_t* dst0, uint8_t* dst1, const uint8_t* y0, const uint8_t* y1,
                       const uint8_t* u, const uint8_t* v, int width) {
  using R = typename V::R;
  constexpr int kStep = V::kBytes;
  const R bias = V::Set16(128);
  int x = 0;
  for (; x + kStep <= width; x += kStep) {
    const R cu = V::Sub16(V::LoadBytesAsWords(u + x / 2), bias);
    const R cv = V::Sub16(V::LoadBytesAsWords(v + x / 2), bias);
    const R vuLo = V::Lo16(cv, cu), vuHi = V::Hi16(cv, cu);
    const R kFromV = V::Set32(WordPair(9175, 0));
    const R kFromUV = V::Set32(WordPair(27460, -25821));
    const R kFromU = V::Set32(WordPair(0, 2097));
    const R dV = V::Add16(
        V::Packs32(RoundHigh<V>(V::Madd(vuLo, kFromV)), RoundHigh<V>(V::Madd(vuHi, kFromV))), cv);
    const R dUV = V::Sub16(
        V::Packs32(RoundHigh<V>(V::Madd(vuLo, kFromUV)), RoundHigh<V>(V::Madd(vuHi, kFromUV))), cv);
    const R dU = V::Add16(
        V::Packs32(RoundHigh<V>(V::Madd(vuLo, kFromU)), RoundHigh<V>(V::Madd(vuHi, kFromU))),
        V::Add16(cu, cu));
    StoreRgbRow<V>(dst0 + 4 * x, V::Load(y0 + x), dV, dUV, dU);
    StoreRgbRow<V>(dst1 + 4 * x, V::Load(y1 + x), dV, dUV, dU);
  }
  return x;
}

template <class V>
void I420ToRgb32(uint8_t* dst, ptrdiff_t pitch, const uint8_t* y, ptrdiff_t yPitch,
                 const uint8_t* u, const uint8_t* v, ptrdiff_t uvPitch, int width, int height) {
  for (int row = 0; row < height; row += 2) {
    uint8_t* d = dst + row * pitch;
    const uint8_t* s = y + row * yPitch;
    const ptrdiff_t c = row / 2 * uvPitch;
    const int x = I420ToRgb32RowPair<V>(d, d + pitch, s, s + yPitch, u + c, v + c, width);
    if (x < width) I420ToRgb32BlockRow(d, d + pitch, s, s + yPitch, u + c, v + c, x, width);
  }
}

// --- Video-range YUV to BGR32 ------------------------------------------------

// The factors split around multiples of 65536, so that per channel
//   byte = clip(Y + a + ((ky * Y + chroma - bias) >> 16))
// with a = 2u for blue, -v for green, 2v for red.
struct SplitConstants {
  int32_t ky, kub, kug, kvg, kvr, bias;
};

constexpr SplitConstants Split(const YuvConstants& k) {
  return {k.y - 65536, k.ub - 131072, -k.ug, 65536 - k.vg, k.vr - 131072, -k.bias};
}

// The chroma terms of eight pixels (four pairs) of one lane.
template <class V>
struct ChromaTerms {
  typename V::R blue, green, red;     // per pair, 32-bit, bias included
  typename V::R aBlue, aGreen, aRed;  // per pixel, 16-bit
};

// uv: 16-bit (u, v) per pair, 128 already taken off.
template <class V>
inline ChromaTerms<V> PrepareChroma(typename V::R uv, const SplitConstants& k) {
  const auto bias = V::Set32(k.bias);
  const auto u = V::DupEven16(uv), v = V::DupOdd16(uv);
  return {V::Add32(V::Madd(uv, V::Set32(WordPair(k.kub, 0))), bias),
          V::Add32(V::Madd(uv, V::Set32(WordPair(k.kug, k.kvg))), bias),
          V::Add32(V::Madd(uv, V::Set32(WordPair(0, k.kvr))), bias),
          V::Add16(u, u),
          V::Sub16(V::Zero(), v),
          V::Add16(v, v)};
}

template <class V>
inline typename V::R YuvChannel(typename V::R luma, typename V::R yLo, typename V::R yHi,
                                typename V::R chroma, typename V::R a) {
  const auto lo = V::Srai32(V::Add32(yLo, V::Lo32(chroma, chroma)), 16);
  const auto hi = V::Srai32(V::Add32(yHi, V::Hi32(chroma, chroma)), 16);
  return V::Add16(V::Add16(luma, a), V::Packs32(lo, hi));
}

// Eight 16-bit luma values of one lane to 16-bit blue, green and red.
template <class V>
inline void ApplyLuma(typename V::R luma, const ChromaTerms<V>& t, const SplitConstants& k,
                      typename V::R& b, typename V::R& g, typename V::R& r) {
  const auto zero = V::Zero();
  const auto ky = V::Set32(WordPair(k.ky, 0));
  const auto yLo = V::Madd(V::Lo16(luma, zero), ky);
  const auto yHi = V::Madd(V::Hi16(luma, zero), ky);
  b = YuvChannel<V>(luma, yLo, yHi, t.blue, t.aBlue);
  g = YuvChannel<V>(luma, yLo, yHi, t.green, t.aGreen);
  r = YuvChannel<V>(luma, yLo, yHi, t.red, t.aRed);
}

template <class V>
inline void StoreBgrRow(uint8_t* dst, typename V::R luma, const ChromaTerms<V>& lo,
                        const ChromaTerms<V>& hi, const SplitConstants& k) {
  using R = typename V::R;
  const R zero = V::Zero();
  R b0, g0, r0, b1, g1, r1;
  ApplyLuma<V>(V::Lo8(luma, zero), lo, k, b0, g0, r0);
  ApplyLuma<V>(V::Hi8(luma, zero), hi, k, b1, g1, r1);
  StorePixels<V>(dst, V::Packus16(b0, b1), V::Packus16(g0, g1), V::Packus16(r0, r1), V::Set8(-1));
}

template <class V>
int Nv12ToBgr32RowPair(uint8_t* dst0, uint8_t* dst1, const uint8_t* y0, const uint8_t* y1,
                       const uint8_t* uv, int width) {
  using R = typename V::R;
  constexpr int kStep = V::kBytes;
  constexpr SplitConstants k = Split(kYuvBt601);
  const R zero = V::Zero(), bias = V::Set16(128);
  int x = 0;
  for (; x + kStep <= width; x += kStep) {
    const R chroma = V::Load(uv + x);
    const auto lo = PrepareChroma<V>(V::Sub16(V::Lo8(chroma, zero), bias), k);
    const auto hi = PrepareChroma<V>(V::Sub16(V::Hi8(chroma, zero), bias), k);
    StoreBgrRow<V>(dst0 + 4 * x, V::Load(y0 + x), lo, hi, k);
    StoreBgrRow<V>(dst1 + 4 * x, V::Load(y1 + x), lo, hi, k);
  }
  return x;
}

template <class V>
void Nv12ToBgr32(uint8_t* dst, ptrdiff_t pitch, const uint8_t* y, const uint8_t* uv,
                 ptrdiff_t srcPitch, int width, int height) {
  for (int row = 0; row < height; row += 2) {
    uint8_t* d = dst + row * pitch;
    const uint8_t* s = y + row * srcPitch;
    const uint8_t* c = uv + row / 2 * srcPitch;
    const int x = Nv12ToBgr32RowPair<V>(d, d + pitch, s, s + srcPitch, c, width);
    if (x < width) Nv12ToBgr32BlockRow(d, d + pitch, s, s + srcPitch, c, x, width);
  }
}

// One register of packed pixels (eight per lane) to 16-bit colours.
template <class V, PackedLayout kLayout>
inline void UnpackPairs(typename V::R packed, const SplitConstants& k, typename V::R& b,
                        typename V::R& g, typename V::R& r) {
  const auto low = V::And(packed, V::Set16(0x00FF));
  const auto high = V::Srli16(packed, 8);
  const auto luma = kLayout == PackedLayout::kUyvy ? high : low;
  auto chroma = V::Sub16(kLayout == PackedLayout::kUyvy ? low : high, V::Set16(128));
  if constexpr (kLayout == PackedLayout::kYvyu) chroma = V::SwapPairs16(chroma);
  ApplyLuma<V>(luma, PrepareChroma<V>(chroma, k), k, b, g, r);
}

template <class V, PackedLayout kLayout>
void PackedToBgr32Layout(uint8_t* dst, ptrdiff_t pitch, const uint8_t* src, ptrdiff_t srcPitch,
                         int width, int height) {
  using R = typename V::R;
  constexpr int kStep = V::kBytes;
  const SplitConstants k = Split(ConstantsOf(kLayout));
  for (int row = 0; row < height; ++row) {
    uint8_t* d = dst + row * pitch;
    const uint8_t* s = src + row * srcPitch;
    int x = 0;
    for (; x + kStep <= width; x += kStep) {
      R p0, p1, b0, g0, r0, b1, g1, r1;
      V::LoadSplit2(s + 2 * x, p0, p1);
      UnpackPairs<V, kLayout>(p0, k, b0, g0, r0);
      UnpackPairs<V, kLayout>(p1, k, b1, g1, r1);
      StorePixels<V>(d + 4 * x, V::Packus16(b0, b1), V::Packus16(g0, g1), V::Packus16(r0, r1),
                     V::Set8(-1));
    }
    if (x < width) PackedToBgr32Row(d, s, x, width, kLayout);
  }
}

template <class V>
void PackedToBgr32(uint8_t* dst, ptrdiff_t pitch, const uint8_t* src, ptrdiff_t srcPitch, int width,
                   int height, PackedLayout layout) {
  switch (layout) {
    case PackedLayout::kYuy2:
      return PackedToBgr32Layout<V, PackedLayout::kYuy2>(dst, pitch, src, srcPitch, width, height);
    case PackedLayout::kUyvy:
      return PackedToBgr32Layout<V, PackedLayout::kUyvy>(dst, pitch, src, srcPitch, width, height);
    case PackedLayout::kYvyu:
      return PackedToBgr32Layout<V, PackedLayout::kYvyu>(dst, pitch, src, srcPitch, width, height);
  }
}

// --- Fill and flips ----------------------------------------------------------

template <class V>
void Fill32(uint32_t value, uint8_t* dst, ptrdiff_t pitch, int width, int height) {
  constexpr int kStep = V::kBytes / 4;
  const auto fill = V::Set32(static_cast<int32_t>(value));
  for (int row = 0; row < height; ++row) {
    uint8_t* d = dst + row * pitch;
    int x = 0;
    for (; x + kStep <= width; x += kStep) V::Store(d + 4 * x, fill);
    if (x < width) Fill32Row(value, d, x, width);
  }
}

template <class V>
void FlipRows32(uint8_t* data, int width, int height) {
  constexpr int kStep = V::kBytes / 4;
  const ptrdiff_t pitch = ptrdiff_t{width} * 4;
  const auto colour = V::Set32(0x00FFFFFF);
  for (int row = 0; row < height / 2; ++row) {
    uint8_t* a = data + row * pitch;
    uint8_t* b = data + (height - 1 - row) * pitch;
    int x = 0;
    for (; x + kStep <= width; x += kStep) {
      const auto pa = V::Load(a + 4 * x), pb = V::Load(b + 4 * x);
      V::Store(a + 4 * x, V::Or(V::And(pb, colour), V::AndNot(colour, pa)));
      V::Store(b + 4 * x, V::Or(V::And(pa, colour), V::AndNot(colour, pb)));
    }
    if (x < width) SwapRows32(a, b, x, width);
  }
}

template <class V>
void FlipRows24(uint8_t* data, int width, int height) {
  constexpr int kStep = V::kBytes;
  const int bytes = width * 3;
  for (int row = 0; row < height / 2; ++row) {
    uint8_t* a = data + row * ptrdiff_t{bytes};
    uint8_t* b = data + (height - 1 - row) * ptrdiff_t{bytes};
    int i = 0;
    for (; i + kStep <= bytes; i += kStep) {
      const auto pa = V::Load(a + i), pb = V::Load(b + i);
      V::Store(a + i, pb);
      V::Store(b + i, pa);
    }
    if (i < bytes) SwapBytes(a, b, i, bytes);
  }
}

}  // namespace
}  // namespace ov::pixels
