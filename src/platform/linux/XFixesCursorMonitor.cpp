// The cursor's image, refreshed only when the server says that it changed:
// XFixes notifies every client that asks on the root window.
#include <X11/Xlib.h>
#include <X11/extensions/Xfixes.h>

#include "platform/CursorMonitor.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

namespace {

class XFixesCursorMonitor : public CursorMonitor {
 public:
  ~XFixesCursorMonitor() override {
    if (m_display) CloseXConnection(m_display);
  }

  bool Open() {
    m_display = OpenXConnection();
    int error;
    if (!m_display || !XFixesQueryExtension(m_display, &m_eventBase, &error)) return false;
    XFixesSelectCursorInput(m_display, DefaultRootWindow(m_display), XFixesDisplayCursorNotifyMask);
    Refresh();
    return true;
  }

  const CursorImage& Current() override {
    bool changed = false;
    while (XPending(m_display)) {
      XEvent event;
      XNextEvent(m_display, &event);
      if (event.type == m_eventBase + XFixesCursorNotify) changed = true;
    }
    if (changed) Refresh();
    return m_image;
  }

 private:
  void Refresh() {
    XErrorTrap trap(m_display);
    XFixesCursorImage* image = XFixesGetCursorImage(m_display);
    if (!image) return;
    m_image.serial = image->cursor_serial;
    m_image.width = image->width;
    m_image.height = image->height;
    m_image.xHot = image->xhot;
    m_image.yHot = image->yhot;
    m_image.pixels.resize(static_cast<size_t>(image->width) * image->height);
    // XFixes hands out one unsigned long per pixel, premultiplied ARGB.
    for (size_t i = 0; i < m_image.pixels.size(); ++i)
      m_image.pixels[i] = static_cast<uint32_t>(image->pixels[i]);
    XFree(image);
  }

  Display* m_display = nullptr;
  int m_eventBase = 0;
  CursorImage m_image;
};

}  // namespace

std::unique_ptr<CursorMonitor> CreateCursorMonitor() {
  auto monitor = std::make_unique<XFixesCursorMonitor>();
  if (!monitor->Open()) return nullptr;
  return monitor;
}

}  // namespace ov
