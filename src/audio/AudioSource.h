// One audio source of a recording: the default output by loopback, or the
// default microphone. Its capture thread writes the device's samples,
// unchanged, into a wave temp file while g_bRecording is set, and drops them
// otherwise. The amount written is its clock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>

#include "audio/AudioSourceCallback.h"
#include "audio/RecoderProvidedClock.h"
#include "audio/WaveEncoder.h"
#include "capture/WriterStatistics.h"
#include "platform/AudioClient.h"
#include "platform/Event.h"

class CAudioSource : public CWaveEncoder, public CRecoderProvidedClock {
 public:
  CAudioSource(CWriterStatistics* pStatistics, CAudioSourceCallback* pCallback);
  ~CAudioSource() override;

  // Opens the default endpoint of the type, creates the file and returns
  // once the capture thread runs.
  HRESULT Initialize(AudioDeviceType type, const wchar_t* szOutFile);
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
  HRESULT StartCaptureThread();
  void CaptureThread();

  std::unique_ptr<ov::AudioClient> m_pAudioClient;
  std::unique_ptr<ov::AudioCaptureClient> m_pCaptureClient;
  CWriterStatistics* const m_pStatistics;
  CAudioSourceCallback* const m_pCallback;
  AudioDeviceType m_Type = AudioDevice_Render;
  uint32_t m_nChannels = 0;
  uint32_t m_nFrameBytes = 0;
  std::thread m_hThread;
  // Outlives the thread's signal: a waiter that wakes may not free it while
  // the signal is still on its way out.
  ov::Event m_hStarted{ov::Event::Reset::Auto};
  // Ends the thread of a source deleted while the recording still runs.
  std::atomic<bool> m_bQuit{false};
};
