#include "platform/Thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstring>

namespace ov {

void SetCurrentThreadPriority(ThreadPriority priority) {
  // Only a lower nice value is asked for; unprivileged processes are refused
  // and keep their priority, which is fine for a recorder.
  int nice = 0;
  switch (priority) {
    case ThreadPriority::Normal:
      return;
    case ThreadPriority::AboveNormal:
      nice = -5;
      break;
    case ThreadPriority::Highest:
      nice = -10;
      break;
  }
  setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), nice);
}

void SetCurrentThreadName(const char* name) {
  char shortName[16];
  std::strncpy(shortName, name, sizeof shortName - 1);
  shortName[sizeof shortName - 1] = '\0';
  pthread_setname_np(pthread_self(), shortName);
}

uint32_t CurrentThreadId() { return static_cast<uint32_t>(syscall(SYS_gettid)); }

}  // namespace ov
