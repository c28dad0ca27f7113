// The engine's own X connections. Xlib ends the process when a connection
// breaks (the server went away); connections opened here survive that: the
// break is logged, the engine's handler is told, and every later call on
// the connection fails at once instead.
#pragma once

#include <X11/Xlib.h>

namespace ov {

// XOpenDisplay(nullptr) with the break handled; null without a server.
Display* OpenXConnection();
// XCloseDisplay of a connection from OpenXConnection, broken or not.
void CloseXConnection(Display* display);
// True once the connection has broken. A broken connection may be used
// only by the thread that found the break (others would wait for ever),
// and closed with CloseXConnection by any thread.
bool XConnectionLost(Display* display);
// XFreeGC on a live connection; on a broken one the GC's memory is kept
// with the connection's own, since freeing it would mean a call on it.
void ReleaseGC(Display* display, GC gc);
// True when the resource (a window) was made on one of the engine's own
// connections.
bool MadeByEngine(XID id);

}  // namespace ov
