// Playing a recording back before it is assembled: its temp files as they
// are, with the record's trim, track choices and volumes.
#pragma once

#include "orvanta/module.h"
#include "orvanta/types.h"

// Implemented by the host; called on the player's own thread when playback
// has reached the end.
class CPlayerCallback {
 public:
  virtual void OnPlayEnd() = 0;

 protected:
  ~CPlayerCallback() = default;
};

// The sound of the last recording. Commands return at once and take effect
// on the player's thread within about 10 ms.
class OV_API CAudioPlayerObject : public CBaseClassObject {
 public:
  // Pause in the playing state pauses; in any other state it plays, as
  // Play does. Play from the end starts again at the beginning.
  virtual void Pause() = 0;
  virtual void Play() = 0;
  // Moves to a whole second; playback goes on if it was playing, and stops
  // otherwise.
  virtual void Seek(int nSeconds) = 0;
  // The master volume in percent, over each track's own volume.
  virtual void SetVolume(int nVolume) = 0;
  virtual void SetMute(BOOL bMute) = 0;
  // Applies the track choices and volumes the host changed in the record.
  virtual void RefreshVolume() = 0;
  // Whole seconds heard of the first track.
  virtual int GetPosition() = 0;

 protected:
  explicit CAudioPlayerObject(const char* pszName) : CBaseClassObject(pszName) {}
};

extern "C" {

// Plays the wave temp files of the last recording (GetCapturedFile), each on
// a playback stream of its own, stopped until Play. Null, with a log line,
// when there is no record or a file or the sound device fails. pCallback may
// be null. The record must stay until the player is destroyed.
OV_API CAudioPlayerObject* PlayCapturedAudio(CPlayerCallback* pCallback);
}
