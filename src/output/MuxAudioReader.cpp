#include "output/MuxAudioReader.h"

#include <algorithm>
#include <cstring>

#include "audio/convert/FormatLog.h"
#include "audio/convert/SampleFormat.h"
#include "core/Globals.h"
#include "core/Log.h"

namespace {

// Volume and mix are defined on 16-bit and float samples only.
bool HasTrackArithmetic(const WAVEFORMATEX& wfx) {
  const ov::audio::SampleKind kind = ov::audio::KindOf(wfx);
  return kind == ov::audio::SampleKind::kI16 || kind == ov::audio::SampleKind::kF32;
}

}  // namespace

CMuxAudioReader::CMuxAudioReader() = default;
CMuxAudioReader::~CMuxAudioReader() = default;

HRESULT CMuxAudioReader::Initialize(const WAVEFORMATEX& wfx, LONG lVolume) {
  const WAVEFORMATEX& source = Format().Format;
  if (!IsSameWaveFormat(&source, &wfx)) {
    m_pConverter = std::make_unique<AudioConverter>();
    if (FAILED(m_pConverter->Initialize(&source, &wfx))) {
      WriteLog(ov::kErr, "Audio Mux: Can't Support audio convert!\n");
      ov::audio::LogFormat("From", source);
      ov::audio::LogFormat("To", wfx);
      m_pConverter.reset();
      return E_FAIL;
    }
    // A block is one second of the source, in whole frames, and never more
    // than the converter takes at once.
    const int32_t frame = source.wBitsPerSample * source.nChannels / 8;
    m_nReadBlock = static_cast<int32_t>(
        std::min<int64_t>(source.nAvgBytesPerSec, m_pConverter->MaxSourceBytes()));
    m_nReadBlock -= m_nReadBlock % frame;
    if (m_nReadBlock <= 0 || !m_ReadBuffer.Allocate(static_cast<int32_t>(source.nAvgBytesPerSec)))
      return E_FAIL;
  }
  if (lVolume == 100) return S_OK;
  if (!HasTrackArithmetic(wfx)) {
    WriteLog(ov::kErr, "Audio Mux: no volume for %d-bit samples\n", wfx.wBitsPerSample);
    return E_FAIL;
  }
  m_lVolume = lVolume;
  m_pfnVolume = wfx.wBitsPerSample == 16 ? ov::audio::VolumeI16 : ov::audio::VolumeF32;
  return S_OK;
}

uint32_t CMuxAudioReader::Read(void* pBuffer, uint32_t nBytes) {
  auto* out = static_cast<uint8_t*>(pBuffer);
  const uint32_t delivered =
      m_pConverter ? ReadConverted(out, nBytes) : CWaveReader::Read(out, nBytes);
  if (m_pfnVolume) m_pfnVolume(out, static_cast<int32_t>(delivered), m_lVolume);
  return delivered;
}

// Converted bytes wait between calls; they are refilled one block of the file
// at a time and copied out once.
uint32_t CMuxAudioReader::ReadConverted(uint8_t* pBuffer, uint32_t nBytes) {
  uint32_t delivered = 0;
  while (static_cast<uint32_t>(m_nWaiting) < nBytes - delivered) {
    if (m_nWaiting > 0) {
      std::memcpy(pBuffer + delivered, m_pWaiting, static_cast<size_t>(m_nWaiting));
      delivered += static_cast<uint32_t>(m_nWaiting);
      m_nWaiting = 0;
    } else if (IsEndOfFile()) {
      return delivered;
    } else {
      const uint32_t n =
          CWaveReader::Read(m_ReadBuffer.Data(), static_cast<uint32_t>(m_nReadBlock));
      m_nWaiting = m_pConverter->Convert(m_ReadBuffer.Data(), static_cast<int32_t>(n), &m_pWaiting);
    }
  }
  const uint32_t rest = nBytes - delivered;
  std::memcpy(pBuffer + delivered, m_pWaiting, rest);
  m_pWaiting += rest;
  m_nWaiting -= static_cast<int32_t>(rest);
  return nBytes;
}

CMuxAudioReader2::CMuxAudioReader2() = default;
CMuxAudioReader2::~CMuxAudioReader2() = default;

HRESULT CMuxAudioReader2::Open(const wchar_t* szWaveFile, const wchar_t* szWaveFile2) {
  HRESULT hr;
  if (OV_FAILED(hr, CMuxAudioReader::Open(szWaveFile))) return hr;
  if (OV_FAILED(hr, m_Reader2.Open(szWaveFile2))) return hr;
  return S_OK;
}

HRESULT CMuxAudioReader2::Initialize(const WAVEFORMATEX& wfx, LONG lVolume1, LONG lVolume2) {
  HRESULT hr;
  if (OV_FAILED(hr, CMuxAudioReader::Initialize(wfx, lVolume1))) return hr;
  if (OV_FAILED(hr, m_Reader2.Initialize(wfx, lVolume2))) return hr;
  if (!HasTrackArithmetic(wfx)) {
    WriteLog(ov::kErr, "Audio Mux: no mix for %d-bit samples\n", wfx.wBitsPerSample);
    return E_FAIL;
  }
  if (!m_MixBuffer.Allocate(static_cast<int32_t>(wfx.nAvgBytesPerSec))) return E_OUTOFMEMORY;
  m_pfnMix = wfx.wBitsPerSample == 16 ? ov::audio::MixI16 : ov::audio::MixF32;
  return S_OK;
}

uint32_t CMuxAudioReader2::Read(void* pBuffer, uint32_t nBytes) {
  nBytes = std::min(nBytes, static_cast<uint32_t>(m_MixBuffer.Capacity()));
  const uint32_t first = CMuxAudioReader::Read(pBuffer, nBytes);
  const uint32_t second = m_Reader2.Read(m_MixBuffer.Data(), nBytes);
  const uint32_t count = std::min(first, second);
  m_pfnMix(pBuffer, m_MixBuffer.Data(), static_cast<int32_t>(count));
  return count;
}

CMuxAudioReaderFormat::~CMuxAudioReaderFormat() = default;

std::unique_ptr<CMuxAudioReader> CMuxAudioReaderFormat::CreateMuxAudioReader() {
  static const CapturedFile kNoRecording{};
  const CapturedFile& r = g_Recording ? *g_Recording : kNoRecording;
  const bool out = r.bWaveOutStream && r.bUseWaveOut && r.lWaveOutVolume != 0;
  const bool in = r.bWaveInStream && r.bUseWaveIn && r.lWaveInVolume != 0;
  if (out && in)
    return CreateTwo(r.szWaveOutFile, r.lWaveOutVolume, r.szWaveInFile, r.lWaveInVolume);
  if (out) return CreateOne(r.szWaveOutFile, r.lWaveOutVolume);
  if (in) return CreateOne(r.szWaveInFile, r.lWaveInVolume);
  WriteLog(ov::kErr,
           "CreateMuxAudioReader: WaveOut(Stream%d, Use%d, Volume%d), WaveIn(Stream%d, Use%d, "
           "Volume%d)\n",
           r.bWaveOutStream, r.bUseWaveOut, r.lWaveOutVolume, r.bWaveInStream, r.bUseWaveIn,
           r.lWaveInVolume);
  return nullptr;
}

std::unique_ptr<CMuxAudioReader> CMuxAudioReaderFormat::CreateOne(const wchar_t* szWaveFile,
                                                                  LONG lVolume) {
  auto pReader = std::make_unique<CMuxAudioReader>();
  HRESULT hr;
  if (OV_FAILED(hr, pReader->Open(szWaveFile))) return nullptr;
  WAVEFORMATEX wfx{};
  ChooseAudioFormat(&pReader->Format(), &wfx);
  if (OV_FAILED(hr, pReader->Initialize(wfx, lVolume))) return nullptr;
  return pReader;
}

std::unique_ptr<CMuxAudioReader> CMuxAudioReaderFormat::CreateTwo(const wchar_t* szWaveFile,
                                                                  LONG lVolume,
                                                                  const wchar_t* szWaveFile2,
                                                                  LONG lVolume2) {
  auto pReader = std::make_unique<CMuxAudioReader2>();
  HRESULT hr;
  if (OV_FAILED(hr, pReader->Open(szWaveFile, szWaveFile2))) return nullptr;
  WAVEFORMATEX wfx{};
  ChooseAudioFormat(&pReader->Format(), &wfx);
  if (OV_FAILED(hr, pReader->Initialize(wfx, lVolume, lVolume2))) return nullptr;
  return pReader;
}

BOOL SeekMuxAudioReader(CMuxAudioReader* pReader, REFERENCE_TIME tStart) {
  const BOOL inside = pReader->Seek(tStart);
  if (auto* pTwo = dynamic_cast<CMuxAudioReader2*>(pReader)) pTwo->m_Reader2.Seek(tStart);
  return inside;
}
