#include "platform/IsolatedCall.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/Files.h"

namespace ov {

namespace {

constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGSYS, SIGTRAP};

// In the copy: a fault must end it at once, not run the host's crash
// reporter (which would write a dump of a process that is not the host), and
// it leaves no core file behind.
void PrepareCopyForFaults() {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigset_t faults;
  sigemptyset(&faults);
  for (int signal : kFaultSignals) {
    sigaction(signal, &action, nullptr);
    sigaddset(&faults, signal);
  }
  sigprocmask(SIG_UNBLOCK, &faults, nullptr);
  struct rlimit noCore {};
  setrlimit(RLIMIT_CORE, &noCore);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
}

[[noreturn]] void RunInCopy(int pipeOut, void* data, size_t size, IsolatedFn call, void* context) {
  PrepareCopyForFaults();
  call(data, context);
  _exit(WriteAll(pipeOut, data, size) == 0 ? 0 : 1);
}

// Reads size bytes into out; stops early when the writer closes, the time is
// up, or on an error. Returns the count read.
size_t ReadUntil(int fd, char* out, size_t size, std::chrono::steady_clock::time_point deadline,
                 bool* timedOut) {
  size_t got = 0;
  *timedOut = false;
  while (got < size) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      *timedOut = true;
      break;
    }
    pollfd pfd{fd, POLLIN, 0};
    int ready = poll(&pfd, 1, static_cast<int>(left.count()));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) break;
    if (ready == 0) continue;
    ssize_t n = read(fd, out + got, size - got);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  return got;
}

// The copy's end state; false when it could not be had (the host reaps
// children itself, or ignores SIGCHLD).
bool WaitForCopy(pid_t pid, int* status) {
  for (;;) {
    pid_t r = waitpid(pid, status, 0);
    if (r == pid) return true;
    if (r < 0 && errno == EINTR) continue;
    return false;
  }
}

}  // namespace

IsolatedResult RunIsolated(void* data, size_t size, IsolatedFn call, void* context,
                           uint32_t timeoutMs) {
  // The copy's bytes land in a staging area first, so that a copy that dies
  // half way through its write leaves the caller's bytes untouched.
  constexpr size_t kStaging = 4096;
  char staging[kStaging];
  if (size > kStaging) return {IsolatedOutcome::Failed, 0};
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) return {IsolatedOutcome::Failed, 0};
  pid_t pid = fork();
  if (pid < 0) {
    close(fds[0]);
    close(fds[1]);
    return {IsolatedOutcome::Failed, 0};
  }
  if (pid == 0) {
    close(fds[0]);
    RunInCopy(fds[1], data, size, call, context);
  }
  close(fds[1]);

  bool timedOut = false;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  size_t got = ReadUntil(fds[0], staging, size, deadline, &timedOut);
  close(fds[0]);
  if (timedOut) kill(pid, SIGKILL);

  int status = 0;
  bool reaped = WaitForCopy(pid, &status);
  if (reaped && WIFSIGNALED(status)) return {IsolatedOutcome::Crashed, WTERMSIG(status)};
  bool exitedCleanly = !reaped || (WIFEXITED(status) && WEXITSTATUS(status) == 0);
  if (timedOut || got != size || !exitedCleanly) return {IsolatedOutcome::Failed, 0};
  memcpy(data, staging, size);
  return {IsolatedOutcome::Completed, 0};
}

}  // namespace ov
