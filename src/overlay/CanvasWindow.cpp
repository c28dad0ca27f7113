#include "overlay/CanvasWindow.h"

#include <algorithm>
#include <cstring>

#include "capture/CursorCatalogue.h"
#include "capture/PointerTracker.h"
#include "core/CanvasPicture.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "pixels/OverlayKernels.h"
#include "platform/Clock.h"
#include "platform/InputWindow.h"
#include "platform/Memory.h"
#include "platform/MessageQueue.h"
#include "platform/ScreenGrabber.h"
#include "platform/Text.h"

CCanvasWindow* g_pCanvasWindow = nullptr;

namespace {

int32_t g_nRoundCursorSize = 0;
ov::PointerShape g_RoundCursor;

constexpr uint32_t kButtonLeft = 1;

// The cursor of a tool from the catalogue, by its row there.
const ov::PointerShape* ToolCursor(int32_t tool) {
  static constexpr int kRow[] = {-1, 0, 1, 3, 2, 4, 5, 6, 7, -1, 8, -1, 9};
  if (tool == 9 || tool == 11) return &g_RoundCursor;
  if (tool <= 0 || tool > 12) return nullptr;
  return &ov::g_Cursors.tools[kRow[tool]];
}

CTextShape::Key TextKey(uint32_t keysym, bool control) {
  switch (keysym) {
    case 0xFF08:
      return CTextShape::kKeyBackspace;
    case 0xFFFF:
      return CTextShape::kKeyDelete;
    case 0xFF51:
      return CTextShape::kKeyLeft;
    case 0xFF53:
      return CTextShape::kKeyRight;
    case 0xFF50:
      return CTextShape::kKeyHome;
    case 0xFF57:
      return CTextShape::kKeyEnd;
    case 0xFF0D:
    case 0xFF8D:
      return CTextShape::kKeyReturn;
    case 0xFF1B:
      return CTextShape::kKeyEscape;
    case 'a':
      if (control) return CTextShape::kKeySelectAll;
      return CTextShape::kKeyOther;
    default:
      return CTextShape::kKeyOther;
  }
}

}  // namespace

CCanvasWindow::CCanvasWindow() { g_pCanvasWindow = this; }

CCanvasWindow::~CCanvasWindow() {
  {
    std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
    g_pCanvasWindow = nullptr;
    g_CanvasPicture = CanvasPicture{};
  }
  if (m_pQueue && m_hwndCursor) m_pQueue->Unwatch(m_hwndCursor->Fd());
  if (m_pQueue && m_pSprayTimer) m_pQueue->Unwatch(m_pSprayTimer->Fd());
  m_hwndCursor.reset();
  m_pCurrentShape.reset();
  m_Shapes.clear();
  m_Undone.clear();
  if (m_pBlurBrush) cairo_pattern_destroy(m_pBlurBrush);
  if (m_pBlurSurface) cairo_surface_destroy(m_pBlurSurface);
  if (m_pGraphics) {
    cairo_destroy(m_pGraphics);
    --g_nGdiplusGraphics;
  }
  if (m_pBitmap) {
    cairo_surface_destroy(m_pBitmap);
    --g_nGdiplusBitmaps;
  }
  ov::FreeZeroedPages(m_pBits, m_nBitsBytes);
}

HRESULT CCanvasWindow::CreateCanvas(ov::MessageQueue& queue, const RECT& region, int32_t width,
                                    int32_t height, POINT origin) {
  m_pQueue = &queue;
  m_dwThreadId = queue.ThreadId();
  m_nWidth = width;
  m_nHeight = height;
  m_ptOrigin = origin;
  m_ptWindow = {region.left, region.top};
  m_rcWindowSize = {region.right - region.left, region.bottom - region.top};
  if (g_mouseOpt.Mode != 0) m_ptOffset = {region.left - origin.x, region.top - origin.y};
  // Clear and untouched until something is drawn.
  m_nBitsBytes = static_cast<size_t>(width) * height * 4;
  m_pBits = static_cast<uint32_t*>(ov::AllocateZeroedPages(m_nBitsBytes));
  if (!m_pBits) return E_OUTOFMEMORY;
  m_pBitmap = cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(m_pBits),
                                                  CAIRO_FORMAT_ARGB32, width, height, width * 4);
  ++g_nGdiplusBitmaps;
  m_pGraphics = cairo_create(m_pBitmap);
  ++g_nGdiplusGraphics;
  cairo_set_antialias(m_pGraphics, CAIRO_ANTIALIAS_NONE);
  {
    std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
    g_CanvasPicture.pixels = m_pBits;
    g_CanvasPicture.width = width;
    g_CanvasPicture.height = height;
    g_CanvasPicture.origin = origin;
    g_CanvasPicture.hasContent = 0;
  }
  m_hwndCursor = ov::CreateInputWindow(region);
  m_pSprayTimer = ov::CreatePeriodicTimer();
  if (!m_hwndCursor || !m_pSprayTimer) {
    WriteLog(ov::kErr, "Failed(0x%x) in CreateCanvas(%d, %d), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(E_FAIL), width, height, OV_FILE, __LINE__);
    return E_FAIL;
  }
  queue.Watch(m_hwndCursor->Fd(), [this] { OnInput(); });
  queue.Watch(m_pSprayTimer->Fd(), [this] {
    if (!m_pSprayTimer->Drain() || !m_nTimer || m_Active.tool != 6 || !m_pCurrentShape) return;
    std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
    int32_t x = 0, y = 0;
    {
      std::lock_guard<std::recursive_mutex> mouse(g_csMouse);
      x = g_ptMouse.x;
      y = g_ptMouse.y;
    }
    m_pCurrentShape->Tick({x - m_ptOrigin.x, y - m_ptOrigin.y});
    Redraw();
  });
  return S_OK;
}

void CCanvasWindow::PostToWindow(uint32_t message) {
  ov::MessageQueue::PostThreadMessage(m_dwThreadId, message, 0, 0);
  ov::SleepMs(0);
}

void CCanvasWindow::Start(int tool, int size, uint32_t color, uint32_t color2,
                          const wchar_t* fontName, int nFontStyle) {
  WriteLog(ov::kMsg, "Canvas start = %d\n", tool);
  const uint32_t alpha = color >> 24;
  if (alpha == 0)
    color |= 0xFF000000u;
  else if (alpha < 32)
    color = (color & 0xFFFFFFu) | 0x20000000u;
  {
    std::lock_guard<std::mutex> lock(m_csPending);
    m_Pending.tool = tool;
    m_Pending.size = size;
    m_Pending.color = color;
    m_Pending.color2 = color2;
    m_Pending.fontStyle = nFontStyle;
    if (fontName) m_Pending.font = ov::ToUtf8(std::wstring(fontName).substr(0, 63));
  }
  PostToWindow(kDoStart);
}

void CCanvasWindow::Stop() {
  WriteLog(ov::kMsg, "Canvas stop\n");
  // A canvas whose thread is ending answers no more.
  if (ov::MessageQueue::PostThreadMessage(m_dwThreadId, kDoStop, 0, 0)) m_hStopDone.WaitFor(2000);
  ov::SleepMs(0);
  ov::SleepMs(10);
}

void CCanvasWindow::Redo() {
  PostToWindow(kRedo);
  ov::SleepMs(10);
}
void CCanvasWindow::Undo() {
  PostToWindow(kUndo);
  ov::SleepMs(10);
}
void CCanvasWindow::Clear() {
  PostToWindow(kClear);
  ov::SleepMs(10);
}

int CCanvasWindow::GetShapeCount() {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  return static_cast<int>(m_Shapes.size());
}
BOOL CCanvasWindow::CanRedo() {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  return !m_Undone.empty();
}
BOOL CCanvasWindow::CanUndo() {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  return !m_Shapes.empty();
}
void CCanvasWindow::SetNumber(int n) {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  g_nCanvasNumber = n;
}

void CCanvasWindow::SetPosition(int32_t x, int32_t y) {
  const int32_t w = m_rcWindowSize.x, h = m_rcWindowSize.y;
  m_ptWindow = {x, y};
  if (g_mouseOpt.Mode != 0) m_ptOffset = {x - m_ptOrigin.x, y - m_ptOrigin.y};
  if (m_bCursorShown && m_hwndCursor) m_hwndCursor->Move({x, y, x + w, y + h});
}

bool CCanvasWindow::OnMessage(const ov::Message& msg) {
  if (!g_pCanvasWindow) return false;
  switch (msg.message) {
    case kDoStart:
      DoStart();
      return true;
    case kDoStop:
      DoStop();
      return true;
    case kRedo:
      DoRedo();
      return true;
    case kUndo:
      DoUndo();
      return true;
    case kClear:
      DoClear();
      return true;
    default:
      return false;
  }
}

void CCanvasWindow::SelectCursor() {
  if (!m_hwndCursor) return;
  if (m_Active.tool == 9 || m_Active.tool == 11) {
    if (m_Active.size != g_nRoundCursorSize) {
      g_nRoundCursorSize = m_Active.size;
      g_RoundCursor = ov::MakeBrushCursor(m_Active.size);
    }
  }
  m_hwndCursor->SetCursor(ToolCursor(m_Active.tool));
}

// The blur tools paint the screen under the picture as it was when they
// were chosen, blurred.
void CCanvasWindow::MakeBlurPicture() {
  std::unique_ptr<ov::ScreenGrabber> grabber = ov::CreateScreenGrabber(m_nWidth, m_nHeight);
  if (!grabber) return;
  std::vector<uint32_t> shot(static_cast<size_t>(m_nWidth) * m_nHeight);
  const int32_t pitch = m_nWidth * 4;
  if (!grabber->Grab(m_ptOrigin.x, m_ptOrigin.y, m_nWidth, m_nHeight,
                     reinterpret_cast<uint8_t*>(shot.data()), pitch))
    return;
  m_BlurPixels.resize(shot.size());
  constexpr int kPasses = 8;
  for (int i = 0; i < kPasses; ++i) {
    ov::pixels::GaussianBlurPass(reinterpret_cast<uint8_t*>(m_BlurPixels.data()), pitch,
                                 reinterpret_cast<const uint8_t*>(shot.data()), pitch, m_nWidth,
                                 m_nHeight);
    if (i + 1 < kPasses) shot.swap(m_BlurPixels);
  }
  if (m_pBlurBrush) cairo_pattern_destroy(m_pBlurBrush);
  if (m_pBlurSurface) cairo_surface_destroy(m_pBlurSurface);
  m_pBlurSurface =
      cairo_image_surface_create_for_data(reinterpret_cast<unsigned char*>(m_BlurPixels.data()),
                                          CAIRO_FORMAT_RGB24, m_nWidth, m_nHeight, pitch);
  m_pBlurBrush = cairo_pattern_create_for_surface(m_pBlurSurface);
}

void CCanvasWindow::DoStart() {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  WriteLog(ov::kMsg, "Do start\n");
  {
    std::lock_guard<std::mutex> pending(m_csPending);
    m_Active = m_Pending;
  }
  if (m_Active.tool == 11 || m_Active.tool == 12) MakeBlurPicture();
  SelectCursor();
  g_bCanvasToolSelected = m_Active.tool != 0;
  if (m_pCurrentShape) m_pCurrentShape->Finish();
  EndStroke();
  Redraw();
  if (m_hwndCursor) {
    const int32_t w = m_rcWindowSize.x, h = m_rcWindowSize.y;
    m_hwndCursor->Move({m_ptWindow.x, m_ptWindow.y, m_ptWindow.x + w, m_ptWindow.y + h});
    m_hwndCursor->Show(true);
    m_bCursorShown = true;
  }
}

void CCanvasWindow::DoStop() {
  {
    std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
    WriteLog(ov::kMsg, "Do stop\n");
    m_Active.tool = 0;
    g_bCanvasToolSelected = false;
    if (m_pCurrentShape) m_pCurrentShape->Finish();
    EndStroke();
    Redraw();
    if (m_hwndCursor) m_hwndCursor->Show(false);
    m_bCursorShown = false;
  }
  m_hStopDone.Set();
}

void CCanvasWindow::UndoState() {
  if (m_pCallback) m_pCallback->OnUndoState(!m_Shapes.empty(), !m_Undone.empty());
}

void CCanvasWindow::DoUndo() {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  if (m_Shapes.empty()) return;
  m_Undone.push_back(std::move(m_Shapes.back()));
  m_Shapes.pop_back();
  Redraw();
  UndoState();
}

void CCanvasWindow::DoRedo() {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  if (m_Undone.empty()) return;
  m_Shapes.push_back(std::move(m_Undone.back()));
  m_Undone.pop_back();
  Redraw();
  UndoState();
}

void CCanvasWindow::DoClear() {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  if (m_Shapes.empty()) return;
  // The last drawn goes first, so that redo brings them back in order.
  while (!m_Shapes.empty()) {
    m_Undone.push_back(std::move(m_Shapes.back()));
    m_Shapes.pop_back();
  }
  Redraw();
  UndoState();
}

void CCanvasWindow::Commit() {
  if (!m_pCurrentShape) return;
  if (m_pCurrentShape->m_bVisible)
    m_Shapes.push_back(std::move(m_pCurrentShape));
  else
    m_pCurrentShape.reset();
  m_Undone.clear();
  if (m_pCallback) m_pCallback->OnUndoState(!m_Shapes.empty(), 0);
}

void CCanvasWindow::Redraw() {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  if (!m_pGraphics) return;
  memset(m_pBits, 0, static_cast<size_t>(m_nWidth) * m_nHeight * 4);
  BOOL painted = 0;
  for (auto& shape : m_Shapes)
    if (shape->m_bVisible && shape->Draw(m_pGraphics)) painted = 1;
  if (m_pCurrentShape && m_pCurrentShape->m_bVisible && m_pCurrentShape->Draw(m_pGraphics))
    painted = 1;
  cairo_surface_flush(m_pBitmap);
  m_bHasContent = painted;
  g_CanvasPicture.hasContent = painted;
  Repaint();
}

void CCanvasWindow::OnTextChanged() { Redraw(); }

void CCanvasWindow::OnTextFinished(BOOL bKeep) {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  if (!m_pCurrentShape) return;
  if (bKeep) {
    Commit();
    Redraw();
  } else {
    m_pCurrentShape.reset();
  }
  g_bCanvasDrawing = false;
}

void CCanvasWindow::OnInput() {
  ov::InputEvent e;
  while (m_hwndCursor && m_hwndCursor->NextEvent(&e)) OnEvent(e);
}

void CCanvasWindow::OnEvent(const ov::InputEvent& e) {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  const POINT pt = {e.x + m_ptOffset.x, e.y + m_ptOffset.y};
  switch (e.type) {
    case ov::InputEvent::kButtonDown:
      if (e.button != kButtonLeft) return;
      if (!m_pCurrentShape && m_Active.tool != 0)
        ButtonDown(pt);
      else if (m_Active.tool == 8 && m_pCurrentShape)
        m_pCurrentShape->Finish();
      return;
    case ov::InputEvent::kMotion:
      if (!m_pCurrentShape || m_Active.tool == 8) return;
      if (pt.x == m_ptLast.x && pt.y == m_ptLast.y) return;
      m_ptLast = pt;
      if (m_pCurrentShape->MoveTo(pt)) Redraw();
      return;
    case ov::InputEvent::kButtonUp:
      if (e.button != kButtonLeft || !m_pCurrentShape || m_Active.tool == 8) return;
      m_pCurrentShape->EndDrag();
      EndStroke();
      Redraw();
      return;
    case ov::InputEvent::kKey:
      if (m_Active.tool == 8 && m_pCurrentShape)
        static_cast<CTextShape*>(m_pCurrentShape.get())
            ->OnKey(TextKey(e.keysym, e.control), e.text, e.shift);
      return;
    case ov::InputEvent::kFocusLost:
      if (m_Active.tool == 8 && m_pCurrentShape) m_pCurrentShape->Finish();
      return;
    default:
      return;
  }
}

void CCanvasWindow::ButtonDown(POINT pt) {
  m_ptLast = pt;
  const Tool& t = m_Active;
  switch (t.tool) {
    case 1:
      m_pCurrentShape = std::make_unique<CRectShape>(pt, t.size, t.color);
      break;
    case 2:
      m_pCurrentShape = std::make_unique<CEllipseShape>(pt, t.size, t.color);
      break;
    case 3:
      m_pCurrentShape = std::make_unique<CArrowShape>(pt, t.size, t.color);
      break;
    case 4:
      m_pCurrentShape = std::make_unique<CBrushShape>(pt, t.size, t.color);
      break;
    case 5:
      m_pCurrentShape = std::make_unique<CLineShape>(pt, t.size, t.color);
      break;
    case 6:
      m_pCurrentShape = std::make_unique<CAirBrush>(pt, t.size, t.color, m_nWidth, m_nHeight);
      m_pSprayTimer->Set(10);
      m_nTimer = 1;
      break;
    case 7:
      m_pCurrentShape =
          std::make_unique<CNumberShape>(pt, t.size, t.color, t.font, t.fontStyle, t.color2);
      if (m_pCallback) m_pCallback->OnNumberChanged(g_nCanvasNumber);
      break;
    case 8:
      m_pCurrentShape =
          std::make_unique<CTextShape>(this, pt, t.size, t.color, t.font, t.fontStyle);
      m_hwndCursor->TakeFocus();
      break;
    case 9:
      m_pCurrentShape = std::make_unique<CEraseShape>(pt, t.size);
      break;
    case 10:
      m_pCurrentShape = std::make_unique<CEraseShapeBox>(pt);
      break;
    case 11:
      m_pCurrentShape = std::make_unique<CBlurShape>(pt, t.size, &m_pBlurBrush);
      break;
    case 12:
      m_pCurrentShape = std::make_unique<CBlurShapeBox>(pt, &m_pBlurBrush);
      break;
    default:
      return;
  }
  g_bCanvasDrawing = true;
  if (t.tool != 8) m_hwndCursor->Capture(true);
  if (m_pCurrentShape->m_bVisible) Redraw();
}

void CCanvasWindow::EndStroke() {
  if (m_nTimer) {
    m_pSprayTimer->Set(0);
    m_nTimer = 0;
  }
  if (m_hwndCursor) m_hwndCursor->Capture(false);
  Commit();
  g_bCanvasDrawing = false;
}
