#include "overlay/RecorderBox.h"

#include <cairo.h>

#include <algorithm>
#include <cstring>

#include "core/CanvasPicture.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "core/Rect.h"
#include "overlay/BoxStyles.h"
#include "platform/InputWindow.h"
#include "platform/Memory.h"
#include "platform/MessageQueue.h"
#include "platform/OverlayWindow.h"

namespace {

constexpr uint32_t kTimerMs = 250;
constexpr int32_t kDash = 12;

uint32_t Opaque(uint32_t argb) { return 0xFF000000u | (argb & 0xFFFFFFu); }

}  // namespace

CMoveBarWindow::~CMoveBarWindow() {
  for (auto& bar : m_hwndBar)
    if (bar && m_pBarQueue) m_pBarQueue->Unwatch(bar->Fd());
}

RECT CMoveBarWindow::HandleRect(int index) const {
  const int32_t n = m_nBorder, s = kHandleSize;
  const RECT& r = m_rcBar;
  const int32_t x = (index & 1) ? r.right + n : r.left - n - s;
  const int32_t y = (index & 2) ? r.bottom + n : r.top - n - s;
  return {x, y, x + s, y + s};
}

void CMoveBarWindow::PlaceBars() {
  const int32_t n = std::max(m_nBorder, 1);
  const RECT& r = m_rcBar;
  const RECT places[8] = {HandleRect(0),
                          HandleRect(1),
                          HandleRect(2),
                          HandleRect(3),
                          {r.left - n, r.top, r.left, r.bottom},
                          {r.left - n, r.top - n, r.right + n, r.top},
                          {r.right, r.top, r.right + n, r.bottom},
                          {r.left - n, r.bottom, r.right + n, r.bottom + n}};
  for (int i = 0; i < 8; ++i)
    if (m_hwndBar[i]) m_hwndBar[i]->Move(places[i]);
}

HRESULT CMoveBarWindow::CreateMoveBar(ov::MessageQueue& queue, const RECT& bar) {
  m_pBarQueue = &queue;
  m_rcBar = bar;
  ov::PointerShape move;
  const bool haveCursor = ov::LoadThemeCursor("fleur", &move);
  for (int i = 0; i < 8; ++i) {
    m_hwndBar[i] = ov::CreateInputWindow({0, 0, 1, 1});
    if (!m_hwndBar[i]) return E_FAIL;
    if (haveCursor) m_hwndBar[i]->SetCursor(&move);
    queue.Watch(m_hwndBar[i]->Fd(), [this, i] { OnBarInput(i); });
  }
  PlaceBars();
  for (auto& w : m_hwndBar) w->Show(true);
  return S_OK;
}

void CMoveBarWindow::OnBarInput(int index) {
  ov::InputEvent e;
  while (m_hwndBar[index]->NextEvent(&e)) {
    switch (e.type) {
      case ov::InputEvent::kButtonDown:
        if (e.button != 1) break;
        m_bDragging = true;
        g_bMoveBarDragging = true;
        m_ptPress = {e.rootX, e.rootY};
        m_rcPress = m_rcBar;
        m_hwndBar[index]->Capture(true);
        break;
      case ov::InputEvent::kMotion: {
        if (!m_bDragging) break;
        int32_t dx = e.rootX - m_ptPress.x, dy = e.rootY - m_ptPress.y;
        // The region stays on the display; each axis on its own.
        if (m_rcPress.left + dx < g_rcDisplay.left) dx = g_rcDisplay.left - m_rcPress.left;
        if (m_rcPress.right + dx > g_rcDisplay.right) dx = g_rcDisplay.right - m_rcPress.right;
        if (m_rcPress.top + dy < g_rcDisplay.top) dy = g_rcDisplay.top - m_rcPress.top;
        if (m_rcPress.bottom + dy > g_rcDisplay.bottom) dy = g_rcDisplay.bottom - m_rcPress.bottom;
        const RECT moved = {m_rcPress.left + dx, m_rcPress.top + dy, m_rcPress.right + dx,
                            m_rcPress.bottom + dy};
        if (moved.left == m_rcBar.left && moved.top == m_rcBar.top) break;
        std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
        m_rcBar = moved;
        PlaceBars();
        MoveRegion({moved.left, moved.top});
        break;
      }
      case ov::InputEvent::kButtonUp:
        if (!m_bDragging) break;
        m_bDragging = false;
        g_bMoveBarDragging = false;
        m_hwndBar[index]->Capture(false);
        break;
      default:
        break;
    }
  }
}

CRecorderBox::CRecorderBox() = default;

CRecorderBox::~CRecorderBox() {
  ov::SetPointerMoveTarget(nullptr);
  if (m_pQueue && m_pTimer) m_pQueue->Unwatch(m_pTimer->Fd());
  m_window.reset();
  ov::FreeZeroedPages(m_pBackBuffer, m_nBackBufferBytes);
}

HRESULT CRecorderBox::Create(ov::MessageQueue& queue) {
  using ov::Height;
  using ov::Width;
  m_pQueue = &queue;
  const RECT& screen = g_videoOpt.rcScreen;
  const int32_t w = Width(screen), h = Height(screen);
  m_bShown = g_bShowRecordingBox;
  m_nBorder = g_bShowRecordingBox && !g_bUnborder ? 1 : 0;
  const int32_t mode = g_mouseOpt.Mode;
  if (mode != 0 || g_bUnborder) {
    m_rcWindow = g_rcDisplay;
    m_rcRegion = mode != 0 ? RECT{screen.left - g_rcDisplay.left, screen.top - g_rcDisplay.top,
                                  screen.right - g_rcDisplay.left, screen.bottom - g_rcDisplay.top}
                           : RECT{0, 0, w, h};
  } else if (m_bShown) {
    m_rcWindow = {screen.left - 1, screen.top - 1, screen.right + 1, screen.bottom + 1};
    m_rcRegion = {1, 1, w + 1, h + 1};
  } else {
    m_rcWindow = screen;
    m_rcRegion = {0, 0, w, h};
  }
  m_rcFrame = {m_rcRegion.left - m_nBorder, m_rcRegion.top - m_nBorder,
               m_rcRegion.right + m_nBorder, m_rcRegion.bottom + m_nBorder};
  ov::OverlayWindowOptions options;
  options.rect = m_rcWindow;
  options.clickThrough = true;
  m_window = ov::CreateOverlayWindow(options);
  if (!m_window) {
    WriteLog(ov::kErr, "Unable to Create overlay window(%d, %d)\n", Width(m_rcWindow),
             Height(m_rcWindow));
    return E_FAIL;
  }
  m_hwndBox = m_window->Handle();
  m_nWindowWidth = m_window->Width();
  m_nWindowHeight = m_window->Height();
  WriteLog(ov::kMsg, "=================================\n");
  WriteLog(ov::kMsg, "Use cairo: the compositing manager is %s\n",
           m_window->Translucent() ? "running" : "absent");
  WriteLog(ov::kMsg, "=================================\n");
  m_nBackBufferBytes = static_cast<size_t>(m_nWindowWidth) * m_nWindowHeight * 4;
  m_pBackBuffer = static_cast<uint32_t*>(ov::AllocateZeroedPages(m_nBackBufferBytes));
  if (!m_pBackBuffer) return E_OUTOFMEMORY;

  const POINT origin =
      mode != 0 ? POINT{g_rcDisplay.left, g_rcDisplay.top} : POINT{screen.left, screen.top};
  HRESULT hr = CreateCanvas(queue, screen, mode != 0 ? Width(g_rcDisplay) : w,
                            mode != 0 ? Height(g_rcDisplay) : h, origin);
  if (FAILED(hr)) return hr;
  if (mode == MOUSE_MODE_MANUAL) {
    m_pHandle = ov::LoadImageSized("MoveSmall.png", kHandleSize, kHandleSize);
    if (FAILED(hr = CreateMoveBar(queue, screen))) return hr;
  }
  m_pCamera = ov::LoadImageSized("Camera.png", 256, 256);
  if (g_videoOpt.hWindow) TrackTarget();
  m_pTimer = ov::CreatePeriodicTimer();
  if (m_pTimer) {
    queue.Watch(m_pTimer->Fd(), [this] {
      if (m_pTimer->Drain()) OnTimer();
    });
    if (m_bShown) m_pTimer->Set(kTimerMs);
  }
  m_ColorsRecord[0] = Opaque(ov::g_RecordBoxColor[0]);
  m_ColorsRecord[1] = Opaque(ov::g_RecordBoxColor[1]);
  m_ColorsPause[0] = Opaque(ov::g_PauseBoxColor[0]);
  m_ColorsPause[1] = Opaque(ov::g_PauseBoxColor[1]);
  LimitOpaqueWindow();
  m_window->Show(true);
  ov::SetPointerMoveTarget(this);
  Repaint();
  return S_OK;
}

// Without a compositing manager the window shows opaque: only the frame
// and the grips may show then, or it would hide the region.
void CRecorderBox::LimitOpaqueWindow() {
  if (m_window->Translucent()) return;
  const RECT& f = m_rcFrame;
  const int32_t t = std::max<int32_t>(m_nBorder, m_bShown ? 1 : 0);
  RECT parts[8] = {{f.left, f.top, f.right, f.top + t},
                   {f.left, f.bottom - t, f.right, f.bottom},
                   {f.left, f.top, f.left + t, f.bottom},
                   {f.right - t, f.top, f.right, f.bottom}};
  int count = m_bShown ? 4 : 0;
  if (g_mouseOpt.Mode == MOUSE_MODE_MANUAL)
    for (int i = 0; i < 4; ++i) {
      RECT r = HandleRect(i);
      parts[count++] = {r.left - m_rcWindow.left, r.top - m_rcWindow.top, r.right - m_rcWindow.left,
                        r.bottom - m_rcWindow.top};
    }
  if (count == 0) parts[count++] = {0, 0, 0, 0};  // nothing at all
  m_window->SetVisibleParts(parts, count);
}

bool CRecorderBox::OnMessage(const ov::Message& msg) {
  switch (msg.message) {
    case kFlash:
      m_nFlash = 3;
      Repaint();
      return true;
    case kPause:
      SetAnimate(false);
      return true;
    case kResume:
      SetAnimate(true);
      return true;
    default:
      return CCanvasWindow::OnMessage(msg);
  }
}

void CRecorderBox::SetAnimate(bool animate) {
  if (!g_bShowRecordingBox) return;
  m_bAnimate = animate;
  if (!animate) m_nDashOffset = 0;
  Repaint();
}

void CRecorderBox::OnTimer() {
  if (m_bAnimate)
    m_nDashOffset = (m_nDashOffset + 2) % 65536;
  else if (!m_nFlash && !m_bFlashShown)
    return;
  Repaint();
  if (m_nFlash) --m_nFlash;
}

// The dashes run clockwise from the frame's top-left corner: 12 pixels of
// the first colour, 12 of the second, shifted by the march.
void CRecorderBox::DrawFrame(uint32_t* pixels) {
  const RECT& f = m_rcFrame;
  const int32_t w = f.right - f.left, h = f.bottom - f.top;
  if (w <= 0 || h <= 0) return;
  const uint32_t* colors = m_bAnimate ? m_ColorsRecord : m_ColorsPause;
  const int32_t offset = m_bAnimate ? 65536 - m_nDashOffset : 0;
  const int32_t stride = m_nWindowWidth;
  auto put = [&](int32_t x, int32_t y, int32_t u) {
    if (x < 0 || y < 0 || x >= m_nWindowWidth || y >= m_nWindowHeight) return;
    pixels[static_cast<size_t>(y) * stride + x] = colors[((u + offset) / kDash) & 1];
  };
  for (int32_t i = 0; i < w - 1; ++i) put(f.left + i, f.top, i);
  for (int32_t i = 0; i < h - 1; ++i) put(f.right - 1, f.top + i, w - 1 + i);
  for (int32_t i = 0; i < w - 1; ++i) put(f.right - 1 - i, f.bottom - 1, w + h - 2 + i);
  for (int32_t i = 0; i < h - 1; ++i) put(f.left, f.bottom - 1 - i, 2 * w + h - 3 + i);
}

// src laid over dst at (x, y), clipped to the window, faded by alpha / 255.
void CRecorderBox::Blit(uint32_t* dst, const uint32_t* src, int32_t srcStride, int32_t x, int32_t y,
                        int32_t w, int32_t h, uint32_t alpha) {
  for (int32_t row = std::max(0, -y); row < h && y + row < m_nWindowHeight; ++row) {
    const int32_t from = std::max(0, -x), to = std::min(w, m_nWindowWidth - x);
    uint32_t* d = dst + static_cast<size_t>(y + row) * m_nWindowWidth + x;
    const uint32_t* s = src + static_cast<size_t>(row) * srcStride;
    for (int32_t i = from; i < to; ++i) {
      uint32_t p = s[i];
      if (alpha < 255) {
        uint32_t out = 0;
        for (int shift = 0; shift < 32; shift += 8)
          out |= (((p >> shift) & 0xFF) * alpha / 255) << shift;
        p = out;
      }
      const uint32_t a = p >> 24;
      if (a == 255 || d[i] == 0) {
        d[i] = p;
      } else if (a) {
        uint32_t out = 0;
        for (int shift = 0; shift < 32; shift += 8)
          out |= std::min<uint32_t>(
                     255, ((p >> shift) & 0xFF) + ((d[i] >> shift) & 0xFF) * (255 - a) / 255)
                 << shift;
        d[i] = out;
      }
    }
  }
}

void CRecorderBox::Repaint() {
  if (!m_window || !m_pBackBuffer) return;
  // A box that is not shown, with nothing drawn and no grips, stays as it was
  // made: clear, and costing no memory for its pictures.
  const bool something = m_bShown || m_bHasContent || m_nFlash || m_bFlashShown ||
                         g_mouseOpt.Mode == MOUSE_MODE_MANUAL;
  if (!something && !m_bPainted) return;
  m_bPainted = something;
  // The back buffer is the box thread's own: only the composing needs the
  // canvas, so that the wait for the server holds no capture thread up.
  uint32_t* pixels = m_pBackBuffer;
  {
    std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
    memset(pixels, 0, static_cast<size_t>(m_nWindowWidth) * m_nWindowHeight * 4);
    if (m_bHasContent && m_pBits) {
      // The picture's place in the window; outside a tool's use only the
      // part inside the region shows.
      const int32_t px = g_mouseOpt.Mode != 0 ? 0 : m_rcRegion.left;
      const int32_t py = g_mouseOpt.Mode != 0 ? 0 : m_rcRegion.top;
      RECT shown = {px, py, px + m_nWidth, py + m_nHeight};
      if (g_mouseOpt.Mode != 0 && !ToolActive()) shown = m_rcRegion;
      for (int32_t y = std::max<int32_t>(shown.top, 0);
           y < std::min<int32_t>(shown.bottom, m_nWindowHeight); ++y) {
        const int32_t x0 = std::max<int32_t>(shown.left, 0);
        const int32_t x1 = std::min<int32_t>(shown.right, m_nWindowWidth);
        if (x1 > x0)
          memcpy(pixels + static_cast<size_t>(y) * m_nWindowWidth + x0,
                 m_pBits + static_cast<size_t>(y - py) * m_nWidth + (x0 - px),
                 static_cast<size_t>(x1 - x0) * 4);
      }
    }
    if (m_bShown) DrawFrame(pixels);
    if (g_mouseOpt.Mode == MOUSE_MODE_MANUAL && !ToolActive() && m_pHandle) {
      cairo_surface_flush(m_pHandle.get());
      const auto* handle =
          reinterpret_cast<const uint32_t*>(cairo_image_surface_get_data(m_pHandle.get()));
      const int32_t stride = cairo_image_surface_get_stride(m_pHandle.get()) / 4;
      for (int i = 0; i < 4; ++i) {
        const RECT r = HandleRect(i);
        Blit(pixels, handle, stride, r.left - m_rcWindow.left, r.top - m_rcWindow.top, kHandleSize,
             kHandleSize, 255);
      }
    }
    m_bFlashShown = false;
    if (m_nFlash && m_pCamera) {
      const int32_t c = m_nFlash + 1;
      const uint32_t alpha = c < 3 ? static_cast<uint32_t>(c * 255 / 3) : 255;
      const int32_t size = c < 3 ? c * 256 / 3 : 256;
      // Scaled by whole pixels from the 256-pixel picture.
      cairo_surface_flush(m_pCamera.get());
      const auto* camera =
          reinterpret_cast<const uint32_t*>(cairo_image_surface_get_data(m_pCamera.get()));
      const int32_t stride = cairo_image_surface_get_stride(m_pCamera.get()) / 4;
      const int32_t x0 = (m_rcFrame.left + m_rcFrame.right - size) / 2;
      const int32_t y0 = (m_rcFrame.top + m_rcFrame.bottom - size) / 2;
      for (int32_t y = 0; y < size; ++y) {
        uint32_t* row = m_CameraRow;
        for (int32_t x = 0; x < size; ++x)
          row[x] = camera[static_cast<size_t>(y * 256 / size) * stride + x * 256 / size];
        Blit(pixels, row, 256, x0, y0 + y, size, 1, alpha);
      }
      m_bFlashShown = true;
    }
  }
  m_window->Present(reinterpret_cast<const uint8_t*>(pixels),
                    static_cast<ptrdiff_t>(m_nWindowWidth) * 4);
}

POINT CRecorderBox::MoveRegionTo(POINT topLeft) {
  MoveRegion(topLeft);
  return topLeft;
}

void CRecorderBox::MoveRegion(POINT topLeft) {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  const int32_t w = ov::Width(g_videoOpt.rcScreen), h = ov::Height(g_videoOpt.rcScreen);
  m_rcRegion = {topLeft.x - g_rcDisplay.left, topLeft.y - g_rcDisplay.top,
                topLeft.x - g_rcDisplay.left + w, topLeft.y - g_rcDisplay.top + h};
  m_rcFrame = {m_rcRegion.left - m_nBorder, m_rcRegion.top - m_nBorder,
               m_rcRegion.right + m_nBorder, m_rcRegion.bottom + m_nBorder};
  {
    std::lock_guard<std::recursive_mutex> mouse(g_csMouse);
    g_ptRegion = topLeft;
  }
  SetPosition(topLeft.x, topLeft.y);
  LimitOpaqueWindow();
  if (m_bShown || m_bHasContent || m_nFlash) Repaint();
}

// The box over a recorded window follows it.
void CRecorderBox::TrackTarget() {
  // The window stream is not built yet: nothing to follow.
}
