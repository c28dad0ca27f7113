// What the command prints: one-line errors, a live status line and a
// progress bar on a terminal, and the plain formatting of sizes and times.
#pragma once

#include <cstdint>
#include <string>

#include "platform/NonCopyable.h"

namespace cli {

// Exit codes of the command.
enum ExitCode : int {
  kExitOk = 0,
  kExitFailed = 1,       // something did not work
  kExitUsage = 2,        // the command line is wrong
  kExitNotAssembled = 3  // recorded, but the final file could not be made
};

// "orvanta: <message>" on standard error, as one line.
void Error(const char* format, ...) __attribute__((format(printf, 1, 2)));
// An informative line on standard error (progress of the command itself).
void Note(const char* format, ...) __attribute__((format(printf, 1, 2)));

bool StderrIsTerminal();

std::string FormatBytes(int64_t bytes);     // "812 KB", "2.4 MB"
std::string FormatClock(double seconds);    // "00:07", "1:02:03"
std::string FormatSeconds(double seconds);  // "10.0 s"

// A line that rewrites itself on a terminal; elsewhere it prints nothing, so
// that logs of scripted runs stay short.
class StatusLine : private ov::NonCopyable {
 public:
  StatusLine();
  ~StatusLine();
  void Show(const std::string& text);
  // Leaves the last text on screen and moves to a new line.
  void Finish();

 private:
  bool m_live;
  bool m_shown = false;
};

// "Assembling demo.mp4  [#########.........]  45%" on a terminal.
class ProgressBar {
 public:
  explicit ProgressBar(std::string title);
  void Update(int percent);
  void Finish(bool complete);

 private:
  std::string m_title;
  StatusLine m_line;
  int m_percent = -1;
};

}  // namespace cli
