// Pointer events for the whole desktop without grabbing anything: XInput2
// raw events reach every client that asks for them on the root window.
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstring>

#include "platform/PointerWatcher.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

namespace {

class XInputPointerWatcher : public PointerWatcher {
 public:
  ~XInputPointerWatcher() override {
    if (m_display) CloseXConnection(m_display);
    if (m_stopFd >= 0) close(m_stopFd);
  }

  bool Open() {
    m_display = OpenXConnection();
    if (!m_display) return false;
    int event, error, major = 2, minor = 0;
    if (!XQueryExtension(m_display, "XInputExtension", &m_opcode, &event, &error) ||
        XIQueryVersion(m_display, &major, &minor) != Success)
      return false;
    unsigned char mask[XIMaskLen(XI_LASTEVENT)] = {};
    XISetMask(mask, XI_RawMotion);
    XISetMask(mask, XI_RawButtonPress);
    XISetMask(mask, XI_RawButtonRelease);
    XIEventMask eventMask{XIAllMasterDevices, sizeof mask, mask};
    XISelectEvents(m_display, DefaultRootWindow(m_display), &eventMask, 1);
    XFlush(m_display);
    m_stopFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    return m_stopFd >= 0;
  }

  void Run(const std::function<void(PointerEvent, int32_t, int32_t)>& onEvent) override {
    pollfd fds[2] = {{ConnectionNumber(m_display), POLLIN, 0}, {m_stopFd, POLLIN, 0}};
    while (true) {
      // A broken connection reads as ready for ever: wait for the stop alone.
      if (XConnectionLost(m_display)) {
        while (poll(&fds[1], 1, -1) <= 0) {
        }
        return;
      }
      while (XPending(m_display)) {
        XEvent event;
        XNextEvent(m_display, &event);
        if (event.xcookie.type != GenericEvent || event.xcookie.extension != m_opcode ||
            !XGetEventData(m_display, &event.xcookie))
          continue;
        const auto* raw = static_cast<const XIRawEvent*>(event.xcookie.data);
        PointerEvent kind = PointerEvent::Move;
        bool known = true;
        if (event.xcookie.evtype == XI_RawButtonPress ||
            event.xcookie.evtype == XI_RawButtonRelease) {
          bool down = event.xcookie.evtype == XI_RawButtonPress;
          if (raw->detail == 1)
            kind = down ? PointerEvent::LeftDown : PointerEvent::LeftUp;
          else if (raw->detail == 3)
            kind = down ? PointerEvent::RightDown : PointerEvent::RightUp;
          else
            known = false;  // wheel and other buttons
        }
        XFreeEventData(m_display, &event.xcookie);
        int32_t x, y;
        if (known && Position(&x, &y)) {
          m_lastX = x;
          m_lastY = y;
          onEvent(kind, x, y);
        }
      }
      // Warped pointers (xdotool, remote desktops, some tablets) make no raw
      // events; a light poll catches them.
      int ready = poll(fds, 2, kPollMs);
      if (ready < 0) continue;
      if (fds[1].revents) return;
      int32_t x, y;
      if (ready == 0 && Position(&x, &y) && (x != m_lastX || y != m_lastY)) {
        m_lastX = x;
        m_lastY = y;
        onEvent(PointerEvent::Move, x, y);
      }
    }
  }

  void Stop() override {
    uint64_t one = 1;
    if (write(m_stopFd, &one, sizeof one) < 0) return;
  }

 private:
  bool Position(int32_t* x, int32_t* y) {
    Window root, child;
    int rootX, rootY, winX, winY;
    unsigned int mask;
    if (!XQueryPointer(m_display, DefaultRootWindow(m_display), &root, &child, &rootX, &rootY,
                       &winX, &winY, &mask))
      return false;
    *x = rootX;
    *y = rootY;
    return true;
  }

  static constexpr int kPollMs = 20;
  Display* m_display = nullptr;
  int32_t m_lastX = INT32_MIN, m_lastY = INT32_MIN;
  int m_opcode = 0;
  int m_stopFd = -1;
};

}  // namespace

std::unique_ptr<PointerWatcher> CreatePointerWatcher() {
  auto watcher = std::make_unique<XInputPointerWatcher>();
  if (!watcher->Open()) return nullptr;
  return watcher;
}

bool QueryPointer(int32_t* x, int32_t* y) {
  Display* display = SharedXDisplay();
  if (!display) return false;
  Window root, child;
  int rootX, rootY, winX, winY;
  unsigned int mask;
  if (!XQueryPointer(display, DefaultRootWindow(display), &root, &child, &rootX, &rootY, &winX,
                     &winY, &mask))
    return false;
  *x = rootX;
  *y = rootY;
  return true;
}

void MovePointer(int32_t x, int32_t y) {
  Display* display = SharedXDisplay();
  if (!display) return;
  XWarpPointer(display, None, DefaultRootWindow(display), 0, 0, 0, 0, x, y);
  XFlush(display);
}

}  // namespace ov
