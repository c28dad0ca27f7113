// A recycled input slice of the WMV encoder. The slice's memory belongs to
// the encoder's pool; the buffer only counts who still reads it, and the last
// release hands it back to its allocator instead of freeing anything.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/NonCopyable.h"

class CMediaBuffer;

class CBufferAllocator {
 public:
  // Takes back a buffer whose count has fallen to zero; any thread.
  virtual void ReturnBuffer(CMediaBuffer* pBuffer) = 0;

 protected:
  ~CBufferAllocator() = default;
};

class CMediaBuffer : private ov::NonCopyable {
 public:
  CMediaBuffer(CBufferAllocator* pAllocator, uint8_t* pData, uint32_t capacity)
      : m_pAllocator(pAllocator), m_nLength(capacity), m_nMaxLength(capacity), m_pData(pData) {}

  uint32_t AddRef() { return m_nRef.fetch_add(1) + 1; }
  // At zero the length goes back to the capacity, the count back to 1, and
  // the buffer to its allocator.
  uint32_t Release() {
    const uint32_t count = m_nRef.fetch_sub(1) - 1;
    if (count == 0) {
      m_nLength = m_nMaxLength;
      m_nRef.store(1);
      m_pAllocator->ReturnBuffer(this);
    }
    return count;
  }

  void SetLength(uint32_t length) { m_nLength = length; }
  uint32_t GetMaxLength() const { return m_nMaxLength; }
  uint32_t GetLength() const { return m_nLength; }
  uint8_t* GetBuffer() const { return m_pData; }
  int64_t m_nTimestamp = 0;  // 100-ns units, as captured
  uint32_t m_dwFlags = 0;    // WM_SF_ flags of the input

 private:
  CBufferAllocator* m_pAllocator;
  uint32_t m_nLength;
  uint32_t m_nMaxLength;
  uint8_t* m_pData;
  std::atomic<uint32_t> m_nRef{1};
};
