#include "platform/SharedMemory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

namespace ov {

SharedMemory::~SharedMemory() { Close(); }

int SharedMemory::Create(size_t size) {
  Close();
  m_fd = memfd_create("orvanta-shared", MFD_CLOEXEC);
  if (m_fd < 0) return errno;
  if (ftruncate(m_fd, static_cast<off_t>(size)) != 0) {
    int error = errno;
    Close();
    return error;
  }
  void* data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, m_fd, 0);
  if (data == MAP_FAILED) {
    int error = errno;
    Close();
    return error;
  }
  m_data = data;
  m_size = size;
  return 0;
}

void SharedMemory::Close() {
  if (m_data) munmap(m_data, m_size);
  if (m_fd >= 0) close(m_fd);
  m_data = nullptr;
  m_size = 0;
  m_fd = -1;
}

}  // namespace ov
