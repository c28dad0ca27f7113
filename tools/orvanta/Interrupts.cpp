#include "Interrupts.h"

#include <signal.h>

#include <cerrno>
#include <ctime>

namespace cli {

namespace {

sigset_t Watched() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGHUP);
  return set;
}

}  // namespace

void Interrupts::Install() {
  sigset_t set = Watched();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  // A closed pipe on standard output must not end the recording mid-file.
  signal(SIGPIPE, SIG_IGN);
}

int Interrupts::Wait(int timeoutMs) {
  sigset_t set = Watched();
  timespec timeout{timeoutMs / 1000, static_cast<long>(timeoutMs % 1000) * 1000000L};
  for (;;) {
    int signo = sigtimedwait(&set, nullptr, &timeout);
    if (signo > 0) return signo;
    if (errno != EINTR) return 0;
  }
}

void Interrupts::ResetInChild() {
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  signal(SIGPIPE, SIG_DFL);
}

}  // namespace cli
