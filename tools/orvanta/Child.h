// Processes that the demo starts for itself and ends again, by pid only.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace cli {

struct ChildSpec {
  std::vector<std::string> argv;
  // Extra NAME=value entries on top of this process's environment.
  std::vector<std::string> env;
  // A descriptor the child keeps open under the same number (a readiness pipe).
  int inheritFd = -1;
};

// Starts the program in a process group of its own, so that Ctrl-C at the
// terminal reaches only this command, which then stops its children in order.
// The child also gets SIGTERM when this process dies, however it dies.
// Its output goes to /dev/null. Returns the pid, or -1.
pid_t StartChild(const ChildSpec& child);

// True while the child runs (it is reaped when it has ended).
bool ChildRunning(pid_t pid);

// SIGTERM, a grace time, then SIGKILL; always reaps. Only for pids that
// StartChild returned.
void StopChild(pid_t pid, int graceMs = 3000);

// Waits up to timeoutMs for one line on fd; returns it without the newline,
// or an empty string on time-out or end of file.
std::string ReadLineFrom(int fd, int timeoutMs);

}  // namespace cli
