// A message queue per thread, as the user-interface threads of the engine
// use them: posted messages by number, a quit message that ends the loop,
// and other sources (an X connection) waited on together with the queue.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <vector>

#include "platform/NonCopyable.h"

namespace ov {

inline constexpr uint32_t WM_QUIT = 0x0012;
inline constexpr uint32_t WM_USER = 0x0400;

struct Message {
  uint64_t window = 0;
  uint32_t message = 0;
  uint64_t wParam = 0;
  int64_t lParam = 0;
};

class MessageQueue : private NonCopyable {
 public:
  // Makes the calling thread's queue; it is found by the thread's id until
  // it is destroyed, on the same thread.
  MessageQueue();
  ~MessageQueue();

  uint32_t ThreadId() const { return m_threadId; }

  // Waits for the next message and serves watched sources meanwhile.
  // Returns false for WM_QUIT.
  bool Get(Message* msg);

  // Serves watched sources when called on the queue's thread.
  void Watch(int fd, std::function<void()> onReadable);
  void Unwatch(int fd);

  void Post(const Message& msg);
  // Drops every queued message with this number: a burst costs one round.
  void RemoveMessages(uint32_t message);
  // On the queue's thread: serves the watched sources that have something
  // without waiting, then takes the first queued message with this number
  // into *msg; false when there is none.
  bool Peek(uint32_t message, Message* msg);

  // Posts to the queue of another thread; false if it has none.
  static bool PostThreadMessage(uint32_t threadId, uint32_t message, uint64_t wParam,
                                int64_t lParam);

 private:
  struct Watched {
    int fd;
    std::function<void()> onReadable;
  };
  void WaitForWork();

  const uint32_t m_threadId;
  int m_wakeFd;
  std::mutex m_mutex;
  std::deque<Message> m_messages;
  std::vector<Watched> m_watched;
};

}  // namespace ov
