#include "platform/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace ov {

namespace {
std::mutex g_childMutex;
std::vector<pid_t> g_children;

#ifndef CLOSE_RANGE_CLOEXEC
#define CLOSE_RANGE_CLOEXEC (1U << 2)
#endif

// Between fork and exec only async-signal-safe calls are allowed: the other
// threads of the engine may have held any lock at the moment of the fork.
[[noreturn]] void RunChild(const ChildLaunch& launch, char* const* argv, pid_t parent,
                           int errorPipe) {
  sigset_t all;
  sigemptyset(&all);
  sigprocmask(SIG_SETMASK, &all, nullptr);
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // The parent may have gone before the death signal was armed.
  if (getppid() != parent) _exit(127);
  if (launch.stdFd >= 0) {
    dup2(launch.stdFd, STDOUT_FILENO);
    dup2(launch.stdFd, STDERR_FILENO);
  }
  // Everything the host and the engine hold stays behind, whatever flags it
  // was opened with; then the chosen descriptors are let through.
  if (syscall(SYS_close_range, 3u, ~0u, CLOSE_RANGE_CLOEXEC) != 0) {
    struct rlimit limit {};
    int top = getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < 65536
                  ? static_cast<int>(limit.rlim_cur)
                  : 65536;
    for (int fd = 3; fd < top; ++fd) fcntl(fd, F_SETFD, FD_CLOEXEC);
  }
  for (int fd : launch.inherit) fcntl(fd, F_SETFD, 0);
  execv(launch.program.c_str(), argv);
  int error = errno;
  ssize_t ignored = write(errorPipe, &error, sizeof error);
  (void)ignored;
  _exit(127);
}

int DecodeStatus(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return -WTERMSIG(status);
  return -1;
}

}  // namespace

void RegisterChildProcess(pid_t pid) {
  std::lock_guard<std::mutex> lock(g_childMutex);
  g_children.push_back(pid);
}

void UnregisterChildProcess(pid_t pid) {
  std::lock_guard<std::mutex> lock(g_childMutex);
  g_children.erase(std::remove(g_children.begin(), g_children.end(), pid), g_children.end());
}

void EndChildProcesses() {
  std::lock_guard<std::mutex> lock(g_childMutex);
  for (pid_t pid : g_children) kill(-pid, SIGKILL);
  g_children.clear();
}

ChildProcess::~ChildProcess() { Close(); }

ChildProcess::ChildProcess(ChildProcess&& other) noexcept { *this = std::move(other); }

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  if (this != &other) {
    Close();
    m_pid = std::exchange(other.m_pid, -1);
    m_pidFd = std::exchange(other.m_pidFd, -1);
    m_ended = std::exchange(other.m_ended, false);
    m_exitCode = std::exchange(other.m_exitCode, 0);
  }
  return *this;
}

void ChildProcess::Close() {
  if (m_pidFd >= 0) close(m_pidFd);
  m_pidFd = -1;
  m_pid = -1;
  m_ended = false;
}

int ChildProcess::Start(const ChildLaunch& launch) {
  Close();
  // Everything the child needs is made before the fork.
  std::vector<std::string> strings;
  strings.push_back(launch.program);
  strings.insert(strings.end(), launch.args.begin(), launch.args.end());
  std::vector<char*> argv;
  for (std::string& s : strings) argv.push_back(s.data());
  argv.push_back(nullptr);

  int errorPipe[2];
  if (pipe2(errorPipe, O_CLOEXEC) != 0) return errno;
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0) {
    int error = errno;
    close(errorPipe[0]);
    close(errorPipe[1]);
    return error;
  }
  if (pid == 0) {
    close(errorPipe[0]);
    RunChild(launch, argv.data(), parent, errorPipe[1]);
  }
  close(errorPipe[1]);
  // Both sides set the group, so that a kill of the group right after this
  // call cannot miss the child.
  setpgid(pid, pid);
  RegisterChildProcess(pid);
  m_pid = pid;

  // The pipe closes at a successful exec and carries the error otherwise.
  int error = 0;
  ssize_t n;
  do {
    n = read(errorPipe[0], &error, sizeof error);
  } while (n < 0 && errno == EINTR);
  close(errorPipe[0]);
  if (n == static_cast<ssize_t>(sizeof error)) {
    int ignored;
    Wait(UINT32_MAX, &ignored);
    Close();
    return error ? error : ENOEXEC;
  }
  m_pidFd = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  return 0;
}

bool ChildProcess::Wait(uint32_t timeoutMs, int* exitCode) {
  if (m_pid <= 0) return false;
  if (!m_ended) {
    // Until it is reaped the child's id cannot be reused, so it leaves the
    // list of groups to kill before the reaping.
    siginfo_t info{};
    if (m_pidFd >= 0) {
      pollfd p{m_pidFd, POLLIN, 0};
      const int timeout = timeoutMs == UINT32_MAX ? -1 : static_cast<int>(timeoutMs);
      int ready;
      do {
        ready = poll(&p, 1, timeout);
      } while (ready < 0 && errno == EINTR);
      if (ready <= 0) return false;
    } else {
      // Kernels before 5.3 have no process descriptors: look every 10 ms.
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
      for (;;) {
        info.si_pid = 0;
        if (waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == m_pid)
          break;
        if (timeoutMs != UINT32_MAX && std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
    }
    UnregisterChildProcess(m_pid);
    int status = 0;
    pid_t reaped;
    do {
      reaped = waitpid(m_pid, &status, 0);
    } while (reaped < 0 && errno == EINTR);
    m_exitCode = reaped == m_pid ? DecodeStatus(status) : -1;
    m_ended = true;
  }
  *exitCode = m_exitCode;
  return true;
}

void ChildProcess::Kill() {
  if (!Running()) return;
  kill(-m_pid, SIGKILL);
  int exitCode = 0;
  Wait(UINT32_MAX, &exitCode);
}

}  // namespace ov
