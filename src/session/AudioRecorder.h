// An audio-only recording: the audio stream of a screen recording without
// the screen, and the feed of its samples to the host in tenth-of-a-second
// blocks. Deleting it is the stop.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "audio/AudioSourceCallback.h"
#include "core/WriterStatistics.h"
#include "orvanta/audiorecorder.h"

class CAudioStream;

class CAudioRecorder : public CAudioRecoderObject,
                       public CWriterStatistics,
                       public CAudioSourceCallback {
 public:
  explicit CAudioRecorder(CAudioCallback* pCallback);
  ~CAudioRecorder() override;

  // Starts the sources and, with a host callback, makes the block buffers.
  HRESULT Create();

  void Start() override;
  void Pause() override;
  void Resume() override;
  WAVEFORMATEX GetAudioFormat(int32_t index) override;
  void GetProgress(uint32_t* pSeconds, uint64_t* pBytes) override;

  void AddBytes(int64_t count) override;
  void AddFrame() override {}

  void OnAudioPacket(AudioDeviceType type, const WAVEFORMATEXTENSIBLE* pFormat, const BYTE* pData,
                     uint32_t nFrames) override;

  CAudioStream* Stream() const { return m_pAudioStream.get(); }

 private:
  // One source's samples gathered until a block is full.
  struct Block {
    BYTE* pBuffer = nullptr;  // 64-byte aligned, one second of the source
    uint32_t nCapacity = 0;   // bytes
    uint32_t nFrames = 0;     // gathered
  };
  void Deliver(AudioDeviceType type, const BYTE* pData, uint32_t nFrames);

  CAudioCallback* const m_pCallback;
  std::unique_ptr<CAudioStream> m_pAudioStream;
  std::atomic<int64_t> m_nBytesWritten{0};
  Block m_Blocks[2];
};
