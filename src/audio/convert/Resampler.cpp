#include "audio/convert/Resampler.h"

#include <numeric>

namespace ov::audio {

namespace {

// Weights beyond this would let the running sums of the grid overflow.
constexpr uint64_t kMaxWeight = 1u << 30;

}  // namespace

bool ResampleRatio(uint32_t sourceRate, uint32_t destRate, int32_t* pInputWeight,
                   int32_t* pOutputWidth) {
  if (sourceRate == 0 || destRate == 0) return false;
  // The first multiple of the source rate that the destination rate divides
  // is their least common multiple.
  const uint64_t divisor = std::gcd(sourceRate, destRate);
  const uint64_t inputWeight = destRate / divisor;
  const uint64_t outputWidth = sourceRate / divisor;
  if (inputWeight > kMaxWeight || outputWidth > kMaxWeight) return false;
  *pInputWeight = static_cast<int32_t>(inputWeight);
  *pOutputWidth = static_cast<int32_t>(outputWidth);
  return true;
}

template <typename Sample>
int32_t Resampler<Sample>::Run(void* pDest, const void* pSource, int32_t nBytes) {
  if (nBytes <= 0) return 0;
  const int32_t frames = nBytes / (m_nChannels * static_cast<int32_t>(sizeof(Sample)));
  auto* out = static_cast<Sample*>(pDest);
  const auto* in = static_cast<const Sample*>(pSource);
  int32_t written;
  switch (m_nChannels) {
    case 1:
      written = RunFrames<1>(out, in, frames);
      break;
    case 2:
      written = RunFrames<2>(out, in, frames);
      break;
    case 4:
      written = RunFrames<4>(out, in, frames);
      break;
    case 6:
      written = RunFrames<6>(out, in, frames);
      break;
    case 8:
      written = RunFrames<8>(out, in, frames);
      break;
    default:
      written = RunFrames<0>(out, in, frames);
      break;
  }
  return written * m_nChannels * static_cast<int32_t>(sizeof(Sample));
}

// kChannels 0 takes the count from the object; the others let the compiler
// unroll the channel loops.
template <typename Sample>
template <int kChannels>
int32_t Resampler<Sample>::RunFrames(Sample* out, const Sample* in, int32_t frames) {
  const int channels = kChannels > 0 ? kChannels : m_nChannels;
  Accumulator acc[kMaxChannels];
  Accumulator current[kMaxChannels] = {};
  for (int c = 0; c < channels; ++c) acc[c] = m_Accumulators[c];
  int32_t filled = m_nFilled;
  int32_t remaining = 0;
  int32_t next = 0;
  Sample* const first = out;

  auto add = [&](int32_t weight) {
    if constexpr (std::is_same_v<Sample, float>) {
      const float w = static_cast<float>(weight);
      for (int c = 0; c < channels; ++c) acc[c] += current[c] * w;
    } else {
      for (int c = 0; c < channels; ++c) acc[c] += current[c] * weight;
    }
  };

  for (;;) {
    if (filled + remaining < m_nOutputWidth) {
      add(remaining);
      filled += remaining;
      if (next == frames) break;
      for (int c = 0; c < channels; ++c) current[c] = in[next * channels + c];
      ++next;
      remaining = m_nInputWeight;
    } else {
      const int32_t share = m_nOutputWidth - filled;
      add(share);
      remaining -= share;
      for (int c = 0; c < channels; ++c) {
        if constexpr (std::is_same_v<Sample, float>)
          out[c] = acc[c] / static_cast<float>(m_nOutputWidth);
        else
          out[c] = static_cast<Sample>(acc[c] / m_nOutputWidth);
        acc[c] = 0;
      }
      out += channels;
      filled = 0;
    }
  }

  for (int c = 0; c < channels; ++c) m_Accumulators[c] = acc[c];
  m_nFilled = filled;
  return static_cast<int32_t>((out - first) / channels);
}

template class Resampler<int16_t>;
template class Resampler<float>;

}  // namespace ov::audio
