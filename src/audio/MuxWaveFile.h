// Reads a wave temp file for the mux readers: the fixed 68-byte header, then
// samples to the end of the file. The data length comes from the file's size,
// not from the header, so a file of more than 4 GiB reads to its end.
//
// It has the operations of the engine's wave reader, under which the mux
// readers can be set without change.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

#include "orvanta/types.h"

class CMuxWaveFile {
 public:
  static constexpr int64_t kHeaderBytes = 68;

  CMuxWaveFile();
  virtual ~CMuxWaveFile();
  CMuxWaveFile(const CMuxWaveFile&) = delete;
  CMuxWaveFile& operator=(const CMuxWaveFile&) = delete;

  // S_OK, or E_FAIL for a file that is missing, short or not of the layout.
  HRESULT Open(const wchar_t* szWaveFile);
  // Bytes delivered; 0 at the end or after a failure. A short read is no
  // end: the next one, which gives 0, is.
  uint32_t Read(void* pDest, uint32_t cbBytes);
  // Moves to the frame at or before t (100-ns units). Nonzero if t lies
  // inside the data; 0, and at the end, if not.
  BOOL Seek(REFERENCE_TIME t);

  const WAVEFORMATEXTENSIBLE& Format() const { return m_Format; }
  bool IsEndOfFile() const { return m_bEndOfFile; }
  int64_t DataLength() const { return m_nDataLength; }
  int64_t Position() const { return m_nPosition; }
  REFERENCE_TIME Duration() const { return m_nDuration; }

 private:
  struct Close {
    void operator()(std::FILE* f) const { std::fclose(f); }
  };
  std::unique_ptr<std::FILE, Close> m_hFile;
  WAVEFORMATEXTENSIBLE m_Format{};
  bool m_bEndOfFile = false;
  int64_t m_nDataLength = 0;
  int64_t m_nPosition = 0;
  REFERENCE_TIME m_nDuration = 0;
};
