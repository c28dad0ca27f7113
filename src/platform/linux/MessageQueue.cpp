#include "platform/MessageQueue.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <unordered_map>

#include "platform/Thread.h"

namespace ov {

namespace {

std::mutex& RegistryMutex() {
  static std::mutex mutex;
  return mutex;
}

std::unordered_map<uint32_t, MessageQueue*>& Registry() {
  static std::unordered_map<uint32_t, MessageQueue*> queues;
  return queues;
}

}  // namespace

MessageQueue::MessageQueue()
    : m_threadId(CurrentThreadId()), m_wakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  std::lock_guard lock(RegistryMutex());
  Registry()[m_threadId] = this;
}

MessageQueue::~MessageQueue() {
  {
    std::lock_guard lock(RegistryMutex());
    Registry().erase(m_threadId);
  }
  if (m_wakeFd >= 0) close(m_wakeFd);
}

void MessageQueue::Post(const Message& msg) {
  {
    std::lock_guard lock(m_mutex);
    m_messages.push_back(msg);
  }
  uint64_t one = 1;
  [[maybe_unused]] ssize_t n = write(m_wakeFd, &one, sizeof one);
}

bool MessageQueue::PostThreadMessage(uint32_t threadId, uint32_t message, uint64_t wParam,
                                     int64_t lParam) {
  std::lock_guard lock(RegistryMutex());
  auto it = Registry().find(threadId);
  if (it == Registry().end()) return false;
  it->second->Post(Message{0, message, wParam, lParam});
  return true;
}

void MessageQueue::Watch(int fd, std::function<void()> onReadable) {
  Unwatch(fd);
  m_watched.push_back(Watched{fd, std::move(onReadable)});
}

void MessageQueue::Unwatch(int fd) {
  m_watched.erase(std::remove_if(m_watched.begin(), m_watched.end(),
                                 [fd](const Watched& w) { return w.fd == fd; }),
                  m_watched.end());
}

void MessageQueue::WaitForWork() {
  std::vector<pollfd> fds;
  fds.reserve(m_watched.size() + 1);
  fds.push_back(pollfd{m_wakeFd, POLLIN, 0});
  for (const Watched& w : m_watched) fds.push_back(pollfd{w.fd, POLLIN, 0});
  // Watched sources may hold buffered input already read from their fd (an
  // X connection does), so each is served once before blocking.
  for (const Watched& w : m_watched) w.onReadable();
  {
    std::lock_guard lock(m_mutex);
    if (!m_messages.empty()) return;
  }
  if (poll(fds.data(), fds.size(), -1) <= 0) return;
  if (fds[0].revents & POLLIN) {
    uint64_t count;
    [[maybe_unused]] ssize_t n = read(m_wakeFd, &count, sizeof count);
  }
  for (size_t i = 1; i < fds.size(); ++i) {
    if (fds[i].revents && i - 1 < m_watched.size()) m_watched[i - 1].onReadable();
  }
}

bool MessageQueue::Get(Message* msg) {
  for (;;) {
    {
      std::lock_guard lock(m_mutex);
      if (!m_messages.empty()) {
        *msg = m_messages.front();
        m_messages.pop_front();
        return msg->message != WM_QUIT;
      }
    }
    WaitForWork();
  }
}

}  // namespace ov

namespace ov {

void MessageQueue::RemoveMessages(uint32_t message) {
  std::lock_guard lock(m_mutex);
  std::erase_if(m_messages, [message](const Message& m) { return m.message == message; });
}

}  // namespace ov

namespace ov {

bool MessageQueue::Peek(uint32_t message, Message* msg) {
  std::vector<pollfd> fds;
  fds.reserve(m_watched.size());
  for (const Watched& w : m_watched) fds.push_back(pollfd{w.fd, POLLIN, 0});
  if (!fds.empty() && poll(fds.data(), fds.size(), 0) > 0) {
    for (size_t i = 0; i < fds.size() && i < m_watched.size(); ++i)
      if (fds[i].revents) m_watched[i].onReadable();
  }
  std::lock_guard lock(m_mutex);
  auto it = std::find_if(m_messages.begin(), m_messages.end(),
                         [message](const Message& m) { return m.message == message; });
  if (it == m_messages.end()) return false;
  *msg = *it;
  m_messages.erase(it);
  return true;
}

}  // namespace ov
