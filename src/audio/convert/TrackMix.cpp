#include "audio/convert/TrackMix.h"

#include <algorithm>
#include <cstring>

#include "audio/convert/SampleFormat.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ov::audio {

namespace {

int16_t MixSampleI16(int16_t a, int16_t b) {
  const int32_t sum = (static_cast<int32_t>(a) + b) * 3 / 2;
  return static_cast<int16_t>(std::clamp(sum, -32768, 32767));
}

float MixSampleF32(float a, float b) { return LimitFloat((a + b) / 1.5f, -1.0f, 1.0f); }

template <typename T, T (*kMix)(T, T)>
void MixTail(void* pDest, const void* pOther, int32_t first, int32_t count) {
  auto* d = static_cast<uint8_t*>(pDest);
  const auto* o = static_cast<const uint8_t*>(pOther);
  for (int32_t i = first; i < count; ++i) {
    T a, b;
    std::memcpy(&a, d + i * sizeof(T), sizeof a);
    std::memcpy(&b, o + i * sizeof(T), sizeof b);
    a = kMix(a, b);
    std::memcpy(d + i * sizeof(T), &a, sizeof a);
  }
}

#if defined(__SSE2__)

// (a + b) x 3 / 2 with the division truncating towards zero: adding the sign
// bit before the arithmetic shift rounds a negative odd value up. The
// saturating pack is the limit.
__m128i MixI16x4(__m128i a, __m128i b) {
  const __m128i sum = _mm_add_epi32(a, b);
  const __m128i triple = _mm_add_epi32(_mm_add_epi32(sum, sum), sum);
  return _mm_srai_epi32(_mm_add_epi32(triple, _mm_srli_epi32(triple, 31)), 1);
}

int32_t VectorMixI16(void* pDest, const void* pOther, int32_t count) {
  auto* d = static_cast<uint8_t*>(pDest);
  const auto* o = static_cast<const uint8_t*>(pOther);
  int32_t i = 0;
  for (; i + 8 <= count; i += 8) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(d + i * 2));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(o + i * 2));
    const __m128i lo = MixI16x4(_mm_srai_epi32(_mm_unpacklo_epi16(a, a), 16),
                                _mm_srai_epi32(_mm_unpacklo_epi16(b, b), 16));
    const __m128i hi = MixI16x4(_mm_srai_epi32(_mm_unpackhi_epi16(a, a), 16),
                                _mm_srai_epi32(_mm_unpackhi_epi16(b, b), 16));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i * 2), _mm_packs_epi32(lo, hi));
  }
  return i;
}

// maxps hands back its second operand for a NaN, as the scalar limit does.
int32_t VectorMixF32(void* pDest, const void* pOther, int32_t count) {
  auto* d = static_cast<float*>(pDest);
  const auto* o = static_cast<const float*>(pOther);
  const __m128 divisor = _mm_set1_ps(1.5f);
  const __m128 lo = _mm_set1_ps(-1.0f);
  const __m128 hi = _mm_set1_ps(1.0f);
  int32_t i = 0;
  for (; i + 4 <= count; i += 4) {
    const __m128 sum = _mm_add_ps(_mm_loadu_ps(d + i), _mm_loadu_ps(o + i));
    _mm_storeu_ps(d + i, _mm_min_ps(_mm_max_ps(_mm_div_ps(sum, divisor), lo), hi));
  }
  return i;
}

#else

int32_t VectorMixI16(void*, const void*, int32_t) { return 0; }
int32_t VectorMixF32(void*, const void*, int32_t) { return 0; }

#endif

}  // namespace

void VolumeI16(void* pSamples, int32_t nBytes, int32_t lVolume) {
  auto* p = static_cast<uint8_t*>(pSamples);
  const int32_t count = nBytes / 2;
  for (int32_t i = 0; i < count; ++i) {
    int16_t s;
    std::memcpy(&s, p + i * 2, 2);
    // 32-bit arithmetic that wraps rather than traps on absurd volumes.
    const auto product =
        static_cast<int32_t>(static_cast<uint32_t>(s) * static_cast<uint32_t>(lVolume));
    s = static_cast<int16_t>(product / 100);
    std::memcpy(p + i * 2, &s, 2);
  }
}

void VolumeF32(void* pSamples, int32_t nBytes, int32_t lVolume) {
  auto* p = static_cast<uint8_t*>(pSamples);
  const float factor = static_cast<float>(lVolume) / 100.0f;
  const int32_t count = nBytes / 4;
  for (int32_t i = 0; i < count; ++i) {
    float s;
    std::memcpy(&s, p + i * 4, 4);
    s *= factor;
    std::memcpy(p + i * 4, &s, 4);
  }
}

void MixI16(void* pDest, const void* pOther, int32_t nBytes) {
  const int32_t count = nBytes / 2;
  MixTail<int16_t, MixSampleI16>(pDest, pOther, VectorMixI16(pDest, pOther, count), count);
}

void MixF32(void* pDest, const void* pOther, int32_t nBytes) {
  const int32_t count = nBytes / 4;
  MixTail<float, MixSampleF32>(pDest, pOther, VectorMixF32(pDest, pOther, count), count);
}

void ScalarMixI16(void* pDest, const void* pOther, int32_t nBytes) {
  MixTail<int16_t, MixSampleI16>(pDest, pOther, 0, nBytes / 2);
}

void ScalarMixF32(void* pDest, const void* pOther, int32_t nBytes) {
  MixTail<float, MixSampleF32>(pDest, pOther, 0, nBytes / 4);
}

}  // namespace ov::audio
