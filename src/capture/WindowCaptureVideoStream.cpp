#include "capture/WindowCaptureVideoStream.h"

#include <vector>

#include "core/FrameTiming.h"
#include "core/Globals.h"
#include "core/Log.h"

namespace {

bool HasPicture(const std::vector<uint32_t>& pixels) {
  if (pixels.size() <= 1) return false;
  for (uint32_t p : pixels)
    if ((p & 0xFFFFFF) != (pixels[0] & 0xFFFFFF)) return true;
  return false;
}

// The inside of the window, counted from its outer corner.
int32_t Detect(ov::WindowGrabber& grabber) {
  RECT outer;
  int32_t w = 0, h = 0;
  if (!grabber.Locate(&outer, &w, &h) || w <= 0 || h <= 0) return kWindowMethodScreen;
  const int32_t border = (outer.right - outer.left - w) / 2;
  std::vector<uint32_t> pixels(static_cast<size_t>(w) * h);
  auto* bits = reinterpret_cast<uint8_t*>(pixels.data());
  if (grabber.Grab(ov::WindowSource::Pixmap, border, border, w, h, bits, w * 4) &&
      HasPicture(pixels))
    return kWindowMethodPixmap;
  std::fill(pixels.begin(), pixels.end(), 0u);
  if (grabber.Grab(ov::WindowSource::Window, border, border, w, h, bits, w * 4)) {
    if (HasPicture(pixels)) return kWindowMethodImage;
    WriteLog(ov::kErr, "PrintWindow?\n");
  }
  return kWindowMethodScreen;
}

}  // namespace

int32_t DetectWindowCaptureMethod(HWND window) {
  auto grabber = ov::CreateWindowGrabber(window, 1, 1);
  return grabber ? Detect(*grabber) : kWindowMethodScreen;
}

CWindowCaptureVideoStream::CWindowCaptureVideoStream(CFrameTiming* pOwner, CVideoCodec* pCodec,
                                                     int32_t width, int32_t height, HWND window)
    : CCaptureVideoStream(pOwner, pCodec, width, height), m_hWnd(window) {}

CWindowCaptureVideoStream::~CWindowCaptureVideoStream() {
  Join();
  if (m_pMagnifierHost) CloseMagnifier(m_pMagnifierHost.get());
}

bool CWindowCaptureVideoStream::SetUp() {
  // Also the window's whereabouts for the methods that do not read it.
  m_window = ov::CreateWindowGrabber(m_hWnd, m_nRegionWidth, m_nRegionHeight);
  if (!m_window) {
    WriteLog(ov::kErr, "The window not exist.\n");
    return false;
  }
  m_nMethod = kWindowMethodPixmap;
  if (g_bHardwareCapture.load()) {
    m_pMagnifierHost = std::make_unique<MagnifierHost>();
    if (SUCCEEDED(InitializeMagnifier(m_pMagnifierHost.get(), m_nRegionWidth, m_nRegionHeight)))
      m_nMethod = kWindowMethodMagnifier;
    else
      m_pMagnifierHost.reset();
  } else {
    m_nMethod = Detect(*m_window);
  }
  if (m_nMethod == kWindowMethodScreen) {
    m_screen = ov::CreateScreenGrabber(m_nRegionWidth, m_nRegionHeight);
    if (!m_screen) {
      WriteLog(ov::kErr, "Failed to open the X display for capture\n");
      return false;
    }
  }
  // The window's own picture leaves the engine's windows out: the canvas is
  // laid over it. The screen already shows the canvas.
  m_bLayCanvas = m_nMethod != kWindowMethodScreen;
  WriteLog(ov::kMsg, "Window capture method: %d\n", m_nMethod);
  return true;
}

// The pacing of every stream, ending when the window is gone: the rest of
// the recording (the sound) goes on, without frames.
void CWindowCaptureVideoStream::CaptureLoop() {
  CFrameTiming& owner = *m_pOwner;
  while (g_bRunning.load()) {
    if (m_bGone) {
      WriteLog(ov::kErr, "The window not exist.\n");
      m_bGone = true;
      break;
    }
    if (!g_bRecording.load()) {
      owner.m_hRunEvent.Wait();
      continue;
    }
    if (owner.m_nFrameCount != 0) WaitForNextFrame();
    if (g_bRecording.load()) MakeFrame();
  }
}

bool CWindowCaptureVideoStream::FillFrame(uint8_t* frame, int32_t pitch) {
  // The window may have moved or changed its size since the last frame.
  RECT outer;
  int32_t innerWidth, innerHeight;
  if (!m_window->Locate(&outer, &innerWidth, &innerHeight)) {
    m_bGone = true;
    return false;
  }
  const RECT& part = g_videoOpt.rcWindow;
  m_rcSource = {outer.left + part.left, outer.top + part.top,
                outer.left + part.left + m_nRegionWidth, outer.top + part.top + m_nRegionHeight};
  ClearMargins(frame, pitch);
  switch (m_nMethod) {
    case kWindowMethodPixmap:
    case kWindowMethodImage:
      m_window->Grab(
          m_nMethod == kWindowMethodPixmap ? ov::WindowSource::Pixmap : ov::WindowSource::Window,
          part.left, part.top, m_nRegionWidth, m_nRegionHeight, frame, pitch);
      break;
    case kWindowMethodScreen:
      m_screen->Grab(m_rcSource.left, m_rcSource.top, m_nRegionWidth, m_nRegionHeight, frame,
                     pitch);
      break;
    default: {
      // The window is found again in the same breath as its pixels are read:
      // it may have moved since it was located above.
      MagnifierHost* host = m_pMagnifierHost.get();
      if (FAILED(SetMagnifierSource(host, m_rcSource, m_hWnd))) return false;
      host->anchor = outer;
      if (FAILED(GetMagnifierFrame(host, frame, pitch))) return false;
      m_rcSource = host->source;
      break;
    }
  }
  return true;
}
