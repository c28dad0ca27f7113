// Presentation into a host's X window: one shared-memory image of the
// window's size, put with XShmPutImage on a connection of our own (plain
// XPutImage where MIT-SHM is missing).
#include <algorithm>
#include <memory>

#include "platform/WindowPresenter.h"
#include "platform/linux/XConnection.h"
#include "platform/linux/XErrorTrap.h"
#include "platform/linux/XPictures.h"

namespace ov {

namespace {

class XWindowPresenter final : public WindowPresenter {
 public:
  ~XWindowPresenter() override {
    if (!m_display) return;
    m_image.reset();
    if (m_gc) ReleaseGC(m_display, m_gc);
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
    m_image = std::make_unique<XShownImage>(m_display);
    return m_gc && Resize() ? S_OK : E_FAIL;
  }

  bool Resize() override {
    if (XConnectionLost(m_display)) return false;
    XWindowAttributes attributes{};
    XErrorTrap trap(m_display);
    if (!XGetWindowAttributes(m_display, m_window, &attributes) || trap.Failed()) return false;
    const int32_t width = std::max(attributes.width, 1), height = std::max(attributes.height, 1);
    if (m_pixels && width == m_width && height == m_height) return true;
    m_pixels = nullptr;
    m_width = width;
    m_height = height;
    // A new picture is clear.
    if (!m_image->Make(m_visual, m_depth, width, height)) return false;
    m_pixels = reinterpret_cast<uint8_t*>(m_image->Image()->data);
    m_pitch = m_image->Image()->bytes_per_line;
    return true;
  }

  bool Present(const RECT& area) override {
    if (XConnectionLost(m_display) || !m_pixels) return false;
    const int x = std::max(area.left, 0), y = std::max(area.top, 0);
    const int w = std::min(area.right, m_width) - x, h = std::min(area.bottom, m_height) - y;
    if (w <= 0 || h <= 0) return true;
    XErrorTrap trap(m_display);
    m_image->Put(m_window, m_gc, x, y, w, h);
    XSync(m_display, False);
    return !trap.Failed();
  }

 private:
  Display* m_display = nullptr;
  Window m_window = 0;
  Visual* m_visual = nullptr;
  int m_depth = 0;
  GC m_gc = nullptr;
  std::unique_ptr<XShownImage> m_image;
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
