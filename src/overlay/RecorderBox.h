// What the user sees of a running recording: a marching dashed frame one
// pixel outside the recorded region, the canvas's shapes, the move grips of
// the manual mode and, for a moment, a camera picture when a frame was
// saved. One click-through window above all others, with alpha where a
// compositing manager runs; the frame alone shows where none does.
#pragma once

#include <cstdint>
#include <memory>

#include "capture/PointerTracker.h"
#include "core/Resources.h"
#include "overlay/CanvasWindow.h"

namespace ov {
class OverlayWindow;
}  // namespace ov

// The eight grips round the region in the manual mode: four corner handles
// and four bars, which move the region while dragged.
class CMoveBarWindow {
 public:
  virtual ~CMoveBarWindow();

 protected:
  static constexpr int32_t kHandleSize = 24;
  HRESULT CreateMoveBar(ov::MessageQueue& queue, const RECT& bar);
  void PlaceBars();
  // The handle quads, relative to the display: the corner windows' places.
  RECT HandleRect(int index) const;
  virtual void MoveRegion(POINT topLeft) = 0;

  int32_t m_nBorder = 0;
  std::unique_ptr<ov::InputWindow> m_hwndBar[8];
  bool m_bDragging = false;
  POINT m_ptPress = {};
  RECT m_rcPress = {};
  RECT m_rcBar = {};  // the region on the screen

 private:
  void OnBarInput(int index);
  ov::MessageQueue* m_pBarQueue = nullptr;
};

class CRecorderBox : public CCanvasWindow, public CMoveBarWindow, public ov::PointerMoveTarget {
 public:
  // Posted by the session: a frame was saved or the host asks for the
  // camera picture; the recording paused; it resumed.
  static constexpr uint32_t kFlash = 0x0400 + 2, kPause = 0x0400 + 10, kResume = 0x0400 + 11;

  CRecorderBox();
  ~CRecorderBox() override;

  // On the thread that pumps queue; 0 or a failure code.
  HRESULT Create(ov::MessageQueue& queue);
  // The messages of the box and its canvas; false for others.
  bool OnMessage(const ov::Message& msg);
  void SetAnimate(bool animate);
  void Repaint() override;
  void MoveRegion(POINT topLeft) override;
  void TrackTarget();

  void FollowWindow() override { TrackTarget(); }
  POINT MoveRegionTo(POINT topLeft) override;

  HWND Window() const { return m_hwndBox; }

 private:
  void OnTimer();
  void DrawFrame(uint32_t* pixels);
  void Blit(uint32_t* dst, const uint32_t* src, int32_t srcStride, int32_t x, int32_t y, int32_t w,
            int32_t h, uint32_t alpha);
  void LimitOpaqueWindow();

  RECT m_rcFrame = {};
  RECT m_rcRegion = {};
  RECT m_rcWindow = {};  // the box window on the screen
  HWND m_hwndBox = 0;
  bool m_bAnimate = false;
  bool m_bShown = false;  // the frame is drawn
  int32_t m_nWindowWidth = 0, m_nWindowHeight = 0;
  int32_t m_nDashOffset = 0;
  uint32_t m_ColorsRecord[2] = {}, m_ColorsPause[2] = {};
  int32_t m_nFlash = 0;
  bool m_bFlashShown = false;
  ov::MessageQueue* m_pQueue = nullptr;
  std::unique_ptr<ov::OverlayWindow> m_window;
  std::unique_ptr<ov::PeriodicTimer> m_pTimer;
  uint32_t* m_pBackBuffer = nullptr;
  size_t m_nBackBufferBytes = 0;
  bool m_bPainted = false;  // the window shows something
  ov::Surface m_pHandle;    // 24 x 24
  ov::Surface m_pCamera;    // 256 x 256
  uint32_t m_CameraRow[256] = {};
};
