#include "platform/Event.h"

#include <chrono>

namespace ov {

void Event::Set() {
  // Notified under the lock: a waiter that wakes may destroy the event at
  // once, so nothing of it may be touched after the lock is released.
  std::lock_guard lock(m_mutex);
  m_set = true;
  if (m_manual) {
    m_cond.notify_all();
  } else {
    m_cond.notify_one();
  }
}

void Event::ResetEvent() {
  std::lock_guard lock(m_mutex);
  m_set = false;
}

void Event::Wait() {
  std::unique_lock lock(m_mutex);
  m_cond.wait(lock, [this] { return m_set; });
  if (!m_manual) m_set = false;
}

bool Event::WaitFor(uint32_t timeoutMs) {
  std::unique_lock lock(m_mutex);
  if (!m_cond.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return m_set; })) {
    return false;
  }
  if (!m_manual) m_set = false;
  return true;
}

bool Event::IsSet() const {
  std::lock_guard lock(m_mutex);
  return m_set;
}

}  // namespace ov
