// The 128-bit kernels: SSE2, which every x86-64 processor has.
#if defined(__x86_64__) || defined(__i386__)

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "pixels/PixelKernels.h"

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("sse2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("sse2")
#endif

#include "pixels/VectorKernels.h"

namespace ov::pixels {
namespace {

struct V128 {
  using R = __m128i;
  static constexpr int kBytes = 16;

  static R Load(const void* p) { return _mm_loadu_si128(static_cast<const R*>(p)); }
  static void Store(void* p, R x) { _mm_storeu_si128(static_cast<R*>(p), x); }
  static R Zero() { return _mm_setzero_si128(); }
  static R Set32(int32_t v) { return _mm_set1_epi32(v); }
  static R Set16(int16_t v) { return _mm_set1_epi16(v); }
  static R Set8(int8_t v) { return _mm_set1_epi8(v); }

  static R Add32(R a, R b) { return _mm_add_epi32(a, b); }
  static R Sub32(R a, R b) { return _mm_sub_epi32(a, b); }
  static R Add16(R a, R b) { return _mm_add_epi16(a, b); }
  static R Sub16(R a, R b) { return _mm_sub_epi16(a, b); }
  static R And(R a, R b) { return _mm_and_si128(a, b); }
  static R AndNot(R a, R b) { return _mm_andnot_si128(a, b); }
  static R Or(R a, R b) { return _mm_or_si128(a, b); }
  static R Madd(R a, R b) { return _mm_madd_epi16(a, b); }
  static R Srai32(R a, int n) { return _mm_srai_epi32(a, n); }
  static R Srli32(R a, int n) { return _mm_srli_epi32(a, n); }
  static R Slli32(R a, int n) { return _mm_slli_epi32(a, n); }
  static R Srli16(R a, int n) { return _mm_srli_epi16(a, n); }
  static R Packs32(R a, R b) { return _mm_packs_epi32(a, b); }
  static R Packus16(R a, R b) { return _mm_packus_epi16(a, b); }
  static R Lo8(R a, R b) { return _mm_unpacklo_epi8(a, b); }
  static R Hi8(R a, R b) { return _mm_unpackhi_epi8(a, b); }
  static R Lo16(R a, R b) { return _mm_unpacklo_epi16(a, b); }
  static R Hi16(R a, R b) { return _mm_unpackhi_epi16(a, b); }
  static R Lo32(R a, R b) { return _mm_unpacklo_epi32(a, b); }
  static R Hi32(R a, R b) { return _mm_unpackhi_epi32(a, b); }
  static R DupEven16(R a) { return _mm_shufflehi_epi16(_mm_shufflelo_epi16(a, 0xA0), 0xA0); }
  static R DupOdd16(R a) { return _mm_shufflehi_epi16(_mm_shufflelo_epi16(a, 0xF5), 0xF5); }
  static R SwapPairs16(R a) { return _mm_shufflehi_epi16(_mm_shufflelo_epi16(a, 0xB1), 0xB1); }

  // a0 + a1, a2 + a3, b0 + b1, b2 + b3.
  static R PairSum32(R a, R b) {
    const __m128 fa = _mm_castsi128_ps(a), fb = _mm_castsi128_ps(b);
    const R even = _mm_castps_si128(_mm_shuffle_ps(fa, fb, _MM_SHUFFLE(2, 0, 2, 0)));
    const R odd = _mm_castps_si128(_mm_shuffle_ps(fa, fb, _MM_SHUFFLE(3, 1, 3, 1)));
    return _mm_add_epi32(even, odd);
  }

  // One lane is already in memory order.
  static R FixQuadOrder(R a) { return a; }
  static R LoadBytesAsWords(const void* p) {
    return _mm_unpacklo_epi8(_mm_loadl_epi64(static_cast<const R*>(p)), _mm_setzero_si128());
  }
  static void StoreChromaPlanes(void* u, void* v, R uv) {
    _mm_storel_epi64(static_cast<R*>(u), uv);
    _mm_storel_epi64(static_cast<R*>(v), _mm_srli_si128(uv, 8));
  }
  static void Store4(uint8_t* p, R a, R b, R c, R d) {
    Store(p, a);
    Store(p + 16, b);
    Store(p + 32, c);
    Store(p + 48, d);
  }
  static void LoadSplit2(const uint8_t* p, R& a, R& b) {
    a = Load(p);
    b = Load(p + 16);
  }
};

// Four pixels: output pixel i takes source bytes 3i..3i+2, that is, lane i of
// the 12 loaded bytes moved up by i bytes.
void Bgr24ToBgr32(uint8_t* dst, ptrdiff_t pitch, const uint8_t* src, ptrdiff_t srcPitch, int width,
                  int height) {
  const __m128i keep = _mm_set1_epi32(static_cast<int32_t>(0xFF000000u));
  const __m128i lane0 = _mm_setr_epi32(0x00FFFFFF, 0, 0, 0);
  const __m128i lane1 = _mm_setr_epi32(0, 0x00FFFFFF, 0, 0);
  const __m128i lane2 = _mm_setr_epi32(0, 0, 0x00FFFFFF, 0);
  const __m128i lane3 = _mm_setr_epi32(0, 0, 0, 0x00FFFFFF);
  for (int row = 0; row < height; ++row) {
    uint8_t* d = dst + row * pitch;
    const uint8_t* s = src + row * srcPitch;
    int x = 0;
    // The 16-byte load reads four bytes past the twelve it uses.
    for (; x + 6 <= width; x += 4) {
      const __m128i in = V128::Load(s + 3 * x);
      __m128i out = _mm_and_si128(in, lane0);
      out = _mm_or_si128(out, _mm_and_si128(_mm_slli_si128(in, 1), lane1));
      out = _mm_or_si128(out, _mm_and_si128(_mm_slli_si128(in, 2), lane2));
      out = _mm_or_si128(out, _mm_and_si128(_mm_slli_si128(in, 3), lane3));
      const __m128i old = V128::Load(d + 4 * x);
      V128::Store(d + 4 * x, _mm_or_si128(out, _mm_and_si128(old, keep)));
    }
    if (x < width) Bgr24ToBgr32Row(d, s, x, width);
  }
}

}  // namespace

const PixelKernels& Sse2Kernels() {
  static constexpr PixelKernels kKernels = {
      Bgr32ToI420<V128>,   Bgr32ToNv12<V128>,     I420ToRgb32<V128>, Nv12ToBgr32<V128>,
      PackedToBgr32<V128>, Bgr24ToBgr32,          Fill32<V128>,      FlipRows32<V128>,
      FlipRows24<V128>,    Bgr32ToVideoYuv<V128>,
  };
  return kKernels;
}

}  // namespace ov::pixels

#if defined(__clang__)
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif
