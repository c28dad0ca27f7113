// Threads with the priorities and task classes the engine asks for.
#pragma once

#include <cstdint>

namespace ov {

enum class ThreadPriority { Normal, AboveNormal, Highest };

// Raises the calling thread where the system allows it; silently keeps the
// current priority when it does not.
void SetCurrentThreadPriority(ThreadPriority priority);

// Names the calling thread for debuggers and `top -H` (15 characters kept).
void SetCurrentThreadName(const char* name);

// The system's id of the calling thread.
uint32_t CurrentThreadId();

}  // namespace ov
