#include "capture/FrameDetect.h"

#include <cstdlib>
#include <cstring>

CFrameDetect::CFrameDetect(int32_t width, int32_t height)
    : m_nFrameSize(static_cast<uint32_t>(width) * static_cast<uint32_t>(height) * 4),
      m_nWidth(width),
      m_nHeight(height) {
  m_nBlockSize = static_cast<size_t>(m_nFrameSize) + 64;
  void* block = nullptr;
  if (posix_memalign(&block, 64, m_nBlockSize) == 0) {
    std::memset(block, 0, m_nBlockSize);
    m_pLastFrame = static_cast<uint8_t*>(block);
  }
}

CFrameDetect::~CFrameDetect() { std::free(m_pLastFrame); }

bool CFrameDetect::IsChanged(const uint8_t* pixels) {
  if (std::memcmp(pixels, m_pLastFrame, m_nFrameSize) == 0) return false;
  std::memcpy(m_pLastFrame, pixels, m_nFrameSize);
  return true;
}

bool CFrameDetect::IsChanged(const uint8_t* pixels, size_t from, size_t to) {
  if (to <= from || std::memcmp(pixels + from, m_pLastFrame + from, to - from) == 0) return false;
  std::memcpy(m_pLastFrame + from, pixels + from, to - from);
  return true;
}

int32_t CFrameDetect::RoundSize(int32_t n) {
  int32_t rounded = (n + 63) & ~63;
  return rounded < 64 ? 64 : rounded;
}
