#include "audio/convert/ConvertFunctions.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace ov::audio {

namespace {

using K = SampleKind;

template <typename T>
T Load(const uint8_t* p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

template <typename T>
void Store(uint8_t* p, T v) {
  std::memcpy(p, &v, sizeof v);
}

template <K kKind>
constexpr int kBytes = BytesPerSample(kKind);

template <K kKind>
float Decode(const uint8_t* p) {
  if constexpr (kKind == K::kU8) return DecodeU8(p[0]);
  if constexpr (kKind == K::kI16) return DecodeI16(Load<int16_t>(p));
  if constexpr (kKind == K::kI24) return DecodeI24(LoadI24(p));
  if constexpr (kKind == K::kI32) return DecodeI32(Load<int32_t>(p));
  if constexpr (kKind == K::kF32) return Load<float>(p);
}

template <K kKind>
void Encode(float x, uint8_t* p) {
  if constexpr (kKind == K::kU8) p[0] = EncodeU8(x);
  if constexpr (kKind == K::kI16) Store(p, EncodeI16(x));
  if constexpr (kKind == K::kF32) Store(p, x);
}

// One sample to another depth without arithmetic: integer depths keep their
// high bytes, neither rounding nor limiting; float goes through the codec.
template <K kFrom, K kTo>
void Direct(const uint8_t* s, uint8_t* d) {
  if constexpr (kFrom == kTo) {
    std::memcpy(d, s, kBytes<kFrom>);
  } else if constexpr (kTo == K::kF32) {
    Encode<K::kF32>(Decode<kFrom>(s), d);
  } else if constexpr (kFrom == K::kF32) {
    Encode<kTo>(Load<float>(s), d);
  } else if constexpr (kTo == K::kU8) {
    d[0] = static_cast<uint8_t>(s[kBytes<kFrom> - 1] + 128);
  } else if constexpr (kFrom == K::kU8) {
    Store(d, static_cast<int16_t>((static_cast<int>(s[0]) - 128) * 256));
  } else {
    static_assert(kTo == K::kI16);
    d[0] = s[kBytes<kFrom> - 2];
    d[1] = s[kBytes<kFrom> - 1];
  }
}

// Channel counts that fold channels together go through float.
constexpr bool IsMix(int fromChannels, int toChannels) {
  return (toChannels == 1 && fromChannels > 1) ||
         (toChannels == 2 && (fromChannels == 6 || fromChannels == 8));
}

// Which source channel an output channel copies; -1 for an added silent one.
constexpr int SourceChannel(int fromChannels, int c) {
  if (fromChannels == 1) return c < 2 ? 0 : -1;
  return c < fromChannels ? c : -1;
}

// Down-mixes in single precision. The sums are not normalised: the encoder's
// limits are the only cut. Mono and stereo weight the third and fourth
// channels the opposite way round.
template <int kFrom, int kTo>
void Mix(const float* c, float* out) {
  constexpr float kHalf = 0.5f;
  constexpr float kSide = 0.7071f;
  if constexpr (kTo == 1 && (kFrom == 2 || kFrom == 4)) {
    out[0] = (c[0] + c[1]) * kHalf;
  } else if constexpr (kTo == 1 && kFrom == 6) {
    out[0] = c[0] + c[1] + c[2] * kHalf + (c[3] + c[4] + c[5]) * kSide;
  } else if constexpr (kTo == 1 && kFrom == 8) {
    out[0] = c[0] + c[1] + c[2] * kHalf + (c[3] + c[4] + c[5] + c[6] + c[7]) * kSide;
  } else if constexpr (kTo == 2 && kFrom == 6) {
    out[0] = c[0] + (c[2] + c[4]) * kSide + c[3] * kHalf;
    out[1] = c[1] + (c[2] + c[5]) * kSide + c[3] * kHalf;
  } else {
    static_assert(kTo == 2 && kFrom == 8);
    out[0] = c[0] + (c[2] + c[4] + c[6]) * kSide + c[3] * kHalf;
    out[1] = c[1] + (c[2] + c[5] + c[7]) * kSide + c[3] * kHalf;
  }
}

template <K kFrom, int kFromChannels, K kTo, int kToChannels>
void ConvertFrame(const uint8_t* s, uint8_t* d) {
  if constexpr (IsMix(kFromChannels, kToChannels)) {
    float in[kFromChannels];
    float out[kToChannels];
    for (int c = 0; c < kFromChannels; ++c) in[c] = Decode<kFrom>(s + c * kBytes<kFrom>);
    Mix<kFromChannels, kToChannels>(in, out);
    for (int c = 0; c < kToChannels; ++c) Encode<kTo>(out[c], d + c * kBytes<kTo>);
  } else {
    for (int c = 0; c < kToChannels; ++c) {
      const int from = SourceChannel(kFromChannels, c);
      if (from < 0)
        std::memset(d + c * kBytes<kTo>, 0, kBytes<kTo>);
      else
        Direct<kFrom, kTo>(s + from * kBytes<kFrom>, d + c * kBytes<kTo>);
    }
  }
}

// Vector kernels. Each does exactly the scalar operations, lane by lane, in
// the same order and rounding, so the results are bit-identical; they return
// how much of the work (samples or frames, as named) they did.
#if defined(__SSE2__)

int32_t VectorI16ToF32(uint8_t* d, const uint8_t* s, int32_t samples) {
  const __m128 scale = _mm_set1_ps(32767.0f);
  int32_t i = 0;
  for (; i + 8 <= samples; i += 8) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i * 2));
    __m128i lo = _mm_srai_epi32(_mm_unpacklo_epi16(v, v), 16);
    __m128i hi = _mm_srai_epi32(_mm_unpackhi_epi16(v, v), 16);
    _mm_storeu_ps(reinterpret_cast<float*>(d + i * 4), _mm_div_ps(_mm_cvtepi32_ps(lo), scale));
    _mm_storeu_ps(reinterpret_cast<float*>(d + i * 4 + 16), _mm_div_ps(_mm_cvtepi32_ps(hi), scale));
  }
  return i;
}

// The double-precision product of the rule is exact, and scaling by a power
// of two commutes with rounding to single, so converting first is the same.
int32_t VectorI32ToF32(uint8_t* d, const uint8_t* s, int32_t samples) {
  const __m128 scale = _mm_set1_ps(static_cast<float>(kI32Scale));
  int32_t i = 0;
  for (; i + 4 <= samples; i += 4) {
    __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i * 4));
    _mm_storeu_ps(reinterpret_cast<float*>(d + i * 4), _mm_mul_ps(_mm_cvtepi32_ps(v), scale));
  }
  return i;
}

// maxps hands back its second operand for a NaN, which sends NaN to the low
// limit as the scalar rule does; cvtps2dq rounds like lrintf.
inline __m128i EncodeI16x4(__m128 x) {
  const __m128 y = _mm_mul_ps(x, _mm_set1_ps(32768.0f));
  const __m128 limited = _mm_min_ps(_mm_max_ps(y, _mm_set1_ps(-32768.0f)), _mm_set1_ps(32767.0f));
  return _mm_cvtps_epi32(limited);
}

int32_t VectorF32ToI16(uint8_t* d, const uint8_t* s, int32_t samples) {
  int32_t i = 0;
  for (; i + 8 <= samples; i += 8) {
    __m128i lo = EncodeI16x4(_mm_loadu_ps(reinterpret_cast<const float*>(s + i * 4)));
    __m128i hi = EncodeI16x4(_mm_loadu_ps(reinterpret_cast<const float*>(s + i * 4 + 16)));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(d + i * 2), _mm_packs_epi32(lo, hi));
  }
  return i;
}

int32_t VectorStereoToMonoF32(uint8_t* d, const uint8_t* s, int32_t frames) {
  const __m128 half = _mm_set1_ps(0.5f);
  int32_t i = 0;
  for (; i + 4 <= frames; i += 4) {
    __m128 a = _mm_loadu_ps(reinterpret_cast<const float*>(s + i * 8));
    __m128 b = _mm_loadu_ps(reinterpret_cast<const float*>(s + i * 8 + 16));
    __m128 left = _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0));
    __m128 right = _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1));
    _mm_storeu_ps(reinterpret_cast<float*>(d + i * 4), _mm_mul_ps(_mm_add_ps(left, right), half));
  }
  return i;
}

int32_t VectorMonoToStereoF32(uint8_t* d, const uint8_t* s, int32_t frames) {
  int32_t i = 0;
  for (; i + 4 <= frames; i += 4) {
    __m128 v = _mm_loadu_ps(reinterpret_cast<const float*>(s + i * 4));
    _mm_storeu_ps(reinterpret_cast<float*>(d + i * 8), _mm_unpacklo_ps(v, v));
    _mm_storeu_ps(reinterpret_cast<float*>(d + i * 8 + 16), _mm_unpackhi_ps(v, v));
  }
  return i;
}

#endif

// Samples of a member that keeps the channels, done by a vector kernel.
template <K kFrom, K kTo>
int32_t VectorSamples([[maybe_unused]] uint8_t* d, [[maybe_unused]] const uint8_t* s,
                      [[maybe_unused]] int32_t samples) {
#if defined(__SSE2__)
  if constexpr (kFrom == K::kI16 && kTo == K::kF32) return VectorI16ToF32(d, s, samples);
  if constexpr (kFrom == K::kI32 && kTo == K::kF32) return VectorI32ToF32(d, s, samples);
  if constexpr (kFrom == K::kF32 && kTo == K::kI16) return VectorF32ToI16(d, s, samples);
#endif
  return 0;
}

// Frames of a member that changes the channels, done by a vector kernel.
template <K kFrom, int kFromChannels, K kTo, int kToChannels>
int32_t VectorFrames([[maybe_unused]] uint8_t* d, [[maybe_unused]] const uint8_t* s,
                     [[maybe_unused]] int32_t frames) {
#if defined(__SSE2__)
  if constexpr (kFrom == K::kF32 && kTo == K::kF32) {
    if constexpr (kFromChannels == 2 && kToChannels == 1)
      return VectorStereoToMonoF32(d, s, frames);
    if constexpr (kFromChannels == 1 && kToChannels == 2)
      return VectorMonoToStereoF32(d, s, frames);
  }
#endif
  return 0;
}

template <K kFrom, int kFromChannels, K kTo, int kToChannels, bool kVector>
int32_t Convert(void* pDest, const void* pSource, int32_t nBytes) {
  constexpr int kInFrame = kFromChannels * kBytes<kFrom>;
  constexpr int kOutFrame = kToChannels * kBytes<kTo>;
  if (nBytes <= 0) return 0;
  const int32_t frames = nBytes / kInFrame;
  const auto* s = static_cast<const uint8_t*>(pSource);
  auto* d = static_cast<uint8_t*>(pDest);
  if constexpr (kFrom == kTo && kFromChannels == kToChannels) {
    std::memcpy(d, s, static_cast<size_t>(frames) * kInFrame);
  } else if constexpr (kFromChannels == kToChannels) {
    const int32_t samples = frames * kFromChannels;
    int32_t i = 0;
    if constexpr (kVector) i = VectorSamples<kFrom, kTo>(d, s, samples);
    for (; i < samples; ++i) Direct<kFrom, kTo>(s + i * kBytes<kFrom>, d + i * kBytes<kTo>);
  } else {
    int32_t i = 0;
    if constexpr (kVector) i = VectorFrames<kFrom, kFromChannels, kTo, kToChannels>(d, s, frames);
    for (; i < frames; ++i)
      ConvertFrame<kFrom, kFromChannels, kTo, kToChannels>(s + i * kInFrame, d + i * kOutFrame);
  }
  return frames * kOutFrame;
}

// The lookup walks the two tables of formats at compile time; a pair outside
// them has no member.
template <bool kVector, K kFrom, int kFromChannels, K kTo, int kToChannels>
ConvertFunction Member() {
  if constexpr (IsSourceFormat(kFrom, kFromChannels) && IsDestinationFormat(kTo, kToChannels))
    return &Convert<kFrom, kFromChannels, kTo, kToChannels, kVector>;
  else
    return nullptr;
}

template <bool kVector, K kFrom, int kFromChannels, K kTo>
ConvertFunction PickToChannels(int toChannels) {
  switch (toChannels) {
    case 1:
      return Member<kVector, kFrom, kFromChannels, kTo, 1>();
    case 2:
      return Member<kVector, kFrom, kFromChannels, kTo, 2>();
    case 6:
      return Member<kVector, kFrom, kFromChannels, kTo, 6>();
    case 8:
      return Member<kVector, kFrom, kFromChannels, kTo, 8>();
    default:
      return nullptr;
  }
}

template <bool kVector, K kFrom, int kFromChannels>
ConvertFunction PickTo(K to, int toChannels) {
  switch (to) {
    case K::kU8:
      return PickToChannels<kVector, kFrom, kFromChannels, K::kU8>(toChannels);
    case K::kI16:
      return PickToChannels<kVector, kFrom, kFromChannels, K::kI16>(toChannels);
    case K::kF32:
      return PickToChannels<kVector, kFrom, kFromChannels, K::kF32>(toChannels);
    default:
      return nullptr;
  }
}

template <bool kVector, K kFrom>
ConvertFunction PickFromChannels(int fromChannels, K to, int toChannels) {
  switch (fromChannels) {
    case 1:
      return PickTo<kVector, kFrom, 1>(to, toChannels);
    case 2:
      return PickTo<kVector, kFrom, 2>(to, toChannels);
    case 4:
      return PickTo<kVector, kFrom, 4>(to, toChannels);
    case 6:
      return PickTo<kVector, kFrom, 6>(to, toChannels);
    case 8:
      return PickTo<kVector, kFrom, 8>(to, toChannels);
    default:
      return nullptr;
  }
}

template <bool kVector>
ConvertFunction Pick(K from, int fromChannels, K to, int toChannels) {
  switch (from) {
    case K::kU8:
      return PickFromChannels<kVector, K::kU8>(fromChannels, to, toChannels);
    case K::kI16:
      return PickFromChannels<kVector, K::kI16>(fromChannels, to, toChannels);
    case K::kI24:
      return PickFromChannels<kVector, K::kI24>(fromChannels, to, toChannels);
    case K::kI32:
      return PickFromChannels<kVector, K::kI32>(fromChannels, to, toChannels);
    case K::kF32:
      return PickFromChannels<kVector, K::kF32>(fromChannels, to, toChannels);
    default:
      return nullptr;
  }
}

}  // namespace

ConvertFunction FindConvertFunction(SampleKind from, int fromChannels, SampleKind to,
                                    int toChannels) {
  return Pick<true>(from, fromChannels, to, toChannels);
}

ConvertFunction FindScalarConvertFunction(SampleKind from, int fromChannels, SampleKind to,
                                          int toChannels) {
  return Pick<false>(from, fromChannels, to, toChannels);
}

}  // namespace ov::audio
