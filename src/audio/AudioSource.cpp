#include "audio/AudioSource.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <system_error>

#include "audio/WaveFormat.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "platform/Clock.h"
#include "platform/Thread.h"

using namespace ov;

namespace {

// An idle reader polls at this interval. Packet times, not the time of the
// read, place the samples, and starts, stops and quits are placed on their
// own times however late the thread sees them; a shorter poll only costs
// wake-ups (in a virtual machine each is a trip through the host). Meters
// fed from the packets still move 25 times a second.
constexpr uint32_t kIdleSleepMs = 40;
constexpr WORD kMaxChannels = 6;
// Front left, front right, front centre, low frequency, side left, side right.
constexpr DWORD kSixChannelMask = 0x60F;
constexpr size_t kMaxNameLength = 127;
// The copy of a packet: a tenth of a second, so a larger packet is taken
// in several pieces.
constexpr uint32_t kPacketCopiesPerSecond = 10;
constexpr size_t kSampleAlignment = 64;
constexpr int64_t kUnitsPerSecond = 10000000;
// How long a packet may wait for the server to tell when it is heard.
constexpr int64_t kTimingPatience = kUnitsPerSecond / 4;
// How late a thread may notice a start or a stop and still place it.
constexpr int64_t kMaxEdgeLateness = kUnitsPerSecond;
// A packet to be heard later is asked for again at its time, or after this
// long at the latest (a monitor of an idle sink holds seconds of them).
constexpr int64_t kMaxHoldBack = kUnitsPerSecond / 20;

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
  HRESULT hr;
  AudioEndpoint pDevice;
  if (OV_FAILED(hr, GetDefaultAudioEndpoint(dataFlow, &pDevice))) return hr;
  std::unique_ptr<AudioClient> client;
  if (OV_FAILED(hr, AudioClient::Activate(pDevice, &client))) return hr;
  return Initialize(type, szOutFile, std::move(client), pDevice);
}

HRESULT CAudioSource::Initialize(AudioDeviceType type, const wchar_t* szOutFile,
                                 std::unique_ptr<AudioClient> client,
                                 const AudioEndpoint& pDevice) {
  m_Type = type;
  m_pAudioClient = std::move(client);
  const bool capture = type == AudioDevice_Capture;
  HRESULT hr;
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
  m_nRate = pDeviceFormat->Format.nSamplesPerSec;
  if (FAILED(hr = AllocateBuffers(*pDeviceFormat))) return hr;
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

HRESULT CAudioSource::AllocateBuffers(const WAVEFORMATEXTENSIBLE& format) {
  if (m_nRate == 0 || m_nFrameBytes == 0) return E_FAIL;
  m_nBufferFrames = std::max(1u, m_nRate / kPacketCopiesPerSecond);
  const size_t bytes = (size_t{m_nBufferFrames} * m_nFrameBytes + kSampleAlignment - 1) /
                       kSampleAlignment * kSampleAlignment;
  m_pPacket.reset(static_cast<BYTE*>(std::aligned_alloc(kSampleAlignment, bytes)));
  m_pSilence.reset(static_cast<BYTE*>(std::aligned_alloc(kSampleAlignment, bytes)));
  if (!m_pPacket || !m_pSilence) return E_OUTOFMEMORY;
  // Unsigned 8-bit samples are silent at their middle value.
  const bool unsigned8 = format.Format.wBitsPerSample == 8;
  std::memset(m_pSilence.get(), unsigned8 ? 0x80 : 0, bytes);
  m_pTimeline = std::make_unique<AudioSourceTimeline>(m_nRate);
  return S_OK;
}

void CAudioSource::CaptureThread() {
  SetCurrentThreadName(m_Type == AudioDevice_Capture ? "ov-audio-mic" : "ov-audio-loop");
  // The stream runs before its creator goes on, so that a recording
  // started at once has its sound from its first instant: a server that is
  // slow to answer would otherwise leave the start silent.
  HRESULT started = m_pAudioClient->Start();
  if (FAILED(started))
    WriteLog(kErr, "Failed(0x%x) to start audio client\n", static_cast<unsigned>(started));
  m_hStarted.Set();
  AudioClock& clock = m_pAudioClient->Clock();
  bool recording = false;
  for (;;) {
    const bool running =
        g_bRunning.load(std::memory_order_relaxed) && !m_bQuit.load(std::memory_order_relaxed);
    const bool flag = g_bRecording.load(std::memory_order_relaxed);
    const bool writing = running && flag;
    const int64_t now = clock.Now();
    // A start or stop that this thread notices late still begins or ends the
    // stretch where the session made it; an end of this source's own (a
    // lost device, a quit) ends it here and now.
    const int64_t edge = writing != recording && writing == flag ? EdgeOnClock(now) : now;
    if (writing && !recording) m_pTimeline->Begin(edge, BytesWritten() / m_nFrameBytes);
    recording = recording || writing;
    bool bRead = false;
    // A failure ends the thread; the file keeps what it has. Frames held
    // back for their time are not asked for again before it.
    const int64_t until = writing ? now : edge;
    if (until >= m_nHeldUntil && FAILED(ReadUntil(until, recording, &bRead))) return;
    if (recording && !writing) {
      // What the server still holds of the stretch is silence of its length.
      WriteSilence(m_pTimeline->End(edge, BytesWritten() / m_nFrameBytes));
      recording = false;
    }
    if (!running) break;
    if (!bRead) clock.Sleep(kIdleSleepMs);
  }
  m_pAudioClient->Stop();
  LogCorrections();
}

int64_t CAudioSource::EdgeOnClock(int64_t now) const {
  const int64_t late = MonotonicTime100ns() - g_nRecordingChanged.load();
  // A change older than that was not the one this thread has just seen.
  return late >= 0 && late < kMaxEdgeLateness ? now - late : now;
}

HRESULT CAudioSource::ReadUntil(int64_t now, bool recording, bool* bRead) {
  HRESULT hr;
  for (;;) {
    uint32_t NumFramesInNextPacket = 0;
    if (OV_FAILED(hr, m_pCaptureClient->GetNextPacketSize(&NumFramesInNextPacket))) return hr;
    if (NumFramesInNextPacket == 0) return S_OK;
    const BYTE* pData = nullptr;
    uint32_t NumFramesToRead = 0;
    uint32_t dwFlags = 0;
    int64_t nHeardAt = 0;
    if (OV_FAILED(hr, m_pCaptureClient->GetBuffer(&pData, &NumFramesToRead, &dwFlags, &nHeardAt)))
      return hr;
    if (NumFramesToRead == 0) return S_OK;
    // A packet without its time waits for the server's report a little,
    // then counts as just heard.
    if (dwFlags & AUDCLNT_BUFFERFLAGS_TIMESTAMP_ERROR) {
      if (m_nUntimedSince < 0) m_nUntimedSince = now;
      if (now - m_nUntimedSince < kTimingPatience) {
        m_pCaptureClient->ReleaseBuffer(0);
        return S_OK;
      }
      nHeardAt = now - int64_t{NumFramesToRead} * kUnitsPerSecond / m_nRate;
    } else {
      m_nUntimedSince = -1;
    }
    // Frames to be heard later stay with the server until their time.
    const int64_t heard = nHeardAt > now ? 0 : (now - nHeardAt) * m_nRate / kUnitsPerSecond + 1;
    const uint32_t due = static_cast<uint32_t>(
        std::min<int64_t>({heard, NumFramesToRead, int64_t{m_nBufferFrames}}));
    if (due == 0) {
      m_pCaptureClient->ReleaseBuffer(0);
      m_nHeldUntil = std::min(nHeardAt, now + kMaxHoldBack);
      return S_OK;
    }
    if (recording) std::memcpy(m_pPacket.get(), pData, size_t{due} * m_nFrameBytes);
    m_pCaptureClient->ReleaseBuffer(due);
    *bRead = true;
    if (!recording) continue;
    const AudioSourceTimeline::Placement place =
        m_pTimeline->Place(nHeardAt, due, BytesWritten() / m_nFrameBytes);
    WriteSilence(place.silence);
    WritePacket(m_pPacket.get() + size_t{place.skip} * m_nFrameBytes, due - place.skip,
                place.adjust);
  }
}

void CAudioSource::WritePacket(const BYTE* pData, uint32_t nFrames, int32_t adjust) {
  if (nFrames == 0) return;
  // The frames dropped or repeated stand evenly spread over the packet.
  const uint32_t count = std::min<uint32_t>(static_cast<uint32_t>(std::abs(adjust)), nFrames - 1);
  const uint32_t piece = nFrames / (count + 1);
  uint32_t at = 0;
  for (uint32_t i = 0; i < count; ++i) {
    Emit(pData + size_t{at} * m_nFrameBytes, piece);
    at += piece;
    if (adjust < 0)
      ++at;
    else
      Emit(pData + size_t{at - 1} * m_nFrameBytes, 1);
  }
  Emit(pData + size_t{at} * m_nFrameBytes, nFrames - at);
}

void CAudioSource::WriteSilence(int64_t nFrames) {
  while (nFrames > 0) {
    const auto part = static_cast<uint32_t>(std::min<int64_t>(nFrames, m_nBufferFrames));
    Emit(m_pSilence.get(), part);
    nFrames -= part;
  }
}

void CAudioSource::Emit(const BYTE* pData, uint32_t nFrames) {
  if (nFrames == 0) return;
  const HRESULT written = Write(pData, m_nFrameBytes * nFrames);
  if (FAILED(written)) m_pStatistics->WriteFailed(written);
  m_pStatistics->AddBytes(static_cast<int64_t>(m_nChannels) * nFrames);
  if (m_pCallback) m_pCallback->OnAudioPacket(m_Type, &Format(), pData, nFrames);
}

void CAudioSource::LogCorrections() {
  const AudioSourceTimeline::Corrections& c = m_pTimeline->Totals();
  const double rate = m_nRate;
  WriteLog(kMsg,
           "%s timeline: silence=%lld frames(%gs) in %lld gaps, largest=%gs; dropped=%lld, "
           "repeated=%lld frames\n",
           TypeName(m_Type), static_cast<long long>(c.silenceFrames), c.silenceFrames / rate,
           static_cast<long long>(c.gaps), c.largestGap / rate,
           static_cast<long long>(c.droppedFrames), static_cast<long long>(c.repeatedFrames));
}

void CAudioSource::Join() {
  if (m_hThread.joinable()) m_hThread.join();
}

uint64_t CAudioSource::GetTime() {
  const uint64_t rate = Format().Format.nAvgBytesPerSec;
  if (rate == 0) return 0;
  return static_cast<uint64_t>(BytesWritten()) * REF_TIME_UNITS / rate;
}
