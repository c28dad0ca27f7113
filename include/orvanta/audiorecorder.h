// Recording sound alone, and the live analysers of what it captures.
#pragma once

#include "orvanta/module.h"
#include "orvanta/recorder.h"
#include "orvanta/types.h"

// Receives the captured samples of an audio-only recording, a tenth of a
// second or a little more at a time. On that source's capture thread (two
// sources call from two threads), so it must be quick. type is 0 for the
// system sound and 1 for the microphone; pSamples is interleaved, in the
// device's own format, valid only during the call.
class CAudioCallback {
 public:
  virtual void OnAudioData(int32_t type, const void* pSamples, uint32_t nFrames) = 0;

 protected:
  ~CAudioCallback() = default;
};

// An audio-only recording. Created waiting; Destroy is the stop, after which
// GetCapturedFile describes its wave files for FFMux or WMMux.
class OV_API CAudioRecoderObject : public CBaseClassObject {
 public:
  virtual void Start() = 0;
  virtual void Pause() = 0;
  virtual void Resume() = 0;
  // The format of source index (0 system sound, 1 microphone): PCM reads as
  // tag 1 and float as tag 3. All zero for an index without a source.
  virtual WAVEFORMATEX GetAudioFormat(int32_t index) = 0;
  // Whole seconds written so far, and the samples written.
  virtual void GetProgress(uint32_t* pSeconds, uint64_t* pBytes) = 0;

 protected:
  using CBaseClassObject::CBaseClassObject;
};

// The host's side of a level meter: one level in [0, 1] per block.
class VolumeMeasureCallback {
 public:
  virtual void OnVolume(int32_t type, float level) = 0;

 protected:
  ~VolumeMeasureCallback() = default;
};

// The host's side of a spectrogram: 23 band values per block (the bands'
// centres in Hz: 30, 60, 100, 160, 240, 300, 350, 400, 440, 500, 600, 800,
// 1000, 1500, 2000, 2600, 3000, 4000, 6000, 8000, 10000, 14000, 16000),
// valid during the call.
class SpectrogramCallback {
 public:
  virtual void OnSpectrum(int32_t type, const float* pBands) = 0;

 protected:
  ~SpectrogramCallback() = default;
};

// Analysers of float samples; hand the object to ovAudioRecord as its
// callback. SetFormat takes GetAudioFormat's record before the first block.
class OV_API CVolumeMeasureObject : public CBaseClassObject, public CAudioCallback {
 public:
  virtual void SetFormat(const WAVEFORMATEX* pFormat) = 0;

 protected:
  using CBaseClassObject::CBaseClassObject;
};

class OV_API CSpectrogramObject : public CBaseClassObject, public CAudioCallback {
 public:
  virtual void SetFormat(const WAVEFORMATEX* pFormat) = 0;

 protected:
  using CBaseClassObject::CBaseClassObject;
};

extern "C" {

// Starts the sources that audioOpt asks for, writing nothing until Start,
// with the temp files in pszTempFolder. pCallback, which may be null, gets
// the blocks. Null when neither source is asked for, when another recording
// runs, or when a source can't start.
OV_API CAudioRecoderObject* ovAudioRecord(const wchar_t* pszTempFolder, AudioOpt audioOpt,
                                          CAudioCallback* pCallback);

// Half the peak-to-peak swing of each block's first nFrames values.
OV_API CVolumeMeasureObject* CreateVolumeMeasureObject(VolumeMeasureCallback* pCallback);
// The first channel's first 4,096 frames of each block, transformed; blocks
// shorter than that, and rates of 16,000 Hz or less, give no result.
OV_API CSpectrogramObject* CreateSpectrogramObject(SpectrogramCallback* pCallback);
}
