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

// The video and sound of the last recording, shown in a window of the host.
// Every operation returns at once and takes effect on the player's thread.
class OV_API CVideoPlayerObject : public CBaseClassObject {
 public:
  // Fits the picture to the window's size now.
  virtual void Resize() = 0;
  // Writes the frame shown last, at its own size, as a PNG file.
  virtual void SaveFrame(const wchar_t* pwszFile) = 0;
  // Pauses while playing; otherwise nothing.
  virtual void Pause() = 0;
  // Plays from where the player stands; from the end, from the trim start.
  virtual void Play() = 0;
  // A seek is BeginSeek, any number of Seek (whole seconds), then EndSeek,
  // as a slider does. The picture lands on the key frame at or before the
  // time, and the sound with it; playback goes on if it was playing.
  virtual void BeginSeek() = 0;
  virtual void Seek(int nSeconds) = 0;
  virtual void EndSeek() = 0;
  virtual void SetVolume(int nVolume) = 0;
  virtual void SetMute(BOOL bMute) = 0;
  virtual void RefreshVolume() = 0;
  // Whole seconds of the recording at the current picture.
  virtual int GetPosition() = 0;
  // Draws the current picture again, after the window was exposed.
  virtual void Repaint() = 0;

 protected:
  explicit CVideoPlayerObject(const char* pszName) : CBaseClassObject(pszName) {}
};

extern "C" {

// Plays the wave temp files of the last recording (GetCapturedFile), each on
// a playback stream of its own, stopped until Play. Null, with a log line,
// when there is no record or a file or the sound device fails. pCallback may
// be null. The record must stay until the player is destroyed.
OV_API CAudioPlayerObject* PlayCapturedAudio(CPlayerCallback* pCallback);

// Plays the last recording (GetCapturedFile) in the host's window hWnd (an
// X window id): its picture scaled down to fit, never up, and its sound,
// honouring the trim end, the track choices and the volumes. Stopped until
// Play. The clock is the first sound track, else the system timer. Null,
// with a log line, without a record or window, or when a temp file cannot
// be played. The record must stay until the player is destroyed.
OV_API CVideoPlayerObject* PlayCapturedVideo(HWND hWnd, CPlayerCallback* pCallback);
}
