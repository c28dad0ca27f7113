#include "platform/LogFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>

namespace ov {

namespace {
std::atomic<int> g_childStd{-1};
}

int CreateLogFile(const std::string& path) {
  // O_APPEND makes each write land whole at the end, also when a child
  // process writes through the same file.
  return open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
}

bool WriteLogRecord(int fd, const char* data, size_t size) {
  if (fd < 0) return false;
  return write(fd, data, size) == static_cast<ssize_t>(size);
}

void SetChildStdHandle(int fd) { g_childStd = fd; }
int ChildStdHandle() { return g_childStd; }

}  // namespace ov
