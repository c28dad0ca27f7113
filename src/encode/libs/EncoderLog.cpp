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
