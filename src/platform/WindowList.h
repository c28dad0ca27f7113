// The windows on the screen as the selections see them: the top-level ones
// in stacking order, and showing or hiding a host's window.
#pragma once

#include <vector>

#include "orvanta/types.h"

namespace ov {

struct ListedWindow {
  HWND window;
  RECT rect;  // outer rectangle (the frame's, under a window manager), root coordinates
};

// The mapped top-level windows, nearest first, leaving out those of this
// process, input-only ones and those under minSize in either direction.
std::vector<ListedWindow> ListTopLevelWindows(int32_t minSize);

// Maps or unmaps a window; nothing for 0 or a window that is gone.
void ShowWindow(HWND window, bool show);

}  // namespace ov
