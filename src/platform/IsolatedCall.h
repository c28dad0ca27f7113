// Running a call that may fault, such as a driver probing its hardware, in a
// throw-away copy of the process, so that a crash there cannot take the host
// down with it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ov {

enum class IsolatedOutcome {
  Completed,  // the call returned and its bytes came back
  Crashed,    // the copy was ended by a signal (a fault, or killed after the time limit)
  Failed,     // the copy exited without handing back its bytes
};

struct IsolatedResult {
  IsolatedOutcome outcome;
  int signal;  // the ending signal when Crashed
};

using IsolatedFn = void (*)(void* data, void* context);

// Runs call(data, context) in a forked copy of the process, where it works on
// that copy's own `size` bytes at `data`; when the call returns, those bytes
// replace the caller's. On any other outcome the caller's bytes stay as they
// were. Around the call the copy does only async-signal-safe work, so this is
// usable from a multi-threaded process as far as the call itself is (it must
// not wait for locks that other threads of the process may have held).
// A copy that runs longer than timeoutMs is killed.
IsolatedResult RunIsolated(void* data, size_t size, IsolatedFn call, void* context,
                           uint32_t timeoutMs);

}  // namespace ov
