// The audio quality choices of a WMV recording: the two default audio
// devices, each with the WMA formats that fit it. The records are built at
// ovInitialize and read-only for the host; WMMux takes the chosen formats.
#pragma once

#include "orvanta/types.h"

#pragma pack(push, 8)
// A media type with its format block (for audio a WAVEFORMATEX and the
// codec's extra bytes).
struct WM_MEDIA_TYPE {
  GUID majortype;
  GUID subtype;
  BOOL bFixedSizeSamples;
  BOOL bTemporalCompression;
  uint32_t lSampleSize;
  GUID formattype;
  void* pUnk;  // always null
  uint32_t cbFormat;
  BYTE* pbFormat;
};

// One WMA encoder format.
struct AudioCodecInfo {
  wchar_t szName[256];         // the codec's name
  wchar_t szDescription[256];  // the format's description
  int32_t nQuality;            // quality 0-100: the low byte of pFormat->nAvgBytesPerSec
  const WAVEFORMATEX* pFormat;
  const WM_MEDIA_TYPE* pMediaType;
};

// One default device: 0 the output recorded by loopback, 1 the microphone.
struct AudioDeviceInfo {
  wchar_t szName[128];  // friendly name
  wchar_t szId[128];    // the sound server's name for it
  union {
    WAVEFORMATEXTENSIBLE Format;  // its mix format: 18 + cbSize bytes are set
    BYTE FormatBytes[88];
  };
  // The formats that fit the device, best first; not owned.
  const AudioCodecInfo* const* Codecs;
  int32_t nCodecs;
};
#pragma pack(pop)

extern "C" {

// Device 0 or 1, or null when there is none; any other i is refused with a
// log line.
OV_API const AudioDeviceInfo* GetAudioDeviceInfo(int i);
// The number of formats of device i; 0 for a missing device.
OV_API int GetAudioCodecInfoCount(int i);
// Format n of device i; null, with a log line, when there is no such format.
OV_API const AudioCodecInfo* GetAudioCodecInfo(int i, int n);
}
