#include "audio/WaveEncoder.h"

#include <cstring>
#include <cwchar>

#include "audio/WaveFormat.h"
#include "session/Log.h"

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
  if (!m_hFile.WriteAt(&header, kWaveHeaderSize, 0))
    WriteLog(kErr, "Failed(%d) to write\n", LastError());
  m_nWaiting = kWaveHeaderSize;
  return S_OK;
}

void CWaveEncoder::Write(const void* pData, uint32_t cbData) {
  m_nBytesWritten.fetch_add(cbData, std::memory_order_relaxed);
  const uint8_t* source = static_cast<const uint8_t*>(pData);
  while (cbData > 0) {
    if (m_nWaiting + cbData < kBufferSize) {
      std::memcpy(m_pBuffer.get() + m_nWaiting, source, cbData);
      m_nWaiting += cbData;
      return;
    }
    const uint32_t part = kBufferSize - m_nWaiting;
    std::memcpy(m_pBuffer.get() + m_nWaiting, source, part);
    m_nWaiting = kBufferSize;
    Flush();
    source += part;
    cbData -= part;
  }
}

void CWaveEncoder::Flush() {
  // A block that fails is dropped but stays counted: the clock keeps the
  // pace of the device, not of the disk.
  if (!m_hFile.Write(m_pBuffer.get(), m_nWaiting))
    WriteLog(ov::kErr, "Failed(%d) to write\n", ov::LastError());
  m_nWaiting = 0;
}

void CWaveEncoder::Finish() {
  using namespace ov;
  if (m_nWaiting > 0) Flush();
  const uint64_t bytes = static_cast<uint64_t>(m_nBytesWritten.load(std::memory_order_relaxed));
  const WaveHeader header = MakeWaveHeader(m_Format, bytes);
  m_hFile.WriteAt(&header, kWaveHeaderSize, 0);
  m_hFile.Close();
}
