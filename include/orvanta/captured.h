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

// Makes the record of a temp set that a recording left in folder without
// its record: a process that died, or an earlier run. The files are taken as
// the disk has them: a frame or a sample frame torn at the end is cut off,
// and wave headers whose lengths were never written get their true ones.
// Durations come from the files. The record replaces any record held now
// (its files stay) and is used as after a stop: GetCapturedFile, a muxer,
// FreeCapturedFile. S_OK; E_INVALIDARG for a missing folder or a path too
// long; E_FAIL while a recording runs or when the folder holds no temp set.
OV_API HRESULT RecoverCapturedFile(const wchar_t* folder);

// Removes the temp files that earlier runs left in a folder. 1 if walked;
// 0 for a relative path, one shorter than 4 characters, or one of 260
// characters or more.
OV_API BOOL DeleteFolder(const wchar_t* path);

// Bytes available to the caller on the volume of path; 0 on failure.
OV_API uint64_t GetDiskFreeBytes(const wchar_t* path);
}
