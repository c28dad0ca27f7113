#include "audio/AudioStream.h"

#include "core/Globals.h"
#include "core/Log.h"

using namespace ov;

CAudioStream::~CAudioStream() {
  WriteLog(kDbg, "[%p]Call:CAudioStream::~CAudioStream\n", static_cast<void*>(this));
  m_pSources[AudioDevice_Render].reset();
  m_pSources[AudioDevice_Capture].reset();
  StopSilentPlayer();
}

HRESULT CAudioStream::Initialize(CWriterStatistics* pStatistics, CAudioSourceCallback* pCallback) {
  if (!g_Recording) return E_POINTER;
  HRESULT hr;
  for (int i = 0; i < 2; ++i) {
    if (!g_bAudioEnabled[i]) continue;
    m_pSources[i] = std::make_unique<CAudioSource>(pStatistics, pCallback);
    // clang-format off
    if (OV_FAILED(hr, m_pSources[i]->Initialize((AudioDeviceType)i, i == 1 ? g_Recording->szWaveInFile : g_Recording->szWaveOutFile)))
      return hr;
    // clang-format on
    if (!m_pClockSource) m_pClockSource = m_pSources[i].get();
  }
  if (g_bAudioEnabled[AudioDevice_Render]) {
    if (OV_FAILED(hr, StartSilentPlayer())) return hr;
  }
  return S_OK;
}

HRESULT CAudioStream::StartSilentPlayer() {
  HRESULT hr;
  AudioEndpoint pDevice;
  if (OV_FAILED(hr, GetDefaultAudioEndpoint(AudioFlow::Render, &pDevice))) return hr;
  if (OV_FAILED(hr, SilentPlayer::Open(pDevice, &m_pAudioClient))) return hr;
  if (OV_FAILED(hr, m_pAudioClient->Start())) return hr;
  return S_OK;
}

void CAudioStream::StopSilentPlayer() {
  if (!m_pAudioClient) return;
  m_pAudioClient->Stop();
  m_pAudioClient.reset();
}

void CAudioStream::Stop() {
  for (int i = 0; i < 2; ++i) {
    CAudioSource* source = m_pSources[i].get();
    if (!source) continue;
    source->Join();
    const auto duration = static_cast<REFERENCE_TIME>(source->GetTime());
    if (g_Recording) {
      if (i == AudioDevice_Render)
        g_Recording->nWaveOutDuration = duration;
      else
        g_Recording->nWaveInDuration = duration;
    }
  }
  StopSilentPlayer();
}
