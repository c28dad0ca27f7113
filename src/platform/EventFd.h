// A counter that wakes a child process: an eventfd that the child inherits
// by number and polls.
#pragma once

#include "platform/NonCopyable.h"

namespace ov {

class EventFd : private NonCopyable {
 public:
  EventFd() = default;
  ~EventFd();
  // Non-blocking, closed at exec unless a child is started with it to
  // inherit. 0, or the system's error number.
  int Create();
  void Signal();
  // Takes back every signal so far, so that the next poll waits again.
  void Drain();
  int Fd() const { return m_fd; }

 private:
  int m_fd = -1;
};

}  // namespace ov
