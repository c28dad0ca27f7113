// A window's pixels from the X server. Its top-level window is redirected
// (automatically: the screen still shows it as before), so the server keeps
// the window's whole picture off the screen, covered parts included; that
// pixmap is named per grab, as the server gives it a new one at each resize.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xcomposite.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstring>

#include "platform/WindowGrabber.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

namespace {

class XWindowGrabber : public WindowGrabber {
 public:
  ~XWindowGrabber() override {
    if (m_display && !XConnectionLost(m_display)) {
      if (m_redirected) {
        XErrorTrap trap(m_display);
        XCompositeUnredirectWindow(m_display, m_top, CompositeRedirectAutomatic);
        trap.Failed();
      }
      if (m_image) XShmDetach(m_display, &m_shm);
    }
    if (m_image) {
      m_image->data = nullptr;
      XDestroyImage(m_image);
    }
    if (m_shm.shmaddr && m_shm.shmaddr != reinterpret_cast<char*>(-1)) shmdt(m_shm.shmaddr);
    if (m_display) CloseXConnection(m_display);
  }

  bool Open(Window window, int32_t maxWidth, int32_t maxHeight) {
    m_display = OpenXConnection();
    if (!m_display) return false;
    m_window = window;
    XErrorTrap trap(m_display);
    XWindowAttributes attributes;
    if (!XGetWindowAttributes(m_display, window, &attributes) || trap.Failed()) return false;
    m_root = attributes.root;
    m_top = window;
    for (;;) {
      Window root, parent, *children = nullptr;
      unsigned count = 0;
      if (!XQueryTree(m_display, m_top, &root, &parent, &children, &count)) return false;
      if (children) XFree(children);
      if (parent == root || parent == None) break;
      m_top = parent;
    }
    int event, error;
    if (XCompositeQueryExtension(m_display, &event, &error)) {
      XCompositeRedirectWindow(m_display, m_top, CompositeRedirectAutomatic);
      m_redirected = !trap.Failed();
    }
    if (XShmQueryExtension(m_display)) MakeSharedImage(attributes, maxWidth, maxHeight);
    return true;
  }

  bool Locate(RECT* outer, int32_t* innerWidth, int32_t* innerHeight) override {
    XErrorTrap trap(m_display);
    XWindowAttributes a;
    if (!XGetWindowAttributes(m_display, m_window, &a) || trap.Failed()) return false;
    int x = 0, y = 0;
    Window child;
    XTranslateCoordinates(m_display, m_window, m_root, -a.border_width, -a.border_width, &x, &y,
                          &child);
    if (trap.Failed()) return false;
    *outer = {x, y, x + a.width + 2 * a.border_width, y + a.height + 2 * a.border_width};
    m_border = a.border_width;
    *innerWidth = a.width;
    *innerHeight = a.height;
    return true;
  }

  bool Grab(WindowSource source, int32_t x, int32_t y, int32_t width, int32_t height, uint8_t* dst,
            int32_t pitch) override {
    XErrorTrap trap(m_display);
    Drawable drawable = m_window;
    Pixmap pixmap = None;
    if (source == WindowSource::Pixmap) {
      if (!m_redirected) return false;
      // The part's corner in the top-level pixmap, which holds its border too.
      XWindowAttributes top;
      if (!XGetWindowAttributes(m_display, m_top, &top)) return false;
      if (m_top != m_window) {
        int px = 0, py = 0;
        Window child;
        XTranslateCoordinates(m_display, m_window, m_top, -m_border, -m_border, &px, &py, &child);
        x += px + top.border_width;
        y += py + top.border_width;
      }
      pixmap = XCompositeNameWindowPixmap(m_display, m_top);
      if (trap.Failed()) return false;
      drawable = pixmap;
    } else {
      x -= m_border;
      y -= m_border;
    }
    Window root;
    int dx, dy;
    unsigned dw = 0, dh = 0, border, depth;
    bool ok = XGetGeometry(m_display, drawable, &root, &dx, &dy, &dw, &dh, &border, &depth);
    if (ok)
      ok = Copy(drawable, x, y, width, height, static_cast<int32_t>(dw), static_cast<int32_t>(dh),
                dst, pitch);
    if (pixmap != None) XFreePixmap(m_display, pixmap);
    return !trap.Failed() && ok;
  }

 private:
  void MakeSharedImage(const XWindowAttributes& a, int32_t maxWidth, int32_t maxHeight) {
    m_image =
        XShmCreateImage(m_display, a.visual, static_cast<unsigned>(a.depth), ZPixmap, nullptr,
                        &m_shm, static_cast<unsigned>(maxWidth), static_cast<unsigned>(maxHeight));
    if (!m_image) return;
    m_shm.shmid = shmget(IPC_PRIVATE, static_cast<size_t>(m_image->bytes_per_line) * maxHeight,
                         IPC_CREAT | 0600);
    if (m_shm.shmid >= 0) {
      m_shm.shmaddr = static_cast<char*>(shmat(m_shm.shmid, nullptr, 0));
      shmctl(m_shm.shmid, IPC_RMID, nullptr);
    }
    bool attached = false;
    if (m_image->bits_per_pixel == 32 && m_shm.shmid >= 0 &&
        m_shm.shmaddr != reinterpret_cast<char*>(-1)) {
      m_shm.readOnly = False;
      m_image->data = m_shm.shmaddr;
      XErrorTrap trap(m_display);
      XShmAttach(m_display, &m_shm);
      attached = !trap.Failed();
    }
    if (!attached) {
      m_image->data = nullptr;
      XDestroyImage(m_image);
      m_image = nullptr;
    }
    m_maxWidth = maxWidth;
    m_maxHeight = maxHeight;
  }

  // The part of (x, y, width, height) inside the drawable's dw x dh,
  // black around it.
  bool Copy(Drawable drawable, int32_t x, int32_t y, int32_t width, int32_t height, int32_t dw,
            int32_t dh, uint8_t* dst, int32_t pitch) {
    const int32_t left = std::max(x, 0), top = std::max(y, 0);
    const int32_t right = std::min(x + width, dw), bottom = std::min(y + height, dh);
    if (right <= left || bottom <= top) {
      for (int32_t row = 0; row < height; ++row)
        std::memset(dst + static_cast<ptrdiff_t>(row) * pitch, 0, static_cast<size_t>(width) * 4);
      return true;
    }
    for (int32_t row = 0; row < height; ++row) {
      uint8_t* line = dst + static_cast<ptrdiff_t>(row) * pitch;
      if (row < top - y || row >= bottom - y) {
        std::memset(line, 0, static_cast<size_t>(width) * 4);
        continue;
      }
      std::memset(line, 0, static_cast<size_t>(left - x) * 4);
      std::memset(line + (right - x) * 4, 0, static_cast<size_t>(x + width - right) * 4);
    }
    const int32_t w = right - left, h = bottom - top;
    uint8_t* out = dst + static_cast<ptrdiff_t>(top - y) * pitch + (left - x) * 4;
    if (m_image && w <= m_maxWidth && h <= m_maxHeight) {
      m_image->width = w;
      m_image->height = h;
      m_image->bytes_per_line = w * 4;
      if (XShmGetImage(m_display, drawable, m_image, left, top, AllPlanes)) {
        for (int32_t row = 0; row < h; ++row)
          std::memcpy(out + static_cast<ptrdiff_t>(row) * pitch,
                      m_image->data + static_cast<ptrdiff_t>(row) * w * 4,
                      static_cast<size_t>(w) * 4);
        return true;
      }
    }
    // A drawable of another depth than the window's, or no MIT-SHM.
    XImage* image = XGetImage(m_display, drawable, left, top, static_cast<unsigned>(w),
                              static_cast<unsigned>(h), AllPlanes, ZPixmap);
    if (!image) return false;
    const bool fits = image->bits_per_pixel == 32;
    for (int32_t row = 0; fits && row < h; ++row)
      std::memcpy(out + static_cast<ptrdiff_t>(row) * pitch,
                  image->data + static_cast<ptrdiff_t>(row) * image->bytes_per_line,
                  static_cast<size_t>(w) * 4);
    XDestroyImage(image);
    return fits;
  }

  Display* m_display = nullptr;
  Window m_window = 0, m_top = 0, m_root = 0;
  int m_border = 0;
  bool m_redirected = false;
  XImage* m_image = nullptr;
  XShmSegmentInfo m_shm{};
  int32_t m_maxWidth = 0, m_maxHeight = 0;
};

}  // namespace

std::unique_ptr<WindowGrabber> CreateWindowGrabber(HWND window, int32_t maxWidth,
                                                   int32_t maxHeight) {
  if (window == 0 || maxWidth <= 0 || maxHeight <= 0) return nullptr;
  auto grabber = std::make_unique<XWindowGrabber>();
  if (!grabber->Open(static_cast<Window>(window), maxWidth, maxHeight)) return nullptr;
  return grabber;
}

}  // namespace ov
