#include "capture/GdiCaptureVideoStream.h"

#include <cstring>
#include <mutex>

#include "core/Globals.h"
#include "core/Log.h"

CGdiCaptureVideoStream::~CGdiCaptureVideoStream() { Join(); }

bool CGdiCaptureVideoStream::SetUp() {
  m_grabber = ov::CreateScreenGrabber(m_nRegionWidth, m_nRegionHeight);
  if (!m_grabber) {
    WriteLog(ov::kErr, "Failed to open the X display for capture\n");
    return false;
  }
  // Where the region fills the frame's rows, the server grabs straight into
  // the frame: no copy of the screen per frame. With a second such buffer as
  // the reference, a changed frame becomes the reference by a swap, and the
  // next grab goes over the old one: no copy for change detection either.
  if (m_nRegionWidth == CFrameDetect::m_nWidth) {
    const size_t bytes =
        static_cast<size_t>(CMemoryBitmap::m_nWidth) * CMemoryBitmap::m_nHeight * 4;
    if (MoveBits(m_grabber->CreateSharedFrame(bytes)) &&
        AddBackBuffer(m_grabber->CreateSharedFrame(bytes))) {
      std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
      MoveReference(BackBits());
      m_bSwapReference = true;
    }
  }
  return true;
}

// Every pixel of a frame is rewritten by FillFrame, so the buffer that held
// the reference can take the next frame.
bool CGdiCaptureVideoStream::UpdateReference(uint8_t* frame) {
  if (!m_bSwapReference) return IsChanged(frame);
  if (std::memcmp(frame, m_pLastFrame, m_nFrameSize) == 0) return false;
  SwapBuffers();
  m_pLastFrame = frame;
  return true;
}

bool CGdiCaptureVideoStream::FillFrame(uint8_t* frame, int32_t pitch) {
  // The grab writes the whole region, black where it leaves the screen, so
  // only the margins of the rounded frame need clearing. The result is the
  // same as clearing the whole frame first, at a fraction of the cost.
  ClearMargins(frame, pitch);
  const RECT& rc = g_videoOpt.rcScreen;
  bool ok;
  if (g_mouseOpt.Mode == MOUSE_MODE_FIXED) {
    m_rcSource = rc;
    ok = m_grabber->Grab(rc.left, rc.top, m_nRegionWidth, m_nRegionHeight, frame, pitch);
  } else {
    std::lock_guard<std::recursive_mutex> canvas(g_csCanvas);
    POINT corner;
    {
      std::lock_guard<std::recursive_mutex> mouse(g_csMouse);
      corner = g_ptRegion;
    }
    m_rcSource = {corner.x, corner.y, corner.x + m_nRegionWidth, corner.y + m_nRegionHeight};
    ok = m_grabber->Grab(corner.x, corner.y, m_nRegionWidth, m_nRegionHeight, frame, pitch);
  }
  if (!ok) WriteLog(ov::kErr, "Failed(%d) to BitBlt\n", m_grabber->LastError());
  return ok;
}
