// A block of memory that a child process maps too: anonymous, reached by a
// descriptor that the child inherits.
#pragma once

#include <cstddef>

#include "platform/NonCopyable.h"

namespace ov {

class SharedMemory : private NonCopyable {
 public:
  SharedMemory() = default;
  ~SharedMemory();

  // Zero-filled, readable and writable. 0, or the system's error number.
  int Create(size_t size);
  void Close();

  void* Data() const { return m_data; }
  size_t Size() const { return m_size; }
  // Closed at exec unless a child is started with it to inherit.
  int Fd() const { return m_fd; }

 private:
  void* m_data = nullptr;
  size_t m_size = 0;
  int m_fd = -1;
};

}  // namespace ov
