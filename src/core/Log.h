// Internal side of the log: the file, and the failure lines every
// subsystem writes in one shape.
#pragma once

#include <string>

#include "orvanta/log.h"
#include "orvanta/types.h"

namespace ov {

enum LogLevel { kDbg = 0, kMsg = 1, kWan = 2, kErr = 3, kPlain = 4 };

// Rotates Orvanta0..9.log in the log folder and opens a new Orvanta0.log.
// Returns the descriptor, or -1.
int OpenLogFile();
// The descriptor of the log, -1 before it is opened.
int LogFd();
// The folder of the log files.
std::wstring LogFolder();

void LogFailure(HRESULT hr, const char* expression, const char* file, int line);
void LogBadArgument(const char* name, const char* file, int line);

}  // namespace ov

#define OV_FILE __FILE_NAME__

// Evaluates expr into hr; when it failed, writes
// "Failed(0x..) in <expr>, FILE:.., LINE:.." at level 3 and yields true.
#define OV_FAILED(hr, expr) \
  (FAILED((hr) = (expr)) && (::ov::LogFailure((hr), #expr, OV_FILE, __LINE__), true))

// Writes "Error: <name>, FILE:.., LINE:.." at level 3 for a bad argument.
#define OV_BAD_ARG(name) ::ov::LogBadArgument(#name, OV_FILE, __LINE__)
