#include "audio/WaveReader.h"

#include <cstring>

#include "audio/WaveFormat.h"
#include "core/Log.h"

namespace {

// The sizes of a format agree with each other and with what any device
// gives. A header without a byte rate cannot tell any time, and one whose
// rates disagree would have the readers size their buffers by one and fill
// them by the other.
bool Consistent(const WAVEFORMATEX& f) {
  constexpr uint32_t kMaxRate = 768000;
  constexpr uint16_t kMaxChannels = 32;
  if (f.nChannels == 0 || f.nChannels > kMaxChannels || f.nSamplesPerSec == 0 ||
      f.nSamplesPerSec > kMaxRate || f.wBitsPerSample == 0 || f.wBitsPerSample % 8 != 0 ||
      f.wBitsPerSample > 64)
    return false;
  return f.nBlockAlign == f.nChannels * f.wBitsPerSample / 8 &&
         f.nAvgBytesPerSec == f.nSamplesPerSec * f.nBlockAlign;
}

}  // namespace

HRESULT CWaveReader::Open(const wchar_t* szWaveFile) {
  using namespace ov;
  m_hFile.Close();
  m_bEndOfFile = false;
  m_nDataLength = m_nPosition = m_nDuration = 0;
  if (!m_hFile.Open(szWaveFile)) {
    WriteLog(kErr, "Failed(%d) to create file:%ls\n", LastError(), szWaveFile);
    return E_FAIL;
  }
  WaveHeader header;
  if (m_hFile.Read(&header, kWaveHeaderSize) != kWaveHeaderSize) {
    WriteLog(kErr, "Failed(%d) to read file:%ls\n", LastError(), szWaveFile);
    m_hFile.Close();
    return E_FAIL;
  }
  if (std::memcmp(header.riff, "RIFF", 4) != 0 || std::memcmp(header.fmt, "fmt ", 4) != 0 ||
      !Consistent(header.format.Format)) {
    WriteLog(kErr, "Error format:%ls\n", szWaveFile);
    m_hFile.Close();
    return E_FAIL;
  }
  m_Format = header.format;
  const int64_t size = m_hFile.Size();
  m_nDataLength = size > kWaveHeaderSize ? size - kWaveHeaderSize : 0;
  m_nDuration = static_cast<REFERENCE_TIME>(static_cast<uint64_t>(m_nDataLength) * REF_TIME_UNITS /
                                            m_Format.Format.nAvgBytesPerSec);
  return S_OK;
}

uint32_t CWaveReader::Read(void* pDest, uint32_t cbBytes) {
  if (m_bEndOfFile || !m_hFile.IsOpen()) return 0;
  const int64_t n = m_hFile.Read(pDest, cbBytes);
  if (n < 0) {
    WriteLog(ov::kErr, "Failed(%d) to read file\n", ov::LastError());
    m_bEndOfFile = true;
    return 0;
  }
  if (n == 0) m_bEndOfFile = true;
  m_nPosition += n;
  return static_cast<uint32_t>(n);
}

BOOL CWaveReader::Seek(REFERENCE_TIME t) {
  using namespace ov;
  if (!m_hFile.IsOpen()) return 0;
  int64_t position = static_cast<int64_t>(m_Format.Format.nAvgBytesPerSec) * t / REF_TIME_UNITS;
  if (position < 0) position = 0;
  if (position < m_nDataLength) {
    const int64_t block = m_Format.Format.nBlockAlign ? m_Format.Format.nBlockAlign : 1;
    position -= position % block;
    m_nPosition = position;
    m_hFile.Seek(position + kWaveHeaderSize);
    m_bEndOfFile = false;
    return 1;
  }
  m_nPosition = m_nDataLength;
  m_hFile.SeekToEnd();
  m_bEndOfFile = true;
  return 0;
}
