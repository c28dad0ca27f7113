// Records one window, or a part of it, wherever it goes on the screen and
// whatever lies over it.
#pragma once

#include <memory>

#include "capture/CaptureVideoStream.h"
#include "capture/MagnifierHost.h"
#include "platform/ScreenGrabber.h"
#include "platform/WindowGrabber.h"

// The ways of reading a window, tried in this order at the start; the first
// that gives a real picture is kept for the whole recording.
enum WindowCaptureMethod {
  kWindowMethodPixmap = 0,     // the window's off-screen picture
  kWindowMethodImage = 1,      // the window's contents as the server reads them
  kWindowMethodScreen = 2,     // the screen at the window's place, covers and all
  kWindowMethodMagnifier = 3,  // the desktop composed up to the window
};

// The method that gives a picture of window (one colour counts as none).
int32_t DetectWindowCaptureMethod(HWND window);

class CWindowCaptureVideoStream : public CCaptureVideoStream {
 public:
  CWindowCaptureVideoStream(CFrameTiming* pOwner, CVideoCodec* pCodec, int32_t width,
                            int32_t height, HWND window);
  ~CWindowCaptureVideoStream() override;

  std::unique_ptr<MagnifierHost> m_pMagnifierHost;
  int32_t m_nMethod = kWindowMethodPixmap;
  HWND m_hWnd;

 protected:
  bool SetUp() override;
  bool FillFrame(uint8_t* frame, int32_t pitch) override;
  void CaptureLoop() override;

 private:
  std::unique_ptr<ov::WindowGrabber> m_window;
  std::unique_ptr<ov::ScreenGrabber> m_screen;
  bool m_bGone = false;
};
