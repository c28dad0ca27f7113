// The displays the engine can record, one at a time.
#pragma once

#include "orvanta/types.h"

struct DisplayInfo {
  wchar_t szDevice[32];  // output name, e.g. "DP-1"
  RECT rcMonitor;        // in virtual-screen pixels
};

extern "C" {

OV_API int32_t GetDisplayCount();
// The record at index, or null when index is out of range.
OV_API DisplayInfo* GetDisplayInfo(int32_t index);
// Makes the display at index the one recorded; an invalid index is ignored.
OV_API void UseDisplay(int32_t index);
// Desktop services of other systems: logged, and nothing done on X11.
OV_API void ShowDesktopWindow(BOOL show);
OV_API void AppbarAutohide(BOOL on);
}
