// The engine's log as seen from an encoder library. The libraries do not
// link the engine; they find its WriteLog in the process at run time and
// stay silent where there is none.
#pragma once

namespace ov::enc {

void Log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

enum : int { kDbg = 0, kMsg = 1, kWan = 2, kErr = 3 };

// Sends FFmpeg's own warnings and errors to the engine's log, once per process.
void RouteLibavLog();

}  // namespace ov::enc
