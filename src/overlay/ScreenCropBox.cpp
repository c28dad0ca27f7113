// The screen crop box: rings, handles and a move picture round a rectangle
// on the live desktop, drawn into a memory bitmap the size of the display
// and shown in one click-through window over it. The pointer is taken only
// where the box has something to grab: a grip window over each handle and
// edge and over the move picture. While a handle is dragged, a zoom glass
// shows the desktop under the pointer.
#include <cairo.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "capture/CursorCatalogue.h"
#include "capture/MagnifierHost.h"
#include "capture/MemoryBitmap.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "core/Resources.h"
#include "orvanta/boxes.h"
#include "overlay/BoxStyles.h"
#include "overlay/CropBoxes.h"
#include "overlay/ZoomTips.h"
#include "platform/InputWindow.h"
#include "platform/OverlayWindow.h"
#include "platform/PointerWatcher.h"

namespace {

constexpr int32_t kMovePicture = 32;
constexpr int32_t kZoomWidth = 48, kZoomHeight = 32;

bool SameRect(const RECT& a, const RECT& b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

RECT Offset(const RECT& r, int32_t dx, int32_t dy) {
  return {r.left + dx, r.top + dy, r.right + dx, r.bottom + dy};
}

// The move picture, loaded once for the process on first use.
cairo_surface_t* MovePicture() {
  static std::once_flag once;
  static ov::Surface picture;
  std::call_once(once, [] { picture = ov::LoadImageSized("MoveLarge.png", 32, 32); });
  return picture.get();
}

class CScreenCropBox : public CScreenCropObject, public CMemoryBitmap {
 public:
  CScreenCropBox() : CScreenCropObject("CScreenCropObject") {}
  ~CScreenCropBox() override { m_thread.Stop(); }

  bool Create(CCropCallback* callback, const RECT& rect, HWND host, bool keepRatio) {
    m_pCallback = callback;
    m_hwndHost = host;
    m_bKeepRatio = keepRatio;
    m_nRatioWidth = rect.right - rect.left;
    m_nRatioHeight = rect.bottom - rect.top;
    m_nWidth = g_rcDisplay.right - g_rcDisplay.left;
    m_nHeight = g_rcDisplay.bottom - g_rcDisplay.top;
    m_rcCrop = Offset(rect, -g_rcDisplay.left, -g_rcDisplay.top);
    m_nRingWidth = ov::TotalRingWidth(ov::g_ScreenCropBoxStyle);
    return m_thread.Start([this](ov::MessageQueue& queue) { return SetUp(queue); },
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
  bool SetUp(ov::MessageQueue& queue) {
    m_queue = &queue;
    m_font = ov::MakeFont("Tahoma", 12);
    if (!CMemoryBitmap::Create(m_nWidth, m_nHeight) || !CreateGraphics(kPargb)) return false;
    ov::OverlayWindowOptions options;
    options.rect = g_rcDisplay;
    options.clickThrough = true;
    m_window = ov::CreateOverlayWindow(options);
    if (!m_window) {
      WriteLog(ov::kErr, "Unable to Create overlay window(%d, %d)\n", m_nWidth, m_nHeight);
      return false;
    }
    m_hwnd = m_window->Handle();
    for (int i = ov::kHitTop; i <= ov::kHitMove; ++i) {
      auto grip = ov::CreateInputWindow({0, 0, 1, 1});
      if (!grip) return false;
      const int hit = i >= ov::kHitTopEdge && i <= ov::kHitRightEdge ? i - 8 : i;
      grip->SetCursor(&ov::g_Cursors.size[hit]);
      queue.Watch(grip->Fd(), [this, i] { OnInput(i); });
      m_grips[i] = std::move(grip);
    }
    m_window->Show(true);
    // The desktop here is live: the glass needs a picture of what lies
    // under the box, which the composed mirror makes without our windows.
    if (g_bHardwareCapture.load() &&
        SUCCEEDED(InitializeMagnifier(&m_Magnifier, kZoomWidth, kZoomHeight))) {
      m_Magnifier.windows = {m_hwnd};
      if (m_hwndHost) m_Magnifier.windows.push_back(m_hwndHost);
      m_pZoomSource.assign(static_cast<size_t>(kZoomWidth) * kZoomHeight, 0);
      m_nZoomSourceSize = kZoomWidth * kZoomHeight * 4;
      m_zoom = {m_font.get(),
                m_pGraphics,
                reinterpret_cast<uint32_t*>(m_pBits),
                m_nWidth,
                m_nWidth,
                m_nHeight,
                m_pZoomSource.data(),
                kZoomWidth,
                kZoomHeight};
      m_bZoom = true;
    }
    Rebuild();
    Paint(nullptr);
    return true;
  }

  void TearDown() {
    for (auto& grip : m_grips) {
      if (!grip) continue;
      m_queue->Unwatch(grip->Fd());
      grip.reset();
    }
    m_window.reset();
    CloseMagnifier(&m_Magnifier);
  }

  bool Whole() const { return SameRect(m_rcCrop, {0, 0, m_nWidth, m_nHeight}); }

  // The hit zones, and the grips placed over those that can be grabbed.
  void Rebuild() {
    ov::BuildHitTable(m_HitTable, m_rcCrop, m_nRingWidth, ov::g_ScreenCropHandle.nSize,
                      m_bKeepRatio);
    const RECT& c = m_rcCrop;
    const int32_t mx = (c.left + c.right - kMovePicture) / 2;
    const int32_t my = (c.top + c.bottom - kMovePicture) / 2;
    for (int i = ov::kHitTop; i <= ov::kHitMove; ++i) {
      RECT zone = m_HitTable[i];
      const bool corner = i >= ov::kHitTopLeft && i <= ov::kHitBottomRight;
      if (i == ov::kHitMove) zone = {mx, my, mx + kMovePicture, my + kMovePicture};
      const bool off = (corner && m_bKeepRatio) || (i == ov::kHitMove && Whole()) ||
                       zone.right <= zone.left || zone.bottom <= zone.top;
      if (i == m_nGrip) continue;  // the grabbed one stays until it is let go
      if (off) {
        m_grips[i]->Show(false);
        continue;
      }
      m_grips[i]->Move(Offset(zone, g_rcDisplay.left, g_rcDisplay.top));
      m_grips[i]->Show(true);
    }
  }

  POINT Clamped(const ov::InputEvent& e) const {
    return {std::clamp(e.rootX - g_rcDisplay.left, 0, m_nWidth - 1),
            std::clamp(e.rootY - g_rcDisplay.top, 0, m_nHeight - 1)};
  }

  void OnInput(int grip) {
    ov::InputEvent e;
    while (m_grips[grip] && m_grips[grip]->NextEvent(&e)) {
      const POINT p = Clamped(e);
      if (e.type == ov::InputEvent::kButtonDown && e.button == 1 && !m_nDragHit) {
        const int32_t hit = ov::HitTest(m_HitTable, Whole(), p, m_bKeepRatio);
        if (!hit) continue;
        m_nDragHit = hit;
        m_nGrip = grip;
        m_rcDragStart = m_rcCrop;
        m_ptDragStart = m_ptDragLast = m_bZoom ? Snap(hit, p) : p;
        if (m_pCallback) m_pCallback->OnCropBegin();
        m_grips[grip]->Capture(true);
      } else if (e.type == ov::InputEvent::kMotion && m_nDragHit && grip == m_nGrip) {
        if (p.x == m_ptDragLast.x && p.y == m_ptDragLast.y) continue;
        m_ptDragLast = p;
        ov::CropDrag drag{m_nDragHit,   m_rcDragStart, m_ptDragStart,
                          m_bKeepRatio, m_nRatioWidth, m_nRatioHeight};
        const RECT r = ov::DragCrop(drag, p, m_nWidth, m_nHeight);
        const bool changed = !SameRect(r, m_rcCrop);
        m_rcCrop = r;
        Rebuild();
        Paint(&p);
        if (changed && m_pCallback) {
          const RECT screen = Offset(r, g_rcDisplay.left, g_rcDisplay.top);
          m_pCallback->OnCropChanged(&screen);
        }
      } else if (((e.type == ov::InputEvent::kButtonUp && e.button == 1) ||
                  e.type == ov::InputEvent::kFocusLost) &&
                 m_nDragHit && grip == m_nGrip) {
        m_nDragHit = 0;
        m_nGrip = 0;
        m_grips[grip]->Capture(false);
        Rebuild();
        Paint(nullptr);
        if (m_pCallback) m_pCallback->OnCropEnd();
      }
    }
  }

  // The pointer put on the grabbed edge or corner, so that the glass shows
  // the edge under its crosshair.
  POINT Snap(int32_t hit, POINT p) const {
    const RECT& c = m_rcCrop;
    POINT to = p;
    if (hit == ov::kHitTop || hit == ov::kHitTopLeft || hit == ov::kHitTopRight) to.y = c.top;
    if (hit == ov::kHitBottom || hit == ov::kHitBottomLeft || hit == ov::kHitBottomRight)
      to.y = std::min(c.bottom, m_nHeight - 1);
    if (hit == ov::kHitLeft || hit == ov::kHitTopLeft || hit == ov::kHitBottomLeft) to.x = c.left;
    if (hit == ov::kHitRight || hit == ov::kHitTopRight || hit == ov::kHitBottomRight)
      to.x = std::min(c.right, m_nWidth - 1);
    if (to.x != p.x || to.y != p.y)
      ov::MovePointer(to.x + g_rcDisplay.left, to.y + g_rcDisplay.top);
    return to;
  }

  void OnReset(const RECT& rect, bool keepRatio) {
    m_bKeepRatio = keepRatio;
    if (rect.right <= rect.left || rect.bottom <= rect.top) return;
    m_nRatioWidth = rect.right - rect.left;
    m_nRatioHeight = rect.bottom - rect.top;
    m_rcCrop = Offset(rect, -g_rcDisplay.left, -g_rcDisplay.top);
    if (m_nDragHit) {
      m_grips[m_nGrip]->Capture(false);
      m_nDragHit = 0;
      m_nGrip = 0;
    }
    Rebuild();
    Paint(nullptr);
  }

  void Paint(const POINT* pointer) {
    std::memset(m_pBits, 0, static_cast<size_t>(m_nWidth) * m_nHeight * 4);
    auto* pixels = reinterpret_cast<uint32_t*>(m_pBits);
    std::vector<RECT> shown;  // what an opaque window must show
    const RECT& c = m_rcCrop;
    if (Whole()) {
      // A ring round the whole display would fall off it: one pixel of the
      // first ring's look along the bitmap's own edge.
      BoxStyle edge{};
      edge.rings[0] = ov::g_ScreenCropBoxStyle.rings[0];
      edge.rings[0].nWidth = 1;
      ov::DrawRings(pixels, m_nWidth, m_nWidth, m_nHeight, edge,
                    {1, 1, m_nWidth - 1, m_nHeight - 1});
      shown = {{0, 0, m_nWidth, 1},
               {0, m_nHeight - 1, m_nWidth, m_nHeight},
               {0, 0, 1, m_nHeight},
               {m_nWidth - 1, 0, m_nWidth, m_nHeight}};
    } else {
      ov::DrawRings(pixels, m_nWidth, m_nWidth, m_nHeight, ov::g_ScreenCropBoxStyle, c);
      const int32_t s = m_nRingWidth;
      shown = {{c.left - s, c.top - s, c.right + s, c.top},
               {c.left - s, c.bottom, c.right + s, c.bottom + s},
               {c.left - s, c.top, c.left, c.bottom},
               {c.right, c.top, c.right + s, c.bottom}};
    }
    cairo_surface_mark_dirty(m_pBitmap);
    if (!m_nDragHit) {
      ov::DrawHandles(m_pGraphics, ov::g_ScreenCropHandle, c.left, c.top, c.right - c.left,
                      c.bottom - c.top, m_bKeepRatio);
      for (int i = ov::kHitTop; i <= ov::kHitBottomRight; ++i) shown.push_back(m_HitTable[i]);
    }
    if (!m_nDragHit || m_nDragHit == ov::kHitMove) {
      if (cairo_surface_t* move = MovePicture()) {
        const int32_t x = (c.left + c.right - kMovePicture) / 2;
        const int32_t y = (c.top + c.bottom - kMovePicture) / 2;
        cairo_set_source_surface(m_pGraphics, move, x, y);
        cairo_paint(m_pGraphics);
        shown.push_back({x, y, x + kMovePicture, y + kMovePicture});
      }
    }
    if (m_bZoom && pointer && m_nDragHit && m_nDragHit != ov::kHitMove) {
      const RECT source{pointer->x + g_rcDisplay.left - kZoomWidth / 2,
                        pointer->y + g_rcDisplay.top - kZoomHeight / 2,
                        pointer->x + g_rcDisplay.left + kZoomWidth / 2,
                        pointer->y + g_rcDisplay.top + kZoomHeight / 2};
      if (SUCCEEDED(SetMagnifierSource(&m_Magnifier, source, 0)) &&
          SUCCEEDED(GetMagnifierFrame(
              &m_Magnifier, reinterpret_cast<uint8_t*>(m_pZoomSource.data()), kZoomWidth * 4))) {
        for (uint32_t& p : m_pZoomSource) p |= 0xFF000000u;
        const POINT at = ov::DrawZoomGlass(m_zoom, pointer->x, pointer->y, kZoomWidth / 2,
                                           kZoomHeight / 2, m_rcCrop);
        shown.push_back({at.x, at.y, at.x + ov::kZoomGlassWidth, at.y + ov::kZoomGlassHeight});
      }
    }
    cairo_surface_flush(m_pBitmap);
    if (!m_window->Translucent())
      m_window->SetVisibleParts(shown.data(), static_cast<int>(shown.size()));
    m_window->Present(m_pBits, m_nWidth * 4);
  }

  CCropCallback* m_pCallback = nullptr;
  HWND m_hwnd = 0;
  HWND m_hwndHost = 0;
  int32_t m_nDragHit = 0;
  RECT m_rcDragStart = {};
  POINT m_ptDragStart = {}, m_ptDragLast = {};
  bool m_bKeepRatio = false;
  int32_t m_nRatioWidth = 1, m_nRatioHeight = 1;
  int32_t m_nWidth = 0, m_nHeight = 0;
  RECT m_rcCrop = {};
  int32_t m_nRingWidth = 0;
  RECT m_HitTable[ov::kHitZones] = {};
  MagnifierHost m_Magnifier;
  ov::ZoomRecord m_zoom;
  std::vector<uint32_t> m_pZoomSource;
  int32_t m_nZoomSourceSize = 0;
  bool m_bZoom = false;

  ov::Font m_font;
  std::unique_ptr<ov::OverlayWindow> m_window;
  std::unique_ptr<ov::InputWindow> m_grips[ov::kHitZones];
  int m_nGrip = 0;  // the grip that holds the pointer during a drag
  ov::MessageQueue* m_queue = nullptr;
  ov::BoxThread m_thread;
};

}  // namespace

extern "C" OV_API CScreenCropObject* ovShowScreenCropBox(CCropCallback* callback, const RECT* rect,
                                                         HWND hostWindow, BOOL bKeepRatio) {
  WriteLog(ov::kMsg, "Screen Crop ...\n");
  if (!ov::RectOnDisplay(rect)) return nullptr;
  auto box = std::make_unique<CScreenCropBox>();
  if (!box->Create(callback, *rect, hostWindow, bKeepRatio != 0)) return nullptr;
  return box.release();
}
