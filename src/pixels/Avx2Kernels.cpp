// The 256-bit kernels. Only this file is compiled for AVX2; the dispatch
// takes it only where the processor and the system support it, so the library
// still runs on any x86-64.
//
// Every header this file needs is included before the pragma: code of shared
// headers compiled for AVX2 here could otherwise be the copy the linker keeps
// for the whole program.
#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "pixels/PixelKernels.h"

#if defined(__clang__)
#pragma clang attribute push(__attribute__((target("avx2"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2")
#endif

#include "pixels/VectorKernels.h"

namespace ov::pixels {
namespace {

struct V256 {
  using R = __m256i;
  static constexpr int kBytes = 32;

  static R Load(const void* p) { return _mm256_loadu_si256(static_cast<const R*>(p)); }
  static void Store(void* p, R x) { _mm256_storeu_si256(static_cast<R*>(p), x); }
  static R Zero() { return _mm256_setzero_si256(); }
  static R Set32(int32_t v) { return _mm256_set1_epi32(v); }
  static R Set16(int16_t v) { return _mm256_set1_epi16(v); }
  static R Set8(int8_t v) { return _mm256_set1_epi8(v); }

  static R Add32(R a, R b) { return _mm256_add_epi32(a, b); }
  static R Sub32(R a, R b) { return _mm256_sub_epi32(a, b); }
  static R Add16(R a, R b) { return _mm256_add_epi16(a, b); }
  static R Sub16(R a, R b) { return _mm256_sub_epi16(a, b); }
  static R And(R a, R b) { return _mm256_and_si256(a, b); }
  static R AndNot(R a, R b) { return _mm256_andnot_si256(a, b); }
  static R Or(R a, R b) { return _mm256_or_si256(a, b); }
  static R Madd(R a, R b) { return _mm256_madd_epi16(a, b); }
  static R Srai32(R a, int n) { return _mm256_srai_epi32(a, n); }
  static R Srli32(R a, int n) { return _mm256_srli_epi32(a, n); }
  static R Slli32(R a, int n) { return _mm256_slli_epi32(a, n); }
  static R Srli16(R a, int n) { return _mm256_srli_epi16(a, n); }
  static R Packs32(R a, R b) { return _mm256_packs_epi32(a, b); }
  static R Packus16(R a, R b) { return _mm256_packus_epi16(a, b); }
  static R Lo8(R a, R b) { return _mm256_unpacklo_epi8(a, b); }
  static R Hi8(R a, R b) { return _mm256_unpackhi_epi8(a, b); }
  static R Lo16(R a, R b) { return _mm256_unpacklo_epi16(a, b); }
  static R Hi16(R a, R b) { return _mm256_unpackhi_epi16(a, b); }
  static R Lo32(R a, R b) { return _mm256_unpacklo_epi32(a, b); }
  static R Hi32(R a, R b) { return _mm256_unpackhi_epi32(a, b); }
  static R DupEven16(R a) { return _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(a, 0xA0), 0xA0); }
  static R DupOdd16(R a) { return _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(a, 0xF5), 0xF5); }
  static R SwapPairs16(R a) {
    return _mm256_shufflehi_epi16(_mm256_shufflelo_epi16(a, 0xB1), 0xB1);
  }

  static R PairSum32(R a, R b) {
    const __m256 fa = _mm256_castsi256_ps(a), fb = _mm256_castsi256_ps(b);
    const R even = _mm256_castps_si256(_mm256_shuffle_ps(fa, fb, _MM_SHUFFLE(2, 0, 2, 0)));
    const R odd = _mm256_castps_si256(_mm256_shuffle_ps(fa, fb, _MM_SHUFFLE(3, 1, 3, 1)));
    return _mm256_add_epi32(even, odd);
  }

  // A row step of the BGR32 kernel loads pixel quads 0..7 as lanes
  // (0 1)(2 3)(4 5)(6 7); lane-wise work leaves its bytes as quads
  // 0 2 4 6 | 1 3 5 7.
  static R FixQuadOrder(R a) {
    return _mm256_permutevar8x32_epi32(a, _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  }
  static R LoadBytesAsWords(const void* p) {
    return _mm256_cvtepu8_epi16(_mm_loadu_si128(static_cast<const __m128i*>(p)));
  }
  // uv: per lane eight U bytes then eight V bytes, of 16-bit block pairs
  // (0 2 4 6) in the low lane and (1 3 5 7) in the high one.
  static void StoreChromaPlanes(void* u, void* v, R uv) {
    const R planes = _mm256_permute4x64_epi64(uv, _MM_SHUFFLE(3, 1, 2, 0));
    const R order = _mm256_setr_epi8(0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15,  //
                                     0, 1, 8, 9, 2, 3, 10, 11, 4, 5, 12, 13, 6, 7, 14, 15);
    const R sorted = _mm256_shuffle_epi8(planes, order);
    _mm_storeu_si128(static_cast<__m128i*>(u), _mm256_castsi256_si128(sorted));
    _mm_storeu_si128(static_cast<__m128i*>(v), _mm256_extracti128_si256(sorted, 1));
  }
  // Lanes hold pixels (0-3 | 16-19), (4-7 | 20-23), (8-11 | 24-27),
  // (12-15 | 28-31).
  static void Store4(uint8_t* p, R a, R b, R c, R d) {
    Store(p, _mm256_permute2x128_si256(a, b, 0x20));
    Store(p + 32, _mm256_permute2x128_si256(c, d, 0x20));
    Store(p + 64, _mm256_permute2x128_si256(a, b, 0x31));
    Store(p + 96, _mm256_permute2x128_si256(c, d, 0x31));
  }
  // 64 bytes into lanes (0-15 | 32-47) and (16-31 | 48-63), so that each lane
  // holds one half of the step in memory order.
  static void LoadSplit2(const uint8_t* p, R& a, R& b) {
    const R first = Load(p), second = Load(p + 32);
    a = _mm256_permute2x128_si256(first, second, 0x20);
    b = _mm256_permute2x128_si256(first, second, 0x31);
  }
};

// Eight pixels: two overlapping 12-byte groups, one per lane, spread to
// 32-bit pixels by a byte shuffle.
void Bgr24ToBgr32(uint8_t* dst, ptrdiff_t pitch, const uint8_t* src, ptrdiff_t srcPitch, int width,
                  int height) {
  const __m256i keep = _mm256_set1_epi32(static_cast<int32_t>(0xFF000000u));
  const __m256i spread = _mm256_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1,  //
                                          0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  for (int row = 0; row < height; ++row) {
    uint8_t* d = dst + row * pitch;
    const uint8_t* s = src + row * srcPitch;
    int x = 0;
    // The second 16-byte load reads four bytes past the 24 used.
    for (; x + 10 <= width; x += 8) {
      const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 3 * x));
      const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 3 * x + 12));
      const __m256i in = _mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1);
      const __m256i old = V256::Load(d + 4 * x);
      V256::Store(d + 4 * x,
                  _mm256_or_si256(_mm256_shuffle_epi8(in, spread), _mm256_and_si256(old, keep)));
    }
    if (x < width) Bgr24ToBgr32Row(d, s, x, width);
  }
}

}  // namespace

const PixelKernels& Avx2Kernels() {
  static constexpr PixelKernels kKernels = {
      Bgr32ToI420<V256>,   Bgr32ToNv12<V256>,     I420ToRgb32<V256>, Nv12ToBgr32<V256>,
      PackedToBgr32<V256>, Bgr24ToBgr32,          Fill32<V256>,      FlipRows32<V256>,
      FlipRows24<V256>,    Bgr32ToVideoYuv<V256>,
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
