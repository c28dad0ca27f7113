// The engine's shared connection to the X server, and the few window and
// screen queries that the session needs.
#pragma once

#include <cstdint>
#include <vector>

#include "orvanta/types.h"

namespace ov {

// True when an X display can be opened ($DISPLAY). The connection is made
// once, on first use, and shared by the engine's own queries.
bool XServerAvailable();

// Size of the X screen (the whole virtual desktop); 0 x 0 without a server.
bool ScreenSize(int32_t* width, int32_t* height);

struct MonitorInfo {
  RECT rect;  // in virtual-screen pixels
  bool primary;
  char name[64];  // output name, e.g. "screen" or "DP-1"
};
// Monitors as RandR reports them (Xinerama where RandR has none), primary
// first. Empty without a server.
std::vector<MonitorInfo> Monitors();

struct WindowState {
  bool exists = false;
  bool viewable = false;  // mapped, and its ancestors too
  bool iconic = false;    // minimised by the window manager
  RECT rect = {};         // outer rectangle in root coordinates
};
WindowState QueryWindow(HWND window);

// Called once for each of the engine's X connections that breaks (the
// server went away), on the thread that found out; null removes it. The
// connection then fails every call, and the process goes on.
void SetXServerLostHandler(void (*handler)());

// Keeps screen savers and display power saving away while the engine is up.
void SuspendScreenSaver(bool suspend);

}  // namespace ov
