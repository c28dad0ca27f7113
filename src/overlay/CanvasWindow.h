// The drawing surface of a recording: an invisible window over the region
// that takes the pointer while a tool is chosen, the list of shapes with
// undo and redo, and the one picture that they are painted into. The
// recorder box shows the picture; the streams that leave the engine's
// windows out of their frames lay it over them.
#pragma once

#include <cairo.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "orvanta/canvas.h"
#include "overlay/CanvasShapes.h"
#include "platform/Event.h"
#include "platform/NonCopyable.h"

namespace ov {
class InputWindow;
class MessageQueue;
class PeriodicTimer;
struct InputEvent;
struct Message;
}  // namespace ov

class CCanvasWindow : public CScreenCanvas, public CTextShapeCallback, private ov::NonCopyable {
 public:
  static constexpr uint32_t kDoStart = 1325, kDoStop = 1326, kRedo = 1327, kUndo = 1328,
                            kClear = 1329;

  ~CCanvasWindow() override;

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

  void OnTextChanged() override;
  void OnTextFinished(BOOL bKeep) override;

  void SetCallback(CCanvasCallback* callback) { m_pCallback = callback; }
  // The region's top-left on the screen; the cursor window follows it.
  void SetPosition(int32_t x, int32_t y);
  // The messages of the canvas, on its thread; false for others.
  bool OnMessage(const ov::Message& msg);

 protected:
  CCanvasWindow();
  // On the thread that pumps queue: the cursor window at the region
  // (root coordinates), hidden, and a picture of width x height whose
  // top-left lies at origin on the screen.
  HRESULT CreateCanvas(ov::MessageQueue& queue, const RECT& region, int32_t width, int32_t height,
                       POINT origin);
  // Shows the picture anew (the box).
  virtual void Repaint() = 0;
  // Paints the shapes into the picture and has it shown; under g_csCanvas.
  void Redraw();
  bool ToolActive() const { return m_Active.tool != 0; }
  bool Drawing() const { return m_pCurrentShape != nullptr; }

  uint32_t* m_pBits = nullptr;  // premultiplied, m_nWidth pixels a row
  size_t m_nBitsBytes = 0;
  int32_t m_nWidth = 0, m_nHeight = 0;
  BOOL m_bHasContent = 0;
  POINT m_ptOffset = {};      // window to picture
  POINT m_ptWindow = {};      // the cursor window's place
  POINT m_ptOrigin = {};      // the picture's top-left on the screen
  POINT m_rcWindowSize = {};  // the cursor window's size

 private:
  void OnInput();
  void OnEvent(const ov::InputEvent& e);
  void ButtonDown(POINT pt);
  void EndStroke();
  void Commit();
  void DoStart();
  void DoStop();
  void DoUndo();
  void DoRedo();
  void DoClear();
  void UndoState();
  void SelectCursor();
  void MakeBlurPicture();
  void PostToWindow(uint32_t message);

  struct Tool {
    int32_t tool = 0, size = 0;
    uint32_t color = 0, color2 = 0;
    std::string font = "Sans";
    int32_t fontStyle = 0;
  };

  ov::MessageQueue* m_pQueue = nullptr;
  uint32_t m_dwThreadId = 0;
  std::unique_ptr<ov::InputWindow> m_hwndCursor;
  std::unique_ptr<ov::PeriodicTimer> m_pSprayTimer;
  bool m_bCursorShown = false;
  cairo_surface_t* m_pBitmap = nullptr;
  cairo_t* m_pGraphics = nullptr;
  std::unique_ptr<CCanvasShape> m_pCurrentShape;
  std::vector<std::unique_ptr<CCanvasShape>> m_Shapes;
  std::vector<std::unique_ptr<CCanvasShape>> m_Undone;
  Tool m_Active;
  std::mutex m_csPending;
  Tool m_Pending;
  int32_t m_nTimer = 0;
  POINT m_ptLast = {};
  CCanvasCallback* m_pCallback = nullptr;
  // The screen as it was when a blur tool was chosen, blurred; its pattern
  // paints the blur shapes.
  std::vector<uint32_t> m_BlurPixels;
  cairo_surface_t* m_pBlurSurface = nullptr;
  cairo_pattern_t* m_pBlurBrush = nullptr;
  ov::Event m_hStopDone{ov::Event::Reset::Auto};
};

// The one canvas of the running recording, or null.
extern CCanvasWindow* g_pCanvasWindow;
