#include "platform/XServer.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xinerama.h>
#include <X11/extensions/Xrandr.h>
#include <X11/extensions/scrnsaver.h>

#include <cstdio>
#include <cstring>
#include <mutex>

#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

namespace {

std::mutex g_displayMutex;
Display* g_display = nullptr;
bool g_tried = false;

// The connection is shared between threads, so Xlib's own locking is on.
Display* SharedDisplay() {
  std::lock_guard<std::mutex> lock(g_displayMutex);
  if (!g_tried) {
    g_tried = true;
    XInitThreads();
    g_display = OpenXConnection();
  }
  // Any thread may use it, so once broken it is no longer handed out.
  return g_display && !XConnectionLost(g_display) ? g_display : nullptr;
}

}  // namespace

Display* SharedXDisplay() { return SharedDisplay(); }

bool XServerAvailable() { return SharedDisplay() != nullptr; }

bool ScreenSize(int32_t* width, int32_t* height) {
  Display* display = SharedDisplay();
  if (!display) {
    *width = *height = 0;
    return false;
  }
  // The size can change with RandR; ask the server rather than the cached
  // screen record.
  XWindowAttributes attributes;
  if (XGetWindowAttributes(display, DefaultRootWindow(display), &attributes)) {
    *width = attributes.width;
    *height = attributes.height;
  } else {
    *width = DisplayWidth(display, DefaultScreen(display));
    *height = DisplayHeight(display, DefaultScreen(display));
  }
  return true;
}

std::vector<MonitorInfo> Monitors() {
  std::vector<MonitorInfo> monitors;
  Display* display = SharedDisplay();
  if (!display) return monitors;
  int eventBase, errorBase, count = 0;
  if (XRRQueryExtension(display, &eventBase, &errorBase)) {
    XRRMonitorInfo* info = XRRGetMonitors(display, DefaultRootWindow(display), True, &count);
    for (int i = 0; info && i < count; ++i) {
      MonitorInfo m{};
      m.rect = {info[i].x, info[i].y, info[i].x + info[i].width, info[i].y + info[i].height};
      m.primary = info[i].primary;
      char* name = XGetAtomName(display, info[i].name);
      std::snprintf(m.name, sizeof m.name, "%s", name ? name : "");
      if (name) XFree(name);
      if (m.primary)
        monitors.insert(monitors.begin(), m);
      else
        monitors.push_back(m);
    }
    if (info) XRRFreeMonitors(info);
  }
  if (monitors.empty() && XineramaIsActive(display)) {
    XineramaScreenInfo* screens = XineramaQueryScreens(display, &count);
    for (int i = 0; screens && i < count; ++i) {
      MonitorInfo m{};
      m.rect = {screens[i].x_org, screens[i].y_org, screens[i].x_org + screens[i].width,
                screens[i].y_org + screens[i].height};
      m.primary = i == 0;
      std::snprintf(m.name, sizeof m.name, "screen%d", i);
      monitors.push_back(m);
    }
    if (screens) XFree(screens);
  }
  if (monitors.empty()) {
    int32_t width, height;
    ScreenSize(&width, &height);
    MonitorInfo m{};
    m.rect = {0, 0, width, height};
    m.primary = true;
    std::snprintf(m.name, sizeof m.name, "screen");
    monitors.push_back(m);
  }
  return monitors;
}

WindowState QueryWindow(HWND window) {
  WindowState state;
  Display* display = SharedDisplay();
  if (!display || window == 0) return state;
  XErrorTrap trap(display);
  XWindowAttributes attributes;
  if (!XGetWindowAttributes(display, static_cast<Window>(window), &attributes) || trap.Failed())
    return state;
  state.exists = true;
  state.viewable = attributes.map_state == IsViewable;
  int x = 0, y = 0;
  Window child;
  XTranslateCoordinates(display, static_cast<Window>(window), attributes.root,
                        -attributes.border_width, -attributes.border_width, &x, &y, &child);
  int outerWidth = attributes.width + 2 * attributes.border_width;
  int outerHeight = attributes.height + 2 * attributes.border_width;
  state.rect = {x, y, x + outerWidth, y + outerHeight};

  Atom wmState = XInternAtom(display, "WM_STATE", True);
  if (wmState != None) {
    Atom type;
    int format;
    unsigned long items, after;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(display, static_cast<Window>(window), wmState, 0, 2, False, wmState,
                           &type, &format, &items, &after, &data) == Success &&
        data && items >= 1 && format == 32) {
      state.iconic = reinterpret_cast<long*>(data)[0] == IconicState;
    }
    if (data) XFree(data);
  }
  if (trap.Failed()) state = WindowState{};
  return state;
}

void SuspendScreenSaver(bool suspend) {
  Display* display = SharedDisplay();
  if (!display) return;
  int eventBase, errorBase;
  if (XScreenSaverQueryExtension(display, &eventBase, &errorBase))
    XScreenSaverSuspend(display, suspend ? True : False);
  XFlush(display);
}

}  // namespace ov
