// A block of samples made once, before the data flows, on a 64-byte boundary
// so that vector loads never straddle a cache line at its start.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

namespace ov::audio {

class AlignedBuffer {
 public:
  static constexpr size_t kAlignment = 64;

  AlignedBuffer() = default;

  // The room is rounded up to the alignment and allocated kAlignment bytes
  // larger still, as a guard for a frame that runs past the planned capacity.
  bool Allocate(int32_t capacity) {
    if (capacity < 0) return false;
    const size_t room = (static_cast<size_t>(capacity) + 2 * kAlignment - 1) & ~(kAlignment - 1);
    m_data.reset(static_cast<uint8_t*>(std::aligned_alloc(kAlignment, room)));
    m_nCapacity = m_data ? capacity : 0;
    return m_data != nullptr;
  }

  uint8_t* Data() const { return m_data.get(); }
  int32_t Capacity() const { return m_nCapacity; }

 private:
  struct Free {
    void operator()(uint8_t* p) const { std::free(p); }
  };
  std::unique_ptr<uint8_t, Free> m_data;
  int32_t m_nCapacity = 0;
};

}  // namespace ov::audio
