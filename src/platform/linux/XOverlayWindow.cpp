// Overlay windows: override-redirect, so that no window manager frames or
// moves them; a 32-bit ARGB visual under a compositing manager; an empty
// input shape for the click-through ones. Each window has a connection of
// its own, so that its users need no lock with the rest of the engine.
#include <X11/Xatom.h>
#include <X11/Xcursor/Xcursor.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/shape.h>

#include <algorithm>
#include <cstring>

#include "platform/OverlayWindow.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"
#include "platform/linux/XPictures.h"

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
    m_image.reset();
    // A round trip first: a server that went away shows here, not half-way
    // through the frees below.
    if (!XConnectionLost(m_display)) XSync(m_display, False);
    if (!XConnectionLost(m_display)) {
      if (m_cursor) XFreeCursor(m_display, m_cursor);
      if (m_window) XDestroyWindow(m_display, m_window);
      if (m_colormap) XFreeColormap(m_display, m_colormap);
    }
    if (m_gc) ReleaseGC(m_display, m_gc);
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
    if (!options.parent && CompositorOn(m_display) &&
        XMatchVisualInfo(m_display, screen, 32, TrueColor, &info)) {
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
    m_window =
        XCreateWindow(m_display, options.parent ? static_cast<Window>(options.parent) : root,
                      options.rect.left, options.rect.top, static_cast<unsigned>(m_width),
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
    m_image = std::make_unique<XShownImage>(m_display);
    return m_image->Make(m_visual, m_depth, m_width, m_height);
  }

  HWND Handle() const override { return m_window; }
  bool Translucent() const override { return m_translucent; }
  int32_t Width() const override { return m_width; }
  int32_t Height() const override { return m_height; }

  bool Present(const uint8_t* pixels, ptrdiff_t pitch) override {
    if (XConnectionLost(m_display)) return false;
    XImage* image = m_image->Image();
    const size_t row = static_cast<size_t>(m_width) * 4;
    for (int32_t y = 0; y < m_height; ++y)
      memcpy(image->data + static_cast<ptrdiff_t>(y) * image->bytes_per_line, pixels + y * pitch,
             row);
    m_image->Put(m_window, m_gc, 0, 0, m_width, m_height);
    XSync(m_display, False);
    return true;
  }

  void SetCursor(const PointerShape* shape) override {
    if (XConnectionLost(m_display)) return;
    const Cursor cursor = shape ? CursorFromShape(m_display, *shape) : None;
    XDefineCursor(m_display, m_window, cursor);
    if (m_cursor) XFreeCursor(m_display, m_cursor);
    m_cursor = cursor;
    XFlush(m_display);
  }

  bool MoveResize(const RECT& rect) override {
    const int32_t width = rect.right - rect.left, height = rect.bottom - rect.top;
    if (XConnectionLost(m_display) || width <= 0 || height <= 0) return false;
    if (width != m_width || height != m_height) {
      if (!m_image->Make(m_visual, m_depth, width, height)) {
        m_image->Make(m_visual, m_depth, m_width, m_height);
        return false;
      }
      m_width = width;
      m_height = height;
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
  Display* m_display = nullptr;
  Window m_window = 0;
  Colormap m_colormap = 0;
  GC m_gc = nullptr;
  Cursor m_cursor = 0;
  std::unique_ptr<XShownImage> m_image;
  Visual* m_visual = nullptr;
  int m_depth = 0;
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
