// Sample kinds of the wave temp files and the rules by which one sample of a
// kind becomes a float and back. Every conversion, mix and resampling of the
// mux stage is built on these few functions, so that all paths agree to the
// bit.
#pragma once

#include <cmath>
#include <cstdint>

#include "orvanta/types.h"

namespace ov::audio {

enum class SampleKind : uint8_t { kNone, kU8, kI16, kI24, kI32, kF32 };

// The tag that decides the kind: an extensible format is known by its
// SubFormat GUID. The record is only read past its 18 bytes when its tag says
// it is extensible.
uint16_t EffectiveTag(const WAVEFORMATEX& format);
SampleKind KindOf(const WAVEFORMATEX& format);

constexpr int BytesPerSample(SampleKind kind) {
  switch (kind) {
    case SampleKind::kU8:
      return 1;
    case SampleKind::kI16:
      return 2;
    case SampleKind::kI24:
      return 3;
    case SampleKind::kI32:
    case SampleKind::kF32:
      return 4;
    default:
      return 0;
  }
}

// The formats that the converter takes, and those it makes. Four channels
// come only from float devices, and nothing is made in 24 or 32 PCM bits.
constexpr bool IsSourceFormat(SampleKind kind, int nChannels) {
  switch (kind) {
    case SampleKind::kU8:
      return nChannels == 1 || nChannels == 2;
    case SampleKind::kI16:
    case SampleKind::kI24:
    case SampleKind::kI32:
      return nChannels == 1 || nChannels == 2 || nChannels == 6 || nChannels == 8;
    case SampleKind::kF32:
      return nChannels == 1 || nChannels == 2 || nChannels == 4 || nChannels == 6 || nChannels == 8;
    default:
      return false;
  }
}

constexpr bool IsDestinationFormat(SampleKind kind, int nChannels) {
  switch (kind) {
    case SampleKind::kU8:
      return nChannels == 1;
    case SampleKind::kI16:
    case SampleKind::kF32:
      return nChannels == 1 || nChannels == 2 || nChannels == 6 || nChannels == 8;
    default:
      return false;
  }
}

// The two full-scale factors below are exact powers of two; the literals are
// the ones the conversion rules are written with.
inline constexpr double kI24Scale = 5.960464477539063e-8;   // 2^-24
inline constexpr double kI32Scale = 4.656612873077393e-10;  // 2^-31
static_assert(kI24Scale == 1.0 / 16777216.0);
static_assert(kI32Scale == 1.0 / 2147483648.0);

// A 3-byte little-endian sample, sign-extended.
inline int32_t LoadI24(const uint8_t* p) {
  return static_cast<int32_t>(static_cast<uint32_t>(p[0]) << 8 | static_cast<uint32_t>(p[1]) << 16 |
                              static_cast<uint32_t>(p[2]) << 24) >>
         8;
}

inline float DecodeU8(uint8_t u) {
  return static_cast<float>(static_cast<int>(u) - 128) * 0.0078125f;
}
// Sixteen-bit samples decode by 32767 but encode by 32768, so a round trip
// through float grows a sample by 32768/32767.
inline float DecodeI16(int16_t v) { return static_cast<float>(v) / 32767.0f; }
// Full scale of 24 bits decodes to +-0.5.
inline float DecodeI24(int32_t v) { return static_cast<float>(static_cast<double>(v) * kI24Scale); }
inline float DecodeI32(int32_t v) { return static_cast<float>(static_cast<double>(v) * kI32Scale); }

// Limiting in float before rounding gives what rounding and then limiting the
// integer would give, and keeps lrintf inside the range it can return. A NaN
// goes to the low limit, as the processor's own conversion sends it there.
inline float LimitFloat(float y, float lo, float hi) {
  if (!(y >= lo)) y = lo;
  if (y > hi) y = hi;
  return y;
}

inline uint8_t EncodeU8(float x) {
  return static_cast<uint8_t>(std::lrintf(LimitFloat(x * 128.0f, -128.0f, 127.0f)) + 128);
}
inline int16_t EncodeI16(float x) {
  return static_cast<int16_t>(std::lrintf(LimitFloat(x * 32768.0f, -32768.0f, 32767.0f)));
}

}  // namespace ov::audio

// Nonzero when the two formats hold the same samples: effective tag, rate,
// channels and bits. Such a file passes through without a converter.
BOOL IsSameWaveFormat(const WAVEFORMATEX* a, const WAVEFORMATEX* b);
