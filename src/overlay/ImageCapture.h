// The annotated screenshot: one full-size window over the frozen screen, in
// which the user picks a window or drags a rectangle, adjusts it by its
// handles and draws on it. It runs as a selection episode on the engine's
// selection thread; the host's calls are carried over to that thread.
#pragma once

#include <cairo.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "orvanta/imagecapture.h"
#include "overlay/BoxStyles.h"
#include "overlay/ShapeList.h"
#include "overlay/VideoRender.h"
#include "overlay/ZoomTips.h"
#include "platform/Event.h"
#include "platform/WindowList.h"

namespace ov {
class InputWindow;
class MessageQueue;
class PeriodicTimer;
struct InputEvent;
}  // namespace ov

class CImageCapture : public CImageCaptureObject, public CTextShapeCallback, public CVideoRender {
 public:
  static constexpr uint32_t kInvoke = 1330;

  CImageCapture(CImageCaptureCallback* callback, BOOL bAllDisplays);
  // Runs the capture on the selection thread and returns once the screen is
  // frozen and shown; false (and the object is gone) when that failed.
  bool Launch();

  void Start(int tool, int size, uint32_t color, uint32_t color2, const wchar_t* fontName,
             int nFontStyle) override;
  void Stop() override;
  void Redo() override;
  void Undo() override;
  void Clear() override;
  int GetShapeCount() override;
  BOOL CanRedo() override;
  BOOL CanUndo() override;
  void SetNumber(int n) override;
  void Release() override;
  HRESULT SaveToFile(int encoder, const wchar_t* path) override;
  void CopyToClipboard() override;
  void SetBlurLevel(int level) override;
  void SetSelection(const RECT* rc) override;
  void Close() override;

  void OnTextChanged() override;
  void OnTextFinished(BOOL bKeep) override;

 private:
  ~CImageCapture() override;
  struct Episode;

  void Run(const std::shared_ptr<Episode>& episode);
  // From here on the host may start the next episode.
  void EndEpisode();
  bool SetUp(ov::MessageQueue& queue);
  // Runs job on the capture's thread and returns when it has.
  void Call(const std::function<void()>& job);
  void MakeBlur();
  void OnInput();
  void OnSelecting(const ov::InputEvent& e, POINT p);
  void OnEditing(const ov::InputEvent& e, POINT p);
  void OnDrawing(const ov::InputEvent& e, POINT p);
  void OnAdjusting(const ov::InputEvent& e, POINT p);
  void Hover(POINT point);
  void DrawSelecting(POINT point, bool crosshair);
  void EnterEditing();
  void EndAdjusting();
  void EndShape(bool move, POINT p);
  void Commit();
  void Redraw();
  void Render();
  void RebuildHitTable();
  void SetCursor(const ov::PointerShape* shape);
  POINT ClampToSelection(POINT p) const;
  // The selection with the shapes over it, BGRX rows of its width.
  std::vector<uint32_t> Compose() const;

  CImageCaptureCallback* m_pCallback;
  BOOL m_bAllDisplays;
  std::shared_ptr<Episode> m_episode;
  ov::MessageQueue* m_pQueue = nullptr;
  uint32_t m_dwThreadId = 0;
  bool m_bDone = false, m_bEpisodeEnded = false;
  std::vector<ov::ListedWindow> m_Windows;
  int32_t m_nState = 0;  // 0 hover, 1 pressed, 2 dragging, 3 editing
  ov::ZoomRecord m_zoom;
  ov::Font m_font;
  cairo_surface_t* m_pOverlaySurface = nullptr;
  uint32_t m_nPressTick = 0;
  POINT m_ptLast{-1, -1}, m_ptPress{};
  int32_t m_nWidth = 0, m_nHeight = 0;
  std::vector<uint32_t> m_pPicture;  // the frozen screen, BGRX
  cairo_surface_t* m_pPictureBitmap = nullptr;
  HWND m_hwndHover = 0;
  RECT m_rcSelection{}, m_rcSurface{}, m_rcWhole{};
  std::unique_ptr<ov::InputWindow> m_hwnd;
  BOOL m_bHasContent = 0;
  // The shapes' layer: premultiplied BGRA of the surface's size.
  std::vector<uint32_t> m_pCanvas;
  cairo_surface_t* m_pCanvasBitmap = nullptr;
  cairo_t* m_pCanvasGraphics = nullptr;
  CShapeList m_shapes;
  ShapeTool m_Tool;
  std::unique_ptr<ov::PeriodicTimer> m_pSprayTimer;
  int32_t m_nTimer = 0;
  POINT m_ptShape{};
  std::vector<uint32_t> m_pBlurred;
  cairo_surface_t* m_pBlurredBitmap = nullptr;
  cairo_pattern_t* m_pBlurBrush = nullptr;  // null until a blur tool is chosen
  int32_t m_nBlurLevel = 10;
  cairo_pattern_t* m_pPictureBrush = nullptr;
  int32_t m_nDragHit = 0;
  RECT m_rcDragStart{};
  POINT m_ptDragStart{}, m_ptDragLast{};
  int32_t m_nRingWidth = 0;
  RECT m_HitTable[ov::kHitZones] = {};
};

namespace ov {
// ovUninitialize's step: the picture last copied is no longer offered.
void DropCopiedImage();
}  // namespace ov

// The one live capture, or null.
extern CImageCapture* g_pImageCapture;
