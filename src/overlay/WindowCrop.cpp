// The window crop: a child window of the host, 8 pixels larger than the
// target window on each side, showing the target live (read the way a
// window recording would read it), dimmed outside the rectangle, with the
// rings and handles that adjust it. A timer follows the target: its size,
// its hiding and its closing.
#include <cairo.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "capture/CursorCatalogue.h"
#include "capture/MagnifierHost.h"
#include "capture/WindowCaptureVideoStream.h"
#include "core/Log.h"
#include "orvanta/boxes.h"
#include "overlay/BoxStyles.h"
#include "overlay/CropBoxes.h"
#include "overlay/VideoRender.h"
#include "platform/InputWindow.h"
#include "platform/OverlayWindow.h"
#include "platform/ScreenGrabber.h"
#include "platform/WindowGrabber.h"
#include "platform/WindowList.h"
#include "platform/XServer.h"

namespace {

enum class Target { Gone, Hidden, Shown };
// Hidden when the window or one of its ancestors is unmapped or iconic.
Target TargetState(HWND window) {
  const ov::WindowState state = ov::QueryWindow(window);
  if (!state.exists) return Target::Gone;
  return state.viewable && !state.iconic ? Target::Shown : Target::Hidden;
}

constexpr int32_t kMargin = 8;
constexpr uint32_t kTickMs = 100;

bool SameRect(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

// rect pulled inside a target of width x height, each side at least 8.
RECT Repair(RECT r, int32_t width, int32_t height) {
  const int32_t m = ov::kMinCropSide;
  width = std::max(width, m);
  height = std::max(height, m);
  r = {std::max(r.left, 0), std::max(r.top, 0), std::min(r.right, width),
       std::min(r.bottom, height)};
  if (r.right - r.left < m) {
    r.left = r.right - m;
    if (r.left < 0) r = {0, r.top, m, r.bottom};
  }
  if (r.bottom - r.top < m) {
    r.top = r.bottom - m;
    if (r.top < 0) r = {r.left, 0, r.right, m};
  }
  return r;
}

class CWindowCrop : public CWindowCropObject, public CVideoRender {
 public:
  CWindowCrop() : CWindowCropObject("CWindowCropObject") {}
  ~CWindowCrop() override { m_thread.Stop(); }

  bool Create(HWND parent, CWindowCropCallback* callback, HWND target, const RECT* rect,
              bool keepRatio) {
    m_hwndParent = parent;
    m_pCallback = callback;
    m_hwndTarget = target;
    m_bKeepRatio = keepRatio;
    m_nRingWidth = ov::TotalRingWidth(ov::g_WindowCropBoxStyle);
    return m_thread.Start([this, rect](ov::MessageQueue& queue) { return SetUp(queue, rect); },
                          [this] { TearDown(); });
  }

  void Destroy() override {
    if (m_thread.OnOwnThread()) m_pCallback = nullptr;
    m_thread.DeleteBox(this);
  }

  HRESULT Reset(const RECT* rect, BOOL bKeepRatio) override {
    if (!rect) return 0;
    const RECT r = *rect;
    m_thread.Call([this, r, bKeepRatio] { OnReset(r, bKeepRatio != 0); });
    return 0;
  }

 private:
  bool SetUp(ov::MessageQueue& queue, const RECT* rect) {
    m_queue = &queue;
    m_nMethod = g_bHardwareCapture.load() ? kWindowMethodMagnifier
                                          : DetectWindowCaptureMethod(m_hwndTarget);
    WriteLog(ov::kMsg, "Window crop method: %d\n", m_nMethod);
    int32_t innerWidth, innerHeight;
    m_target = ov::CreateWindowGrabber(m_hwndTarget, 1, 1);
    if (!m_target || !m_target->Locate(&m_rcTarget, &innerWidth, &innerHeight)) return false;
    m_nTargetWidth = m_rcTarget.right - m_rcTarget.left;
    m_nTargetHeight = m_rcTarget.bottom - m_rcTarget.top;
    m_rcFull = {0, 0, m_nTargetWidth, m_nTargetHeight};
    m_rcCrop = rect ? Repair(*rect, m_nTargetWidth, m_nTargetHeight) : m_rcFull;
    m_nRatioWidth = m_rcCrop.right - m_rcCrop.left;
    m_nRatioHeight = m_rcCrop.bottom - m_rcCrop.top;

    ov::OverlayWindowOptions options;
    options.rect = {0, 0, m_nTargetWidth + 2 * kMargin, m_nTargetHeight + 2 * kMargin};
    options.parent = m_hwndParent;
    m_window = ov::CreateOverlayWindow(options);
    if (!m_window) {
      WriteLog(ov::kErr, "Unable to Create overlay window(%d, %d)\n", options.rect.right,
               options.rect.bottom);
      return false;
    }
    m_hwnd = m_window->Handle();
    m_Width = m_window->Width();
    m_Height = m_window->Height();
    if (FAILED(CreateObjects()) || !MakeSurfaces() || !CreateOffscreen()) return false;
    m_input = ov::CreateInputWindow(options.rect, m_hwndParent);
    m_timer = ov::CreatePeriodicTimer();
    if (!m_input || !m_timer || m_timer->Fd() < 0) return false;
    m_window->Show(true);
    m_input->Show(true);
    queue.Watch(m_input->Fd(), [this] { OnInput(); });
    queue.Watch(m_timer->Fd(), [this] {
      if (m_timer->Drain()) OnTick();
    });
    m_timer->Set(kTickMs);
    RebuildHitTable();
    Paint();
    return true;
  }

  void TearDown() {
    if (m_timer) m_queue->Unwatch(m_timer->Fd());
    if (m_input) m_queue->Unwatch(m_input->Fd());
    m_input.reset();
    m_timer.reset();
    m_window.reset();
    if (m_pMagnifier) CloseMagnifier(m_pMagnifier.get());
    m_pMagnifier.reset();
    if (m_cr) cairo_destroy(m_cr);
    if (m_overlaySurface) cairo_surface_destroy(m_overlaySurface);
    m_cr = nullptr;
    m_overlaySurface = nullptr;
  }

  // The drawing surface over the overlay layer, made anew with the layers.
  bool MakeSurfaces() {
    if (m_cr) cairo_destroy(m_cr);
    if (m_overlaySurface) cairo_surface_destroy(m_overlaySurface);
    m_overlaySurface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(Overlay()), CAIRO_FORMAT_ARGB32, m_Width, m_Height,
        OverlayStride() * 4);
    m_cr = cairo_create(m_overlaySurface);
    return cairo_status(m_cr) == CAIRO_STATUS_SUCCESS;
  }

  // What the target is read into, at the window's size, and the readers
  // for the target's size.
  bool CreateOffscreen() {
    m_pOffscreen.assign(static_cast<size_t>(m_Width) * m_Height, 0xFF000000u);
    switch (m_nMethod) {
      case kWindowMethodPixmap:
      case kWindowMethodImage:
        m_target = ov::CreateWindowGrabber(m_hwndTarget, m_nTargetWidth, m_nTargetHeight);
        return m_target != nullptr;
      case kWindowMethodScreen:
        m_screen = ov::CreateScreenGrabber(m_nTargetWidth, m_nTargetHeight);
        return m_screen != nullptr;
      default:
        if (m_pMagnifier) CloseMagnifier(m_pMagnifier.get());
        m_pMagnifier = std::make_unique<MagnifierHost>();
        if (FAILED(InitializeMagnifier(m_pMagnifier.get(), m_nTargetWidth, m_nTargetHeight))) {
          WriteLog(ov::kErr, "Failed to resize\n");
          m_pMagnifier.reset();
          return false;
        }
        return true;
    }
  }

  void RebuildHitTable() {
    ov::BuildHitTable(m_HitTable, m_rcCrop, m_nRingWidth, ov::g_WindowCropHandle.nSize,
                      m_bKeepRatio);
  }

  void ReadTarget() {
    uint8_t* at = reinterpret_cast<uint8_t*>(m_pOffscreen.data()) +
                  (static_cast<ptrdiff_t>(kMargin) * m_Width + kMargin) * 4;
    const int32_t pitch = m_Width * 4, w = m_nTargetWidth, h = m_nTargetHeight;
    switch (m_nMethod) {
      case kWindowMethodPixmap:
        m_target->Grab(ov::WindowSource::Pixmap, 0, 0, w, h, at, pitch);
        break;
      case kWindowMethodImage:
        m_target->Grab(ov::WindowSource::Window, 0, 0, w, h, at, pitch);
        break;
      case kWindowMethodScreen:
        m_screen->Grab(m_rcTarget.left, m_rcTarget.top, w, h, at, pitch);
        break;
      default:
        // Without a reader the window keeps its last picture.
        if (!m_pMagnifier) return;
        if (FAILED(SetMagnifierSource(m_pMagnifier.get(), m_rcTarget, m_hwndTarget))) return;
        m_pMagnifier->anchor = m_rcTarget;
        if (FAILED(GetMagnifierFrame(m_pMagnifier.get(), at, pitch))) return;
        m_rcTarget = m_pMagnifier->anchor;
        break;
    }
    for (int32_t y = 0; y < h; ++y) {
      uint32_t* row = m_pOffscreen.data() + static_cast<ptrdiff_t>(y + kMargin) * m_Width + kMargin;
      for (int32_t x = 0; x < w; ++x) row[x] |= 0xFF000000u;
    }
  }

  void Paint() {
    uint32_t* overlay = Overlay();
    if (!overlay || !m_cr) return;
    std::fill(overlay, overlay + static_cast<size_t>(OverlayStride()) * m_Height, 0u);
    const RECT shown{m_rcCrop.left + kMargin, m_rcCrop.top + kMargin, m_rcCrop.right + kMargin,
                     m_rcCrop.bottom + kMargin};
    ov::DrawRings(overlay, OverlayStride(), m_Width, m_Height, ov::g_WindowCropBoxStyle, shown);
    cairo_surface_mark_dirty(m_overlaySurface);
    if (!m_nDragHit)
      ov::DrawHandles(m_cr, ov::g_WindowCropHandle, shown.left, shown.top, shown.right - shown.left,
                      shown.bottom - shown.top, m_bKeepRatio);
    cairo_surface_flush(m_overlaySurface);
    ReadTarget();
    SetPicture(reinterpret_cast<const uint8_t*>(m_pOffscreen.data()), m_Width * 4);
    const float crop[4] = {
        static_cast<float>(shown.left) / m_Width, static_cast<float>(shown.top) / m_Height,
        static_cast<float>(shown.right) / m_Width, static_cast<float>(shown.bottom) / m_Height};
    SetCropRect(crop);
    Draw();
  }

  void OnTick() {
    switch (TargetState(m_hwndTarget)) {
      case Target::Gone:
        if (m_pCallback) m_pCallback->OnTargetClosed();
        return;
      case Target::Hidden:
        if (!m_bMinimized) {
          m_bMinimized = true;
          if (m_pCallback) m_pCallback->OnTargetMinimized();
        }
        return;
      case Target::Shown:
        break;
    }
    if (m_bMinimized) {
      m_bMinimized = false;
      if (m_pCallback) m_pCallback->OnTargetRestored();
    }
    RECT outer;
    int32_t innerWidth, innerHeight;
    if (!m_target || !m_target->Locate(&outer, &innerWidth, &innerHeight)) return;
    m_rcTarget = outer;
    const int32_t w = outer.right - outer.left, h = outer.bottom - outer.top;
    if (w == m_nTargetWidth && h == m_nTargetHeight) return Paint();
    m_nTargetWidth = w;
    m_nTargetHeight = h;
    m_rcFull = {0, 0, w, h};
    m_rcCrop = Repair(m_rcCrop, w, h);
    if (m_pCallback) m_pCallback->OnTargetResized(w, h, &m_rcCrop);
    if (FAILED(Resize({0, 0, w + 2 * kMargin, h + 2 * kMargin})) || !MakeSurfaces()) return;
    m_input->Move({0, 0, m_Width, m_Height});
    if (!CreateOffscreen()) return;
    RebuildHitTable();
    Paint();
  }

  void OnInput() {
    ov::InputEvent e;
    while (m_input->NextEvent(&e)) {
      // 16-bit signed positions, as the server gives them, in the target's terms.
      const POINT p{static_cast<int16_t>(e.x) - kMargin, static_cast<int16_t>(e.y) - kMargin};
      if (e.type == ov::InputEvent::kMotion) {
        if (!m_nDragHit) {
          Hover(p);
          continue;
        }
        if (p.x == m_ptDragLast.x && p.y == m_ptDragLast.y) continue;
        m_ptDragLast = p;
        ov::CropDrag drag{m_nDragHit,   m_rcDragStart, m_ptDragStart,
                          m_bKeepRatio, m_nRatioWidth, m_nRatioHeight};
        const RECT r = ov::DragCrop(drag, p, m_nTargetWidth, m_nTargetHeight);
        if (SameRect(r, m_rcCrop)) continue;
        m_rcCrop = r;
        RebuildHitTable();
        Paint();
        if (m_pCallback) m_pCallback->OnCropChanged(&m_rcCrop);
      } else if (e.type == ov::InputEvent::kButtonDown && e.button == 1 && !m_nDragHit) {
        const int32_t hit = ov::HitTest(m_HitTable, SameRect(m_rcCrop, m_rcFull), p, m_bKeepRatio);
        if (!hit) continue;
        m_nDragHit = hit;
        m_rcDragStart = m_rcCrop;
        m_ptDragStart = m_ptDragLast = p;
        SetHitCursor(hit);
        m_input->Capture(true);
      } else if ((e.type == ov::InputEvent::kButtonUp && e.button == 1) ||
                 e.type == ov::InputEvent::kFocusLost) {
        if (!m_nDragHit) continue;
        m_nDragHit = 0;
        m_input->Capture(false);
        Paint();
        Hover(p);
      }
    }
  }

  void Hover(POINT p) {
    SetHitCursor(ov::HitTest(m_HitTable, SameRect(m_rcCrop, m_rcFull), p, m_bKeepRatio));
  }

  void SetHitCursor(int32_t hit) {
    if (hit == m_nCursor) return;
    m_nCursor = hit;
    m_input->SetCursor(&ov::g_Cursors.size[hit]);
  }

  void OnReset(const RECT& rect, bool keepRatio) {
    m_bKeepRatio = keepRatio;
    if (rect.right > rect.left && rect.bottom > rect.top)
      m_rcCrop = Repair(rect, m_nTargetWidth, m_nTargetHeight);
    m_nRatioWidth = m_rcCrop.right - m_rcCrop.left;
    m_nRatioHeight = m_rcCrop.bottom - m_rcCrop.top;
    if (m_nDragHit) {
      m_nDragHit = 0;
      m_input->Capture(false);
    }
    RebuildHitTable();
    Paint();
  }

  HWND m_hwndParent = 0;
  CWindowCropCallback* m_pCallback = nullptr;
  HWND m_hwndTarget = 0;
  RECT m_rcFull = {};
  RECT m_rcCrop = {};
  bool m_bKeepRatio = false;
  bool m_bMinimized = false;
  int32_t m_nDragHit = 0;
  RECT m_rcDragStart = {};
  POINT m_ptDragStart = {}, m_ptDragLast = {};
  RECT m_HitTable[ov::kHitZones] = {};
  int32_t m_nRingWidth = 0;
  int32_t m_nTargetWidth = 0, m_nTargetHeight = 0;
  int32_t m_nRatioWidth = 1, m_nRatioHeight = 1;
  RECT m_rcTarget = {};
  int32_t m_nMethod = kWindowMethodPixmap;
  std::unique_ptr<MagnifierHost> m_pMagnifier;

  std::vector<uint32_t> m_pOffscreen;
  std::unique_ptr<ov::WindowGrabber> m_target;  // also where the target is
  std::unique_ptr<ov::ScreenGrabber> m_screen;
  std::unique_ptr<ov::InputWindow> m_input;
  std::unique_ptr<ov::PeriodicTimer> m_timer;
  cairo_surface_t* m_overlaySurface = nullptr;
  cairo_t* m_cr = nullptr;
  int32_t m_nCursor = -1;
  ov::MessageQueue* m_queue = nullptr;
  ov::BoxThread m_thread;
};

}  // namespace

extern "C" OV_API CWindowCropObject* ovCreateWindowCrop(HWND parentWindow,
                                                        CWindowCropCallback* callback,
                                                        HWND targetWindow, const RECT* rect,
                                                        BOOL bKeepRatio) {
  WriteLog(ov::kMsg, "Window Crop ...\n");
  if (TargetState(targetWindow) != Target::Shown) {
    WriteLog(ov::kErr, "The target window is gone or hidden\n");
    return nullptr;
  }
  if (rect && (rect->right <= rect->left || rect->bottom <= rect->top)) {
    WriteLog(ov::kErr, "Error window rect={%dx%d-%dx%d}(%dx%d)\n", rect->left, rect->top,
             rect->right, rect->bottom, rect->right - rect->left, rect->bottom - rect->top);
    return nullptr;
  }
  auto crop = std::make_unique<CWindowCrop>();
  if (!crop->Create(parentWindow, callback, targetWindow, rect, bKeepRatio != 0)) return nullptr;
  return crop.release();
}
