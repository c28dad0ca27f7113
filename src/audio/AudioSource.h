// One audio source of a recording: the default output by loopback, or the
// default microphone. Its capture thread writes the device's samples,
// unchanged, into a wave temp file while g_bRecording is set, and drops them
// otherwise. Each sample goes where the recording's time line says it was
// heard (see AudioSourceTimeline), so the amount written is the recording's
// time, and it is the source's clock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "audio/AudioSourceCallback.h"
#include "audio/AudioSourceTimeline.h"
#include "audio/RecoderProvidedClock.h"
#include "audio/WaveEncoder.h"
#include "core/WriterStatistics.h"
#include "platform/AudioClient.h"
#include "platform/Event.h"

class CAudioSource : public CWaveEncoder, public CRecoderProvidedClock {
 public:
  CAudioSource(CWriterStatistics* pStatistics, CAudioSourceCallback* pCallback);
  ~CAudioSource() override;

  // Opens the default endpoint of the type, creates the file and returns
  // once the capture thread runs.
  HRESULT Initialize(AudioDeviceType type, const wchar_t* szOutFile);
  // The same with a client of the caller's, already activated for pDevice.
  HRESULT Initialize(AudioDeviceType type, const wchar_t* szOutFile,
                     std::unique_ptr<ov::AudioClient> client, const ov::AudioEndpoint& pDevice);
  // Audio written so far, 100-ns units.
  uint64_t GetTime() override;
  // Waits for the capture thread, which ends once g_bRunning is clear.
  void Join();

  AudioDeviceType Type() const { return m_Type; }

 private:
  HRESULT InitializeClient(const ov::AudioEndpoint& pDevice, WAVEFORMATEXTENSIBLE* pDeviceFormat);
  HRESULT NegotiateFormat(const ov::AudioEndpoint& pDevice, WAVEFORMATEXTENSIBLE* pDeviceFormat);
  HRESULT InitializeSixChannels(const ov::AudioEndpoint& pDevice,
                                WAVEFORMATEXTENSIBLE* pDeviceFormat);
  HRESULT AllocateBuffers(const WAVEFORMATEXTENSIBLE& format);
  HRESULT StartCaptureThread();
  void CaptureThread();
  // Takes every frame heard by now: into the file while recording, dropped
  // otherwise. *bRead tells whether there was any.
  HRESULT ReadUntil(int64_t now, bool recording, bool* bRead);
  // When the recording last started or stopped, on the source's clock.
  int64_t EdgeOnClock(int64_t now) const;
  void WritePacket(const BYTE* pData, uint32_t nFrames, int32_t adjust);
  void WriteSilence(int64_t nFrames);
  // Into the file, the statistics and the callback.
  void Emit(const BYTE* pData, uint32_t nFrames);
  void LogCorrections();

  std::unique_ptr<ov::AudioClient> m_pAudioClient;
  std::unique_ptr<ov::AudioCaptureClient> m_pCaptureClient;
  CWriterStatistics* const m_pStatistics;
  CAudioSourceCallback* const m_pCallback;
  AudioDeviceType m_Type = AudioDevice_Render;
  uint32_t m_nChannels = 0;
  uint32_t m_nFrameBytes = 0;
  uint32_t m_nRate = 0;
  // Packets are copied here before the server's buffer is released, and
  // only then written.
  std::unique_ptr<BYTE, decltype(&std::free)> m_pPacket{nullptr, &std::free};
  std::unique_ptr<BYTE, decltype(&std::free)> m_pSilence{nullptr, &std::free};
  uint32_t m_nBufferFrames = 0;
  std::unique_ptr<AudioSourceTimeline> m_pTimeline;
  int64_t m_nUntimedSince = -1;  // clock time of the first packet still without its time
  int64_t m_nHeldUntil = 0;      // clock time before which the next packet is not due
  std::thread m_hThread;
  // Outlives the thread's signal: a waiter that wakes may not free it while
  // the signal is still on its way out.
  ov::Event m_hStarted{ov::Event::Reset::Auto};
  // Ends the thread of a source deleted while the recording still runs.
  std::atomic<bool> m_bQuit{false};
};
