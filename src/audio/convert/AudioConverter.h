// Turns blocks of one wave format into another: depth, channels and rate.
// A change of rate runs a pre-stage into the work format, the resampler, and
// a post-stage out of it; the pre-stage folds channels down before the
// resampler and the post-stage spreads them after it, so the resampler always
// carries the fewest channels.
#pragma once

#include <cstdint>
#include <memory>

#include "audio/convert/AlignedBuffer.h"
#include "audio/convert/ConvertFunctions.h"
#include "audio/convert/Resampler.h"
#include "orvanta/types.h"
#include "platform/NonCopyable.h"

class AudioConverter : private ov::NonCopyable {
 public:
  AudioConverter();
  ~AudioConverter();

  // S_OK, or E_FAIL for a pair of formats that is not supported. Formats
  // are read past their 18 bytes only when tagged extensible.
  HRESULT Initialize(const WAVEFORMATEX* pSource, const WAVEFORMATEX* pDest);

  // Converts a block of at most MaxSourceBytes() and points *ppResult at the
  // converted bytes, which stay valid until the next call. Returns their count.
  int32_t Convert(const void* pSource, int32_t nBytes, const uint8_t** ppResult);

  // One second of the source.
  int32_t MaxSourceBytes() const { return m_nMaxSourceBytes; }

  // Null where there is nothing to do or no change of rate.
  ov::audio::ConvertFunction PreStage() const { return m_pfnPreStage; }
  ov::audio::ConvertFunction PostStage() const { return m_pfnPostStage; }
  const ov::audio::Resampler<int16_t>* IntResampler() const { return m_pIntResampler.get(); }
  const ov::audio::Resampler<float>* FloatResampler() const { return m_pFloatResampler.get(); }

 private:
  HRESULT InitializeSameRate(const WAVEFORMATEX& source, const WAVEFORMATEX& dest);
  HRESULT InitializeResample(const WAVEFORMATEX& source, const WAVEFORMATEX& dest);

  ov::audio::ConvertFunction m_pfnPreStage = nullptr;
  ov::audio::ConvertFunction m_pfnPostStage = nullptr;
  ov::audio::AlignedBuffer m_BufferA;
  ov::audio::AlignedBuffer m_BufferB;
  std::unique_ptr<ov::audio::Resampler<int16_t>> m_pIntResampler;
  std::unique_ptr<ov::audio::Resampler<float>> m_pFloatResampler;
  int32_t m_nMaxSourceBytes = 0;
};
