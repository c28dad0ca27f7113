// Child processes of the engine: they run in process groups of their own and
// must not outlive the engine.
#pragma once

#include <sys/types.h>

namespace ov {

void RegisterChildProcess(pid_t pid);
void UnregisterChildProcess(pid_t pid);
// Kills the process group of every registered child.
void EndChildProcesses();

}  // namespace ov
