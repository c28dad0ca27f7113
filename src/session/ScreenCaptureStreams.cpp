// The capture stream of a session: chosen at creation, joined at the stop.
#include "capture/FramePng.h"
#include "capture/GdiCaptureVideoStream.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "platform/Files.h"
#include "session/ScreenCapture.h"

// Window, hardware and damage-driven streams join this choice as they come;
// until then every region is copied from the screen each frame.
HRESULT CScreenCapture::CreateCaptureStream(int32_t width, int32_t height) {
  WriteLog(ov::kMsg, "Use Gdi capture\n");
  m_pGdiStream = std::make_unique<CGdiCaptureVideoStream>(this, m_VideoCodec.get(), width, height);
  if (!m_pGdiStream->StartThread()) return E_FAIL;
  return S_OK;
}

void CScreenCapture::JoinCaptureStreams() {
  if (m_pGdiStream) m_pGdiStream->Join();
}

void CScreenCapture::DestroyCaptureStreams() { m_pGdiStream.reset(); }

void CScreenCapture::SaveFrameToFile(const wchar_t* pszPath) {
  if (!ov::PathFits(pszPath)) {
    OV_BAD_ARG(pszPath);
    return;
  }
  CCaptureVideoStream* stream = m_pGdiStream.get();
  if (stream && stream->m_pLastFrame) {
    ov::SaveFramePng(stream->m_pLastFrame, stream->CFrameDetect::m_nWidth * 4,
                     g_videoOpt.rcScreen.right - g_videoOpt.rcScreen.left,
                     g_videoOpt.rcScreen.bottom - g_videoOpt.rcScreen.top, pszPath);
  }
  // The recorder box shows the saved picture once it exists.
}
