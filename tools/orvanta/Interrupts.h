// Ctrl-C and termination requests, taken synchronously on the main thread.
//
// The signals are blocked before the engine starts any thread, so every
// thread inherits the block and none of them is interrupted in a system
// call; the main thread picks them up with sigtimedwait while it waits.
#pragma once

namespace cli {

class Interrupts {
 public:
  // Blocks SIGINT, SIGTERM and SIGHUP in the calling thread; call first thing in main.
  static void Install();
  // Waits up to timeoutMs for one of them; returns the signal or 0.
  static int Wait(int timeoutMs);
  // The signal mask that a child process must start with: nothing blocked.
  static void ResetInChild();
};

}  // namespace cli
