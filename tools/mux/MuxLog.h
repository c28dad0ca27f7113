// The mux program's lines in the engine's log: the descriptor it inherited,
// the same time stamp and level tags as the engine's own lines.
#pragma once

namespace mux {

enum LogLevel { kDbg = 0, kMsg = 1, kWan = 2, kErr = 3 };

// Lines go to fd; before this call, and for a bad descriptor, to stderr.
void SetLogFd(int fd);
void Log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
// FFmpeg's own warnings and errors, in the same log.
void RouteLibavLog();

}  // namespace mux
