#include "capture/CaptureVideoStream.h"

#include <cairo.h>

#include <algorithm>
#include <cstring>

#include "core/CanvasPicture.h"
#include "core/FrameTiming.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "encode/VideoCodec.h"
#include "pixels/OverlayKernels.h"
#include "platform/Clock.h"
#include "platform/Thread.h"

namespace {
constexpr int32_t kScheduleSlackMs = 4;
}  // namespace

std::atomic<int64_t> CCaptureVideoStream::s_nKeyFrameSpacing{50000000};

CCaptureVideoStream::CCaptureVideoStream(CFrameTiming* pOwner, CVideoCodec* pCodec, int32_t width,
                                         int32_t height)
    : CFrameDetect(RoundSize(width), RoundSize(height)),
      m_pOwner(pOwner),
      m_pCodec(pCodec),
      m_nRegionWidth(width),
      m_nRegionHeight(height) {
  // One spare row below the frame, as drawing code may touch it.
  Create(CFrameDetect::m_nWidth, CFrameDetect::m_nHeight + 1);
  CreateGraphics(kRgb);
}

CCaptureVideoStream::~CCaptureVideoStream() { Join(); }

bool CCaptureVideoStream::StartThread() {
  if (!m_pBits || !m_pLastFrame) return false;
  m_hThread = std::thread(&CCaptureVideoStream::Run, this);
  m_hReadyEvent.Wait();
  return m_bSetUpOk;
}

void CCaptureVideoStream::Join() {
  if (m_hThread.joinable()) m_hThread.join();
}

void CCaptureVideoStream::Run() {
  ov::SetCurrentThreadName("ov-capture");
  ov::SetCurrentThreadPriority(ov::ThreadPriority::AboveNormal);
  m_bSetUpOk = SetUp();
  // The overlay talks to the X server on a connection of its own, made on
  // this thread.
  m_mouse = std::make_unique<CMouseOverlay>();
  m_hReadyEvent.Set();
  if (!m_bSetUpOk) return;

  CaptureLoop();
  if (g_bLastFrame.load()) {
    // Whatever the screen shows, the compare must find a change, so that a
    // still screen at the end does not shorten the video.
    reinterpret_cast<uint32_t*>(m_pLastFrame)[0] ^= 0xFFFFFFFFu;
    reinterpret_cast<uint32_t*>(m_pLastFrame)[1] ^= 0xFFFFFFFFu;
    m_bFinalFrame = true;
    // Made at the stop, not at the next frame's time: it shows the screen
    // as it was when the recording ended, and the video ends there too.
    MakeFrame();
  }
  m_pCodec->Finish();
}

void CCaptureVideoStream::CaptureLoop() {
  CFrameTiming& owner = *m_pOwner;
  while (g_bRunning.load()) {
    if (!g_bRecording.load()) {
      owner.m_hRunEvent.Wait();
      continue;
    }
    if (owner.m_nFrameCount != 0) WaitForNextFrame();
    if (g_bRecording.load()) MakeFrame();
  }
}

// The interval runs from the start of one capture to the start of the next.
// A whole number of milliseconds per frame would run fast (33 ms makes 30.3
// frames a second at 30), so at the base rate frames keep to a schedule of
// exact 1000 / FrameRate steps from an anchor; a frame that comes late is not
// made up for: the schedule starts again from it.
void CCaptureVideoStream::WaitForNextFrame() {
  const uint32_t due = NextFrameDue();
  int32_t rest = static_cast<int32_t>(due - ov::TickCount());
  // The stop cuts the wait short: the last frame is made at once.
  if (rest > 0) m_pOwner->m_hStopEvent.WaitFor(static_cast<uint32_t>(rest));
}

uint32_t CCaptureVideoStream::NextFrameDue() {
  CFrameTiming& owner = *m_pOwner;
  const uint32_t interval = owner.m_dwFrameInterval.load(std::memory_order_relaxed);
  uint32_t due = owner.m_dwFrameTick + interval;
  if (interval == owner.m_dwBaseInterval && g_videoOpt.FrameRate > 0) {
    if (m_nPaced == 0) m_dwPaceAnchor = owner.m_dwFrameTick;
    uint32_t scheduled =
        m_dwPaceAnchor +
        static_cast<uint32_t>((m_nPaced + 1) * 1000 / static_cast<uint64_t>(g_videoOpt.FrameRate));
    // A capture that woke a little late (the sleep's own slack) keeps the
    // schedule; one more than a few milliseconds late starts a new one.
    int32_t drift = static_cast<int32_t>(scheduled - due);
    if (drift >= -kScheduleSlackMs && drift <= 1) {
      due = scheduled;
    } else {
      m_nPaced = 0;  // late, paused or slowed: a new anchor at the last frame
      m_dwPaceAnchor = owner.m_dwFrameTick;
    }
  } else {
    m_nPaced = 0;
  }
  ++m_nPaced;
  return due;
}

uint32_t CCaptureVideoStream::ElapsedAt(uint32_t tick) const {
  // Times only go forward, even for a last frame close behind the one before.
  return std::max(tick - m_pOwner->m_dwStartTick.load(), m_pOwner->m_dwElapsed.load() + 1);
}

bool CCaptureVideoStream::KeyFrameAt(int64_t time) const {
  return time - m_nLastKeyTime >= s_nKeyFrameSpacing.load();
}

uint32_t CCaptureVideoStream::PassUnchangedFrames(uint32_t due, uint32_t now) {
  CFrameTiming& owner = *m_pOwner;
  while (static_cast<int32_t>(now - due) > 0) {
    const uint32_t elapsed = ElapsedAt(due);
    if (KeyFrameAt(static_cast<int64_t>(elapsed) * 10000)) break;
    owner.m_dwFrameTick = due;
    owner.m_dwElapsed = elapsed;
    ++owner.m_nFrameCount;
    due = NextFrameDue();
  }
  return due;
}

uint32_t CCaptureVideoStream::UntilKeyFrame(uint32_t now) const {
  const int64_t keyAt = (m_nLastKeyTime + s_nKeyFrameSpacing.load()) / 10000;
  const int64_t elapsed = static_cast<int32_t>(now - m_pOwner->m_dwStartTick.load());
  return static_cast<uint32_t>(std::clamp<int64_t>(keyAt - elapsed, 0, INT32_MAX));
}

void CCaptureVideoStream::MakeFrame(bool dirty) {
  CFrameTiming& owner = *m_pOwner;
  uint32_t now = ov::TickCount();
  owner.m_dwFrameTick = now;
  int64_t time = 0;
  if (owner.m_nFrameCount != 0) {
    owner.m_dwElapsed = ElapsedAt(now);
    time = static_cast<int64_t>(owner.m_dwElapsed) * 10000;
  }
  const int32_t pitch = CFrameDetect::m_nWidth * 4;
  uint8_t* const frame = m_pBits;
  bool changed = false;
  // What may differ from the last frame.
  int32_t changedLeft = 0, changedTop = 0, changedRight = 0, changedBottom = 0;
  if (dirty) {
    m_nChangedTop = 0;
    m_nChangedBottom = CFrameDetect::m_nHeight;
    m_nChangedLeft = 0;
    m_nChangedRight = CFrameDetect::m_nWidth;
    if (!FillFrame(frame, pitch)) return;
    if (g_bUnborder) Unborder(frame);
    if (m_bLayCanvas) LayCanvas(frame, pitch);
    if (m_pBitmap) cairo_surface_mark_dirty(m_pBitmap);
    m_mouse->DrawMouse(m_pGraphics, m_rcSource);
    if (m_pBitmap) cairo_surface_flush(m_pBitmap);
    // The reference frame is also read by SaveFrameToFile on the host's thread.
    std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
    if (m_bFinalFrame || (m_nChangedTop == 0 && m_nChangedBottom == CFrameDetect::m_nHeight)) {
      changed = UpdateReference(frame);
      changedRight = CFrameDetect::m_nWidth;
      changedBottom = CFrameDetect::m_nHeight;
    } else {
      changed = IsChanged(frame, m_nChangedTop, m_nChangedBottom, m_nChangedLeft, m_nChangedRight);
      changedLeft = m_nChangedLeft;
      changedTop = m_nChangedTop;
      changedRight = m_nChangedRight;
      changedBottom = m_nChangedBottom;
    }
  }
  BOOL keyFrame = 0;
  if (KeyFrameAt(time)) {
    keyFrame = 1;
    m_nLastKeyTime = time;
  }
  m_pCodec->SetChangedArea(changedLeft, changedTop, changedRight, changedBottom);
  m_pCodec->WriteFrame(frame, pitch, time, keyFrame, changed ? 0 : 1);
  ++owner.m_nFrameCount;
}

void CCaptureVideoStream::ClearMargins(uint8_t* frame, int32_t pitch) const {
  const size_t margin = static_cast<size_t>(CFrameDetect::m_nWidth - m_nRegionWidth) * 4;
  if (margin) {
    for (int32_t row = 0; row < m_nRegionHeight; ++row)
      std::memset(frame + static_cast<ptrdiff_t>(row) * pitch + m_nRegionWidth * 4, 0, margin);
  }
  std::memset(frame + static_cast<ptrdiff_t>(m_nRegionHeight) * pitch, 0,
              static_cast<size_t>(CFrameDetect::m_nHeight - m_nRegionHeight) * pitch);
}

void CCaptureVideoStream::LayCanvas(uint8_t* frame, int32_t pitch) {
  std::lock_guard<std::recursive_mutex> lock(g_csCanvas);
  const CanvasPicture& c = g_CanvasPicture;
  if (!c.hasContent || !c.pixels) return;
  const auto& kernels = ov::pixels::ActiveOverlayKernels();
  const int32_t sx = m_rcSource.left - c.origin.x, sy = m_rcSource.top - c.origin.y;
  const int32_t xBegin = std::max(0, -sx), xEnd = std::min(m_nRegionWidth, c.width - sx);
  if (xEnd <= xBegin) return;
  for (int32_t y = std::max(0, -sy); y < m_nRegionHeight && y + sy < c.height; ++y) {
    auto* row = reinterpret_cast<uint32_t*>(frame + static_cast<ptrdiff_t>(y) * pitch);
    const uint32_t* picture = c.pixels + static_cast<ptrdiff_t>(y + sy) * c.width;
    kernels.overRow(row + xBegin, row + xBegin, picture + sx + xBegin, 0, xEnd - xBegin);
  }
}

void CCaptureVideoStream::Unborder(uint8_t* frame) {
  const int32_t w = CFrameDetect::m_nWidth, h = CFrameDetect::m_nHeight;
  const size_t row = static_cast<size_t>(w) * 4;
  std::memcpy(frame, frame + row, row);
  std::memcpy(frame + (h - 1) * row, frame + (h - 2) * row, row);
  for (int32_t y = 0; y < h; ++y) {
    uint32_t* line = reinterpret_cast<uint32_t*>(frame + y * row);
    line[0] = line[1];
    line[w - 1] = line[w - 2];
  }
}
