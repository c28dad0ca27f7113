// The wave readers of the players: a wave temp file pulled by its playback
// stream. The stream's thread reads the file; the player's thread seeks it,
// but only after Stop, when the stream is gone and nothing reads.
#include <algorithm>

#include "core/Log.h"
#include "playback/AudioRender.h"

HRESULT CAudioRender::Initialize(const WAVEFORMATEXTENSIBLE& wfx, ov::AudioOutputSource* pSource) {
  m_wfx = wfx;
  HRESULT hr = ov::AudioOutput::Open(m_wfx, pSource, &m_pOutput);
  if (FAILED(hr)) {
    WriteLog(ov::kErr, "Failed to open waveOut device=%d\n", hr);
    return E_FAIL;
  }
  return S_OK;
}

void CAudioRender::ApplyVolume(int32_t nEffective) {
  if (!m_pOutput || nEffective == nCurrentVolume) return;
  const int64_t level = std::min<int64_t>(static_cast<int64_t>(nEffective) * 65535 / 100, 65535);
  m_pOutput->SetVolume(static_cast<uint32_t>(std::max<int64_t>(level, 0)));
  nCurrentVolume = nEffective;
}

CWaveAudioRender::CWaveAudioRender(int32_t nIndex, const wchar_t* pMediaFile, const BOOL* pbUse,
                                   const LONG* plVolume)
    : CBaseMediaReader(nIndex, pMediaFile), m_pbUse(pbUse), m_plVolume(plVolume) {
  WriteLog(ov::kMsg, "CAudioRender:Create\n");
}

CWaveAudioRender::~CWaveAudioRender() {
  WriteLog(ov::kMsg, "CAudioRender:Destroy\n");
  // The stream goes before the file it reads.
  m_pOutput.reset();
}

HRESULT CWaveAudioRender::Initialize() {
  HRESULT hr = CWaveReader::Open(m_pMediaFile);
  if (FAILED(hr)) {
    ov::LogFailure(hr, "CWaveReader::Initialize(m_pMediaFile)", OV_FILE, __LINE__);
    return hr;
  }
  if (FAILED(hr = CAudioRender::Initialize(Format(), this))) {
    ov::LogFailure(hr, "CAudioRender::Initialize(m_wfx)", OV_FILE, __LINE__);
    return hr;
  }
  return S_OK;
}

uint32_t CWaveAudioRender::Read(void* pDest, uint32_t cbBytes) {
  return CWaveReader::Read(pDest, cbBytes);
}

int CWaveAudioRender::Update(REFERENCE_TIME) {
  if (!bEnded && m_pOutput && m_pOutput->Exhausted() && Duration() <= GetTime()) bEnded = 1;
  return 1;
}

void CWaveAudioRender::Play() {
  if (m_pOutput) m_pOutput->Play();
}

void CWaveAudioRender::Resume() { Play(); }

void CWaveAudioRender::Pause() {
  if (m_pOutput) m_pOutput->Pause();
}

void CWaveAudioRender::Stop() {
  if (m_pOutput) m_pOutput->Stop();
}

REFERENCE_TIME CWaveAudioRender::Seek(REFERENCE_TIME t) {
  nBaseTime = t;
  bEnded = 0;
  CWaveReader::Seek(t);
  return t;
}

REFERENCE_TIME CWaveAudioRender::GetTime() {
  return (m_pOutput ? m_pOutput->Position() : 0) + nBaseTime;
}

int32_t CWaveAudioRender::Effective() const {
  if (!m_pbUse || !*m_pbUse || !m_plVolume) return 0;
  return static_cast<int32_t>(static_cast<int64_t>(*m_plVolume) * nMasterVolume / 100);
}

void CWaveAudioRender::SetVolume(int32_t nVolume) {
  nMasterVolume = nVolume;
  ApplyVolume(Effective());
}

void CWaveAudioRender::SetMute(BOOL bMute) { ApplyVolume(bMute ? 0 : Effective()); }
