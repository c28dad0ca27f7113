#include "platform/linux/XConnection.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <vector>

#include "platform/XServer.h"

namespace ov {

namespace {

struct Connection {
  Display* display;
  bool lost;
  std::vector<void*> kept;  // what Xlib made for a broken connection
};

std::mutex g_mutex;
// Never destroyed: a broken connection's memory, kept here, must stay
// reachable after the process's static objects have gone.
std::vector<Connection>& g_connections = *new std::vector<Connection>;
XIOErrorHandler g_previousHandler = nullptr;
std::atomic<void (*)()> g_onLost{nullptr};

Connection* Find(Display* display) {
  auto it = std::find_if(g_connections.begin(), g_connections.end(),
                         [display](const Connection& c) { return c.display == display; });
  return it == g_connections.end() ? nullptr : &*it;
}

// Xlib's handler is process-wide: connections that are not the engine's
// (the host's own) keep whatever handler was there before, which may well
// end the process as the host wishes.
int OnIOError(Display* display) {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    if (Find(display)) return 0;
  }
  return g_previousHandler ? g_previousHandler(display) : 0;
}

// Called instead of exit() once the handler above returned.
void OnConnectionLost(Display* display, void*) {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    Connection* connection = Find(display);
    if (!connection || connection->lost) return;
    connection->lost = true;
  }
  if (void (*handler)() = g_onLost.load()) handler();
}

}  // namespace

Display* OpenXConnection() {
  Display* display = XOpenDisplay(nullptr);
  if (!display) return nullptr;
  std::lock_guard<std::mutex> lock(g_mutex);
  if (!g_previousHandler) {
    g_previousHandler = XSetIOErrorHandler(OnIOError);
    // Installed twice would make it its own predecessor.
    if (g_previousHandler == OnIOError) g_previousHandler = nullptr;
  }
  XSetIOErrorExitHandler(display, OnConnectionLost, nullptr);
  g_connections.push_back({display, false, {}});
  return display;
}

void CloseXConnection(Display* display) {
  if (!display) return;
  // Xlib leaves a broken connection locked by the thread that found the
  // break, and any other thread that calls into it waits for ever: only its
  // descriptor is closed. It stays in the list, so that its memory is kept
  // rather than lost.
  if (XConnectionLost(display)) {
    close(ConnectionNumber(display));
    return;
  }
  // Closing breaks it once more if the server has just gone: it stays
  // known until it is closed.
  XCloseDisplay(display);
  std::lock_guard<std::mutex> lock(g_mutex);
  // A connection opened meanwhile at the same address comes after it.
  auto it = std::find_if(g_connections.begin(), g_connections.end(),
                         [display](const Connection& c) { return c.display == display; });
  if (it != g_connections.end()) g_connections.erase(it);
}

bool XConnectionLost(Display* display) {
  std::lock_guard<std::mutex> lock(g_mutex);
  Connection* connection = Find(display);
  return connection && connection->lost;
}

void ReleaseGC(Display* display, GC gc) {
  {
    std::lock_guard<std::mutex> lock(g_mutex);
    Connection* connection = Find(display);
    if (connection && connection->lost) {
      connection->kept.push_back(gc);
      return;
    }
  }
  XFreeGC(display, gc);
}

bool MadeByEngine(XID id) {
  std::lock_guard<std::mutex> lock(g_mutex);
  for (const Connection& c : g_connections) {
    // The public face of Xlib's display record names the connection's
    // resource base and mask private3 and private4 (Xlibint.h).
    const auto* d = reinterpret_cast<_XPrivDisplay>(c.display);
    if ((id & ~d->private4) == d->private3) return true;
  }
  return false;
}

void SetXServerLostHandler(void (*handler)()) { g_onLost.store(handler); }

}  // namespace ov
