// Input-only windows, override-redirect and raised above the others, on a
// connection of their own; and the timers of the user-interface threads.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/InputWindow.h"
#include "platform/OverlayWindow.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"
#include "platform/linux/XPictures.h"

namespace ov {

namespace {

constexpr long kEventMask =
    ButtonPressMask | ButtonReleaseMask | PointerMotionMask | KeyPressMask | FocusChangeMask;

class XInputWindow : public InputWindow {
 public:
  ~XInputWindow() override {
    if (!m_display) return;
    if (!XConnectionLost(m_display)) {
      if (m_cursor) XFreeCursor(m_display, m_cursor);
      if (m_window) XDestroyWindow(m_display, m_window);
    }
    CloseXConnection(m_display);
  }

  bool Open(const RECT& rect, Window parent) {
    const int width = rect.right - rect.left, height = rect.bottom - rect.top;
    if (width <= 0 || height <= 0) return false;
    m_display = OpenXConnection();
    if (!m_display) return false;
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.event_mask = kEventMask;
    XErrorTrap trap(m_display);
    m_window =
        XCreateWindow(m_display, parent ? parent : DefaultRootWindow(m_display), rect.left,
                      rect.top, static_cast<unsigned>(width), static_cast<unsigned>(height), 0, 0,
                      InputOnly, CopyFromParent, CWOverrideRedirect | CWEventMask, &attributes);
    XSync(m_display, False);
    return !trap.Failed() && m_window;
  }

  HWND Handle() const override { return m_window; }
  int Fd() const override { return ConnectionNumber(m_display); }

  bool NextEvent(InputEvent* event) override {
    if (XConnectionLost(m_display)) return false;
    while (XPending(m_display)) {
      XEvent e;
      XNextEvent(m_display, &e);
      *event = InputEvent{};
      switch (e.type) {
        case MotionNotify: {
          XEvent next;
          // Only a run of motion that nothing else interrupts: a motion
          // after a press must come after the press.
          while (XEventsQueued(m_display, QueuedAfterReading) > 0) {
            XPeekEvent(m_display, &next);
            if (next.type != MotionNotify || next.xmotion.window != m_window) break;
            XNextEvent(m_display, &e);
          }
          event->type = InputEvent::kMotion;
          Place(event, e.xmotion.x, e.xmotion.y, e.xmotion.x_root, e.xmotion.y_root);
          return true;
        }
        case ButtonPress:
        case ButtonRelease:
          event->type = e.type == ButtonPress ? InputEvent::kButtonDown : InputEvent::kButtonUp;
          event->button = static_cast<int32_t>(e.xbutton.button);
          Place(event, e.xbutton.x, e.xbutton.y, e.xbutton.x_root, e.xbutton.y_root);
          return true;
        case KeyPress: {
          KeySym sym = NoSymbol;
          char latin[8] = {};
          const int n = XLookupString(&e.xkey, latin, sizeof(latin) - 1, &sym, nullptr);
          event->type = InputEvent::kKey;
          event->keysym = static_cast<uint32_t>(sym);
          event->shift = e.xkey.state & ShiftMask;
          event->control = e.xkey.state & ControlMask;
          // Latin-1 as UTF-8.
          if (n == 1 && static_cast<unsigned char>(latin[0]) >= 0x20 && latin[0] != 0x7F) {
            const auto c = static_cast<unsigned char>(latin[0]);
            if (c < 0x80) {
              event->text[0] = static_cast<char>(c);
            } else {
              event->text[0] = static_cast<char>(0xC0 | (c >> 6));
              event->text[1] = static_cast<char>(0x80 | (c & 0x3F));
            }
          }
          return true;
        }
        case FocusOut:
          if (e.xfocus.mode != NotifyNormal || e.xfocus.detail == NotifyPointer ||
              e.xfocus.detail == NotifyInferior)
            break;
          event->type = InputEvent::kFocusLost;
          return true;
        default:
          break;
      }
    }
    return false;
  }

  void Show(bool show) override {
    if (XConnectionLost(m_display)) return;
    if (show)
      XMapRaised(m_display, m_window);
    else
      XUnmapWindow(m_display, m_window);
    XSync(m_display, False);
  }

  void Move(const RECT& rect) override {
    const int width = rect.right - rect.left, height = rect.bottom - rect.top;
    if (XConnectionLost(m_display) || width <= 0 || height <= 0) return;
    XMoveResizeWindow(m_display, m_window, rect.left, rect.top, static_cast<unsigned>(width),
                      static_cast<unsigned>(height));
    XRaiseWindow(m_display, m_window);
    XFlush(m_display);
  }

  void SetCursor(const PointerShape* shape) override {
    if (XConnectionLost(m_display)) return;
    // Without a shape: one clear pixel, no pointer at all.
    static const PointerShape kNoPointer{1, 1, 0, 0, {0}};
    const bool drawn = shape && shape->width > 0 && shape->height > 0;
    const Cursor cursor = CursorFromShape(m_display, drawn ? *shape : kNoPointer);
    XDefineCursor(m_display, m_window, cursor);
    if (m_cursor) XFreeCursor(m_display, m_cursor);
    m_cursor = cursor;
    XFlush(m_display);
  }

  void Capture(bool capture) override {
    if (XConnectionLost(m_display)) return;
    if (capture)
      XGrabPointer(m_display, m_window, False,
                   ButtonPressMask | ButtonReleaseMask | PointerMotionMask, GrabModeAsync,
                   GrabModeAsync, None, m_cursor, CurrentTime);
    else
      XUngrabPointer(m_display, CurrentTime);
    XFlush(m_display);
  }

  void TakeFocus() override {
    if (XConnectionLost(m_display)) return;
    XErrorTrap trap(m_display);
    XSetInputFocus(m_display, m_window, RevertToPointerRoot, CurrentTime);
    XSync(m_display, False);
  }

 private:
  static void Place(InputEvent* event, int x, int y, int rootX, int rootY) {
    event->x = x;
    event->y = y;
    event->rootX = rootX;
    event->rootY = rootY;
  }

  Display* m_display = nullptr;
  Window m_window = 0;
  Cursor m_cursor = 0;
};

class TimerFd : public PeriodicTimer {
 public:
  TimerFd() : m_fd(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {}
  ~TimerFd() override {
    if (m_fd >= 0) close(m_fd);
  }
  int Fd() const override { return m_fd; }
  void Set(uint32_t periodMs) override {
    itimerspec period{};
    period.it_interval.tv_sec = periodMs / 1000;
    period.it_interval.tv_nsec = static_cast<long>(periodMs % 1000) * 1000000;
    period.it_value = period.it_interval;
    if (m_fd >= 0) timerfd_settime(m_fd, 0, &period, nullptr);
  }
  uint64_t Drain() override {
    uint64_t count = 0;
    if (m_fd < 0 || read(m_fd, &count, sizeof(count)) != sizeof(count)) return 0;
    return count;
  }

 private:
  int m_fd;
};

}  // namespace

std::unique_ptr<InputWindow> CreateInputWindow(const RECT& rect, HWND parent) {
  auto window = std::make_unique<XInputWindow>();
  if (!window->Open(rect, static_cast<Window>(parent))) return nullptr;
  return window;
}

std::unique_ptr<PeriodicTimer> CreatePeriodicTimer() {
  auto timer = std::make_unique<TimerFd>();
  if (timer->Fd() < 0) return nullptr;
  return timer;
}

}  // namespace ov
