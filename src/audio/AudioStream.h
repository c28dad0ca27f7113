// The audio side of a recording: a loopback source of the default output,
// a microphone source, and the silent player that keeps the output running.
#pragma once

#include <cstdint>

#include "audio/RecoderProvidedClock.h"
#include "capture/WriterStatistics.h"
#include "orvanta/types.h"

class CAudioSource;
class CAudioSourceCallback;

class CAudioStream {
 public:
  CAudioStream();
  virtual ~CAudioStream();
  CAudioStream(const CAudioStream&) = delete;
  CAudioStream& operator=(const CAudioStream&) = delete;

  // Creates and starts the sources that g_bAudioEnabled asks for.
  HRESULT Initialize(CWriterStatistics* pStatistics, CAudioSourceCallback* pCallback);
  // After the owner cleared g_bRecording and g_bRunning: joins the capture
  // threads and writes the durations into g_Recording.
  void Stop();

  // The first source created; null without sources.
  CRecoderProvidedClock* Clock() const;
  CAudioSource* Source(int index) const { return m_pSources[index]; }

 private:
  CAudioSource* m_pSources[2] = {nullptr, nullptr};
  CAudioSource* m_pClockSource = nullptr;
};
