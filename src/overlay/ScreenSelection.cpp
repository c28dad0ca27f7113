#include "overlay/ScreenSelection.h"

#include <cairo.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

#include "core/Globals.h"
#include "core/Log.h"
#include "overlay/BoxStyles.h"
#include "platform/Clock.h"
#include "platform/MessageQueue.h"
#include "platform/OverlayWindow.h"
#include "platform/PointerWatcher.h"
#include "platform/ScreenGrabber.h"

namespace ov {

namespace {

constexpr uint32_t kEscape = 0xff1b;  // X key symbol
constexpr int32_t kMinWindow = 33;    // both sides over 32 pixels

// The episodes' threads: one runs at a time; one that has ended its
// episode is joined when the next starts (unless that start comes from its
// own callback) or at the end of the process.
struct EpisodeThreads {
  ~EpisodeThreads() {
    for (std::thread& t : threads) t.join();
  }
  std::mutex lock;
  std::vector<std::thread> threads;
  std::atomic<bool> running{false};
} g_episodes;
RECT Sorted(POINT a, POINT b) {
  return {std::min(a.x, b.x), std::min(a.y, b.y), std::max(a.x, b.x), std::max(a.y, b.y)};
}

bool SameRect(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

}  // namespace

bool StartSelectionEpisode(std::function<void()> episode) {
  std::lock_guard<std::mutex> lock(g_episodes.lock);
  if (g_episodes.running.load()) {
    WriteLog(kErr, "A selection is already running\n");
    return false;
  }
  auto& threads = g_episodes.threads;
  for (auto it = threads.begin(); it != threads.end();) {
    if (it->get_id() == std::this_thread::get_id()) {
      ++it;
      continue;
    }
    it->join();
    it = threads.erase(it);
  }
  g_episodes.running = true;
  threads.emplace_back(std::move(episode));
  return true;
}

void EndSelectionEpisode() { g_episodes.running = false; }

bool FindWindowAt(const std::vector<ListedWindow>& windows, POINT point, HWND* window,
                  RECT* clipped, RECT* inWindow) {
  for (const ListedWindow& w : windows) {
    const RECT& r = w.rect;
    if (point.x < r.left || point.x >= r.right || point.y < r.top || point.y >= r.bottom) continue;
    const RECT& d = g_rcDisplay;
    RECT c{std::max(r.left, d.left), std::max(r.top, d.top), std::min(r.right, d.right),
           std::min(r.bottom, d.bottom)};
    if (c.right - c.left < kMinWindow || c.bottom - c.top < kMinWindow) return false;
    *window = w.window;
    *clipped = c;
    const int32_t left = c.left - r.left, top = c.top - r.top;
    *inWindow = {left, top, left + (r.right - r.left), top + (r.bottom - r.top)};
    return true;
  }
  return false;
}

}  // namespace ov

CScreenBoxSelection::CScreenBoxSelection(HWND host, CSelectionCallback* callback)
    : m_hwndHost(host), m_pCallback(callback) {}

CScreenBoxSelection::~CScreenBoxSelection() {
  if (m_input) m_input->Capture(false);
  m_input.reset();
  m_window.reset();
  if (m_pOverlaySurface) cairo_surface_destroy(m_pOverlaySurface);
  if (m_zoom.graphics) cairo_destroy(m_zoom.graphics);
  ov::EndSelectionEpisode();
  if (m_pCallback) m_pCallback->OnSelectionFinished(m_bCancelled);
  ov::ShowWindow(m_hwndHost, true);
}

bool CScreenBoxSelection::SetUp(ov::MessageQueue& queue) {
  m_font = ov::MakeFont("Tahoma", 12);
  m_rcDisplay = {0, 0, g_rcDisplay.right - g_rcDisplay.left, g_rcDisplay.bottom - g_rcDisplay.top};
  m_nWidth = m_rcDisplay.right;
  m_nHeight = m_rcDisplay.bottom;
  m_rcSelection = m_rcDisplay;
  ov::ShowWindow(m_hwndHost, false);
  // The host's window must be gone from the screen before the picture.
  ov::SleepMs(300);
  m_Windows = ov::ListTopLevelWindows(1);
  for (const ov::ListedWindow& w : m_Windows)
    WriteLog(ov::kMsg, "hwnd=%p, Rect=%dx%d-%dx%d(%dx%d), szText=%ls, szClass=%ls\n",
             reinterpret_cast<void*>(w.window), w.rect.left, w.rect.top, w.rect.right,
             w.rect.bottom, w.rect.right - w.rect.left, w.rect.bottom - w.rect.top, L"", L"");
  m_pFrozen.assign(static_cast<size_t>(m_nWidth) * m_nHeight, 0);
  auto grabber = ov::CreateScreenGrabber(m_nWidth, m_nHeight);
  if (!grabber || !grabber->Grab(g_rcDisplay.left, g_rcDisplay.top, m_nWidth, m_nHeight,
                                 reinterpret_cast<uint8_t*>(m_pFrozen.data()), m_nWidth * 4))
    WriteLog(ov::kErr, "Failed to freeze the screen\n");
  for (uint32_t& p : m_pFrozen) p |= 0xFF000000u;
  Initialize(g_rcDisplay, false);
  SetPicture(reinterpret_cast<const uint8_t*>(m_pFrozen.data()), m_nWidth * 4);
  m_input = ov::CreateInputWindow(g_rcDisplay);
  if (!m_input || !Overlay()) return false;
  m_pOverlaySurface = cairo_image_surface_create_for_data(
      reinterpret_cast<unsigned char*>(Overlay()), CAIRO_FORMAT_ARGB32, m_Width, m_Height,
      OverlayStride() * 4);
  m_zoom = {m_font.get(),     cairo_create(m_pOverlaySurface),
            Overlay(),        OverlayStride(),
            m_Width,          m_Height,
            m_pFrozen.data(), m_nWidth,
            m_nHeight};
  m_input->Show(true);
  m_input->TakeFocus();
  queue.Watch(m_input->Fd(), [this, &queue] {
    OnInput();
    if (m_bDone) queue.Post({0, ov::WM_QUIT, 0, 0});
  });
  POINT at{m_nWidth / 2, m_nHeight / 2};
  int32_t x, y;
  if (ov::QueryPointer(&x, &y)) at = {x - g_rcDisplay.left, y - g_rcDisplay.top};
  m_ptLast = at;
  Hover(at);
  return true;
}

void CScreenBoxSelection::Run() {
  ov::MessageQueue queue;
  if (!SetUp(queue)) {
    m_bCancelled = 1;
    return;
  }
  ov::Message msg;
  while (!m_bDone && queue.Get(&msg)) {
  }
  if (m_input) queue.Unwatch(m_input->Fd());
}

void CScreenBoxSelection::Notify() {
  const RECT screen{m_rcSelection.left + g_rcDisplay.left, m_rcSelection.top + g_rcDisplay.top,
                    m_rcSelection.right + g_rcDisplay.left, m_rcSelection.bottom + g_rcDisplay.top};
  if (m_pCallback) m_pCallback->OnSelectionChanged(m_hwndHover, &screen, &m_rcInWindow);
}

void CScreenBoxSelection::Hover(POINT point) {
  HWND window = 0;
  RECT clipped, inWindow;
  const POINT screen{point.x + g_rcDisplay.left, point.y + g_rcDisplay.top};
  if (ov::FindWindowAt(m_Windows, screen, &window, &clipped, &inWindow)) {
    if (window != m_hwndHover) {
      m_hwndHover = window;
      m_rcSelection = {clipped.left - g_rcDisplay.left, clipped.top - g_rcDisplay.top,
                       clipped.right - g_rcDisplay.left, clipped.bottom - g_rcDisplay.top};
      m_rcInWindow = inWindow;
      Notify();
    }
  } else {
    m_hwndHover = 0;
    m_rcSelection = m_rcDisplay;
    m_rcInWindow = {};
    Notify();
  }
  Draw(point, true);
}

void CScreenBoxSelection::Draw(POINT point, bool crosshair) {
  uint32_t* overlay = Overlay();
  if (!overlay) return;
  const int32_t stride = OverlayStride();
  std::fill(overlay, overlay + static_cast<size_t>(stride) * m_Height, 0u);
  ov::DrawRings(overlay, stride, m_Width, m_Height, ov::g_ScreenBoxStyle, m_rcSelection);
  if (crosshair) ov::DrawCrosshair(m_zoom, point.x, point.y);
  cairo_surface_mark_dirty(m_pOverlaySurface);
  ov::DrawZoomGlass(m_zoom, point.x, point.y, point.x, point.y, m_rcSelection);
  cairo_surface_flush(m_pOverlaySurface);
  const float crop[4] = {
      static_cast<float>(m_rcSelection.left) / m_Width,
      static_cast<float>(m_rcSelection.top) / m_Height,
      static_cast<float>(m_rcSelection.right) / m_Width,
      static_cast<float>(m_rcSelection.bottom) / m_Height,
  };
  SetCropRect(crop);
  CVideoRender::Draw();
}

void CScreenBoxSelection::OnInput() {
  ov::InputEvent e;
  while (!m_bDone && m_input->NextEvent(&e)) {
    if (e.type == ov::InputEvent::kKey) {
      if (e.keysym == ov::kEscape) {
        m_bCancelled = 1;
        m_bDone = true;
      }
      continue;  // other keys are swallowed
    }
    if (e.type != ov::InputEvent::kMotion && e.button != 1) continue;
    const POINT p{std::clamp(e.x, 0, m_nWidth - 1), std::clamp(e.y, 0, m_nHeight - 1)};
    if (e.type == ov::InputEvent::kMotion) {
      if (p.x == m_ptLast.x && p.y == m_ptLast.y) continue;
      m_ptLast = p;
      if (m_nState == 0) {
        Hover(p);
      } else if (m_nState == 1) {
        const bool far = std::abs(p.x - m_ptPress.x) >= 4 && std::abs(p.y - m_ptPress.y) >= 4;
        const bool slow =
            ov::TickCount() - m_nPressTick >= 401 && (p.x != m_ptPress.x || p.y != m_ptPress.y);
        if (far || slow) {
          m_nState = 2;
          m_rcSelection = ov::Sorted(m_ptPress, p);
          m_hwndHover = 0;
          m_rcInWindow = {};
          Draw(p, false);
          Notify();
        } else {
          Hover(p);
        }
      } else {
        const RECT r = ov::Sorted(m_ptPress, p);
        if (!ov::SameRect(r, m_rcSelection)) {
          m_rcSelection = r;
          Draw(p, false);
          Notify();
        }
      }
    } else if (e.type == ov::InputEvent::kButtonDown && m_nState == 0) {
      m_ptPress = p;
      m_nPressTick = ov::TickCount();
      if (p.x != m_ptLast.x || p.y != m_ptLast.y) {
        m_ptLast = p;
        Hover(p);
      }
      m_input->Capture(true);
      m_nState = 1;
    } else if (e.type == ov::InputEvent::kButtonUp) {
      if (m_nState == 0) {
        m_input->Capture(false);
      } else if (m_nState == 1) {
        m_bDone = true;
      } else if (m_rcSelection.right - m_rcSelection.left >= 8 &&
                 m_rcSelection.bottom - m_rcSelection.top >= 8) {
        m_bDone = true;
      } else {
        m_nState = 0;
        m_hwndHover = 0;
        Hover(p);
        m_input->Capture(false);
      }
    }
  }
}

extern "C" OV_API void ovSelectScreen(HWND hostWindow, CSelectionCallback* callback) {
  WriteLog(ov::kMsg, "Screen Selection ...\n");
  ov::StartSelectionEpisode([hostWindow, callback] {
    CScreenBoxSelection selection(hostWindow, callback);
    selection.Run();
  });
}
