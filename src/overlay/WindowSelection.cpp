// Picking a window on the live desktop: the pointer is taken, and the window
// under it is outlined until a click.
#include <cairo.h>

#include "core/Log.h"
#include "overlay/BoxStyles.h"
#include "overlay/ScreenSelection.h"
#include "platform/MessageQueue.h"

namespace {
constexpr int32_t kMinWindow = 33;
constexpr uint32_t kInfoBackground = 0xFFFFFFE1;  // the tooltip colour, opaque
}  // namespace

CWindowSelection::CWindowSelection(CWindowSelectCallback* callback) : m_pCallback(callback) {}

CWindowSelection::~CWindowSelection() {
  if (m_hwndMessage) m_hwndMessage->Capture(false);
  m_hwndMessage.reset();
  m_hwndRect.reset();
  ov::EndSelectionEpisode();
  if (m_pCallback) m_pCallback->OnWindowSelectionEnded();
}

void CWindowSelection::Run() {
  ov::MessageQueue queue;
  m_font = ov::MakeFont("Tahoma", 14);
  m_hwndMessage = ov::CreateInputWindow({0, 0, 1, 1});
  if (!m_hwndMessage) return;
  m_hwndMessage->Show(true);
  m_hwndMessage->Capture(true);
  queue.Watch(m_hwndMessage->Fd(), [this, &queue] {
    OnInput();
    if (m_bDone) queue.Post({0, ov::WM_QUIT, 0, 0});
  });
  ov::Message msg;
  while (!m_bDone && queue.Get(&msg)) {
  }
  queue.Unwatch(m_hwndMessage->Fd());
}

void CWindowSelection::OnInput() {
  ov::InputEvent e;
  while (!m_bDone && m_hwndMessage->NextEvent(&e)) {
    if (e.type == ov::InputEvent::kButtonDown || e.type == ov::InputEvent::kButtonUp) {
      m_bDone = true;
      return;
    }
    if (e.type != ov::InputEvent::kMotion) continue;
    if (e.rootX == m_ptLast.x && e.rootY == m_ptLast.y) continue;
    m_ptLast = {e.rootX, e.rootY};
    HWND window = 0;
    RECT rect{};
    for (const ov::ListedWindow& w : ov::ListTopLevelWindows(1)) {
      const RECT& r = w.rect;
      if (m_ptLast.x < r.left || m_ptLast.x >= r.right || m_ptLast.y < r.top ||
          m_ptLast.y >= r.bottom)
        continue;
      if (r.right - r.left >= kMinWindow && r.bottom - r.top >= kMinWindow) {
        window = w.window;
        rect = r;
      }
      break;
    }
    if (!window) {
      m_hwndTarget = 0;
      m_rcTarget = {};
      m_hwndRect.reset();
      continue;
    }
    if (window == m_hwndTarget && rect.left == m_rcTarget.left && rect.top == m_rcTarget.top &&
        rect.right == m_rcTarget.right && rect.bottom == m_rcTarget.bottom)
      continue;
    m_hwndTarget = window;
    m_rcTarget = rect;
    Outline();
    if (m_pCallback) m_pCallback->OnWindowChanged(m_hwndTarget, &m_rcTarget);
  }
}

void CWindowSelection::Outline() {
  const int32_t s = ov::TotalRingWidth(ov::g_WindowBoxStyle);
  const RECT grown{m_rcTarget.left - s, m_rcTarget.top - s, m_rcTarget.right + s,
                   m_rcTarget.bottom + s};
  if (!m_hwndRect) {
    m_hwndRect = std::make_unique<CVideoRender>();
    if (FAILED(m_hwndRect->Initialize(grown, true))) {
      m_hwndRect.reset();
      return;
    }
  } else if (FAILED(m_hwndRect->Resize(grown))) {
    return;
  }
  uint32_t* overlay = m_hwndRect->Overlay();
  const int32_t w = grown.right - grown.left, h = grown.bottom - grown.top;
  ov::DrawRings(overlay, m_hwndRect->OverlayStride(), w, h, ov::g_WindowBoxStyle,
                {s, s, w - s, h - s});
  cairo_surface_t* surface = cairo_image_surface_create_for_data(
      reinterpret_cast<unsigned char*>(overlay), CAIRO_FORMAT_ARGB32, w, h,
      m_hwndRect->OverlayStride() * 4);
  cairo_t* graphics = cairo_create(surface);
  ov::DrawSizeTip(graphics, m_font.get(), kInfoBackground, s + 10, s + 10, m_rcTarget);
  cairo_destroy(graphics);
  cairo_surface_destroy(surface);
  // Without a compositing manager the window shows opaque: only its rings
  // may stand over the desktop then, and the tip is left out.
  if (!m_hwndRect->Translucent()) m_hwndRect->ShowFrameOnly(s);
  m_hwndRect->Draw();
}

extern "C" OV_API void ovSelectWindow(CWindowSelectCallback* callback) {
  WriteLog(ov::kMsg, "Select Window  ...\n");
  ov::StartSelectionEpisode([callback] {
    CWindowSelection selection(callback);
    selection.Run();
  });
}
