#include "output/AudioAnalysers.h"

#include <cmath>
#include <new>

extern "C" {
#include <libavutil/tx.h>
}

namespace {

// The transform's tables, shared by every spectrogram and kept for the life
// of the process.
struct Transform {
  AVTXContext* context = nullptr;
  av_tx_fn run = nullptr;
  Transform() {
    const float scale = 1.0f;
    if (av_tx_init(&context, &run, AV_TX_FLOAT_RDFT, 0, CSpectrogram::kPoints, &scale, 0) < 0)
      run = nullptr;
  }
};

const Transform& SharedTransform() {
  static const Transform transform;
  return transform;
}

}  // namespace

CVolumeMeasure::CVolumeMeasure(VolumeMeasureCallback* pCallback)
    : CVolumeMeasureObject("CVolumeMeasureObject"), m_pCallback(pCallback) {}

void CVolumeMeasure::SetFormat(const WAVEFORMATEX* pFormat) {
  if (pFormat) m_Format = *pFormat;
}

float CVolumeMeasure::Level(const float* pValues, uint32_t count) {
  float maximum = 0.0f, minimum = 0.0f;
  for (uint32_t i = 0; i < count; ++i) {
    const float x = pValues[i];
    if (x > maximum)
      maximum = x;
    else
      minimum = std::fmin(x, minimum);
  }
  return std::fmin((maximum - minimum) * 0.5f, 1.0f);
}

void CVolumeMeasure::OnAudioData(int32_t type, const void* pSamples, uint32_t nFrames) {
  if (!m_pCallback || !pSamples) return;
  // Samples narrower than a float hold fewer values than frames: the block
  // is read no further than it goes.
  uint32_t count = nFrames;
  if (m_Format.nBlockAlign != 0 && m_Format.nBlockAlign < sizeof(float))
    count = static_cast<uint32_t>(uint64_t{nFrames} * m_Format.nBlockAlign / sizeof(float));
  m_pCallback->OnVolume(type, Level(static_cast<const float*>(pSamples), count));
}

const int CSpectrogram::kBandHz[kBands] = {30,   60,   100,  160,  240,   300,   350,  400,
                                           440,  500,  600,  800,  1000,  1500,  2000, 2600,
                                           3000, 4000, 6000, 8000, 10000, 14000, 16000};

CSpectrogram::CSpectrogram(SpectrogramCallback* pCallback)
    : CSpectrogramObject("CSpectrogramObject"), m_pCallback(pCallback) {
  SharedTransform();
}

void CSpectrogram::SetFormat(const WAVEFORMATEX* pFormat) {
  if (pFormat) m_Format = *pFormat;
}

uint32_t CSpectrogram::BandPosition(int band, uint32_t rate) {
  return rate ? static_cast<uint32_t>(int64_t{kBandHz[band]} * kPoints / rate) : kPoints;
}

void CSpectrogram::OnAudioData(int32_t type, const void* pSamples, uint32_t nFrames) {
  const Transform& transform = SharedTransform();
  const uint32_t channels = m_Format.nChannels;
  // A short block would leave stale samples in the input, and a low rate
  // puts the top bands past the transform's output: neither has a result.
  // A block in narrower samples than floats is read no further than it goes.
  const uint64_t needed = (uint64_t{channels} * (kPoints - 1) + 1) * sizeof(float);
  if (!m_pCallback || !pSamples || !transform.run || channels == 0 || nFrames < kPoints ||
      uint64_t{nFrames} * m_Format.nBlockAlign < needed ||
      BandPosition(kBands - 1, m_Format.nSamplesPerSec) >= kPoints)
    return;
  const float* samples = static_cast<const float*>(pSamples);
  for (int i = 0; i < kPoints; ++i) m_Input[i] = samples[size_t{channels} * i];
  transform.run(transform.context, m_Output, m_Input, sizeof(float));
  // The transform puts bin 2048 (purely real) behind the others; its real
  // part goes where bin 0's empty imaginary part stood.
  m_Output[1] = m_Output[kPoints];
  for (int b = 0; b < kBands; ++b) {
    const float v = m_Output[BandPosition(b, m_Format.nSamplesPerSec)];
    m_Result[b] = std::log10(v * v);
  }
  m_pCallback->OnSpectrum(type, m_Result);
}

extern "C" CVolumeMeasureObject* CreateVolumeMeasureObject(VolumeMeasureCallback* pCallback) {
  return new (std::nothrow) CVolumeMeasure(pCallback);
}

extern "C" CSpectrogramObject* CreateSpectrogramObject(SpectrogramCallback* pCallback) {
  return new (std::nothrow) CSpectrogram(pCallback);
}
