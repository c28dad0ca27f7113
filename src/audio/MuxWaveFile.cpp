#include "audio/MuxWaveFile.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/Files.h"
#include "session/Log.h"

CMuxWaveFile::CMuxWaveFile() = default;
CMuxWaveFile::~CMuxWaveFile() = default;

HRESULT CMuxWaveFile::Open(const wchar_t* szWaveFile) {
  const std::string path = ov::ToUtf8(szWaveFile);
  m_hFile.reset(std::fopen(path.c_str(), "rb"));
  if (!m_hFile) {
    WriteLog(ov::kErr, "Failed(%d) to create file:%ls\n", errno, szWaveFile);
    return E_FAIL;
  }
  // Blocks are a second long; a stream buffer would only add a copy.
  std::setvbuf(m_hFile.get(), nullptr, _IONBF, 0);

  uint8_t header[kHeaderBytes];
  if (std::fread(header, 1, sizeof header, m_hFile.get()) != sizeof header) {
    WriteLog(ov::kErr, "Failed(%d) to read file:%ls\n", errno, szWaveFile);
    m_hFile.reset();
    return E_FAIL;
  }
  // Only the two marks are trusted; a file whose writer died has neither.
  // A rate of 0 bytes a second can't be timed, so it is no format either.
  std::memcpy(&m_Format, header + 20, sizeof m_Format);
  if (std::memcmp(header, "RIFF", 4) != 0 || std::memcmp(header + 12, "fmt ", 4) != 0 ||
      m_Format.Format.nAvgBytesPerSec == 0) {
    WriteLog(ov::kErr, "Error format:%ls\n", szWaveFile);
    m_hFile.reset();
    return E_FAIL;
  }

  const int64_t size = ov::FileSize(szWaveFile);
  m_nDataLength = size > kHeaderBytes ? size - kHeaderBytes : 0;
  m_nDuration = static_cast<REFERENCE_TIME>(static_cast<uint64_t>(m_nDataLength) *
                                            static_cast<uint64_t>(REF_TIME_UNITS) /
                                            m_Format.Format.nAvgBytesPerSec);
  m_nPosition = 0;
  m_bEndOfFile = false;
  return S_OK;
}

uint32_t CMuxWaveFile::Read(void* pDest, uint32_t cbBytes) {
  if (m_bEndOfFile || !m_hFile) return 0;
  const size_t n = std::fread(pDest, 1, cbBytes, m_hFile.get());
  if (n == 0) {
    if (std::ferror(m_hFile.get())) WriteLog(ov::kErr, "Failed(%d) to read file\n", errno);
    m_bEndOfFile = true;
    return 0;
  }
  m_nPosition += static_cast<int64_t>(n);
  return static_cast<uint32_t>(n);
}

BOOL CMuxWaveFile::Seek(REFERENCE_TIME t) {
  if (!m_hFile) return 0;
  const WAVEFORMATEX& f = m_Format.Format;
  int64_t position = static_cast<int64_t>(f.nAvgBytesPerSec) * t / REF_TIME_UNITS;
  if (position < 0) position = 0;
  std::clearerr(m_hFile.get());
  if (position < m_nDataLength) {
    if (f.nBlockAlign > 0) position -= position % f.nBlockAlign;
    m_nPosition = position;
    std::fseek(m_hFile.get(), static_cast<long>(position + kHeaderBytes), SEEK_SET);
    m_bEndOfFile = false;
    return 1;
  }
  m_nPosition = m_nDataLength;
  std::fseek(m_hFile.get(), 0, SEEK_END);
  m_bEndOfFile = true;
  return 0;
}
