#include "audio/AudioSource.h"

#include <algorithm>
#include <string>
#include <system_error>

#include "audio/WaveFormat.h"
#include "platform/Clock.h"
#include "platform/Thread.h"
#include "session/Globals.h"
#include "session/Log.h"

using namespace ov;

namespace {

constexpr uint32_t kIdleSleepMs = 5;
constexpr WORD kMaxChannels = 6;
// Front left, front right, front centre, low frequency, side left, side right.
constexpr DWORD kSixChannelMask = 0x60F;
constexpr size_t kMaxNameLength = 127;

const char* TypeName(AudioDeviceType type) {
  return type == AudioDevice_Capture ? "Capture" : "eRender";
}

}  // namespace

CAudioSource::CAudioSource(CWriterStatistics* pStatistics, CAudioSourceCallback* pCallback)
    : m_pStatistics(pStatistics), m_pCallback(pCallback) {
  WriteLog(kDbg, "[%p]Call:CAudioSource::CAudioSource\n", static_cast<void*>(this));
}

CAudioSource::~CAudioSource() {
  WriteLog(kDbg, "[%p]Call:CAudioSource::~CAudioSource\n", static_cast<void*>(this));
  m_bQuit.store(true);
  Join();
  m_pCaptureClient.reset();
  m_pAudioClient.reset();
}

HRESULT CAudioSource::Initialize(AudioDeviceType type, const wchar_t* szOutFile) {
  m_Type = type;
  WriteLog(kMsg, "%s\n", TypeName(type));
  const AudioFlow dataFlow = type == AudioDevice_Capture ? AudioFlow::Capture : AudioFlow::Render;
  const bool capture = type == AudioDevice_Capture;
  HRESULT hr;
  AudioEndpoint pDevice;
  if (OV_FAILED(hr, GetDefaultAudioEndpoint(dataFlow, &pDevice))) return hr;
  if (OV_FAILED(hr, AudioClient::Activate(pDevice, &m_pAudioClient))) return hr;
  WAVEFORMATEXTENSIBLE deviceFormat;
  WAVEFORMATEXTENSIBLE* pDeviceFormat = &deviceFormat;
  if (OV_FAILED(hr, m_pAudioClient->GetMixFormat(pDeviceFormat))) return hr;

  const std::wstring name = pDevice.name.substr(0, kMaxNameLength);
  WriteLog(kMsg, "%s:%ls\n", capture ? "Capture Device" : "Render Device", name.c_str());
  LogWaveFormat(capture ? "Capture Device Format" : "Render Device Format", *pDeviceFormat);

  if (FAILED(hr = InitializeClient(pDevice, pDeviceFormat))) return hr;
  if (OV_FAILED(hr, m_pAudioClient->GetCaptureClient(&m_pCaptureClient))) return hr;
  m_nChannels = pDeviceFormat->Format.nChannels;
  m_nFrameBytes = pDeviceFormat->Format.wBitsPerSample * m_nChannels / 8;
  // clang-format off
  if (OV_FAILED(hr, CWaveEncoder::Initialize(szOutFile, (WAVEFORMATEXTENSIBLE *)pDeviceFormat)))
    return E_FAIL;
  // clang-format on
  return StartCaptureThread();
}

HRESULT CAudioSource::InitializeClient(const AudioEndpoint& pDevice,
                                       WAVEFORMATEXTENSIBLE* pDeviceFormat) {
  const bool loopback = m_Type == AudioDevice_Render;
  HRESULT hr = m_pAudioClient->Initialize(loopback, REF_TIME_UNITS, *pDeviceFormat);
  if (hr == AUDCLNT_E_UNSUPPORTED_FORMAT) return NegotiateFormat(pDevice, pDeviceFormat);
  if (FAILED(hr))
    WriteLog(kErr, "Failed(0x%x) to initialize audio client\n", static_cast<unsigned>(hr));
  return hr;
}

// The device refused its own mix format: ask it for the nearest one it
// takes, and as a last resort try six channels.
HRESULT CAudioSource::NegotiateFormat(const AudioEndpoint& pDevice,
                                      WAVEFORMATEXTENSIBLE* pDeviceFormat) {
  const bool loopback = m_Type == AudioDevice_Render;
  WriteLog(kErr, "Unsupport the specified format.\n");
  m_pAudioClient.reset();
  WriteLog(kMsg, "Retry:\n");
  HRESULT hr;
  if (OV_FAILED(hr, AudioClient::Activate(pDevice, &m_pAudioClient))) return hr;
  if (OV_FAILED(hr, m_pAudioClient->GetMixFormat(pDeviceFormat))) return hr;
  WAVEFORMATEXTENSIBLE pClosestMatch;
  bool hasClosest = false;
  if (OV_FAILED(hr, m_pAudioClient->IsFormatSupported(*pDeviceFormat, &pClosestMatch, &hasClosest)))
    return hr;
  if (hasClosest) {
    LogWaveFormat("Closest Match", pClosestMatch);
    *pDeviceFormat = pClosestMatch;
    hr = m_pAudioClient->Initialize(loopback, REF_TIME_UNITS, *pDeviceFormat);
    if (SUCCEEDED(hr))
      WriteLog(kMsg, "SUCCEEDED\n");
    else
      WriteLog(kErr, "Failed hr=0x%x\n", static_cast<unsigned>(hr));
    if (hr == S_OK) return S_OK;
  } else {
    WriteLog(kErr, "pClosestMatch=__nullptr?, hr=0x%x\n", static_cast<unsigned>(hr));
    hr = E_FAIL;
  }
  if (pDeviceFormat->Format.nChannels > kMaxChannels)
    return InitializeSixChannels(pDevice, pDeviceFormat);
  WriteLog(kErr, "Failed(0x%x) to initialize audio client\n", static_cast<unsigned>(hr));
  return hr;
}

HRESULT CAudioSource::InitializeSixChannels(const AudioEndpoint& pDevice,
                                            WAVEFORMATEXTENSIBLE* pDeviceFormat) {
  const bool loopback = m_Type == AudioDevice_Render;
  m_pAudioClient.reset();
  HRESULT hr;
  if (OV_FAILED(hr, AudioClient::Activate(pDevice, &m_pAudioClient))) return hr;
  if (OV_FAILED(hr, m_pAudioClient->GetMixFormat(pDeviceFormat))) return hr;
  WAVEFORMATEX& f = pDeviceFormat->Format;
  f.nChannels = kMaxChannels;
  f.nBlockAlign = static_cast<WORD>(f.wBitsPerSample * kMaxChannels / 8);
  f.nAvgBytesPerSec = f.nBlockAlign * f.nSamplesPerSec;
  if (f.wFormatTag == WAVE_FORMAT_EXTENSIBLE) pDeviceFormat->dwChannelMask = kSixChannelMask;
  WAVEFORMATEXTENSIBLE pClosestMatch;
  bool hasClosest = false;
  hr = m_pAudioClient->IsFormatSupported(*pDeviceFormat, &pClosestMatch, &hasClosest);
  if (hasClosest) {
    LogWaveFormat("Closest Match", pClosestMatch);
    *pDeviceFormat = pClosestMatch;
  } else {
    WriteLog(kErr, "pClosestMatch=__nullptr?, hr=0x%x\n", static_cast<unsigned>(hr));
  }
  if (OV_FAILED(hr, m_pAudioClient->Initialize(loopback, REF_TIME_UNITS, *pDeviceFormat)))
    return hr;
  return S_OK;
}

HRESULT CAudioSource::StartCaptureThread() {
  try {
    m_hThread = std::thread(&CAudioSource::CaptureThread, this);
  } catch (const std::system_error& error) {
    WriteLog(kErr, "Failed(%d) to create capture thread\n", error.code().value());
    return E_FAIL;
  }
  m_hStarted.Wait();
  return S_OK;
}

void CAudioSource::CaptureThread() {
  SetCurrentThreadName(m_Type == AudioDevice_Capture ? "ov-audio-mic" : "ov-audio-loop");
  m_hStarted.Set();
  m_pAudioClient->Start();
  const WAVEFORMATEXTENSIBLE* pFormat = &Format();
  HRESULT hr;
  while (g_bRunning.load(std::memory_order_relaxed) && !m_bQuit.load(std::memory_order_relaxed)) {
    uint32_t NumFramesInNextPacket = 0;
    if (OV_FAILED(hr, m_pCaptureClient->GetNextPacketSize(&NumFramesInNextPacket))) return;
    if (NumFramesInNextPacket == 0) {
      SleepMs(kIdleSleepMs);
      continue;
    }
    const BYTE* pData = nullptr;
    uint32_t NumFramesToRead = 0;
    if (OV_FAILED(hr, m_pCaptureClient->GetBuffer(&pData, &NumFramesToRead))) return;
    if (NumFramesToRead == 0) continue;
    if (g_bRecording.load(std::memory_order_relaxed)) {
      const HRESULT written = Write(pData, m_nFrameBytes * NumFramesToRead);
      if (FAILED(written)) m_pStatistics->WriteFailed(written);
      m_pStatistics->AddBytes(static_cast<int64_t>(m_nChannels) * NumFramesToRead);
      if (m_pCallback) m_pCallback->OnAudioPacket(m_Type, pFormat, pData, NumFramesToRead);
    }
    m_pCaptureClient->ReleaseBuffer(NumFramesToRead);
  }
  m_pAudioClient->Stop();
}

void CAudioSource::Join() {
  if (m_hThread.joinable()) m_hThread.join();
}

uint64_t CAudioSource::GetTime() {
  const uint64_t rate = Format().Format.nAvgBytesPerSec;
  if (rate == 0) return 0;
  return static_cast<uint64_t>(BytesWritten()) * REF_TIME_UNITS / rate;
}
