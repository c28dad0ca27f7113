#include "encode/libs/EncoderLog.h"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>

namespace ov::enc {

namespace {

using WriteLogFn = int (*)(int, const char*, ...);

// A host that links the engine exposes WriteLog globally; one that loaded the
// engine privately is reached through the engine's own name.
WriteLogFn FindWriteLog() {
  void* fn = dlsym(RTLD_DEFAULT, "WriteLog");
  if (!fn) {
    void* engine = dlopen("liborvanta.so.0", RTLD_NOLOAD | RTLD_LAZY);
    if (engine) fn = dlsym(engine, "WriteLog");
  }
  return reinterpret_cast<WriteLogFn>(fn);
}

}  // namespace

void Log(int level, const char* format, ...) {
  static const WriteLogFn writeLog = FindWriteLog();
  if (!writeLog) return;
  char text[1024];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  writeLog(level, "%s", text);
}

}  // namespace ov::enc

extern "C" {
#include <libavutil/log.h>
}

namespace ov::enc {

namespace {

// FFmpeg's warnings and errors belong in the engine's log, not on the host's
// terminal; its chatter below warnings is dropped.
void ForwardLibavLine(void* context, int level, const char* format, va_list args) {
  if (level > AV_LOG_WARNING) return;
  char text[1024];
  int prefix = 1;
  av_log_format_line2(context, level, format, args, text, sizeof text, &prefix);
  Log(level <= AV_LOG_ERROR ? kErr : kWan, "%s", text);
}

}  // namespace

void RouteLibavLog() {
  // Once per process, however many encoders the module makes.
  static const bool routed = [] {
    av_log_set_callback(ForwardLibavLine);
    return true;
  }();
  (void)routed;
}

}  // namespace ov::enc
