// Writes a wave temp file: the 68-byte header, then the samples exactly as
// the device delivered them. The header is only true once the writer is
// destroyed; until then it carries unknown lengths, so that a file left by a
// crash still reads up to its last flush, and flushes come often enough that
// a crash costs at most a tenth of a second of sound.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "orvanta/types.h"
#include "platform/NonCopyable.h"
#include "platform/SequentialFile.h"

class CWaveEncoder : private ov::NonCopyable {
 public:
  static constexpr uint32_t kBufferSize = 0x80000;
  static constexpr uint32_t kBufferAlignment = 4096;
  // Samples wait in memory for at most this much sound (or a full buffer).
  static constexpr uint32_t kFlushDivisor = 10;  // a tenth of a second

  CWaveEncoder();
  // Finishes the file: the last samples, then the true header.
  virtual ~CWaveEncoder();

  // Replaces any file of that name. S_OK, or E_FAIL when it cannot be made.
  HRESULT Initialize(const wchar_t* szOutFile, const WAVEFORMATEXTENSIBLE* pFormat);

  // Capture thread only. S_OK; the failure code (OV_E_DISK_FULL...) from
  // the write that failed; S_FALSE for every block after it, which is
  // dropped: the file then keeps what reached the disk, in whole sample
  // frames, and the count of bytes stops there.
  HRESULT Write(const void* pData, uint32_t cbData);

  // Sample bytes accepted so far; any thread may read it.
  int64_t BytesWritten() const { return m_nBytesWritten.load(std::memory_order_relaxed); }
  const WAVEFORMATEXTENSIBLE& Format() const { return m_Format; }
  const wchar_t* Path() const { return m_szOutFile; }
  // Bytes that wait in memory before they go to the disk.
  uint32_t FlushBytes() const { return m_nFlushBytes; }

 private:
  bool Flush();
  void CutToDisk();
  void Finish();

  wchar_t m_szOutFile[OV_MAX_PATH] = {};
  ov::SequentialFile m_hFile;
  WAVEFORMATEXTENSIBLE m_Format{};
  std::atomic<int64_t> m_nBytesWritten{0};
  uint32_t m_nWaiting = 0;
  uint32_t m_nFlushBytes = kBufferSize;
  HRESULT m_hrFailure = S_OK;
  std::unique_ptr<uint8_t, decltype(&std::free)> m_pBuffer;
};
