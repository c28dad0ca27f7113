#include "capture/DuplicationVideoStream.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/FrameTiming.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "platform/Clock.h"

namespace {
// Longest single wait for the server, so that the stop is seen soon.
constexpr uint32_t kLongestWaitMs = 50;
// While paused the mirror is kept current at this pace.
constexpr uint32_t kPausedWaitMs = 15;
constexpr uint32_t kRecreateMs = 100;
}  // namespace

CDesktopDuplicationVideoStream::CDesktopDuplicationVideoStream(CFrameTiming* pOwner,
                                                               CVideoCodec* pCodec, int32_t width,
                                                               int32_t height, bool composed)
    : CCaptureVideoStream(pOwner, pCodec, width, height), m_bComposed(composed) {}

CDesktopDuplicationVideoStream::~CDesktopDuplicationVideoStream() {
  Join();
  m_pDuplication.reset();
  std::free(m_pMirror);
}

HRESULT CDesktopDuplicationVideoStream::CreateDesktopDuplication() {
  const char* why = "";
  auto mirror = ov::CreateDesktopMirror(m_nRegionWidth, m_nRegionHeight, m_bComposed, &why);
  if (!mirror) {
    WriteLog(ov::kErr, "Failed(0x%x) to get duplicate output.\n", static_cast<unsigned>(E_FAIL));
    WriteLog(ov::kErr, "%s\n", why);
    return E_FAIL;
  }
  int32_t width, height;
  mirror->ScreenSize(&width, &height);
  if (m_nDesktopWidth && (width != m_nDesktopWidth || height != m_nDesktopHeight)) {
    // A recording cannot carry on on a desktop whose geometry has changed.
    WriteLog(ov::kErr, "Desktop Changed: (%d,%d-%d,%d)<-->(%d,%d-%d,%d)\n", 0, 0, width, height, 0,
             0, m_nDesktopWidth, m_nDesktopHeight);
    return E_FAIL;
  }
  m_nDesktopWidth = width;
  m_nDesktopHeight = height;
  m_pDuplication = std::move(mirror);
  return S_OK;
}

bool CDesktopDuplicationVideoStream::SetUp() {
  m_bDirect = g_mouseOpt.Flag == 0 && !g_bUnborder;
  if (!m_bDirect) {
    void* block = nullptr;
    if (posix_memalign(&block, 64, m_nFrameSize) != 0) return false;
    std::memset(block, 0, m_nFrameSize);  // the margins stay black
    m_pMirror = static_cast<uint8_t*>(block);
  }
  HRESULT hr;
  if (OV_FAILED(hr, CreateDesktopDuplication())) return false;
  return true;
}

RECT CDesktopDuplicationVideoStream::FrameRegion() { return g_videoOpt.rcScreen; }

bool CDesktopDuplicationVideoStream::FillFrame(uint8_t* frame, int32_t pitch) {
  m_rcSource = FrameRegion();
  uint8_t* mirror = m_bDirect ? frame : m_pMirror;
  if (m_pDuplication && !m_pDuplication->Update(m_rcSource, mirror, pitch)) {
    WriteLog(ov::kErr, "Failed(0x%x) to Map\n", static_cast<unsigned>(m_pDuplication->LastError()));
    m_pDuplication->Invalidate();
    return false;
  }
  if (!m_bDirect) {
    // Without a mirror (lost at the stop) the last picture is used again.
    std::memcpy(frame, m_pMirror, m_nFrameSize);
    return true;
  }
  const RECT updated = m_pDuplication ? m_pDuplication->LastUpdated() : RECT{};
  m_nChangedTop = std::clamp(updated.top - m_rcSource.top, 0, m_nRegionHeight);
  m_nChangedBottom = std::clamp(updated.bottom - m_rcSource.top, m_nChangedTop, m_nRegionHeight);
  m_nChangedLeft = std::clamp(updated.left - m_rcSource.left, 0, m_nRegionWidth);
  m_nChangedRight = std::clamp(updated.right - m_rcSource.left, m_nChangedLeft, m_nRegionWidth);
  return true;
}

void CDesktopDuplicationVideoStream::CaptureLoop() {
  CFrameTiming& owner = *m_pOwner;
  // A drawn pointer or click may change the picture while the desktop stands still.
  const bool overlays = g_mouseOpt.Flag != 0;
  // Frames of an unchanged screen add nothing to the file (a GIF's last
  // frame lasts until the last one made, so it is made frame by frame):
  // without overlays the stream sleeps from one change, key frame, start,
  // pause or stop to the next instead of waking at every frame.
  const bool sleeps = !overlays && !m_bRegionMoves && SleepsBetweenChanges() &&
                      g_videoOpt.CodecType != CodecType_GIF && owner.WakeFd() >= 0;
  bool dirty = true;
  uint32_t due = 0;  // of the next frame, once there was one
  while (g_bRunning.load()) {
    while (g_bRunning.load()) {
      const bool recording = g_bRecording.load();
      const uint32_t now = ov::TickCount();
      const int32_t rest = static_cast<int32_t>(due - now);
      uint32_t timeout = kPausedWaitMs;
      if (recording) timeout = owner.m_nFrameCount == 0 || rest <= 0 ? 0 : rest;
      timeout = std::min(timeout, kLongestWaitMs);
      const bool idle = sleeps && recording && !dirty && owner.m_nFrameCount != 0;
      if (idle) timeout = std::max(timeout, UntilKeyFrame(now));
      ov::DesktopMirror::Wait result =
          m_pDuplication->WaitForChange(timeout, idle ? owner.WakeFd() : -1);
      if (idle) {
        owner.TakeWake();
        due = PassUnchangedFrames(due, ov::TickCount());
      }
      if (result == ov::DesktopMirror::Wait::Lost) break;
      if (result == ov::DesktopMirror::Wait::Changed) dirty = true;
      if (BeforeFetch()) dirty = true;
      if (!g_bRecording.load()) continue;
      if (owner.m_nFrameCount != 0 && static_cast<int32_t>(due - ov::TickCount()) > 0) continue;
      MakeFrame(dirty || overlays || m_bRegionMoves);
      dirty = false;
      due = NextFrameDue();
    }
    if (!g_bRunning.load()) break;
    WriteLog(ov::kErr, "Desktop lost, Recreate!\n");
    m_pDuplication.reset();
    while (g_bRunning.load()) {
      if (SUCCEEDED(CreateDesktopDuplication())) break;
      owner.m_hStopEvent.WaitFor(kRecreateMs);
    }
    dirty = true;  // the new mirror fetches everything
  }
  // The last frame shows what was drawn up to the stop.
  if (m_pDuplication) {
    m_pDuplication->WaitForChange(0);
    BeforeFetch();
  }
}
