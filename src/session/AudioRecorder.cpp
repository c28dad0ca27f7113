#include "session/AudioRecorder.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "audio/AudioStream.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "session/CapturedFileRecovery.h"
#include "session/CapturedFiles.h"

namespace {

constexpr size_t kBlockAlignment = 64;

}  // namespace

CAudioRecorder::CAudioRecorder(CAudioCallback* pCallback)
    : CAudioRecoderObject("CAudioRecoderObject"), m_pCallback(pCallback) {}

CAudioRecorder::~CAudioRecorder() {
  using namespace ov;
  SetRecording(0);
  g_bRunning.exchange(0);
  if (m_pAudioStream) {
    m_pAudioStream->Stop();
    int64_t longest = 0;
    if (g_Recording) {
      if (g_bAudioEnabled[AudioDevice_Capture]) {
        const int64_t d = g_Recording->nWaveInDuration;
        WriteLog(kMsg, "Audio capture duration=%lld(%gs)\n", static_cast<long long>(d), d / 1e7);
        longest = std::max(longest, d);
      }
      if (g_bAudioEnabled[AudioDevice_Render]) {
        const int64_t d = g_Recording->nWaveOutDuration;
        WriteLog(kMsg, "Wave out duration=%lld(%gs)\n", static_cast<long long>(d), d / 1e7);
        longest = std::max(longest, d);
      }
      g_Recording->nDuration = static_cast<uint32_t>((longest + 10000001) / 10000000);
      g_Recording->nFileBytes = m_nBytesWritten.load();
    }
    m_pAudioStream.reset();
  }
  for (Block& block : m_Blocks) std::free(block.pBuffer);
  ReleaseRecordingSlot();
}

HRESULT CAudioRecorder::Create() {
  m_pAudioStream = std::make_unique<CAudioStream>();
  const HRESULT hr = m_pAudioStream->Initialize(this, m_pCallback ? this : nullptr);
  if (FAILED(hr)) {
    WriteLog(ov::kErr,
             "Failed(0x%x) in m_pAudioStream->Initialize(this, m_pCallback ? this : __nullptr), "
             "FILE:%s, LINE:%d\n",
             static_cast<unsigned>(hr), "AudioRecorder", __LINE__);
    return hr;
  }
  if (!m_pCallback) return S_OK;
  for (int type = 0; type < 2; ++type) {
    if (!g_bAudioEnabled[type]) continue;
    const CAudioSource* source = m_pAudioStream->Source(type);
    const uint32_t bytes = source ? source->Format().Format.nAvgBytesPerSec : 0;
    // Made once, here: the capture threads only copy into it.
    void* buffer = std::aligned_alloc(
        kBlockAlignment, (bytes + 2 * kBlockAlignment - 1) / kBlockAlignment * kBlockAlignment);
    if (!buffer) return E_OUTOFMEMORY;
    m_Blocks[type].pBuffer = static_cast<BYTE*>(buffer);
    m_Blocks[type].nCapacity = bytes;
  }
  return S_OK;
}

void CAudioRecorder::Start() { ov::SetRecording(1); }
void CAudioRecorder::Resume() { ov::SetRecording(1); }
void CAudioRecorder::Pause() { ov::SetRecording(0); }

WAVEFORMATEX CAudioRecorder::GetAudioFormat(int32_t index) {
  WAVEFORMATEX format{};
  if (index < 0 || index >= 2 || !m_pAudioStream) return format;
  const CAudioSource* source = m_pAudioStream->Source(index);
  if (!source) return format;
  const WAVEFORMATEXTENSIBLE& own = source->Format();
  format = own.Format;
  if (format.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
    format.wFormatTag = static_cast<WORD>(own.SubFormat.Data1 & 0xFFFF);
    format.cbSize = 0;
  }
  return format;
}

void CAudioRecorder::GetProgress(uint32_t* pSeconds, uint64_t* pBytes) {
  if (!pSeconds || !pBytes) {
    OV_BAD_ARG(pSeconds && pBytes);
    return;
  }
  CRecoderProvidedClock* clock = m_pAudioStream ? m_pAudioStream->Clock() : nullptr;
  *pSeconds = clock ? static_cast<uint32_t>(clock->GetTime() / 10000000) : 0;
  *pBytes = static_cast<uint64_t>(m_nBytesWritten.load());
}

void CAudioRecorder::AddBytes(int64_t count) { m_nBytesWritten.fetch_add(count); }

void CAudioRecorder::OnAudioPacket(AudioDeviceType type, const WAVEFORMATEXTENSIBLE* pFormat,
                                   const BYTE* pData, uint32_t nFrames) {
  if (!m_pCallback || type < 0 || type > 1) return;
  Block& block = m_Blocks[type];
  const uint32_t align = pFormat->Format.nBlockAlign;
  const uint64_t bytes = uint64_t{nFrames} * align;
  if (!block.pBuffer || align == 0) return;
  // A packet that does not fit behind what is gathered: what is gathered
  // goes first, and a packet of a second or more goes through as it is.
  if (uint64_t{block.nFrames} * align + bytes > block.nCapacity) {
    Deliver(type, block.pBuffer, block.nFrames);
    if (bytes > block.nCapacity) {
      Deliver(type, pData, nFrames);
      return;
    }
  }
  std::memcpy(block.pBuffer + size_t{block.nFrames} * align, pData, bytes);
  block.nFrames += nFrames;
  if (block.nFrames >= pFormat->Format.nSamplesPerSec / 10)
    Deliver(type, block.pBuffer, block.nFrames);
}

void CAudioRecorder::Deliver(AudioDeviceType type, const BYTE* pData, uint32_t nFrames) {
  if (nFrames) m_pCallback->OnAudioData(type, pData, nFrames);
  m_Blocks[type].nFrames = 0;
}

extern "C" CAudioRecoderObject* ovAudioRecord(const wchar_t* pszTempFolder, AudioOpt audioOpt,
                                              CAudioCallback* pCallback) {
  using namespace ov;
  WriteLog(kMsg, "Audio Redord ...\n");
  if (!audioOpt.bRender && !audioOpt.bCapture) {
    WriteLog(kErr, "Invalid argument\n");
    return nullptr;
  }
  if (!pszTempFolder) {
    OV_BAD_ARG(pszTempFolder);
    return nullptr;
  }
  WriteLog(kMsg, "Audio: bRender=%d, bCapture=%d\n", audioOpt.bRender, audioOpt.bCapture);
  if (!ClaimRecordingSlot()) {
    WriteLog(kErr, "Error: a recording is already running\n");
    return nullptr;
  }
  // An earlier recording's files are never replaced unasked.
  if (std::wstring left = FindTempSetFile(pszTempFolder); !left.empty()) {
    WriteLog(kErr, "Error: an earlier recording left %ls in %ls\n", left.c_str(), pszTempFolder);
    ReleaseRecordingSlot();
    return nullptr;
  }
  g_videoOpt = VideoOpt{};
  g_mouseOpt = MouseOpt{};
  g_bAudioEnabled[AudioDevice_Render] = audioOpt.bRender;
  g_bAudioEnabled[AudioDevice_Capture] = audioOpt.bCapture;
  if (HRESULT hr = PrepareCapturedFiles(pszTempFolder); FAILED(hr)) {
    ReleaseRecordingSlot();
    return nullptr;
  }
  g_bRunning.exchange(1);
  SetRecording(0);
  g_bLastFrame.exchange(0);
  auto* recorder = new (std::nothrow) CAudioRecorder(pCallback);
  if (!recorder) {
    g_bRunning.exchange(0);
    ReleaseRecordingSlot();
    return nullptr;
  }
  if (FAILED(recorder->Create())) {
    delete recorder;
    return nullptr;
  }
  return recorder;
}
