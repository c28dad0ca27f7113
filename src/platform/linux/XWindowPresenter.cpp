// Presentation into a host's X window: one shared-memory image of the
// window's size, put with XShmPutImage on a connection of our own (plain
// XPutImage where MIT-SHM is missing).
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <cstring>
#include <vector>

#include "platform/WindowPresenter.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"

namespace ov {

namespace {

class XWindowPresenter final : public WindowPresenter {
 public:
  ~XWindowPresenter() override {
    if (!m_display) return;
    ReleaseImage();
    if (m_gc && !XConnectionLost(m_display)) XFreeGC(m_display, m_gc);
    CloseXConnection(m_display);
  }

  HRESULT Open(HWND window) {
    m_display = OpenXConnection();
    if (!m_display) return E_FAIL;
    m_window = static_cast<Window>(window);
    XWindowAttributes attributes{};
    {
      XErrorTrap trap(m_display);
      const Status got = XGetWindowAttributes(m_display, m_window, &attributes);
      if (trap.Failed() || !got) return E_INVALIDARG;
    }
    if (attributes.depth != 24 && attributes.depth != 32) return E_FAIL;
    m_visual = attributes.visual;
    m_depth = attributes.depth;
    m_gc = XCreateGC(m_display, m_window, 0, nullptr);
    return m_gc && Resize() ? S_OK : E_FAIL;
  }

  bool Resize() override {
    if (XConnectionLost(m_display)) return false;
    XWindowAttributes attributes{};
    XErrorTrap trap(m_display);
    if (!XGetWindowAttributes(m_display, m_window, &attributes) || trap.Failed()) return false;
    const int32_t width = std::max(attributes.width, 1), height = std::max(attributes.height, 1);
    if (m_image && width == m_width && height == m_height) return true;
    ReleaseImage();
    m_width = width;
    m_height = height;
    MakeImage();
    if (!m_image) return false;
    m_pixels = reinterpret_cast<uint8_t*>(m_image->data);
    m_pitch = m_image->bytes_per_line;
    std::memset(m_pixels, 0, static_cast<size_t>(m_pitch) * m_height);
    return true;
  }

  bool Present(const RECT& area) override {
    if (XConnectionLost(m_display) || !m_image) return false;
    const int x = std::max(area.left, 0), y = std::max(area.top, 0);
    const int w = std::min(area.right, m_width) - x, h = std::min(area.bottom, m_height) - y;
    if (w <= 0 || h <= 0) return true;
    XErrorTrap trap(m_display);
    if (m_shmAttached)
      XShmPutImage(m_display, m_window, m_gc, m_image, x, y, x, y, static_cast<unsigned>(w),
                   static_cast<unsigned>(h), False);
    else
      XPutImage(m_display, m_window, m_gc, m_image, x, y, x, y, static_cast<unsigned>(w),
                static_cast<unsigned>(h));
    XSync(m_display, False);
    return !trap.Failed();
  }

 private:
  void ReleaseImage() {
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
    m_pixels = nullptr;
  }

  void MakeImage() {
    const auto w = static_cast<unsigned>(m_width), h = static_cast<unsigned>(m_height);
    if (XShmQueryExtension(m_display)) {
      m_image = XShmCreateImage(m_display, m_visual, static_cast<unsigned>(m_depth), ZPixmap,
                                nullptr, &m_shm, w, h);
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
            XSync(m_display, False);
            m_shmAttached = !trap.Failed();
            if (m_shmAttached) return;
          }
        }
        m_image->data = nullptr;
        XDestroyImage(m_image);
        m_image = nullptr;
      }
    }
    m_buffer.assign(static_cast<size_t>(w) * 4 * h, 0);
    m_image = XCreateImage(m_display, m_visual, static_cast<unsigned>(m_depth), ZPixmap, 0,
                           reinterpret_cast<char*>(m_buffer.data()), w, h, 32, m_width * 4);
  }

  Display* m_display = nullptr;
  Window m_window = 0;
  Visual* m_visual = nullptr;
  int m_depth = 0;
  GC m_gc = nullptr;
  XImage* m_image = nullptr;
  XShmSegmentInfo m_shm{};
  bool m_shmAttached = false;
  std::vector<uint8_t> m_buffer;
};

}  // namespace

HRESULT WindowPresenter::Open(HWND window, std::unique_ptr<WindowPresenter>* presenter) {
  if (!window) return E_INVALIDARG;
  auto made = std::make_unique<XWindowPresenter>();
  HRESULT hr = made->Open(window);
  if (FAILED(hr)) return hr;
  *presenter = std::move(made);
  return S_OK;
}

}  // namespace ov
