#include "platform/EventFd.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace ov {

EventFd::~EventFd() {
  if (m_fd >= 0) close(m_fd);
}

int EventFd::Create() {
  m_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  return m_fd < 0 ? errno : 0;
}

void EventFd::Signal() {
  const uint64_t one = 1;
  if (m_fd >= 0) (void)!write(m_fd, &one, sizeof one);
}

void EventFd::Drain() {
  uint64_t count;
  if (m_fd >= 0) (void)!read(m_fd, &count, sizeof count);
}

}  // namespace ov
