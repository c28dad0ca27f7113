#include "audio/convert/AudioConverter.h"

#include <algorithm>
#include <limits>

#include "audio/convert/FormatLog.h"
#include "audio/convert/SampleFormat.h"
#include "core/Log.h"

using ov::audio::SampleKind;

namespace {

uint64_t BytesPerSecond(const WAVEFORMATEX& f) {
  return static_cast<uint64_t>(f.wBitsPerSample) * f.nChannels * f.nSamplesPerSec / 8;
}

// The integer accumulators hold up to 32768 x the output width.
constexpr int32_t kMaxIntegerOutputWidth = 65535;

}  // namespace

AudioConverter::AudioConverter() = default;
AudioConverter::~AudioConverter() = default;

HRESULT AudioConverter::Initialize(const WAVEFORMATEX* pSource, const WAVEFORMATEX* pDest) {
  if (pSource->nSamplesPerSec == pDest->nSamplesPerSec) {
    if (SUCCEEDED(InitializeSameRate(*pSource, *pDest))) return S_OK;
    WriteLog(ov::kErr, "Unsupport audio convert:");
  } else {
    if (SUCCEEDED(InitializeResample(*pSource, *pDest))) return S_OK;
    WriteLog(ov::kErr, "Unsupport audio resample:\n");
  }
  ov::audio::LogFormat("Source", *pSource);
  ov::audio::LogFormat("Dest", *pDest);
  return E_FAIL;
}

HRESULT AudioConverter::InitializeSameRate(const WAVEFORMATEX& source, const WAVEFORMATEX& dest) {
  const uint64_t capacity = 2 * std::max(BytesPerSecond(source), BytesPerSecond(dest));
  if (capacity == 0 || capacity > std::numeric_limits<int32_t>::max()) return E_FAIL;
  m_pfnPreStage = ov::audio::FindConvertFunction(ov::audio::KindOf(source), source.nChannels,
                                                 ov::audio::KindOf(dest), dest.nChannels);
  if (!m_pfnPreStage) return E_FAIL;
  if (!m_BufferA.Allocate(static_cast<int32_t>(capacity))) return E_OUTOFMEMORY;
  m_nMaxSourceBytes = static_cast<int32_t>(BytesPerSecond(source));
  return S_OK;
}

HRESULT AudioConverter::InitializeResample(const WAVEFORMATEX& source, const WAVEFORMATEX& dest) {
  const SampleKind from = ov::audio::KindOf(source);
  const SampleKind to = ov::audio::KindOf(dest);
  if (!ov::audio::IsSourceFormat(from, source.nChannels) ||
      !ov::audio::IsDestinationFormat(to, dest.nChannels))
    return E_FAIL;

  const int channels = std::min(source.nChannels, dest.nChannels);
  const bool floatWork = from == SampleKind::kF32 || to == SampleKind::kF32 ||
                         from == SampleKind::kI32 || from == SampleKind::kI24;
  const SampleKind work = floatWork ? SampleKind::kF32 : SampleKind::kI16;

  int32_t inputWeight = 0;
  int32_t outputWidth = 0;
  if (!ov::audio::ResampleRatio(source.nSamplesPerSec, dest.nSamplesPerSec, &inputWeight,
                                &outputWidth))
    return E_FAIL;
  if (!floatWork && outputWidth > kMaxIntegerOutputWidth) return E_FAIL;

  if (from != work || source.nChannels != channels) {
    m_pfnPreStage = ov::audio::FindConvertFunction(from, source.nChannels, work, channels);
    if (!m_pfnPreStage) return E_FAIL;
  }
  if (work != to || channels != dest.nChannels) {
    m_pfnPostStage = ov::audio::FindConvertFunction(work, channels, to, dest.nChannels);
    if (!m_pfnPostStage) return E_FAIL;
  }

  // Twice the greater second is the rule; a narrow source going into float
  // at a higher rate needs a second of float work at the greater rate beside it.
  const uint64_t workFrame =
      static_cast<uint64_t>(ov::audio::BytesPerSample(work)) * static_cast<uint64_t>(channels);
  const uint64_t capacity =
      std::max(2 * std::max(BytesPerSecond(source), BytesPerSecond(dest)),
               workFrame * std::max(source.nSamplesPerSec, dest.nSamplesPerSec));
  if (capacity > std::numeric_limits<int32_t>::max()) return E_FAIL;
  if (!m_BufferA.Allocate(static_cast<int32_t>(capacity)) ||
      !m_BufferB.Allocate(static_cast<int32_t>(capacity)))
    return E_OUTOFMEMORY;

  if (floatWork)
    m_pFloatResampler =
        std::make_unique<ov::audio::Resampler<float>>(channels, inputWeight, outputWidth);
  else
    m_pIntResampler =
        std::make_unique<ov::audio::Resampler<int16_t>>(channels, inputWeight, outputWidth);
  m_nMaxSourceBytes = static_cast<int32_t>(BytesPerSecond(source));
  return S_OK;
}

int32_t AudioConverter::Convert(const void* pSource, int32_t nBytes, const uint8_t** ppResult) {
  nBytes = std::min(nBytes, m_nMaxSourceBytes);
  if (!m_pIntResampler && !m_pFloatResampler) {
    *ppResult = m_BufferA.Data();
    return m_pfnPreStage(m_BufferA.Data(), pSource, nBytes);
  }
  const void* input = pSource;
  if (m_pfnPreStage) {
    nBytes = m_pfnPreStage(m_BufferA.Data(), pSource, nBytes);
    input = m_BufferA.Data();
  }
  nBytes = m_pIntResampler ? m_pIntResampler->Run(m_BufferB.Data(), input, nBytes)
                           : m_pFloatResampler->Run(m_BufferB.Data(), input, nBytes);
  if (!m_pfnPostStage) {
    *ppResult = m_BufferB.Data();
    return nBytes;
  }
  *ppResult = m_BufferA.Data();
  return m_pfnPostStage(m_BufferA.Data(), m_BufferB.Data(), nBytes);
}
