#include "MuxLog.h"

#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <ctime>

extern "C" {
#include <libavutil/log.h>
}

namespace mux {

namespace {

int g_fd = STDERR_FILENO;
const char* const kTags[] = {"[Dbg]", "[Msg]", "[Wan]", "[ERR]"};

void WriteLine(int level, const char* format, va_list args) {
  char line[4096];
  timeval now{};
  gettimeofday(&now, nullptr);
  tm local{};
  localtime_r(&now.tv_sec, &local);
  const char* tag = level >= kDbg && level <= kErr ? kTags[level] : "     ";
  int n = snprintf(line, sizeof line, "%02d:%02d:%02d.%03d %s  ", local.tm_hour, local.tm_min,
                   local.tm_sec, static_cast<int>(now.tv_usec / 1000), tag);
  const int room = static_cast<int>(sizeof line) - n;
  const int m = vsnprintf(line + n, static_cast<size_t>(room), format, args);
  n += m < 0 ? 0 : (m >= room ? room - 1 : m);
  // The log is opened for appending: one write lands whole at its end.
  ssize_t written = write(g_fd, line, static_cast<size_t>(n));
  (void)written;
}

void LibavLine(void* context, int level, const char* format, va_list args) {
  if (level > AV_LOG_WARNING) return;
  char text[1024];
  int prefix = 1;
  const int n = av_log_format_line2(context, level, format, args, text, sizeof text, &prefix);
  if (n <= 0) return;
  const bool ended = text[std::min<size_t>(static_cast<size_t>(n), sizeof text - 1) - 1] == '\n';
  Log(level <= AV_LOG_ERROR ? kErr : kWan, "mux: ffmpeg: %s%s", text, ended ? "" : "\n");
}

}  // namespace

void SetLogFd(int fd) { g_fd = fd >= 0 && fcntl(fd, F_GETFD) >= 0 ? fd : STDERR_FILENO; }

void Log(int level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  WriteLine(level, format, args);
  va_end(args);
}

void RouteLibavLog() {
  av_log_set_level(AV_LOG_WARNING);
  av_log_set_callback(LibavLine);
}

}  // namespace mux
