#include "capture/FrameDetect.h"

#include <algorithm>
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
    m_pLastFrame = m_pBlock = static_cast<uint8_t*>(block);
  }
}

CFrameDetect::~CFrameDetect() { std::free(m_pBlock); }

void CFrameDetect::MoveReference(uint8_t* block) {
  if (!block || !m_pLastFrame) return;
  std::memcpy(block, m_pLastFrame, m_nFrameSize);
  m_pLastFrame = block;
  std::free(m_pBlock);
  m_pBlock = nullptr;
}

// Only the span from the first to the last block that differs is copied: a
// clock or a cursor that changes leaves the rest of the reference as it is.
bool CFrameDetect::IsChanged(const uint8_t* pixels) {
  constexpr size_t kBlock = 4096;
  const size_t size = m_nFrameSize;
  size_t first = 0;
  while (first < size &&
         std::memcmp(pixels + first, m_pLastFrame + first, std::min(kBlock, size - first)) == 0)
    first += kBlock;
  if (first >= size) return false;
  size_t end = size;
  while (end - first > kBlock) {
    const size_t begin = (end - 1) / kBlock * kBlock;
    if (std::memcmp(pixels + begin, m_pLastFrame + begin, end - begin) != 0) break;
    end = begin;
  }
  std::memcpy(m_pLastFrame + first, pixels + first, end - first);
  return true;
}

bool CFrameDetect::IsChanged(const uint8_t* pixels, int32_t top, int32_t bottom, int32_t left,
                             int32_t right) {
  if (bottom <= top || right <= left) return false;
  const size_t pitch = static_cast<size_t>(m_nWidth) * 4,
               bytes = static_cast<size_t>(right - left) * 4;
  size_t offset = static_cast<size_t>(top) * pitch + static_cast<size_t>(left) * 4;
  int32_t row = top;
  // Rows up to the first that differs are the reference's already.
  while (row < bottom && std::memcmp(pixels + offset, m_pLastFrame + offset, bytes) == 0)
    ++row, offset += pitch;
  if (row == bottom) return false;
  for (; row < bottom; ++row, offset += pitch)
    std::memcpy(m_pLastFrame + offset, pixels + offset, bytes);
  return true;
}

int32_t CFrameDetect::RoundSize(int32_t n) {
  int32_t rounded = (n + 63) & ~63;
  return rounded < 64 ? 64 : rounded;
}
