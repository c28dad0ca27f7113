// Overlay windows: override-redirect, so that no window manager frames or
// moves them; a 32-bit ARGB visual under a compositing manager; an empty
// input shape for the click-through ones. Each window has a connection of
// its own, so that its users need no lock with the rest of the engine.
#include <X11/Xatom.h>
#include <X11/Xcursor/Xcursor.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/shape.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstring>

#include "platform/OverlayWindow.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

namespace {

bool CompositorOn(Display* display) {
  char name[32];
  snprintf(name, sizeof(name), "_NET_WM_CM_S%d", DefaultScreen(display));
  Atom selection = XInternAtom(display, name, False);
  return XGetSelectionOwner(display, selection) != None;
}

class XOverlayWindow : public OverlayWindow {
 public:
  ~XOverlayWindow() override {
    if (!m_display) return;
    ReleaseImage();
    // (its round trip shows a server that went away before the frees below)
    if (!XConnectionLost(m_display)) {
      if (m_cursor) XFreeCursor(m_display, m_cursor);
      if (m_gc) XFreeGC(m_display, m_gc);
      if (m_window) XDestroyWindow(m_display, m_window);
      if (m_colormap) XFreeColormap(m_display, m_colormap);
    } else if (m_gc) {
      KeepWithLostConnection(m_display, m_gc);
    }
    CloseXConnection(m_display);
  }

  bool Open(const OverlayWindowOptions& options) {
    m_display = OpenXConnection();
    if (!m_display) return false;
    m_width = options.rect.right - options.rect.left;
    m_height = options.rect.bottom - options.rect.top;
    if (m_width <= 0 || m_height <= 0) return false;
    const int screen = DefaultScreen(m_display);
    const Window root = RootWindow(m_display, screen);
    Visual* visual = DefaultVisual(m_display, screen);
    int depth = DefaultDepth(m_display, screen);
    XVisualInfo info;
    if (CompositorOn(m_display) && XMatchVisualInfo(m_display, screen, 32, TrueColor, &info)) {
      visual = info.visual;
      depth = 32;
      m_translucent = true;
    }
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.background_pixel = 0;
    attributes.border_pixel = 0;
    m_colormap = XCreateColormap(m_display, root, visual, AllocNone);
    attributes.colormap = m_colormap;
    XErrorTrap trap(m_display);
    m_window = XCreateWindow(
        m_display, root, options.rect.left, options.rect.top, static_cast<unsigned>(m_width),
        static_cast<unsigned>(m_height), 0, depth, InputOutput, visual,
        CWOverrideRedirect | CWBackPixel | CWBorderPixel | CWColormap, &attributes);
    if (options.clickThrough) {
      XShapeCombineRectangles(m_display, m_window, ShapeInput, 0, 0, nullptr, 0, ShapeSet,
                              Unsorted);
    }
    Atom type = XInternAtom(m_display, "_NET_WM_WINDOW_TYPE", False);
    Atom utility = XInternAtom(m_display, "_NET_WM_WINDOW_TYPE_UTILITY", False);
    XChangeProperty(m_display, m_window, type, XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<unsigned char*>(&utility), 1);
    m_gc = XCreateGC(m_display, m_window, 0, nullptr);
    if (trap.Failed()) return false;
    m_visual = visual;
    m_depth = depth;
    MakeImage();
    return m_image != nullptr;
  }

  HWND Handle() const override { return m_window; }
  bool Translucent() const override { return m_translucent; }
  int32_t Width() const override { return m_width; }
  int32_t Height() const override { return m_height; }

  bool Present(const uint8_t* pixels, ptrdiff_t pitch) override {
    if (XConnectionLost(m_display)) return false;
    const size_t row = static_cast<size_t>(m_width) * 4;
    for (int32_t y = 0; y < m_height; ++y)
      memcpy(m_image->data + static_cast<ptrdiff_t>(y) * m_image->bytes_per_line,
             pixels + y * pitch, row);
    if (m_shmAttached)
      XShmPutImage(m_display, m_window, m_gc, m_image, 0, 0, 0, 0, static_cast<unsigned>(m_width),
                   static_cast<unsigned>(m_height), False);
    else
      XPutImage(m_display, m_window, m_gc, m_image, 0, 0, 0, 0, static_cast<unsigned>(m_width),
                static_cast<unsigned>(m_height));
    XSync(m_display, False);
    return true;
  }

  void SetCursor(const PointerShape* shape) override {
    if (XConnectionLost(m_display)) return;
    Cursor cursor = None;
    if (shape && shape->width > 0 && shape->height > 0) {
      XcursorImage* image = XcursorImageCreate(shape->width, shape->height);
      if (image) {
        image->xhot = static_cast<XcursorDim>(std::clamp(shape->xHot, 0, shape->width - 1));
        image->yhot = static_cast<XcursorDim>(std::clamp(shape->yHot, 0, shape->height - 1));
        memcpy(
            image->pixels, shape->pixels.data(),
            std::min(shape->pixels.size(), static_cast<size_t>(shape->width) * shape->height) * 4);
        // A shape the server refuses leaves the default pointer, not a dead host.
        XErrorTrap trap(m_display);
        cursor = XcursorImageLoadCursor(m_display, image);
        if (trap.Failed()) cursor = None;
        XcursorImageDestroy(image);
      }
    }
    XDefineCursor(m_display, m_window, cursor);
    if (m_cursor) XFreeCursor(m_display, m_cursor);
    m_cursor = cursor;
    XFlush(m_display);
  }

  bool MoveResize(const RECT& rect) override {
    const int32_t width = rect.right - rect.left, height = rect.bottom - rect.top;
    if (XConnectionLost(m_display) || width <= 0 || height <= 0) return false;
    if (width != m_width || height != m_height) {
      ReleaseImage();
      const int32_t oldWidth = m_width, oldHeight = m_height;
      m_width = width;
      m_height = height;
      MakeImage();
      if (!m_image) {
        m_width = oldWidth;
        m_height = oldHeight;
        MakeImage();
        return false;
      }
    }
    XMoveResizeWindow(m_display, m_window, rect.left, rect.top, static_cast<unsigned>(width),
                      static_cast<unsigned>(height));
    XSync(m_display, False);
    return true;
  }

  void SetVisibleParts(const RECT* rects, int count) override {
    if (XConnectionLost(m_display)) return;
    if (count <= 0) {
      XShapeCombineMask(m_display, m_window, ShapeBounding, 0, 0, None, ShapeSet);
    } else {
      std::vector<XRectangle> parts;
      for (int i = 0; i < count; ++i)
        if (rects[i].right > rects[i].left && rects[i].bottom > rects[i].top)
          parts.push_back({static_cast<short>(rects[i].left), static_cast<short>(rects[i].top),
                           static_cast<unsigned short>(rects[i].right - rects[i].left),
                           static_cast<unsigned short>(rects[i].bottom - rects[i].top)});
      XShapeCombineRectangles(m_display, m_window, ShapeBounding, 0, 0, parts.data(),
                              static_cast<int>(parts.size()), ShapeSet, Unsorted);
    }
    XFlush(m_display);
  }

  void Show(bool show) override {
    if (XConnectionLost(m_display)) return;
    if (show)
      XMapRaised(m_display, m_window);
    else
      XUnmapWindow(m_display, m_window);
    XSync(m_display, False);
  }

 private:
  void ReleaseImage() {
    if (!XConnectionLost(m_display)) {
      if (m_shmAttached) XShmDetach(m_display, &m_shm);
      XSync(m_display, False);
    }
    if (m_image) {
      m_image->data = nullptr;
      XDestroyImage(m_image);
      m_image = nullptr;
    }
    if (m_shm.shmaddr && m_shm.shmaddr != reinterpret_cast<char*>(-1)) shmdt(m_shm.shmaddr);
    m_shm = XShmSegmentInfo{};
    m_shmAttached = false;
  }

  void MakeImage() {
    Visual* visual = m_visual;
    const int depth = m_depth;
    const size_t bytes = static_cast<size_t>(m_width) * 4 * static_cast<size_t>(m_height);
    if (XShmQueryExtension(m_display)) {
      m_image =
          XShmCreateImage(m_display, visual, static_cast<unsigned>(depth), ZPixmap, nullptr, &m_shm,
                          static_cast<unsigned>(m_width), static_cast<unsigned>(m_height));
      if (m_image) {
        m_shm.shmid = shmget(IPC_PRIVATE, static_cast<size_t>(m_image->bytes_per_line) * m_height,
                             IPC_CREAT | 0600);
        if (m_shm.shmid >= 0) {
          m_shm.shmaddr = static_cast<char*>(shmat(m_shm.shmid, nullptr, 0));
          shmctl(m_shm.shmid, IPC_RMID, nullptr);
          if (m_shm.shmaddr != reinterpret_cast<char*>(-1)) {
            m_image->data = m_shm.shmaddr;
            m_shm.readOnly = True;
            XErrorTrap trap(m_display);
            XShmAttach(m_display, &m_shm);
            m_shmAttached = !trap.Failed();
            if (m_shmAttached) return;
          }
        }
        m_image->data = nullptr;
        XDestroyImage(m_image);
        m_image = nullptr;
      }
    }
    // Without MIT-SHM (a remote server): plain XPutImage from our own buffer.
    m_buffer.resize(bytes);
    m_image = XCreateImage(m_display, visual, static_cast<unsigned>(depth), ZPixmap, 0,
                           reinterpret_cast<char*>(m_buffer.data()), static_cast<unsigned>(m_width),
                           static_cast<unsigned>(m_height), 32, m_width * 4);
  }

  Display* m_display = nullptr;
  Window m_window = 0;
  Colormap m_colormap = 0;
  GC m_gc = nullptr;
  Cursor m_cursor = 0;
  XImage* m_image = nullptr;
  Visual* m_visual = nullptr;
  int m_depth = 0;
  XShmSegmentInfo m_shm{};
  bool m_shmAttached = false;
  std::vector<uint8_t> m_buffer;
  int32_t m_width = 0, m_height = 0;
  bool m_translucent = false;
};

}  // namespace

std::unique_ptr<OverlayWindow> CreateOverlayWindow(const OverlayWindowOptions& options) {
  auto window = std::make_unique<XOverlayWindow>();
  if (!window->Open(options)) return nullptr;
  return window;
}

bool CompositingManagerRunning() {
  Display* display = SharedXDisplay();
  return display && CompositorOn(display);
}

bool LoadThemeCursor(const char* name, PointerShape* shape) {
  Display* display = SharedXDisplay();
  if (!display) return false;
  XcursorImage* image =
      XcursorLibraryLoadImage(name, XcursorGetTheme(display), XcursorGetDefaultSize(display));
  if (!image) return false;
  shape->width = static_cast<int32_t>(image->width);
  shape->height = static_cast<int32_t>(image->height);
  shape->xHot = static_cast<int32_t>(image->xhot);
  shape->yHot = static_cast<int32_t>(image->yhot);
  shape->pixels.assign(image->pixels, image->pixels + image->width * image->height);
  XcursorImageDestroy(image);
  return true;
}

}  // namespace ov
