// The desktop mirror on DAMAGE, MIT-SHM and Composite. The server reports
// each drawing on the root window (and, for the composed kind, on every
// top-level window, so that changes hidden under an excluded window are
// heard too) as a rectangle; an update fetches just those rectangles with
// XShmGetImage. The composed kind keeps the top-level windows redirected
// (automatically: the server still paints the screen), and repaints the
// area of each excluded window from the desktop's background and the
// pixmaps of the other windows, bottom-up.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xcomposite.h>
#include <X11/extensions/Xdamage.h>
#include <X11/extensions/Xrandr.h>
#include <poll.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/Clock.h"
#include "platform/DesktopMirror.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

namespace {

constexpr size_t kMaxRects = 32;     // kept apart; more fold into their bounding box
constexpr size_t kFetchApart = 8;    // more than this are fetched as one box
constexpr size_t kMaxExcluded = 32;  // windows named in each list
constexpr size_t kMaxOwn = 32;       // the process's own top-level windows

bool Empty(const RECT& r) { return r.right <= r.left || r.bottom <= r.top; }
RECT Intersect(const RECT& a, const RECT& b) {
  return {std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
          std::min(a.bottom, b.bottom)};
}
RECT Union(const RECT& a, const RECT& b) {
  return {std::min(a.left, b.left), std::min(a.top, b.top), std::max(a.right, b.right),
          std::max(a.bottom, b.bottom)};
}
bool Contains(const RECT& outer, const RECT& inner) {
  return inner.left >= outer.left && inner.top >= outer.top && inner.right <= outer.right &&
         inner.bottom <= outer.bottom;
}
bool Same(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

void ClearRect(uint8_t* dst, int32_t pitch, int32_t x, int32_t y, int32_t w, int32_t h) {
  for (int32_t row = 0; row < h; ++row)
    std::memset(dst + static_cast<ptrdiff_t>(y + row) * pitch + static_cast<ptrdiff_t>(x) * 4, 0,
                static_cast<size_t>(w) * 4);
}

class XDamageMirror : public DesktopMirror {
 public:
  ~XDamageMirror() override {
    if (!m_display) return;
    const bool lost = XConnectionLost(m_display);
    for (XImage* image : {m_image, m_image32}) {
      if (!image) continue;
      image->data = nullptr;  // the segment is ours to detach
      XDestroyImage(image);
    }
    if (m_shmAttached && !lost) XShmDetach(m_display, &m_shm);
    if (m_shm.shmaddr && m_shm.shmaddr != reinterpret_cast<char*>(-1)) shmdt(m_shm.shmaddr);
    if (!lost) {
      if (m_damage) XDamageDestroy(m_display, m_damage);
      if (m_composed) XCompositeUnredirectSubwindows(m_display, m_root, CompositeRedirectAutomatic);
      XSync(m_display, False);
    }
    CloseXConnection(m_display);
  }

  bool Open(int32_t maxWidth, int32_t maxHeight, bool composed, const char** why) {
    m_display = OpenXConnection();
    if (!m_display) return Refuse(why, "no X display");
    m_root = DefaultRootWindow(m_display);
    int error;
    if (!XDamageQueryExtension(m_display, &m_damageEvent, &error))
      return Refuse(why, "no DAMAGE extension");
    if (XRRQueryExtension(m_display, &m_randrEvent, &error))
      XRRSelectInput(m_display, m_root, RRScreenChangeNotifyMask);
    else
      m_randrEvent = -1;
    XWindowAttributes attributes;
    if (!XGetWindowAttributes(m_display, m_root, &attributes)) return Refuse(why, "no root window");
    m_screen = {0, 0, attributes.width, attributes.height};
    m_maxWidth = maxWidth;
    m_maxHeight = maxHeight;
    if (composed) {
      int major = 0, minor = 2;
      if (!XCompositeQueryExtension(m_display, &error, &error) ||
          !XCompositeQueryVersion(m_display, &major, &minor) || (major == 0 && minor < 2))
        return Refuse(why, "no Composite extension");
      XErrorTrap trap(m_display);
      XCompositeRedirectSubwindows(m_display, m_root, CompositeRedirectAutomatic);
      if (trap.Failed()) return Refuse(why, "windows cannot be redirected");
      m_composed = true;
      XSelectInput(m_display, m_root, SubstructureNotifyMask);
      m_rootPixmapAtom = XInternAtom(m_display, "_XROOTPMAP_ID", False);
      m_pidAtom = XInternAtom(m_display, "_NET_WM_PID", False);
      Window parent, *children = nullptr;
      unsigned count = 0;
      if (XQueryTree(m_display, m_root, &m_root, &parent, &children, &count)) {
        for (unsigned i = 0; i < count; ++i) {
          WatchWindow(children[i]);
          NoteMapped(children[i]);
        }
        XFree(children);
      }
    }
    m_damage = XDamageCreate(m_display, m_root, XDamageReportRawRectangles);
    MakeImages();
    XSync(m_display, False);
    return true;
  }

  Wait WaitForChange(uint32_t timeoutMs, int wakeFd) override {
    const uint32_t start = TickCount();
    for (;;) {
      if (XConnectionLost(m_display)) return Wait::Lost;
      while (!m_lost && XPending(m_display)) {
        XEvent event;
        XNextEvent(m_display, &event);
        Handle(event);
      }
      if (m_lost || XConnectionLost(m_display)) return Wait::Lost;
      if (m_heard) {
        m_heard = false;
        return Wait::Changed;
      }
      const uint32_t spent = TickCount() - start;
      if (spent >= timeoutMs) return Wait::Quiet;
      pollfd fds[2] = {{ConnectionNumber(m_display), POLLIN, 0}, {wakeFd, POLLIN, 0}};
      if (poll(fds, wakeFd >= 0 ? 2 : 1, static_cast<int>(timeoutMs - spent)) > 0 &&
          (fds[1].revents & POLLIN))
        return Wait::Quiet;
    }
  }

  bool Update(const RECT& region, uint8_t* dst, int32_t pitch) override {
    const bool full = m_full || !Same(region, m_region);
    m_region = region;
    m_updated = {};
    bool ok = true;
    if (full) {
      ok = Fetch(region, region, dst, pitch);
    } else if (m_count > kFetchApart) {
      RECT box = m_rects[0];
      for (size_t i = 1; i < m_count; ++i) box = Union(box, m_rects[i]);
      ok = Fetch(Intersect(box, region), region, dst, pitch);
    } else {
      for (size_t i = 0; i < m_count && ok; ++i) {
        RECT part = Intersect(m_rects[i], region);
        if (!Empty(part)) ok = Fetch(part, region, dst, pitch);
      }
    }
    if (ok && !Empty(m_updated) && (m_excludedCount || m_ownCount))
      ok = RecomposeExcluded(region, dst, pitch);
    if (ok) {
      m_full = false;
      m_count = 0;
    }
    return ok;
  }

  void Invalidate() override { m_full = true; }
  RECT LastUpdated() const override { return m_updated; }

  void SetWindowLists(const uint64_t* excluded, size_t excludedCount, const uint64_t* included,
                      size_t includedCount) override {
    excludedCount = std::min(excludedCount, kMaxExcluded);
    includedCount = std::min(includedCount, kMaxExcluded);
    if (excludedCount == m_excludedCount && includedCount == m_includedCount &&
        std::equal(excluded, excluded + excludedCount, m_excluded.begin()) &&
        std::equal(included, included + includedCount, m_included.begin()))
      return;
    std::copy(excluded, excluded + excludedCount, m_excluded.begin());
    std::copy(included, included + includedCount, m_included.begin());
    m_excludedCount = excludedCount;
    m_includedCount = includedCount;
    m_full = true;  // what was left out before comes back
  }

  bool Compose(const RECT& region, uint64_t stopAt, RECT* anchor, uint8_t* dst,
               int32_t pitch) override {
    if (!m_composed) return false;
    if (!anchor || !stopAt) return ComposeRegion(region, stopAt ? TopLevel(stopAt) : 0, dst, pitch);
    // Between reading where the window is and reading its pixels, no client
    // may move, resize or unmap anything.
    XGrabServer(m_display);
    RECT now;
    const Window stop = TopLevel(stopAt);
    bool ok = stop && Locate(static_cast<Window>(stopAt), &now);
    if (ok) {
      const int32_t dx = now.left - anchor->left, dy = now.top - anchor->top;
      *anchor = now;
      ok = ComposeRegion({region.left + dx, region.top + dy, region.right + dx, region.bottom + dy},
                         stop, dst, pitch);
    }
    XUngrabServer(m_display);
    XFlush(m_display);
    return ok;
  }

  int LastError() const override { return m_lastError; }
  void ScreenSize(int32_t* width, int32_t* height) const override {
    *width = m_screen.right;
    *height = m_screen.bottom;
  }

 private:
  static bool Refuse(const char** why, const char* reason) {
    if (why) *why = reason;
    return false;
  }

  void MakeImages() {
    if (!XShmQueryExtension(m_display)) return;
    const int screen = DefaultScreen(m_display);
    const int depth = DefaultDepth(m_display, screen);
    m_image = XShmCreateImage(
        m_display, DefaultVisual(m_display, screen), static_cast<unsigned>(depth), ZPixmap, nullptr,
        &m_shm, static_cast<unsigned>(m_maxWidth), static_cast<unsigned>(m_maxHeight));
    if (!m_image || m_image->bits_per_pixel != 32) return DropImages();
    m_shm.shmid =
        shmget(IPC_PRIVATE, static_cast<size_t>(m_maxWidth) * m_maxHeight * 4, IPC_CREAT | 0600);
    if (m_shm.shmid < 0) return DropImages();
    m_shm.shmaddr = static_cast<char*>(shmat(m_shm.shmid, nullptr, 0));
    shmctl(m_shm.shmid, IPC_RMID, nullptr);  // goes with the last detach
    if (m_shm.shmaddr == reinterpret_cast<char*>(-1)) return DropImages();
    m_shm.readOnly = False;
    m_image->data = m_shm.shmaddr;
    {
      XErrorTrap trap(m_display);
      XShmAttach(m_display, &m_shm);
      if (trap.Failed()) return DropImages();
    }
    m_shmAttached = true;
    // Windows with an alpha channel have 32-bit pixmaps, read into an image
    // of their depth over the same segment.
    XVisualInfo info;
    if (m_composed && XMatchVisualInfo(m_display, screen, 32, TrueColor, &info)) {
      m_image32 =
          XShmCreateImage(m_display, info.visual, 32, ZPixmap, nullptr, &m_shm,
                          static_cast<unsigned>(m_maxWidth), static_cast<unsigned>(m_maxHeight));
      if (m_image32) m_image32->data = m_shm.shmaddr;
    }
  }

  void DropImages() {
    if (m_image) {
      m_image->data = nullptr;
      XDestroyImage(m_image);
      m_image = nullptr;
    }
    if (m_shm.shmaddr && m_shm.shmaddr != reinterpret_cast<char*>(-1)) shmdt(m_shm.shmaddr);
    m_shm.shmaddr = nullptr;
  }

  void WatchWindow(Window window) {
    XDamageCreate(m_display, window, XDamageReportRawRectangles);  // freed with the window
  }

  void Handle(const XEvent& event) {
    if (event.type == m_damageEvent + XDamageNotify) {
      const auto& e = reinterpret_cast<const XDamageNotifyEvent&>(event);
      RECT r{e.area.x, e.area.y, e.area.x + e.area.width, e.area.y + e.area.height};
      if (e.drawable != m_root) {
        // A top-level window's area is in its own coordinates, inside its border.
        r.left += e.geometry.x;
        r.right += e.geometry.x;
        r.top += e.geometry.y;
        r.bottom += e.geometry.y;
      }
      Add(r);
    } else if (m_randrEvent >= 0 && event.type == m_randrEvent + RRScreenChangeNotify) {
      XRRUpdateConfiguration(const_cast<XEvent*>(&event));
      const auto& e = reinterpret_cast<const XRRScreenChangeNotifyEvent&>(event);
      if (e.width != m_screen.right || e.height != m_screen.bottom) m_lost = true;
    } else if (event.type == CreateNotify && m_composed) {
      if (event.xcreatewindow.parent == m_root) {
        XErrorTrap trap(m_display);  // the window may be gone already
        WatchWindow(event.xcreatewindow.window);
      }
    } else if (event.type == MapNotify && event.xmap.event == m_root) {
      NoteMapped(event.xmap.window);
    } else if ((event.type == UnmapNotify && event.xunmap.event == m_root) ||
               (event.type == DestroyNotify && event.xdestroywindow.event == m_root)) {
      Window gone = event.type == UnmapNotify ? event.xunmap.window : event.xdestroywindow.window;
      auto end = m_own.begin() + m_ownCount;
      auto it = std::find(m_own.begin(), end, gone);
      if (it != end) {
        std::copy(it + 1, end, it);
        --m_ownCount;
      }
    }
  }

  void Add(RECT r) {
    r = Intersect(r, m_screen);
    if (Empty(r)) return;
    if (!Empty(m_region) && Empty(Intersect(r, m_region)) && !m_excludedCount && !m_ownCount)
      return;
    m_heard = true;
    for (size_t i = 0; i < m_count; ++i) {
      if (Contains(m_rects[i], r)) return;
      if (Contains(r, m_rects[i])) {
        m_rects[i] = r;
        return;
      }
    }
    if (m_count == kMaxRects) {
      for (size_t i = 1; i < m_count; ++i) m_rects[0] = Union(m_rects[0], m_rects[i]);
      m_count = 1;
      m_rects[0] = Union(m_rects[0], r);
      return;
    }
    m_rects[m_count++] = r;
  }

  // Fetches part (inside region) of the screen into dst, which holds region.
  bool Fetch(const RECT& part, const RECT& region, uint8_t* dst, int32_t pitch) {
    m_updated = Empty(m_updated) ? part : Union(m_updated, part);
    RECT inside = Intersect(part, m_screen);
    if (!Same(inside, part)) ClearOutside(part, inside, dst + Offset(part, region, pitch), pitch);
    if (Empty(inside)) return true;
    return Read(m_root, m_image, inside.left, inside.top, inside.right - inside.left,
                inside.bottom - inside.top, dst + Offset(inside, region, pitch), pitch, false);
  }

  static ptrdiff_t Offset(const RECT& part, const RECT& region, int32_t pitch) {
    return static_cast<ptrdiff_t>(part.top - region.top) * pitch +
           static_cast<ptrdiff_t>(part.left - region.left) * 4;
  }

  // Blackens what of outer (whose top-left pixel is at dst) lies outside inner.
  static void ClearOutside(const RECT& outer, const RECT& inner, uint8_t* dst, int32_t pitch) {
    const int32_t w = outer.right - outer.left, h = outer.bottom - outer.top;
    if (Empty(inner)) return ClearRect(dst, pitch, 0, 0, w, h);
    const int32_t l = inner.left - outer.left, t = inner.top - outer.top;
    const int32_t r = inner.right - outer.left, b = inner.bottom - outer.top;
    ClearRect(dst, pitch, 0, 0, w, t);
    ClearRect(dst, pitch, 0, b, w, h - b);
    ClearRect(dst, pitch, 0, t, l, b - t);
    ClearRect(dst, pitch, r, t, w - r, b - t);
  }

  // Reads a rectangle of a drawable into out; with blend, pixels with alpha
  // are laid over what out holds (premultiplied), opaque ones replace it.
  bool Read(Drawable drawable, XImage* shmImage, int32_t x, int32_t y, int32_t w, int32_t h,
            uint8_t* out, int32_t pitch, bool blend) {
    XErrorTrap trap(m_display);
    const uint8_t* src = nullptr;
    int32_t srcPitch = w * 4;
    XImage* plain = nullptr;
    if (shmImage && m_shmAttached && w <= m_maxWidth && h <= m_maxHeight) {
      shmImage->width = w;
      shmImage->height = h;
      shmImage->bytes_per_line = w * 4;
      if (XShmGetImage(m_display, drawable, shmImage, x, y, AllPlanes) && !trap.Failed())
        src = reinterpret_cast<const uint8_t*>(shmImage->data);
    } else {
      plain = XGetImage(m_display, drawable, x, y, static_cast<unsigned>(w),
                        static_cast<unsigned>(h), AllPlanes, ZPixmap);
      if (plain && !trap.Failed() && plain->bits_per_pixel == 32) {
        src = reinterpret_cast<const uint8_t*>(plain->data);
        srcPitch = plain->bytes_per_line;
      }
    }
    if (!src) {
      m_lastError = trap.ErrorCode() ? trap.ErrorCode() : BadMatch;
      if (plain) XDestroyImage(plain);
      return false;
    }
    for (int32_t row = 0; row < h; ++row) {
      uint8_t* d = out + static_cast<ptrdiff_t>(row) * pitch;
      const uint8_t* s = src + static_cast<ptrdiff_t>(row) * srcPitch;
      if (!blend) {
        std::memcpy(d, s, static_cast<size_t>(w) * 4);
        continue;
      }
      for (int32_t i = 0; i < w * 4; i += 4) {
        const uint32_t a = s[i + 3];
        if (a == 255) {
          std::memcpy(d + i, s + i, 4);
        } else if (a != 0) {
          for (int c = 0; c < 3; ++c)
            d[i + c] = static_cast<uint8_t>(std::min(255u, s[i + c] + d[i + c] * (255 - a) / 255));
        }
      }
    }
    if (plain) XDestroyImage(plain);
    return true;
  }

  bool ComposeRegion(const RECT& region, Window stop, uint8_t* dst, int32_t pitch) {
    RECT inside = Intersect(region, m_screen);
    ClearOutside(region, inside, dst, pitch);
    if (Empty(inside)) return true;
    size_t excluded = ResolveExcluded();
    return ComposeArea(inside, region, dst, pitch, excluded, stop);
  }

  // The window's outer rectangle on the screen, border included.
  bool Locate(Window window, RECT* outer) {
    XErrorTrap trap(m_display);
    XWindowAttributes a;
    if (!XGetWindowAttributes(m_display, window, &a) || trap.Failed()) return false;
    int x = 0, y = 0;
    Window child;
    XTranslateCoordinates(m_display, window, m_root, -a.border_width, -a.border_width, &x, &y,
                          &child);
    if (trap.Failed()) return false;
    *outer = {x, y, x + a.width + 2 * a.border_width, y + a.height + 2 * a.border_width};
    return true;
  }

  Window TopLevel(uint64_t handle) {
    Window window = static_cast<Window>(handle), root, parent, *children = nullptr;
    unsigned count;
    XErrorTrap trap(m_display);
    for (int depth = 0; depth < 64; ++depth) {
      if (!XQueryTree(m_display, window, &root, &parent, &children, &count)) return 0;
      if (children) XFree(children);
      if (parent == m_root || parent == 0) return window;
      window = parent;
    }
    return 0;
  }

  // A mapped top-level window of this process: made on one of the engine's
  // connections, or marked with this process's id (by a toolkit, on the
  // window or, under a window manager, on the client inside its frame).
  void NoteMapped(Window window) {
    if (m_ownCount == kMaxOwn ||
        std::find(m_own.begin(), m_own.begin() + m_ownCount, window) != m_own.begin() + m_ownCount)
      return;
    XErrorTrap trap(m_display);
    bool own = MadeByEngine(window) || OfThisProcess(window);
    Window root, parent, *children = nullptr;
    unsigned count = 0;
    if (!own && XQueryTree(m_display, window, &root, &parent, &children, &count)) {
      for (unsigned i = 0; i < count && !own; ++i) own = OfThisProcess(children[i]);
    }
    if (children) XFree(children);
    if (own && !trap.Failed()) m_own[m_ownCount++] = window;
  }

  bool OfThisProcess(Window window) {
    Atom type;
    int format;
    unsigned long items, after;
    unsigned char* data = nullptr;
    bool own = false;
    if (XGetWindowProperty(m_display, window, m_pidAtom, 0, 1, False, XA_CARDINAL, &type, &format,
                           &items, &after, &data) == Success &&
        data) {
      own = format == 32 && items == 1 &&
            *reinterpret_cast<unsigned long*>(data) == static_cast<unsigned long>(getpid());
      XFree(data);
    }
    return own;
  }

  // The top-level windows left out, in m_topLevels: those of the excluded
  // list, and the process's own unless included; their count.
  size_t ResolveExcluded() {
    size_t n = 0;
    for (size_t i = 0; i < m_excludedCount; ++i) {
      Window top = TopLevel(m_excluded[i]);
      if (top && top != m_root) m_topLevels[n++] = top;
    }
    if (!m_ownCount) return n;
    std::array<Window, kMaxExcluded> included;
    for (size_t i = 0; i < m_includedCount; ++i) included[i] = TopLevel(m_included[i]);
    for (size_t i = 0; i < m_ownCount; ++i) {
      if (std::find(included.begin(), included.begin() + m_includedCount, m_own[i]) ==
          included.begin() + m_includedCount)
        m_topLevels[n++] = m_own[i];
    }
    return n;
  }

  bool RecomposeExcluded(const RECT& region, uint8_t* dst, int32_t pitch) {
    const size_t excluded = ResolveExcluded();
    for (size_t i = 0; i < excluded; ++i) {
      XWindowAttributes a;
      {
        XErrorTrap trap(m_display);
        if (!XGetWindowAttributes(m_display, m_topLevels[i], &a) || trap.Failed()) continue;
      }
      if (a.map_state != IsViewable) continue;
      const RECT outer{a.x, a.y, a.x + a.width + 2 * a.border_width,
                       a.y + a.height + 2 * a.border_width};
      RECT area = Intersect(Intersect(outer, region), m_screen);
      if (Empty(area)) continue;
      if (!ComposeArea(area, region, dst, pitch, excluded, 0)) return false;
      m_updated = Union(m_updated, area);
    }
    return true;
  }

  // Paints area (on the screen, inside region) from the background and the
  // windows that are not excluded, bottom-up, up to and with stop.
  bool ComposeArea(const RECT& area, const RECT& region, uint8_t* dst, int32_t pitch,
                   size_t excluded, Window stop) {
    uint8_t* at = dst + Offset(area, region, pitch);
    PaintBackground(area, at, pitch);
    Window root, parent, *children = nullptr;
    unsigned count = 0;
    if (!XQueryTree(m_display, m_root, &root, &parent, &children, &count)) return false;
    bool ok = true;
    for (unsigned i = 0; i < count && ok; ++i) {
      const Window w = children[i];
      const bool skip = std::find(m_topLevels.begin(), m_topLevels.begin() + excluded, w) !=
                        m_topLevels.begin() + excluded;
      if (!skip) ok = PaintWindow(w, area, region, dst, pitch);
      if (w == stop) break;
    }
    if (children) XFree(children);
    return ok;
  }

  void PaintBackground(const RECT& area, uint8_t* at, int32_t pitch) {
    const int32_t w = area.right - area.left, h = area.bottom - area.top;
    // Wallpaper setters leave their picture's pixmap on the root window.
    Atom type;
    int format;
    unsigned long items, after;
    unsigned char* data = nullptr;
    Pixmap wallpaper = 0;
    if (XGetWindowProperty(m_display, m_root, m_rootPixmapAtom, 0, 1, False, XA_PIXMAP, &type,
                           &format, &items, &after, &data) == Success &&
        data) {
      if (type == XA_PIXMAP && format == 32 && items == 1)
        wallpaper = *reinterpret_cast<Pixmap*>(data);
      XFree(data);
    }
    if (!wallpaper || !Read(wallpaper, m_image, area.left, area.top, w, h, at, pitch, false))
      ClearRect(at, pitch, 0, 0, w, h);
  }

  bool PaintWindow(Window window, const RECT& area, const RECT& region, uint8_t* dst,
                   int32_t pitch) {
    XWindowAttributes a;
    {
      XErrorTrap trap(m_display);
      if (!XGetWindowAttributes(m_display, window, &a) || trap.Failed()) return true;  // gone
    }
    if (a.map_state != IsViewable || a.c_class != InputOutput) return true;
    const RECT outer{a.x, a.y, a.x + a.width + 2 * a.border_width,
                     a.y + a.height + 2 * a.border_width};
    RECT part = Intersect(outer, area);
    if (Empty(part)) return true;
    XImage* image = a.depth == 32                           ? m_image32
                    : a.depth == DefaultDepth(m_display, 0) ? m_image
                                                            : nullptr;
    if (!image && a.depth != 24 && a.depth != 32) return true;  // no pixels we can read
    Pixmap pixmap;
    {
      XErrorTrap trap(m_display);
      pixmap = XCompositeNameWindowPixmap(m_display, window);
      if (trap.Failed()) return true;  // unmapped meanwhile
    }
    // Window and pixmap share the window's outer top-left corner. A window
    // that goes away meanwhile only leaves its part unpainted.
    Read(pixmap, image, part.left - outer.left, part.top - outer.top, part.right - part.left,
         part.bottom - part.top, dst + Offset(part, region, pitch), pitch, a.depth == 32);
    XFreePixmap(m_display, pixmap);
    return true;
  }

  Display* m_display = nullptr;
  Window m_root = 0;
  Damage m_damage = 0;
  int m_damageEvent = 0, m_randrEvent = -1;
  bool m_composed = false;
  Atom m_rootPixmapAtom = 0;
  RECT m_screen{};
  RECT m_region{};
  RECT m_updated{};
  bool m_full = true;
  bool m_heard = false;
  bool m_lost = false;
  std::array<RECT, kMaxRects> m_rects{};
  size_t m_count = 0;
  Atom m_pidAtom = 0;
  std::array<uint64_t, kMaxExcluded> m_excluded{};
  size_t m_excludedCount = 0;
  std::array<uint64_t, kMaxExcluded> m_included{};
  size_t m_includedCount = 0;
  std::array<Window, kMaxOwn> m_own{};
  size_t m_ownCount = 0;
  std::array<Window, kMaxExcluded + kMaxOwn> m_topLevels{};
  XImage* m_image = nullptr;
  XImage* m_image32 = nullptr;
  XShmSegmentInfo m_shm{};
  bool m_shmAttached = false;
  int32_t m_maxWidth = 0, m_maxHeight = 0;
  int m_lastError = 0;
};

}  // namespace

std::unique_ptr<DesktopMirror> CreateDesktopMirror(int32_t maxWidth, int32_t maxHeight,
                                                   bool composed, const char** why) {
  auto mirror = std::make_unique<XDamageMirror>();
  if (!mirror->Open(maxWidth, maxHeight, composed, why)) return nullptr;
  return mirror;
}

bool CompositionManagerRunning() {
  Display* display = SharedXDisplay();
  if (!display) return false;
  Atom selection = XInternAtom(display, "_NET_WM_CM_S0", False);
  return XGetSelectionOwner(display, selection) != None;
}

}  // namespace ov
