// Who is told of every audio packet that a source writes.
#pragma once

#include <cstdint>

#include "orvanta/types.h"

// Indexes the sources of a recording and g_bAudioEnabled.
enum AudioDeviceType : int32_t {
  AudioDevice_Render = 0,   // the default output, recorded by loopback
  AudioDevice_Capture = 1,  // the default microphone
};

class CAudioSourceCallback {
 public:
  // On the source's capture thread; two sources may call at once. pData is
  // valid only during the call, in the format of pFormat.
  virtual void OnAudioPacket(AudioDeviceType type, const WAVEFORMATEXTENSIBLE* pFormat,
                             const BYTE* pData, uint32_t nFrames) = 0;

 protected:
  ~CAudioSourceCallback() = default;
};
