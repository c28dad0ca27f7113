// Sound of a wave temp file on a playback stream of its own. The players
// keep one per wave file; the first one's clock is what the video player
// shows its frames by.
#pragma once

#include <memory>

#include "audio/WaveReader.h"
#include "core/MediaReader.h"
#include "platform/AudioOutput.h"

// The output side: a stream that pulls from its source as the device asks.
class CAudioRender {
 public:
  CAudioRender() = default;
  CAudioRender(const CAudioRender&) = delete;
  CAudioRender& operator=(const CAudioRender&) = delete;

 protected:
  // Opens the stream; E_FAIL, with a log line, when the device refuses.
  HRESULT Initialize(const WAVEFORMATEXTENSIBLE& wfx, ov::AudioOutputSource* pSource);
  // Sets the device to an effective volume in percent, if it differs.
  void ApplyVolume(int32_t nEffective);

  std::unique_ptr<ov::AudioOutput> m_pOutput;
  int32_t nCurrentVolume = 100;
  WAVEFORMATEXTENSIBLE m_wfx{};
};

class CWaveAudioRender : public CBaseMediaReader,
                         public CWaveReader,
                         public CReferenceClock,
                         private ov::AudioOutputSource,
                         public CAudioRender {
 public:
  // pbUse and plVolume point at the track's choice and volume in the record,
  // read at every volume change.
  CWaveAudioRender(int32_t nIndex, const wchar_t* pMediaFile, const BOOL* pbUse,
                   const LONG* plVolume);
  ~CWaveAudioRender() override;

  HRESULT Initialize();

  int Update(REFERENCE_TIME t) override;
  int ShowAt(REFERENCE_TIME) override { return 1; }
  void ShowFirst() override {}
  void Play() override;
  void Stop() override;
  REFERENCE_TIME Seek(REFERENCE_TIME t) override;
  void Pause() override;
  void Resume() override;
  void SetVolume(int32_t nVolume) override;
  void SetMute(BOOL bMute) override;

  // What is heard now: the position of the stream after the last seek.
  REFERENCE_TIME GetTime() override;

 private:
  uint32_t Read(void* pDest, uint32_t cbBytes) override;
  int32_t Effective() const;

  const BOOL* m_pbUse;
  const LONG* m_plVolume;
  REFERENCE_TIME nBaseTime = 0;
  int32_t nMasterVolume = 100;
};
