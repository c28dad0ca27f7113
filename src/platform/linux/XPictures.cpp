#include "platform/linux/XPictures.h"

#include <X11/Xcursor/Xcursor.h>
#include <X11/Xutil.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>
#include <cstring>

#include "platform/OverlayWindow.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

bool XShownImage::Make(Visual* visual, int depth, int width, int height) {
  Release();
  const auto w = static_cast<unsigned>(width), h = static_cast<unsigned>(height);
  if (XShmQueryExtension(m_display)) {
    m_image = XShmCreateImage(m_display, visual, static_cast<unsigned>(depth), ZPixmap, nullptr,
                              &m_shm, w, h);
    if (m_image) {
      m_shm.shmid =
          shmget(IPC_PRIVATE, static_cast<size_t>(m_image->bytes_per_line) * h, IPC_CREAT | 0600);
      if (m_shm.shmid >= 0) {
        m_shm.shmaddr = static_cast<char*>(shmat(m_shm.shmid, nullptr, 0));
        shmctl(m_shm.shmid, IPC_RMID, nullptr);
        if (m_shm.shmaddr != reinterpret_cast<char*>(-1)) {
          m_image->data = m_shm.shmaddr;
          m_shm.readOnly = True;
          XErrorTrap trap(m_display);
          XShmAttach(m_display, &m_shm);
          m_shmAttached = !trap.Failed();
          if (m_shmAttached) return true;
        }
      }
      Release();
    }
  }
  m_buffer.assign(static_cast<size_t>(w) * 4 * h, 0);
  m_image = XCreateImage(m_display, visual, static_cast<unsigned>(depth), ZPixmap, 0,
                         reinterpret_cast<char*>(m_buffer.data()), w, h, 32, width * 4);
  return m_image != nullptr;
}

void XShownImage::Release() {
  if (m_shmAttached && !XConnectionLost(m_display)) {
    XShmDetach(m_display, &m_shm);
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

void XShownImage::Put(Drawable target, GC gc, int x, int y, int width, int height) {
  if (!m_image) return;
  if (m_shmAttached)
    XShmPutImage(m_display, target, gc, m_image, x, y, x, y, static_cast<unsigned>(width),
                 static_cast<unsigned>(height), False);
  else
    XPutImage(m_display, target, gc, m_image, x, y, x, y, static_cast<unsigned>(width),
              static_cast<unsigned>(height));
}

Cursor CursorFromShape(Display* display, const PointerShape& shape) {
  if (shape.width <= 0 || shape.height <= 0) return None;
  XcursorImage* image = XcursorImageCreate(shape.width, shape.height);
  if (!image) return None;
  image->xhot = static_cast<XcursorDim>(std::clamp(shape.xHot, 0, shape.width - 1));
  image->yhot = static_cast<XcursorDim>(std::clamp(shape.yHot, 0, shape.height - 1));
  const size_t pixels = static_cast<size_t>(shape.width) * shape.height;
  std::memset(image->pixels, 0, pixels * 4);
  std::memcpy(image->pixels, shape.pixels.data(), std::min(shape.pixels.size(), pixels) * 4);
  XErrorTrap trap(display);
  Cursor cursor = XcursorImageLoadCursor(display, image);
  if (trap.Failed()) cursor = None;
  XcursorImageDestroy(image);
  return cursor;
}

}  // namespace ov
