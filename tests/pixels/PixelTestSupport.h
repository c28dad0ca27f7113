// Buffers and path switching for the pixel routine tests.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

#include "pixels/PixelDispatch.h"

namespace pixtest {

// The levels worth running here: the plain path, the 128-bit and the 256-bit
// kernels, as far as this processor has them.
inline std::vector<int32_t> Levels() {
  std::vector<int32_t> levels;
  for (int32_t level : {0, 1, 7}) {
    if (level <= ov::DetectPixelCpuLevel()) levels.push_back(level);
  }
  return levels;
}

// Runs the body with the given path in force and puts the detected one back.
class AtLevel {
 public:
  explicit AtLevel(int32_t level) { ov::SetPixelCpuLevel(level); }
  ~AtLevel() { ov::SetPixelCpuLevel(ov::DetectPixelCpuLevel()); }
  AtLevel(const AtLevel&) = delete;
  AtLevel& operator=(const AtLevel&) = delete;
};

// Random bytes, a third of them at 0 or 255 so that the clamps are reached.
inline std::vector<uint8_t> RandomBytes(size_t size, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> bytes(size);
  for (auto& b : bytes) {
    const uint32_t r = rng();
    b = (r % 6 == 0) ? 0 : (r % 6 == 1) ? 255 : static_cast<uint8_t>(r >> 8);
  }
  return bytes;
}

// Exact sizes, so that the address sanitizer sees any access past the end.
inline size_t RowsSize(int pitch, int rows, int rowBytes) {
  return rows < 1 || rowBytes < 1 ? 0 : size_t(pitch) * size_t(rows - 1) + size_t(rowBytes);
}

// A block of I420 or YV12 at this pitch and height, for width columns.
inline size_t I420Size(int pitch, int width, int height) {
  size_t size = RowsSize(pitch, height, width);
  const size_t luma = size_t(pitch) * height;
  const size_t chroma = RowsSize(pitch / 2, height / 2, width / 2);
  if (chroma > 0) size = luma * 5 / 4 + chroma;
  return size;
}

inline size_t Nv12Size(int pitch, int width, int height) {
  const size_t chroma = RowsSize(pitch, height / 2, width & ~1);
  return chroma > 0 ? size_t(pitch) * height + chroma : RowsSize(pitch, height, width);
}

}  // namespace pixtest
