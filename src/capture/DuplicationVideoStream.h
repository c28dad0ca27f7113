// The change-driven capture of a fixed region: the X server tells which
// rectangles of the desktop changed, only those are fetched into a mirror of
// the region, and a round in which nothing changed touches no pixel. A
// change of the screen's size or a lost server is access lost: the stream
// makes a new mirror every 100 ms until the desktop is back as it was.
#pragma once

#include <memory>

#include "capture/CaptureVideoStream.h"
#include "platform/DesktopMirror.h"

class CDesktopDuplicationVideoStream : public CCaptureVideoStream {
 public:
  CDesktopDuplicationVideoStream(CFrameTiming* pOwner, CVideoCodec* pCodec, int32_t width,
                                 int32_t height)
      : CDesktopDuplicationVideoStream(pOwner, pCodec, width, height, false) {}
  ~CDesktopDuplicationVideoStream() override;

 protected:
  CDesktopDuplicationVideoStream(CFrameTiming* pOwner, CVideoCodec* pCodec, int32_t width,
                                 int32_t height, bool composed);
  bool SetUp() override;
  bool FillFrame(uint8_t* frame, int32_t pitch) override;
  void CaptureLoop() override;

  // The region of this frame in virtual-screen pixels.
  virtual RECT FrameRegion();
  // Called on the stream's thread before each fetch; true forces a fetch.
  virtual bool BeforeFetch() { return false; }
  // Whether, between changes of the screen, the stream may sleep until a
  // key frame is due rather than make the unchanged frames one by one:
  // not when something other than the screen's changes (a window list)
  // must be looked at every frame.
  virtual bool SleepsBetweenChanges() const { return true; }
  // A region that moves from frame to frame is fetched whole every frame.
  bool m_bRegionMoves = false;

  std::unique_ptr<ov::DesktopMirror> m_pDuplication;

 private:
  HRESULT CreateDesktopDuplication();

  const bool m_bComposed;
  // Without overlays nothing but the fetches writes the frame, so the frame
  // itself is the mirror, and only the rows fetched need comparing.
  bool m_bDirect = false;
  uint8_t* m_pMirror = nullptr;  // the region as last fetched, in the frame's layout
  int32_t m_nDesktopWidth = 0, m_nDesktopHeight = 0;
};
