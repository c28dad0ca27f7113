// The capture stream of a session: chosen at creation, joined at the stop.
#include "capture/FramePng.h"
#include "capture/GdiCaptureVideoStream.h"
#include "capture/MagnifierHost.h"
#include "capture/MagnifierVideoStream.h"
#include "capture/WindowCaptureVideoStream.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "overlay/RecorderBox.h"
#include "platform/Files.h"
#include "session/ScreenCapture.h"

// The composed stream where it works and is wanted; the change-driven one
// for a fixed region; otherwise, or when that one cannot start, a copy of
// the region from the screen each frame. A window has a stream of its own.
HRESULT CScreenCapture::CreateCaptureStream(int32_t width, int32_t height) {
  if (g_videoOpt.hWindow) {
    m_pWindowStream = std::make_unique<CWindowCaptureVideoStream>(this, m_VideoCodec.get(), width,
                                                                  height, g_videoOpt.hWindow);
    return m_pWindowStream->StartThread() ? S_OK : E_FAIL;
  }
  if (g_bHardwareCapture.load() && g_bHardwareCaptureEnabled.load()) {
    WriteLog(ov::kMsg, "Use hardware capture\n");
    m_pMagnifierStream =
        std::make_unique<CMagnifierVideoStream>(this, m_VideoCodec.get(), width, height);
    if (m_pMagnifierStream->StartThread()) {
      // The recorder's own windows stay on the screen but out of the picture.
      m_pMagnifierStream->AddExcludeWindow(g_hHostWindow);
      return S_OK;
    }
    // The server refused what the probe found working: record the screen as it is.
    m_pMagnifierStream.reset();
  }
  if (g_mouseOpt.Mode == MOUSE_MODE_FIXED) {
    WriteLog(ov::kMsg, "Use Desktop duplication\n");
    m_pDuplicationStream =
        std::make_unique<CDesktopDuplicationVideoStream>(this, m_VideoCodec.get(), width, height);
    if (m_pDuplicationStream->StartThread()) return S_OK;
    m_pDuplicationStream.reset();
  }
  WriteLog(ov::kMsg, "Use Gdi capture\n");
  m_pGdiStream = std::make_unique<CGdiCaptureVideoStream>(this, m_VideoCodec.get(), width, height);
  if (!m_pGdiStream->StartThread()) return E_FAIL;
  return S_OK;
}

void CScreenCapture::JoinCaptureStreams() {
  if (m_pGdiStream) m_pGdiStream->Join();
  if (m_pDuplicationStream) m_pDuplicationStream->Join();
  if (m_pMagnifierStream) m_pMagnifierStream->Join();
  if (m_pWindowStream) m_pWindowStream->Join();
}

void CScreenCapture::DestroyCaptureStreams() {
  m_pMagnifierStream.reset();
  m_pWindowStream.reset();
  m_pGdiStream.reset();
  m_pDuplicationStream.reset();
}

void CScreenCapture::SaveFrameToFile(const wchar_t* pszPath) {
  if (!ov::PathFits(pszPath)) {
    OV_BAD_ARG(pszPath);
    return;
  }
  CCaptureVideoStream* stream =
      m_pMagnifierStream     ? static_cast<CCaptureVideoStream*>(m_pMagnifierStream.get())
      : m_pDuplicationStream ? static_cast<CCaptureVideoStream*>(m_pDuplicationStream.get())
      : m_pWindowStream      ? static_cast<CCaptureVideoStream*>(m_pWindowStream.get())
                             : m_pGdiStream.get();
  if (stream && stream->m_pLastFrame) {
    ov::SaveFramePng(stream->m_pLastFrame, stream->CFrameDetect::m_nWidth * 4,
                     g_videoOpt.rcScreen.right - g_videoOpt.rcScreen.left,
                     g_videoOpt.rcScreen.bottom - g_videoOpt.rcScreen.top, pszPath);
  }
  // The recorder box shows that a picture was saved.
  PostToBox(CRecorderBox::kFlash);
}
