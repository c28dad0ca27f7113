#include "XDisplay.h"

#include <X11/Xlib.h>

namespace cli {

namespace {

int IgnoreXError(Display*, XErrorEvent*) { return 0; }

}  // namespace

bool DisplayAnswers() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return false;
  XCloseDisplay(display);
  return true;
}

WindowSize QueryWindowSize(uint64_t window) {
  WindowSize size;
  Display* display = XOpenDisplay(nullptr);
  if (!display) return size;
  // A window id that does not exist is an ordinary answer here, not a fault.
  auto previous = XSetErrorHandler(IgnoreXError);
  XWindowAttributes attributes;
  if (XGetWindowAttributes(display, static_cast<Window>(window), &attributes)) {
    size.exists = true;
    size.viewable = attributes.map_state == IsViewable;
    size.width = attributes.width + 2 * attributes.border_width;
    size.height = attributes.height + 2 * attributes.border_width;
  }
  XSync(display, False);
  XSetErrorHandler(previous);
  XCloseDisplay(display);
  return size;
}

uint64_t ClipboardOwner() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return 0;
  const Window owner = XGetSelectionOwner(display, XInternAtom(display, "CLIPBOARD", False));
  XCloseDisplay(display);
  return owner;
}

}  // namespace cli
