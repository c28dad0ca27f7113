// Child processes of the engine: they run in process groups of their own and
// must not outlive the engine.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ov {

void RegisterChildProcess(pid_t pid);
void UnregisterChildProcess(pid_t pid);
// Kills the process group of every registered child.
void EndChildProcesses();

// What a child gets: its program and arguments, the descriptors it inherits
// (every other one is closed at exec), and where its standard output and
// error go (-1 leaves the engine's own).
struct ChildLaunch {
  std::string program;
  std::vector<std::string> args;
  std::vector<int> inherit;
  int stdFd = -1;
};

// One started program. It leads a process group of its own, is registered
// for EndChildProcesses, and is killed when the thread that started it ends,
// so that it never outlives the work that needs it.
class ChildProcess {
 public:
  ChildProcess() = default;
  // A child that still runs is left running; the thread that started it
  // must wait for it (or end, which ends the child) so that it is reaped.
  ~ChildProcess();
  ChildProcess(ChildProcess&& other) noexcept;
  ChildProcess& operator=(ChildProcess&& other) noexcept;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // 0 once the program runs; the error number of a failed start, an exec
  // failure included.
  int Start(const ChildLaunch& launch);
  // Waits up to timeoutMs (UINT32_MAX: without limit). True when the child
  // has ended; *exitCode is then its exit status, or the negated number of
  // the signal that killed it. The child is reaped and unregistered.
  bool Wait(uint32_t timeoutMs, int* exitCode);

  // Kills the child's process group and reaps the child.
  void Kill();
  bool Started() const { return m_pid > 0; }
  bool Running() const { return m_pid > 0 && !m_ended; }
  pid_t Pid() const { return m_pid; }

 private:
  void Close();

  pid_t m_pid = -1;
  int m_pidFd = -1;
  bool m_ended = false;
  int m_exitCode = 0;
};

}  // namespace ov
