// The X screen's layout, watched through RandR events on a connection of
// the watch's own.
#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

#include "platform/DeviceWatch.h"
#include "platform/linux/XConnection.h"

namespace ov {

namespace {

class XRandrLayoutWatch : public DeviceEventSource {
 public:
  XRandrLayoutWatch(Display* display, int eventBase) : m_display(display), m_eventBase(eventBase) {}
  ~XRandrLayoutWatch() override { CloseXConnection(m_display); }
  int Fd() const override { return ConnectionNumber(m_display); }

  bool Drain() override {
    bool relevant = false;
    while (!XConnectionLost(m_display) && XPending(m_display)) {
      XEvent event;
      XNextEvent(m_display, &event);
      // A monitor set by hand changes no output or crtc: the server tells
      // of it only by a configure event of the root.
      if (event.type == m_eventBase + RRScreenChangeNotify ||
          event.type == m_eventBase + RRNotify || event.type == ConfigureNotify) {
        // Keeps this connection's screen record (its size) up to date.
        XRRUpdateConfiguration(&event);
        relevant = true;
      }
    }
    return relevant;
  }

  bool Lost() const override { return XConnectionLost(m_display); }

  uint64_t Depth() const override {
    return static_cast<uint64_t>(DefaultDepth(m_display, DefaultScreen(m_display)));
  }
  int64_t PackedSize() const override {
    const int screen = DefaultScreen(m_display);
    return static_cast<int64_t>(DisplayHeight(m_display, screen)) << 16 |
           DisplayWidth(m_display, screen);
  }

 private:
  Display* m_display;
  int m_eventBase;
};

}  // namespace

std::unique_ptr<DeviceEventSource> WatchScreenLayout() {
  Display* display = OpenXConnection();
  if (!display) return nullptr;
  int eventBase = 0, errorBase = 0;
  if (!XRRQueryExtension(display, &eventBase, &errorBase)) {
    CloseXConnection(display);
    return nullptr;
  }
  XRRSelectInput(display, DefaultRootWindow(display),
                 RRScreenChangeNotifyMask | RRCrtcChangeNotifyMask | RROutputChangeNotifyMask |
                     RRProviderChangeNotifyMask | RRResourceChangeNotifyMask);
  XSelectInput(display, DefaultRootWindow(display), StructureNotifyMask);
  XFlush(display);
  return std::make_unique<XRandrLayoutWatch>(display, eventBase);
}

}  // namespace ov
