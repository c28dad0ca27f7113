// Reads a wave temp file back. It trusts the file's size, not the lengths in
// its header, so files past 4 GiB and files whose writer never finished read
// to their end.
#pragma once

#include <cstdint>

#include "orvanta/types.h"
#include "platform/NonCopyable.h"
#include "platform/SequentialFile.h"

class CWaveReader : private ov::NonCopyable {
 public:
  CWaveReader() = default;
  virtual ~CWaveReader() = default;

  // S_OK, or E_FAIL for a file that is missing, short or of another layout.
  HRESULT Open(const wchar_t* szWaveFile);
  // Bytes delivered; 0 at the end of the file or after a failure. A short
  // read is no end: the next read, which gives 0, is.
  uint32_t Read(void* pDest, uint32_t cbBytes);
  // Moves to the sample frame at or before time t (100-ns units). Nonzero if
  // t lies inside the data; 0, and at the end, if not.
  BOOL Seek(REFERENCE_TIME t);

  const WAVEFORMATEXTENSIBLE& Format() const { return m_Format; }
  bool IsEndOfFile() const { return m_bEndOfFile; }
  int64_t DataLength() const { return m_nDataLength; }
  int64_t Position() const { return m_nPosition; }
  REFERENCE_TIME Duration() const { return m_nDuration; }

 private:
  ov::SequentialFile m_hFile;
  WAVEFORMATEXTENSIBLE m_Format{};
  bool m_bEndOfFile = false;
  int64_t m_nDataLength = 0;
  int64_t m_nPosition = 0;
  REFERENCE_TIME m_nDuration = 0;
};
