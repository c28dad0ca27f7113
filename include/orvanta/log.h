// The engine's log: one file per run in "~/Documents/Log Files".
#pragma once

#include "orvanta/types.h"

extern "C" {

// printf-style; level 0 "[Dbg]", 1 "[Msg]", 2 "[Wan]", 3 "[ERR]", 4 no tag.
// Every message carries its own "\n". Returns non-zero when the write worked.
OV_API BOOL WriteLog(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// The same without time and tag.
OV_API BOOL LogFile(const char* format, ...) __attribute__((format(printf, 1, 2)));
}
