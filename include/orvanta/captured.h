// The temp file set of a recording and the record that describes it.
#pragma once

#include "orvanta/types.h"

// Result of a recording. Made at the start of every recording, it outlives
// the recorder object and stays until FreeCapturedFile. Fields marked "host"
// may be changed by the host before it calls a muxer or the player.
struct CapturedFile {
  uint32_t nDuration;  // whole seconds
  int64_t nFileBytes;  // bytes reported while recording
  BOOL bScreenStream;  // a video temp file exists
  int32_t CodecType;
  wchar_t szScreenCaptureFile[OV_MAX_PATH];
  REFERENCE_TIME nScreenDuration;
  int32_t nWidth;
  int32_t nHeight;
  BOOL bWaveOutStream;  // system sound temp file exists
  BOOL bUseWaveOut;     // host
  wchar_t szWaveOutFile[OV_MAX_PATH];
  REFERENCE_TIME nWaveOutDuration;
  LONG lWaveOutVolume;  // host, percent
  BOOL bWaveInStream;   // microphone temp file exists
  BOOL bUseWaveIn;      // host
  wchar_t szWaveInFile[OV_MAX_PATH];
  REFERENCE_TIME nWaveInDuration;
  LONG lWaveInVolume;         // host, percent
  REFERENCE_TIME nTrimStart;  // host; 0 keeps from the beginning
  REFERENCE_TIME nTrimEnd;    // host; 0 keeps to the end
};

extern "C" {

// The record of the last recording, or null.
OV_API CapturedFile* GetCapturedFile();

// Frees the record; with bDelete set, removes the temp files first. Refused,
// with a log line, while a recording session exists.
OV_API void FreeCapturedFile(BOOL bDelete);

// Removes the temp files that earlier runs left in a folder. 1 if walked;
// 0 for a relative path, one shorter than 4 characters, or one of 260
// characters or more.
OV_API BOOL DeleteFolder(const wchar_t* path);

// Bytes available to the caller on the volume of path; 0 on failure.
OV_API uint64_t GetDiskFreeBytes(const wchar_t* path);
}
