// Rate change by a weighted box filter. Every input frame is spread over
// nInputWeight units of a common time grid and every output frame covers
// nOutputWidth units of it; an output frame is the weighted mean of the input
// frames it overlaps. The accumulators carry over from call to call, so the
// blocks of a stream join without a seam.
#pragma once

#include <cstdint>
#include <type_traits>

namespace ov::audio {

// The smallest k for which k x source rate is a multiple of the destination
// rate: the input weight is k and the output width k x source / destination.
// False when either is out of 32-bit range or a rate is 0.
bool ResampleRatio(uint32_t sourceRate, uint32_t destRate, int32_t* pInputWeight,
                   int32_t* pOutputWidth);

// Sample is int16_t (32-bit integer accumulators, truncating division) or
// float (float accumulators and division).
template <typename Sample>
class Resampler {
 public:
  using Accumulator = std::conditional_t<std::is_same_v<Sample, float>, float, int32_t>;
  static constexpr int kMaxChannels = 8;

  Resampler(int nChannels, int32_t nInputWeight, int32_t nOutputWidth)
      : m_nChannels(nChannels), m_nInputWeight(nInputWeight), m_nOutputWidth(nOutputWidth) {}

  // Returns the bytes written. The last, partly filled output frame stays in
  // the accumulators for the next call.
  int32_t Run(void* pDest, const void* pSource, int32_t nBytes);

  int Channels() const { return m_nChannels; }
  int32_t InputWeight() const { return m_nInputWeight; }
  int32_t OutputWidth() const { return m_nOutputWidth; }
  int32_t Filled() const { return m_nFilled; }

 private:
  template <int kChannels>
  int32_t RunFrames(Sample* out, const Sample* in, int32_t frames);

  int32_t m_nChannels;
  int32_t m_nInputWeight;
  int32_t m_nOutputWidth;
  int32_t m_nFilled = 0;
  Accumulator m_Accumulators[kMaxChannels] = {};
};

extern template class Resampler<int16_t>;
extern template class Resampler<float>;

}  // namespace ov::audio
