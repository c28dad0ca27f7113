#include "Console.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace cli {

namespace {

void Line(const char* prefix, const char* format, va_list args) {
  char text[1024];
  std::vsnprintf(text, sizeof text, format, args);
  std::fprintf(stderr, "%s%s\n", prefix, text);
}

}  // namespace

void Error(const char* format, ...) {
  va_list args;
  va_start(args, format);
  Line("orvanta: ", format, args);
  va_end(args);
}

void Note(const char* format, ...) {
  va_list args;
  va_start(args, format);
  Line("", format, args);
  va_end(args);
}

bool StderrIsTerminal() {
  static const bool terminal =
      isatty(STDERR_FILENO) == 1 && getenv("TERM") && std::string(getenv("TERM")) != "dumb";
  return terminal;
}

std::string FormatBytes(int64_t bytes) {
  char text[32];
  if (bytes < 1024)
    std::snprintf(text, sizeof text, "%lld B", static_cast<long long>(bytes));
  else if (bytes < 1024 * 1024)
    std::snprintf(text, sizeof text, "%lld KB", static_cast<long long>(bytes / 1024));
  else if (bytes < 1024LL * 1024 * 1024)
    std::snprintf(text, sizeof text, "%.1f MB", bytes / (1024.0 * 1024.0));
  else
    std::snprintf(text, sizeof text, "%.2f GB", bytes / (1024.0 * 1024.0 * 1024.0));
  return text;
}

std::string FormatClock(double seconds) {
  long total = seconds < 0 ? 0 : static_cast<long>(seconds);
  char text[32];
  if (total >= 3600)
    std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", total / 3600, total / 60 % 60, total % 60);
  else
    std::snprintf(text, sizeof text, "%02ld:%02ld", total / 60, total % 60);
  return text;
}

std::string FormatSeconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", seconds < 0 ? 0.0 : seconds);
  return text;
}

StatusLine::StatusLine() : m_live(StderrIsTerminal()) {}

StatusLine::~StatusLine() { Finish(); }

void StatusLine::Show(const std::string& text) {
  if (!m_live) return;
  // Carriage return and erase-to-end keep one line however the text shrinks.
  std::fprintf(stderr, "\r\033[K%s", text.c_str());
  std::fflush(stderr);
  m_shown = true;
}

void StatusLine::Finish() {
  if (!m_shown) return;
  std::fputc('\n', stderr);
  m_shown = false;
}

ProgressBar::ProgressBar(std::string title) : m_title(std::move(title)) {}

void ProgressBar::Update(int percent) {
  if (percent < 0) percent = 0;
  if (percent > 100) percent = 100;
  if (percent == m_percent) return;
  m_percent = percent;
  constexpr int kWidth = 30;
  int filled = percent * kWidth / 100;
  std::string bar = m_title + "  [" + std::string(static_cast<size_t>(filled), '#') +
                    std::string(static_cast<size_t>(kWidth - filled), '.') + "] ";
  char number[8];
  std::snprintf(number, sizeof number, "%3d%%", percent);
  m_line.Show(bar + number);
}

void ProgressBar::Finish(bool complete) {
  if (complete) Update(100);
  m_line.Finish();
}

}  // namespace cli
