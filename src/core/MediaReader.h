// The readers a player drives, one per stream of a recording. Times are in
// 100-ns units, those of the recording's own frames and samples.
#pragma once

#include <cstdint>

#include "orvanta/types.h"

class CBaseMediaReader {
 public:
  CBaseMediaReader(int32_t nIndex, const wchar_t* pMediaFile)
      : m_nIndex(nIndex), m_pMediaFile(pMediaFile) {}
  virtual ~CBaseMediaReader() = default;
  CBaseMediaReader(const CBaseMediaReader&) = delete;
  CBaseMediaReader& operator=(const CBaseMediaReader&) = delete;

  // Shows what is due at t: 0 if a frame was shown, 1 if not.
  virtual int Update(REFERENCE_TIME t) = 0;
  // Shows the last frame not after t; 0 or 1 likewise.
  virtual int ShowAt(REFERENCE_TIME t) = 0;
  // Shows the first frame, or marks that the next one is to be shown.
  virtual void ShowFirst() = 0;
  virtual void Play() {}
  virtual void Stop() {}
  // Moves to t; the time really reached.
  virtual REFERENCE_TIME Seek(REFERENCE_TIME t) = 0;
  virtual void Pause() {}
  virtual void Resume() {}
  virtual void SetVolume(int32_t /*nVolume*/) {}
  virtual void SetMute(BOOL /*bMute*/) {}
  // Runs while the clock stands.
  virtual int Idle() { return 1; }

  bool Ended() const { return bEnded != 0; }

 protected:
  int32_t m_nIndex;
  const wchar_t* m_pMediaFile;  // stays valid as long as the reader
  BOOL bEnded = 0;
};

// The time a player shows its frames by.
class CReferenceClock {
 public:
  virtual REFERENCE_TIME GetTime() = 0;

 protected:
  ~CReferenceClock() = default;
};

// 32-bit RGB frames, top row first.
inline constexpr GUID MEDIASUBTYPE_RGB32 = {
    0xe436eb7e, 0x524f, 0x11ce, {0x9f, 0x53, 0x00, 0x20, 0xaf, 0x0b, 0xa7, 0x70}};

// Where video readers deliver their frames; the player implements it.
class CMediaVideoRender {
 public:
  // 0 when the format is taken.
  virtual HRESULT SetVideoFormat(int32_t index, const GUID* pSubtype, int32_t width,
                                 int32_t height) = 0;
  // Copies the frame and shows it; stride in bytes.
  virtual void RenderFrame(int32_t index, const uint8_t* pData, int32_t stride) = 0;

 protected:
  ~CMediaVideoRender() = default;
};
