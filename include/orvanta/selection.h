// Asking the user what to record: a region or a window on a frozen, dimmed
// screen, or a window on the live desktop. Each episode runs on a thread of
// the engine, calls its callback there, and ends by itself.
#pragma once

#include "orvanta/types.h"

class OV_API CSelectionCallback {
 public:
  // window is 0 for a dragged rectangle and for the whole display.
  // screenRect is in screen pixels; inWindow is empty unless a window is
  // offered, and is then the part of the window that screenRect shows,
  // counted from the window's corner, as a window recording takes it.
  virtual void OnSelectionChanged(HWND window, const RECT* screenRect, const RECT* inWindow) = 0;
  // The last OnSelectionChanged stands unless bCancelled.
  virtual void OnSelectionFinished(BOOL bCancelled) = 0;

 protected:
  virtual ~CSelectionCallback() = default;
};

class OV_API CWindowSelectCallback {
 public:
  virtual void OnWindowChanged(HWND window, const RECT* screenRect) = 0;
  // The last OnWindowChanged stands.
  virtual void OnWindowSelectionEnded() = 0;

 protected:
  virtual ~CWindowSelectCallback() = default;
};

extern "C" {
// Hides hostWindow (0: none) during the selection and shows it again at the end.
OV_API void ovSelectScreen(HWND hostWindow, CSelectionCallback* callback);
OV_API void ovSelectWindow(CWindowSelectCallback* callback);
}
