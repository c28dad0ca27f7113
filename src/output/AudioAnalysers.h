// The live analysers of an audio-only recording's blocks: a level meter and
// a spectrogram. Each turns every block into one result at once, on the
// capture thread that delivered it, with no state between blocks.
#pragma once

#include <cstdint>

#include "orvanta/audiorecorder.h"

class CVolumeMeasure : public CVolumeMeasureObject {
 public:
  explicit CVolumeMeasure(VolumeMeasureCallback* pCallback);
  void SetFormat(const WAVEFORMATEX* pFormat) override;
  void OnAudioData(int32_t type, const void* pSamples, uint32_t nFrames) override;

  // Half the peak-to-peak swing of the first count values, at most 1.
  static float Level(const float* pValues, uint32_t count);

 private:
  VolumeMeasureCallback* const m_pCallback;
  WAVEFORMATEX m_Format{};
};

class CSpectrogram : public CSpectrogramObject {
 public:
  static constexpr int kPoints = 4096;
  static constexpr int kBands = 23;
  static const int kBandHz[kBands];

  explicit CSpectrogram(SpectrogramCallback* pCallback);
  void SetFormat(const WAVEFORMATEX* pFormat) override;
  void OnAudioData(int32_t type, const void* pSamples, uint32_t nFrames) override;

  // Where band b reads the transform's output at a rate; kPoints or more
  // lies outside it.
  static uint32_t BandPosition(int band, uint32_t rate);

 private:
  SpectrogramCallback* const m_pCallback;
  WAVEFORMATEX m_Format{};
  alignas(64) float m_Input[kPoints] = {};
  // Bin 0's real part, bin 2048's real part, then bins 1..2047 as pairs;
  // two more for the transform, which writes bin 2048 at the end.
  alignas(64) float m_Output[kPoints + 2] = {};
  float m_Result[kBands] = {};
};
