#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <unistd.h>

#include "platform/WindowList.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

namespace {

// A frame's client carries the process id; a window without a manager
// carries it itself.
bool OfThisProcess(Display* display, Window window) {
  if (MadeByEngine(window)) return true;
  static const Atom pidAtom = XInternAtom(display, "_NET_WM_PID", False);
  Window root, parent, *children = nullptr;
  unsigned count = 0;
  std::vector<Window> candidates{window};
  if (XQueryTree(display, window, &root, &parent, &children, &count) && children) {
    candidates.insert(candidates.end(), children, children + count);
    XFree(children);
  }
  for (Window w : candidates) {
    Atom type;
    int format;
    unsigned long items, after;
    unsigned char* data = nullptr;
    bool ours = false;
    if (XGetWindowProperty(display, w, pidAtom, 0, 1, False, XA_CARDINAL, &type, &format, &items,
                           &after, &data) == Success &&
        data && items == 1 && format == 32)
      ours = *reinterpret_cast<unsigned long*>(data) == static_cast<unsigned long>(getpid());
    if (data) XFree(data);
    if (ours) return true;
  }
  return false;
}

}  // namespace

std::vector<ListedWindow> ListTopLevelWindows(int32_t minSize) {
  std::vector<ListedWindow> list;
  Display* display = SharedXDisplay();
  if (!display) return list;
  XErrorTrap trap(display);
  Window root, parent, *children = nullptr;
  unsigned count = 0;
  if (!XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count))
    return list;
  // The server lists them bottom first; at most the last 1000.
  for (unsigned i = count; i-- > 0 && list.size() < 1000;) {
    XWindowAttributes a;
    if (!XGetWindowAttributes(display, children[i], &a) || a.map_state != IsViewable ||
        a.c_class == InputOnly)
      continue;
    const int32_t w = a.width + 2 * a.border_width, h = a.height + 2 * a.border_width;
    if (w < minSize || h < minSize || OfThisProcess(display, children[i])) continue;
    list.push_back({children[i], {a.x, a.y, a.x + w, a.y + h}});
  }
  if (children) XFree(children);
  trap.Failed();
  return list;
}

void ShowWindow(HWND window, bool show) {
  Display* display = SharedXDisplay();
  if (!display || !window) return;
  XErrorTrap trap(display);
  if (show)
    XMapWindow(display, static_cast<Window>(window));
  else
    XUnmapWindow(display, static_cast<Window>(window));
  trap.Failed();
}

}  // namespace ov
