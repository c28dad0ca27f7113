#include "core/Log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/LogFile.h"

namespace ov {

namespace {

int g_logFd = -1;

constexpr int kHeaderChars = 20;       // "hh:mm:ss.mmm [Tag]  "
constexpr int kWriteLogLimit = 16364;  // bytes of message after the header
constexpr int kLogFileLimit = 16383;
constexpr int kFallbackChars = 1024;  // a message too long for the buffer is cut here

const char* const kTags[] = {"[Dbg]", "[Msg]", "[Wan]", "[ERR]", "     "};

// Formats into out (room for limit bytes plus the terminator); a message that
// does not fit is formatted again and cut at kFallbackChars characters.
int FormatMessage(char* out, int limit, const char* format, va_list args) {
  va_list again;
  va_copy(again, args);
  int n = vsnprintf(out, static_cast<size_t>(limit) + 1, format, args);
  if (n < 0 || n > limit) {
    n = vsnprintf(out, kFallbackChars + 1, format, again);
    if (n < 0) n = 0;
    if (n > kFallbackChars) n = kFallbackChars;
  }
  va_end(again);
  return n;
}

}  // namespace

std::wstring LogFolder() { return DocumentsFolder() + L"/Log Files"; }

int OpenLogFile() {
  std::wstring folder = LogFolder();
  auto name = [&folder](int n) { return folder + L"/Orvanta" + std::to_wstring(n) + L".log"; };
  // A documents folder too deep for a path field gets no log rather than one
  // under a cut name, which could be anybody's file.
  if (!PathFits(name(0).c_str())) return -1;
  CreateFolder(DocumentsFolder());
  CreateFolder(folder);
  RemoveFile(name(9));
  for (int n = 9; n >= 1; --n) MoveFile(name(n - 1), name(n));
  g_logFd = CreateLogFile(ToUtf8(name(0)));
  return g_logFd;
}

int LogFd() { return g_logFd; }

void LogFailure(HRESULT hr, const char* expression, const char* file, int line) {
  WriteLog(kErr, "Failed(0x%x) in %s, FILE:%s, LINE:%d\n", static_cast<unsigned>(hr), expression,
           file, line);
}

void LogBadArgument(const char* name, const char* file, int line) {
  WriteLog(kErr, "Error: %s, FILE:%s, LINE:%d\n", name, file, line);
}

}  // namespace ov

extern "C" BOOL WriteLog(int level, const char* format, ...) {
  char buffer[ov::kHeaderChars + ov::kWriteLogLimit + 1];
  ov::LocalTime t = ov::Now();
  const char* tag = level >= 0 && level <= 4 ? ov::kTags[level] : ov::kTags[4];
  snprintf(buffer, sizeof buffer, "%02d:%02d:%02d.%03d %s  ", t.hour, t.minute, t.second,
           t.millisecond, tag);
  va_list args;
  va_start(args, format);
  int n = ov::FormatMessage(buffer + ov::kHeaderChars, ov::kWriteLogLimit, format, args);
  va_end(args);
  return ov::WriteLogRecord(ov::g_logFd, buffer, static_cast<size_t>(ov::kHeaderChars + n)) ? 1 : 0;
}

extern "C" BOOL LogFile(const char* format, ...) {
  char buffer[ov::kLogFileLimit + 1];
  va_list args;
  va_start(args, format);
  int n = ov::FormatMessage(buffer, ov::kLogFileLimit, format, args);
  va_end(args);
  return ov::WriteLogRecord(ov::g_logFd, buffer, static_cast<size_t>(n)) ? 1 : 0;
}
