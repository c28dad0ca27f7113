// The threads on which muxes run. None is detached: each is joined by the
// next start once it has ended, and all of them at the engine's shut-down.
#pragma once

#include <functional>

namespace ov {

// Runs work on a thread of its own; false, with a log line, when no thread
// could be made.
bool StartMuxWorker(std::function<void()> work);

// Waits for every mux thread; at shut-down, after the mux programs have been
// ended. A thread that calls it (a host's OnComplete) is not waited for.
void JoinMuxWorkers();

}  // namespace ov
