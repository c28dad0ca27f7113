// The audio side of a recording: a loopback source of the default output,
// a microphone source, and the silent player that keeps the output running.
#pragma once

#include <cstdint>
#include <memory>

#include "audio/AudioSource.h"
#include "audio/AudioSourceCallback.h"
#include "audio/RecoderProvidedClock.h"
#include "core/WriterStatistics.h"
#include "orvanta/types.h"
#include "platform/NonCopyable.h"
#include "platform/SilentPlayer.h"

class CAudioStream : private ov::NonCopyable {
 public:
  CAudioStream() = default;
  // Finishes the wave files; only then may readers open them.
  virtual ~CAudioStream();

  // Creates and starts the sources that g_bAudioEnabled asks for, then the
  // silent player. pCallback may be null. On failure the owner deletes the
  // stream.
  HRESULT Initialize(CWriterStatistics* pStatistics, CAudioSourceCallback* pCallback);
  // After the owner cleared g_bRecording and g_bRunning: joins the capture
  // threads and writes the durations into g_Recording.
  void Stop();

  // The first source created: the loopback one when there is one. Null
  // without sources.
  CRecoderProvidedClock* Clock() const { return m_pClockSource; }
  CAudioSource* Source(int index) const { return m_pSources[index].get(); }

 private:
  HRESULT StartSilentPlayer();
  void StopSilentPlayer();

  std::unique_ptr<CAudioSource> m_pSources[2];
  CAudioSource* m_pClockSource = nullptr;
  std::unique_ptr<ov::SilentPlayer> m_pAudioClient;
};
