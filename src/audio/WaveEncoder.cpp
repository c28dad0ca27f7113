#include "audio/WaveEncoder.h"

#include <algorithm>
#include <cstring>
#include <cwchar>

#include "audio/WaveFormat.h"
#include "core/Log.h"
#include "core/WriterStatistics.h"

static_assert(std::atomic<int64_t>::is_always_lock_free);

CWaveEncoder::CWaveEncoder()
    : m_pBuffer(static_cast<uint8_t*>(std::aligned_alloc(kBufferAlignment, kBufferSize)),
                &std::free) {}

CWaveEncoder::~CWaveEncoder() {
  if (m_hFile.IsOpen()) Finish();
}

HRESULT CWaveEncoder::Initialize(const wchar_t* szOutFile, const WAVEFORMATEXTENSIBLE* pFormat) {
  using namespace ov;
  std::wcsncpy(m_szOutFile, szOutFile, OV_MAX_PATH - 1);
  m_szOutFile[OV_MAX_PATH - 1] = L'\0';
  m_Format = WaveFileFormat(*pFormat);
  if (!m_pBuffer) return E_OUTOFMEMORY;
  // Whole sample frames, so that a crash between flushes tears none.
  const uint32_t frame = std::max<uint32_t>(m_Format.Format.nBlockAlign, 1);
  const uint32_t tenth = m_Format.Format.nAvgBytesPerSec / kFlushDivisor;
  m_nFlushBytes = std::clamp(tenth - tenth % frame, frame, kBufferSize);

  RemoveFile(m_szOutFile);
  if (!m_hFile.Create(m_szOutFile)) {
    WriteLog(kErr, "Failed(%d) to create file:%ls\n", LastError(), m_szOutFile);
    return E_FAIL;
  }
  // The room for the header travels with the first flush. A provisional
  // header goes to the disk at once as well, so that a writer killed before
  // its finish leaves a file that reads up to its last flush.
  const WaveHeader header = MakeWaveHeader(m_Format, kWaveUnknownLength);
  std::memcpy(m_pBuffer.get(), &header, kWaveHeaderSize);
  if (!m_hFile.WriteAt(&header, kWaveHeaderSize, 0)) {
    const int error = LastError();
    WriteLog(kErr, "Failed(%d) to write\n", error);
    m_hrFailure = CWriterStatistics::WriteFailureCode(error);
    m_hFile.Close();
    return E_FAIL;
  }
  m_nWaiting = kWaveHeaderSize;
  return S_OK;
}

HRESULT CWaveEncoder::Write(const void* pData, uint32_t cbData) {
  if (FAILED(m_hrFailure) || !m_hFile.IsOpen()) return S_FALSE;
  m_nBytesWritten.fetch_add(cbData, std::memory_order_relaxed);
  // Blocks come in whole sample frames: flushed before a block that would
  // not fit, the file only ever ends between two of them.
  if (m_nWaiting + cbData > kBufferSize && !Flush()) return m_hrFailure;
  const uint8_t* source = static_cast<const uint8_t*>(pData);
  while (cbData > 0) {
    const uint32_t part = std::min(cbData, kBufferSize - m_nWaiting);
    std::memcpy(m_pBuffer.get() + m_nWaiting, source, part);
    m_nWaiting += part;
    source += part;
    cbData -= part;
    if (m_nWaiting >= m_nFlushBytes && !Flush()) return m_hrFailure;
  }
  return S_OK;
}

bool CWaveEncoder::Flush() {
  if (m_nWaiting == 0) return true;
  const bool written = m_hFile.Write(m_pBuffer.get(), m_nWaiting);
  m_nWaiting = 0;
  if (written) return true;
  const int error = ov::LastError();
  WriteLog(ov::kErr, "Failed(%d) to write\n", error);
  m_hrFailure = CWriterStatistics::WriteFailureCode(error);
  CutToDisk();
  return false;
}

// After a failed write the file keeps what reached the disk, cut back to
// whole sample frames, and the count (the clock, the header's length)
// says exactly that much.
void CWaveEncoder::CutToDisk() {
  using namespace ov;
  const int64_t frame = std::max<int64_t>(m_Format.Format.nBlockAlign, 1);
  int64_t data = std::max<int64_t>(m_hFile.Size() - kWaveHeaderSize, 0);
  data -= data % frame;
  if (!m_hFile.Truncate(kWaveHeaderSize + data))
    WriteLog(kErr, "Failed(%d) to write\n", LastError());
  m_nBytesWritten.store(data, std::memory_order_relaxed);
}

void CWaveEncoder::Finish() {
  using namespace ov;
  if (SUCCEEDED(m_hrFailure) && m_nWaiting > 0) Flush();
  const uint64_t bytes = static_cast<uint64_t>(m_nBytesWritten.load(std::memory_order_relaxed));
  const WaveHeader header = MakeWaveHeader(m_Format, bytes);
  // Rewrites bytes that are on the disk already, so it needs no new room.
  if (!m_hFile.WriteAt(&header, kWaveHeaderSize, 0))
    WriteLog(kErr, "Failed(%d) to write\n", LastError());
  m_hFile.Close();
}
