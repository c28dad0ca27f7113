#include "overlay/ImageCapture.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <thread>

#include "capture/CursorCatalogue.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "orvanta/displays.h"
#include "overlay/ImageFiles.h"
#include "overlay/ScreenSelection.h"
#include "platform/Clipboard.h"
#include "platform/Clock.h"
#include "platform/InputWindow.h"
#include "platform/MessageQueue.h"
#include "platform/PointerWatcher.h"
#include "platform/ScreenGrabber.h"
#include "platform/Text.h"

CImageCapture* g_pImageCapture = nullptr;

namespace {

constexpr uint32_t kEscape = 0xff1b;  // X key symbol
constexpr int32_t kMinSide = 8;

// What was copied last stays on offer after the capture has ended, as
// users of screenshot tools expect, until the next copy replaces it.
std::mutex g_clipboardLock;
std::unique_ptr<ov::ClipboardOffer> g_clipboard;

struct Job {
  const std::function<void()>* job;
  ov::Event* done;
};

RECT Sorted(POINT a, POINT b) {
  return {std::min(a.x, b.x), std::min(a.y, b.y), std::max(a.x, b.x), std::max(a.y, b.y)};
}

bool SameRect(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

bool Inside(const RECT& r, POINT p) {
  return p.x >= r.left && p.x < r.right && p.y >= r.top && p.y < r.bottom;
}

}  // namespace

struct CImageCapture::Episode {
  ov::Event ready{ov::Event::Reset::Manual};
  ov::Event ended{ov::Event::Reset::Manual};
  bool ok = false;
  std::thread::id thread;
};

CImageCapture::CImageCapture(CImageCaptureCallback* callback, BOOL bAllDisplays)
    : m_pCallback(callback), m_bAllDisplays(bAllDisplays) {}

CImageCapture::~CImageCapture() {
  EndEpisode();
  g_pImageCapture = nullptr;
  if (m_pQueue && m_hwnd) m_pQueue->Unwatch(m_hwnd->Fd());
  if (m_pQueue && m_pSprayTimer) m_pQueue->Unwatch(m_pSprayTimer->Fd());
  if (m_hwnd) m_hwnd->Capture(false);
  m_hwnd.reset();
  m_window.reset();
  m_shapes.Reset();
  if (m_pBlurBrush) cairo_pattern_destroy(m_pBlurBrush);
  if (m_pPictureBrush) cairo_pattern_destroy(m_pPictureBrush);
  if (m_pBlurredBitmap) cairo_surface_destroy(m_pBlurredBitmap);
  if (m_pPictureBitmap) cairo_surface_destroy(m_pPictureBitmap);
  if (m_pCanvasGraphics) cairo_destroy(m_pCanvasGraphics);
  if (m_pCanvasBitmap) cairo_surface_destroy(m_pCanvasBitmap);
  if (m_zoom.graphics) cairo_destroy(m_zoom.graphics);
  if (m_pOverlaySurface) cairo_surface_destroy(m_pOverlaySurface);
}

bool CImageCapture::Launch() {
  auto episode = std::make_shared<Episode>();
  m_episode = episode;
  if (!ov::StartSelectionEpisode([this, episode] {
        Run(episode);
        episode->ended.Set();
      })) {
    delete this;
    return false;
  }
  episode->ready.Wait();
  if (episode->ok) return true;
  episode->ended.Wait();
  return false;
}

void CImageCapture::Run(const std::shared_ptr<Episode>& episode) {
  episode->thread = std::this_thread::get_id();
  ov::MessageQueue queue;
  m_pQueue = &queue;
  m_dwThreadId = queue.ThreadId();
  episode->ok = SetUp(queue);
  episode->ready.Set();
  ov::Message msg;
  while (episode->ok && !m_bDone && queue.Get(&msg)) {
    if (msg.message == kInvoke) {
      const Job* job = reinterpret_cast<const Job*>(msg.lParam);
      (*job->job)();
      job->done->Set();
    }
  }
  // Calls that came in meanwhile are answered before the queue goes.
  queue.Post({0, ov::WM_QUIT, 0, 0});
  while (queue.Get(&msg))
    if (msg.message == kInvoke) reinterpret_cast<const Job*>(msg.lParam)->done->Set();
  delete this;
}

void CImageCapture::EndEpisode() {
  if (m_bEpisodeEnded) return;
  m_bEpisodeEnded = true;
  ov::EndSelectionEpisode();
}

void CImageCapture::Call(const std::function<void()>& job) {
  if (std::this_thread::get_id() == m_episode->thread) {
    job();
    return;
  }
  ov::Event done(ov::Event::Reset::Manual);
  Job message{&job, &done};
  if (!ov::MessageQueue::PostThreadMessage(m_dwThreadId, kInvoke, 0,
                                           reinterpret_cast<int64_t>(&message)))
    return;
  done.Wait();
}

bool CImageCapture::SetUp(ov::MessageQueue& queue) {
  m_font = ov::MakeFont("Tahoma", 12);
  m_nRingWidth = ov::TotalRingWidth(ov::g_ImageCropBoxStyle);
  g_pImageCapture = this;
  m_rcSurface = g_rcDisplay;
  if (m_bAllDisplays && GetDisplayCount() >= 2) {
    for (int32_t i = 0; i < GetDisplayCount(); ++i) {
      const RECT& r = GetDisplayInfo(i)->rcMonitor;
      m_rcSurface = {std::min(m_rcSurface.left, r.left), std::min(m_rcSurface.top, r.top),
                     std::max(m_rcSurface.right, r.right), std::max(m_rcSurface.bottom, r.bottom)};
    }
  }
  m_nWidth = m_rcSurface.right - m_rcSurface.left;
  m_nHeight = m_rcSurface.bottom - m_rcSurface.top;
  m_rcWhole = {0, 0, m_nWidth, m_nHeight};
  m_rcSelection = m_rcWhole;
  // The host's windows must be gone from the screen before the picture.
  ov::SleepMs(300);
  m_Windows = ov::ListTopLevelWindows(1);

  const size_t pixels = static_cast<size_t>(m_nWidth) * m_nHeight;
  m_pPicture.assign(pixels, 0);
  auto grabber = ov::CreateScreenGrabber(m_nWidth, m_nHeight);
  if (!grabber || !grabber->Grab(m_rcSurface.left, m_rcSurface.top, m_nWidth, m_nHeight,
                                 reinterpret_cast<uint8_t*>(m_pPicture.data()), m_nWidth * 4)) {
    WriteLog(ov::kErr, "Failed to freeze the screen\n");
    return false;
  }
  for (uint32_t& p : m_pPicture) p |= 0xFF000000u;
  const int32_t pitch = m_nWidth * 4;
  m_pPictureBitmap =
      cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(m_pPicture.data()),
                                          CAIRO_FORMAT_RGB24, m_nWidth, m_nHeight, pitch);

  m_hwnd = ov::CreateInputWindow(m_rcSurface);
  m_pSprayTimer = ov::CreatePeriodicTimer();
  if (!m_hwnd || !m_pSprayTimer) {
    WriteLog(ov::kErr, "Failed(0x%x) in CreateInputWindow(%d, %d), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), m_nWidth, m_nHeight, OV_FILE, __LINE__);
    return false;
  }
  if (FAILED(Initialize(m_rcSurface, false)) || !Overlay())
    WriteLog(ov::kErr, "Failed(0x%x) in Initialize, FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), "ImageCapture", __LINE__);
  SetPicture(reinterpret_cast<const uint8_t*>(m_pPicture.data()), pitch);

  m_pCanvas.assign(pixels, 0);
  m_pCanvasBitmap =
      cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(m_pCanvas.data()),
                                          CAIRO_FORMAT_ARGB32, m_nWidth, m_nHeight, pitch);
  m_pCanvasGraphics = cairo_create(m_pCanvasBitmap);
  cairo_set_antialias(m_pCanvasGraphics, CAIRO_ANTIALIAS_NONE);

  m_pPictureBrush = cairo_pattern_create_for_surface(m_pPictureBitmap);

  if (Overlay()) {
    m_pOverlaySurface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(Overlay()), CAIRO_FORMAT_ARGB32, m_Width, m_Height,
        OverlayStride() * 4);
    m_zoom = {m_font.get(),      cairo_create(m_pOverlaySurface),
              Overlay(),         OverlayStride(),
              m_Width,           m_Height,
              m_pPicture.data(), m_nWidth,
              m_nHeight};
  }
  queue.Watch(m_hwnd->Fd(), [this, &queue] {
    OnInput();
    if (m_bDone) queue.Post({0, ov::WM_QUIT, 0, 0});
  });
  queue.Watch(m_pSprayTimer->Fd(), [this] {
    CCanvasShape* shape = m_shapes.Current();
    if (!m_pSprayTimer->Drain() || !m_nTimer || m_Tool.tool != 6 || !shape) return;
    int32_t x = 0, y = 0;
    if (!ov::QueryPointer(&x, &y)) return;
    shape->Tick(ClampToSelection({x - m_rcSurface.left, y - m_rcSurface.top}));
    Redraw();
  });
  POINT at{m_nWidth / 2, m_nHeight / 2};
  int32_t x, y;
  if (ov::QueryPointer(&x, &y))
    at = {std::clamp(x - m_rcSurface.left, 0, m_nWidth - 1),
          std::clamp(y - m_rcSurface.top, 0, m_nHeight - 1)};
  m_ptLast = at;
  SetCursor(&ov::g_Cursors.cross);
  Hover(at);
  m_hwnd->Show(true);
  m_hwnd->TakeFocus();
  return true;
}

void CImageCapture::MakeBlur() {
  if (m_pBlurBrush) cairo_pattern_destroy(m_pBlurBrush);
  m_pBlurBrush = nullptr;
  if (!m_pBlurredBitmap) {
    m_pBlurred.assign(m_pPicture.size(), 0);
    m_pBlurredBitmap =
        cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(m_pBlurred.data()),
                                            CAIRO_FORMAT_RGB24, m_nWidth, m_nHeight, m_nWidth * 4);
  }
  cairo_surface_flush(m_pBlurredBitmap);
  if (FAILED(GaussianBlur(reinterpret_cast<const uint8_t*>(m_pPicture.data()),
                          reinterpret_cast<uint8_t*>(m_pBlurred.data()), m_nBlurLevel)))
    return;
  cairo_surface_mark_dirty(m_pBlurredBitmap);
  m_pBlurBrush = cairo_pattern_create_for_surface(m_pBlurredBitmap);
}

void CImageCapture::SetCursor(const ov::PointerShape* shape) {
  if (m_hwnd) m_hwnd->SetCursor(shape);
}

// Selecting: as the region selection, without telling the host until the
// selection is finished.

void CImageCapture::Hover(POINT point) {
  HWND window = 0;
  RECT clipped, inWindow;
  const POINT screen{point.x + m_rcSurface.left, point.y + m_rcSurface.top};
  if (ov::FindWindowAt(m_Windows, screen, &window, &clipped, &inWindow)) {
    if (window != m_hwndHover) {
      m_hwndHover = window;
      m_rcSelection = {clipped.left - m_rcSurface.left, clipped.top - m_rcSurface.top,
                       clipped.right - m_rcSurface.left, clipped.bottom - m_rcSurface.top};
    }
  } else {
    m_hwndHover = 0;
    m_rcSelection = m_rcWhole;
  }
  DrawSelecting(point, true);
}

void CImageCapture::DrawSelecting(POINT point, bool crosshair) {
  uint32_t* overlay = Overlay();
  if (!overlay) return;
  std::fill(overlay, overlay + static_cast<size_t>(OverlayStride()) * m_Height, 0u);
  ov::DrawRings(overlay, OverlayStride(), m_Width, m_Height, ov::g_ImageBoxStyle, m_rcSelection);
  if (crosshair) ov::DrawCrosshair(m_zoom, point.x, point.y);
  cairo_surface_mark_dirty(m_pOverlaySurface);
  const RECT screen{m_rcSelection.left + m_rcSurface.left, m_rcSelection.top + m_rcSurface.top,
                    m_rcSelection.right + m_rcSurface.left, m_rcSelection.bottom + m_rcSurface.top};
  ov::DrawZoomGlass(m_zoom, point.x, point.y, point.x, point.y, screen);
  cairo_surface_flush(m_pOverlaySurface);
  const float crop[4] = {static_cast<float>(m_rcSelection.left) / m_Width,
                         static_cast<float>(m_rcSelection.top) / m_Height,
                         static_cast<float>(m_rcSelection.right) / m_Width,
                         static_cast<float>(m_rcSelection.bottom) / m_Height};
  SetCropRect(crop);
  Draw();
}

void CImageCapture::OnInput() {
  ov::InputEvent e;
  while (!m_bDone && m_hwnd->NextEvent(&e)) {
    const POINT p{std::clamp(e.x, 0, m_nWidth - 1), std::clamp(e.y, 0, m_nHeight - 1)};
    if (m_nState < 3)
      OnSelecting(e, p);
    else
      OnEditing(e, p);
  }
}

void CImageCapture::OnSelecting(const ov::InputEvent& e, POINT p) {
  if (e.type == ov::InputEvent::kKey) {
    if (e.keysym == kEscape) {
      EndEpisode();
      if (m_pCallback) m_pCallback->OnCancelled();
      m_bDone = true;
    }
    return;
  }
  if (e.type != ov::InputEvent::kMotion && e.button != 1) return;
  if (e.type == ov::InputEvent::kMotion) {
    if (p.x == m_ptLast.x && p.y == m_ptLast.y) return;
    m_ptLast = p;
    if (m_nState == 0) {
      Hover(p);
    } else if (m_nState == 1) {
      const bool far = std::abs(p.x - m_ptPress.x) >= 4 && std::abs(p.y - m_ptPress.y) >= 4;
      const bool slow =
          ov::TickCount() - m_nPressTick >= 401 && (p.x != m_ptPress.x || p.y != m_ptPress.y);
      if (far || slow) {
        m_nState = 2;
        m_rcSelection = Sorted(m_ptPress, p);
        m_hwndHover = 0;
        DrawSelecting(p, false);
      } else {
        Hover(p);
      }
    } else {
      const RECT r = Sorted(m_ptPress, p);
      if (!SameRect(r, m_rcSelection)) {
        m_rcSelection = r;
        DrawSelecting(p, false);
      }
    }
  } else if (e.type == ov::InputEvent::kButtonDown && m_nState == 0) {
    m_ptPress = p;
    m_nPressTick = ov::TickCount();
    if (p.x != m_ptLast.x || p.y != m_ptLast.y) {
      m_ptLast = p;
      Hover(p);
    }
    m_hwnd->Capture(true);
    m_nState = 1;
  } else if (e.type == ov::InputEvent::kButtonUp) {
    if (m_nState == 0) {
      m_hwnd->Capture(false);
    } else if (m_nState == 1 || (m_rcSelection.right - m_rcSelection.left >= kMinSide &&
                                 m_rcSelection.bottom - m_rcSelection.top >= kMinSide)) {
      m_hwnd->Capture(false);
      EnterEditing();
    } else {
      m_nState = 0;
      m_hwndHover = 0;
      Hover(p);
      m_hwnd->Capture(false);
    }
  }
}

void CImageCapture::EnterEditing() {
  m_nState = 3;
  SetCursor(m_Tool.tool ? ToolCursor(m_Tool) : &ov::g_Cursors.size[0]);
  RebuildHitTable();
  Render();
  if (m_pCallback) m_pCallback->OnSelected(&m_rcSelection);
}

void CImageCapture::RebuildHitTable() {
  ov::BuildHitTable(m_HitTable, m_rcSelection, m_nRingWidth, ov::g_ImageCropHandle.nSize, false);
}

// Editing: the selection adjusted by its handles with no tool, drawn on
// with one.

void CImageCapture::OnEditing(const ov::InputEvent& e, POINT p) {
  if (m_Tool.tool != 0) {
    OnDrawing(e, p);
    return;
  }
  if (m_nDragHit) {
    OnAdjusting(e, p);
    return;
  }
  const bool noMove = SameRect(m_rcSelection, m_rcWhole);
  if (e.type == ov::InputEvent::kMotion) {
    SetCursor(&ov::g_Cursors.size[ov::HitTest(m_HitTable, noMove, p, false)]);
  } else if (e.type == ov::InputEvent::kButtonDown && e.button == 1) {
    const int32_t hit = ov::HitTest(m_HitTable, noMove, p, false);
    if (!hit) return;
    // The grab starts on the edge itself.
    const RECT& s = m_rcSelection;
    if (hit == ov::kHitTop || hit == ov::kHitTopLeft || hit == ov::kHitTopRight) p.y = s.top;
    if (hit == ov::kHitBottom || hit == ov::kHitBottomLeft || hit == ov::kHitBottomRight)
      p.y = s.bottom;
    if (hit == ov::kHitLeft || hit == ov::kHitTopLeft || hit == ov::kHitBottomLeft) p.x = s.left;
    if (hit == ov::kHitRight || hit == ov::kHitTopRight || hit == ov::kHitBottomRight)
      p.x = s.right;
    // An edge on the surface's border lies a pixel past the last the
    // pointer can reach. The pointer itself stays where it is: moved under
    // a drag already on its way, it would undo the drag's last moves.
    p = {std::min(p.x, m_nWidth - 1), std::min(p.y, m_nHeight - 1)};
    m_nDragHit = hit;
    m_rcDragStart = m_rcSelection;
    m_ptDragStart = m_ptDragLast = p;
    m_hwnd->Capture(true);
    SetCursor(&ov::g_Cursors.size[hit]);
    if (m_pCallback) m_pCallback->OnAdjustBegin();
  }
}

void CImageCapture::OnAdjusting(const ov::InputEvent& e, POINT p) {
  if (e.type == ov::InputEvent::kButtonUp && e.button == 1) {
    EndAdjusting();
    return;
  }
  if (e.type != ov::InputEvent::kMotion) return;
  if (p.x == m_ptDragLast.x && p.y == m_ptDragLast.y) return;
  m_ptDragLast = p;
  const RECT& d = m_rcDragStart;
  const POINT& s = m_ptDragStart;
  RECT r = m_rcSelection;
  const int32_t hit = m_nDragHit;
  const bool top = hit == ov::kHitTop || hit == ov::kHitTopLeft || hit == ov::kHitTopRight;
  const bool bottom =
      hit == ov::kHitBottom || hit == ov::kHitBottomLeft || hit == ov::kHitBottomRight;
  const bool left = hit == ov::kHitLeft || hit == ov::kHitTopLeft || hit == ov::kHitBottomLeft;
  const bool right = hit == ov::kHitRight || hit == ov::kHitTopRight || hit == ov::kHitBottomRight;
  if (top) {
    r.top = std::max(d.top - s.y + p.y, 0);
    if (r.bottom - r.top < kMinSide) r.top = r.bottom - kMinSide;
  }
  if (bottom) {
    r.bottom = std::min(d.bottom - s.y + p.y, m_nHeight);
    if (r.bottom - r.top < kMinSide) r.bottom = r.top + kMinSide;
  }
  if (left) {
    r.left = std::max(d.left - s.x + p.x, 0);
    if (r.right - r.left < kMinSide) r.left = r.right - kMinSide;
  }
  if (right) {
    r.right = std::min(d.right - s.x + p.x, m_nWidth);
    if (r.right - r.left < kMinSide) r.right = r.left + kMinSide;
  }
  if (hit == ov::kHitMove) {
    int32_t dx = p.x - s.x, dy = p.y - s.y;
    dx = std::max(dx, -d.left);
    dy = std::max(dy, -d.top);
    dx = std::min(dx, m_nWidth - d.right);
    dy = std::min(dy, m_nHeight - d.bottom);
    r = {d.left + dx, d.top + dy, d.right + dx, d.bottom + dy};
  }
  if (SameRect(r, m_rcSelection)) return;
  m_rcSelection = r;
  RebuildHitTable();
  Render();
  if (m_pCallback) m_pCallback->OnAdjusting(&m_rcSelection);
}

void CImageCapture::EndAdjusting() {
  m_nDragHit = 0;
  m_hwnd->Capture(false);
  RebuildHitTable();
  Render();
  if (m_pCallback) m_pCallback->OnAdjustEnd();
}

POINT CImageCapture::ClampToSelection(POINT p) const {
  const RECT& s = m_rcSelection;
  return {std::clamp(p.x, s.left, std::max(s.left, s.right - 1)),
          std::clamp(p.y, s.top, std::max(s.top, s.bottom - 1))};
}

void CImageCapture::OnDrawing(const ov::InputEvent& e, POINT p) {
  CCanvasShape* shape = m_shapes.Current();
  switch (e.type) {
    case ov::InputEvent::kButtonDown: {
      if (e.button != 1) return;
      if (shape) {
        if (m_Tool.tool == 8) shape->Finish();
        return;
      }
      if (!Inside(m_rcSelection, p)) return;
      m_ptShape = ClampToSelection(p);
      const ShapeSurface surface{this, m_nWidth, m_nHeight, &m_pPictureBrush, &m_pBlurBrush};
      {
        std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
        shape = m_shapes.Begin(m_Tool, m_ptShape, surface);
      }
      if (!shape) return;
      if (m_Tool.tool == 6) {
        m_pSprayTimer->Set(10);
        m_nTimer = 1;
      } else if (m_Tool.tool == 7 && m_pCallback) {
        m_pCallback->OnNumberChanged(g_nCanvasNumber);
      } else if (m_Tool.tool == 8) {
        m_hwnd->TakeFocus();
      }
      if (m_Tool.tool != 8) m_hwnd->Capture(true);
      SetCursor(ToolCursor(m_Tool));
      if (shape->m_bVisible) Redraw();
      return;
    }
    case ov::InputEvent::kMotion:
      if (!shape) {
        SetCursor(Inside(m_rcSelection, p) ? ToolCursor(m_Tool) : &ov::g_Cursors.no);
        return;
      }
      if (m_Tool.tool == 8) return;
      p = ClampToSelection(p);
      if (p.x == m_ptShape.x && p.y == m_ptShape.y) return;
      m_ptShape = p;
      if (shape->MoveTo(p)) Redraw();
      return;
    case ov::InputEvent::kButtonUp:
      if (e.button == 1 && shape && m_Tool.tool != 8) EndShape(true, p);
      return;
    case ov::InputEvent::kKey:
      if (m_Tool.tool == 8 && shape)
        static_cast<CTextShape*>(shape)->OnKey(TextKey(e.keysym, e.control), e.text, e.shift);
      return;
    case ov::InputEvent::kFocusLost:
      if (m_Tool.tool == 8 && shape) shape->Finish();
      return;
    default:
      return;
  }
}

void CImageCapture::EndShape(bool move, POINT p) {
  CCanvasShape* shape = m_shapes.Current();
  shape->EndDrag();
  if (m_nTimer) {
    m_pSprayTimer->Set(0);
    m_nTimer = 0;
  }
  p = ClampToSelection(p);
  if (move && (p.x != m_ptShape.x || p.y != m_ptShape.y)) shape->MoveTo(p);
  Commit();
  Redraw();
  m_hwnd->Capture(false);
}

void CImageCapture::Commit() {
  if (!m_shapes.Current()) return;
  m_shapes.Commit();
  if (m_pCallback) m_pCallback->OnUndoState(m_shapes.CanUndo(), 0);
}

void CImageCapture::Redraw() {
  if (!m_pCanvasGraphics) return;
  std::fill(m_pCanvas.begin(), m_pCanvas.end(), 0u);
  cairo_surface_mark_dirty(m_pCanvasBitmap);
  m_bHasContent = m_shapes.Paint(m_pCanvasGraphics);
  cairo_surface_flush(m_pCanvasBitmap);
  // While selecting, the shapes wait for the selection to be finished.
  if (m_nState == 3) Render();
}

// The overlay carries the shapes inside the selection and, over them, the
// rings, the handles or the zoom glass.
void CImageCapture::Render() {
  uint32_t* overlay = Overlay();
  if (!overlay) return;
  const int32_t stride = OverlayStride();
  std::fill(overlay, overlay + static_cast<size_t>(stride) * m_Height, 0u);
  const RECT& s = m_rcSelection;
  if (m_bHasContent)
    for (int32_t y = s.top; y < s.bottom; ++y)
      memcpy(overlay + static_cast<size_t>(y) * stride + s.left,
             m_pCanvas.data() + static_cast<size_t>(y) * m_nWidth + s.left,
             static_cast<size_t>(s.right - s.left) * 4);
  ov::DrawRings(overlay, stride, m_Width, m_Height, ov::g_ImageCropBoxStyle, s);
  cairo_surface_mark_dirty(m_pOverlaySurface);
  if (m_Tool.tool == 0) {
    if (m_nDragHit == 0) {
      ov::DrawHandles(m_zoom.graphics, ov::g_ImageCropHandle, s.left, s.top, s.right - s.left,
                      s.bottom - s.top, false);
    } else if (m_nDragHit != ov::kHitMove) {
      const RECT screen{s.left + m_rcSurface.left, s.top + m_rcSurface.top,
                        s.right + m_rcSurface.left, s.bottom + m_rcSurface.top};
      ov::DrawZoomGlass(m_zoom, m_ptDragLast.x, m_ptDragLast.y, m_ptDragLast.x, m_ptDragLast.y,
                        screen);
    }
  }
  cairo_surface_flush(m_pOverlaySurface);
  const float crop[4] = {static_cast<float>(s.left) / m_Width, static_cast<float>(s.top) / m_Height,
                         static_cast<float>(s.right) / m_Width,
                         static_cast<float>(s.bottom) / m_Height};
  SetCropRect(crop);
  Draw();
}

std::vector<uint32_t> CImageCapture::Compose() const {
  const RECT& s = m_rcSelection;
  const int32_t w = s.right - s.left, h = s.bottom - s.top;
  std::vector<uint32_t> out(static_cast<size_t>(w) * h);
  for (int32_t y = 0; y < h; ++y)
    memcpy(out.data() + static_cast<size_t>(y) * w,
           m_pPicture.data() + static_cast<size_t>(y + s.top) * m_nWidth + s.left,
           static_cast<size_t>(w) * 4);
  if (m_bHasContent) {
    cairo_surface_t* target = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(out.data()), CAIRO_FORMAT_RGB24, w, h, w * 4);
    cairo_t* g = cairo_create(target);
    cairo_set_source_surface(g, m_pCanvasBitmap, -s.left, -s.top);
    cairo_paint(g);
    cairo_destroy(g);
    cairo_surface_destroy(target);
  }
  return out;
}

// The host's operations.

void CImageCapture::Start(int tool, int size, uint32_t color, uint32_t color2,
                          const wchar_t* fontName, int nFontStyle) {
  WriteLog(ov::kMsg, "Canvas start = %d\n", tool);
  const uint32_t alpha = color >> 24;
  if (alpha == 0)
    color |= 0xFF000000u;
  else if (alpha < 32)
    color = (color & 0xFFFFFFu) | 0x20000000u;
  const std::string font = fontName ? ov::ToUtf8(std::wstring(fontName).substr(0, 63)) : "";
  Call([&] {
    m_Tool.tool = tool;
    m_Tool.size = size;
    m_Tool.color = color;
    m_Tool.color2 = color2;
    m_Tool.fontStyle = nFontStyle;
    if (fontName) m_Tool.font = font;
    // The blur costs a good part of a second on a large screen: it is made
    // once a blur tool is chosen, not for every capture.
    if ((tool == 11 || tool == 12) && !m_pBlurBrush) MakeBlur();
    if (CCanvasShape* shape = m_shapes.Current()) {
      shape->Finish();
      if (m_shapes.Current()) EndShape(false, m_ptShape);
    }
    Redraw();
    if (m_nState == 3) SetCursor(tool ? ToolCursor(m_Tool) : &ov::g_Cursors.size[0]);
  });
}

void CImageCapture::Stop() {
  Call([this] {
    m_Tool.tool = 0;
    if (CCanvasShape* shape = m_shapes.Current()) {
      shape->Finish();
      if (m_shapes.Current()) EndShape(false, m_ptShape);
    }
    Redraw();
    if (m_nState == 3) SetCursor(&ov::g_Cursors.size[0]);
  });
}

void CImageCapture::Redo() {
  Call([this] {
    if (!m_shapes.Redo()) return;
    Redraw();
    if (m_pCallback) m_pCallback->OnUndoState(m_shapes.CanUndo(), m_shapes.CanRedo());
  });
}

void CImageCapture::Undo() {
  Call([this] {
    if (!m_shapes.Undo()) return;
    Redraw();
    if (m_pCallback) m_pCallback->OnUndoState(m_shapes.CanUndo(), m_shapes.CanRedo());
  });
}

void CImageCapture::Clear() {
  Call([this] {
    if (!m_shapes.Clear()) return;
    Redraw();
    if (m_pCallback) m_pCallback->OnUndoState(m_shapes.CanUndo(), m_shapes.CanRedo());
  });
}

int CImageCapture::GetShapeCount() {
  int n = 0;
  Call([&] { n = m_shapes.Count(); });
  return n;
}

BOOL CImageCapture::CanRedo() {
  BOOL can = 0;
  Call([&] { can = m_shapes.CanRedo(); });
  return can;
}

BOOL CImageCapture::CanUndo() {
  BOOL can = 0;
  Call([&] { can = m_shapes.CanUndo(); });
  return can;
}

void CImageCapture::SetNumber(int n) {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  g_nCanvasNumber = n;
}

void CImageCapture::Release() {
  const std::shared_ptr<Episode> episode = m_episode;
  Call([this] { m_bDone = true; });
  if (std::this_thread::get_id() != episode->thread) episode->ended.Wait();
}

void CImageCapture::Close() {
  const std::shared_ptr<Episode> episode = m_episode;
  Call([this] {
    EndEpisode();
    if (m_pCallback) m_pCallback->OnClosed();
    m_bDone = true;
  });
  if (std::this_thread::get_id() != episode->thread) episode->ended.Wait();
}

HRESULT CImageCapture::SaveToFile(int encoder, const wchar_t* path) {
  HRESULT hr = E_FAIL;
  Call([&] {
    const std::vector<uint32_t> picture = Compose();
    const int32_t w = m_rcSelection.right - m_rcSelection.left;
    hr = ov::SaveImageFile(encoder,
                           {reinterpret_cast<const uint8_t*>(picture.data()), w,
                            m_rcSelection.bottom - m_rcSelection.top, w * 4},
                           path);
  });
  if (FAILED(hr))
    WriteLog(ov::kErr, "Failed(0x%x) to save the picture as %d\n", static_cast<unsigned>(hr),
             encoder);
  return hr;
}

void CImageCapture::CopyToClipboard() {
  ov::ClipboardContents contents;
  Call([&] {
    const std::vector<uint32_t> picture = Compose();
    const int32_t w = m_rcSelection.right - m_rcSelection.left;
    const ov::StillPicture still{reinterpret_cast<const uint8_t*>(picture.data()), w,
                                 m_rcSelection.bottom - m_rcSelection.top, w * 4};
    for (int32_t encoder : {ov::kEncoderPng, ov::kEncoderBmp}) {
      std::vector<uint8_t> bytes;
      if (ov::EncodeImage(encoder, still, &bytes))
        contents.emplace_back(ov::ImageEncoderType(encoder), std::move(bytes));
    }
  });
  std::lock_guard<std::mutex> lock(g_clipboardLock);
  g_clipboard.reset();
  if (!contents.empty()) g_clipboard = ov::OfferClipboard(std::move(contents));
  if (!g_clipboard) WriteLog(ov::kErr, "Failed to put the picture on the clipboard\n");
}

void CImageCapture::SetBlurLevel(int level) {
  Call([&] {
    if (level < 1 || level > 100 || level == m_nBlurLevel) return;
    m_nBlurLevel = level;
    if (!m_pBlurBrush) return;  // made when a blur tool is first chosen
    MakeBlur();
    if (m_nState == 3) Redraw();
  });
}

void CImageCapture::SetSelection(const RECT* rc) {
  Call([&] {
    const RECT& d = m_rcSurface;
    const RECT r = rc ? *rc : RECT{};
    if (r.left >= r.right || r.top >= r.bottom || r.left < d.left || r.top < d.top ||
        r.right > d.right || r.bottom > d.bottom) {
      WriteLog(ov::kErr, "Error rect: %dx%d-%dx%d\n", r.left, r.top, r.right, r.bottom);
      WriteLog(ov::kErr, "Display rect: %dx%d-%dx%d\n", d.left, d.top, d.right, d.bottom);
      return;
    }
    const RECT local{r.left - d.left, r.top - d.top, r.right - d.left, r.bottom - d.top};
    if (SameRect(local, m_rcSelection)) return;
    m_rcSelection = local;
    RebuildHitTable();
    Render();
  });
}

void CImageCapture::OnTextChanged() { Redraw(); }

void CImageCapture::OnTextFinished(BOOL bKeep) {
  if (!m_shapes.Current()) return;
  if (bKeep) {
    Commit();
    Redraw();
  } else {
    m_shapes.DropCurrent();
  }
}

void ov::DropCopiedImage() {
  std::lock_guard<std::mutex> lock(g_clipboardLock);
  g_clipboard.reset();
}

extern "C" OV_API CImageCaptureObject* CreateImageCapture(CImageCaptureCallback* callback,
                                                          BOOL bAllDisplays) {
  WriteLog(ov::kMsg, "Image capture ...\n");
  auto* capture = new CImageCapture(callback, bAllDisplays);
  return capture->Launch() ? capture : nullptr;
}
