// The log file's handle: inheritable, appended to by one write per line.
#pragma once

#include <cstddef>
#include <string>

namespace ov {

// Creates or truncates the file for appending; the descriptor stays open
// across exec so that child processes can write to it. -1 on failure.
int CreateLogFile(const std::string& path);

// One write of the whole record; false when it did not all go out.
bool WriteLogRecord(int fd, const char* data, size_t size);

// Makes fd the standard output and error of child processes started by the
// engine. The host's own standard streams are left alone.
void SetChildStdHandle(int fd);
int ChildStdHandle();

}  // namespace ov
