#include "platform/ChildProcess.h"

#include <signal.h>

#include <algorithm>
#include <mutex>
#include <vector>

namespace ov {

namespace {
std::mutex g_childMutex;
std::vector<pid_t> g_children;
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

}  // namespace ov
