#include "session/ScreenCapture.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "audio/AudioStream.h"
#include "capture/DisplayCatalogue.h"
#include "capture/GdiCaptureVideoStream.h"
#include "capture/MagnifierVideoStream.h"
#include "capture/PointerTracker.h"
#include "capture/WindowCaptureVideoStream.h"
#include "core/Globals.h"
#include "core/Log.h"
#include "core/Rect.h"
#include "encode/VendorTable.h"
#include "encode/VideoCodec.h"
#include "output/WMVMediaObject.h"
#include "overlay/RecorderBox.h"
#include "platform/Clock.h"
#include "platform/MessageQueue.h"
#include "platform/Thread.h"
#include "platform/VideoHardware.h"
#include "platform/XServer.h"
#include "session/CapturedFiles.h"

using ov::Height;
using ov::Width;

namespace {

constexpr int64_t kTicksPerMs = 10000;
constexpr uint32_t kDisplaysLostMessage = ov::WM_USER + 3;

// The running session, for failures found where no session is at hand.
std::mutex g_sessionMutex;
CScreenCapture* g_pSession = nullptr;

void OnXServerLost() {
  WriteLog(ov::kErr, "The X server went away\n");
  std::lock_guard<std::mutex> lock(g_sessionMutex);
  if (g_pSession) g_pSession->EndOnFailure(OV_E_DEVICE_LOST);
}

}  // namespace

CScreenCapture::CodecFactory CScreenCapture::s_codecFactoryForTesting = nullptr;

CScreenCapture::CScreenCapture()
    : CScreenRecoderObject("CScreenRecoderObject"),
      CFrameTiming(1000u / static_cast<uint32_t>(g_videoOpt.FrameRate)) {
  std::lock_guard<std::mutex> lock(g_sessionMutex);
  g_pSession = this;
  ov::SetXServerLostHandler(OnXServerLost);
}

CScreenCapture::~CScreenCapture() {
  using namespace ov;
  {
    std::lock_guard<std::mutex> lock(g_sessionMutex);
    if (g_pSession == this) g_pSession = nullptr;
  }
  g_bLastFrame.store(g_bRecording.load());
  ov::SetRecording(0);
  g_bRunning.exchange(0);

  if (g_videoOpt.bStream) {
    m_hStopEvent.Set();
    m_hRunEvent.Set();
    Wake();
    JoinCaptureStreams();
    if (g_Recording) g_Recording->nScreenDuration = static_cast<int64_t>(m_dwElapsed) * kTicksPerMs;
  }
  if (m_pAudioStream) m_pAudioStream->Stop();
  if (m_hUIThread.joinable()) {
    MessageQueue::PostThreadMessage(m_dwUIThreadId, WM_QUIT, 0, 0);
    m_hUIThread.join();
  }

  int64_t longest = 0;
  if (g_Recording) {
    if (g_videoOpt.bStream) {
      int64_t d = g_Recording->nScreenDuration;
      WriteLog(kMsg, "Screen capture duration=%lld(%gs)\n", static_cast<long long>(d), d / 1e7);
      longest = std::max(longest, d);
    }
    if (g_bAudioEnabled[1]) {
      int64_t d = g_Recording->nWaveInDuration;
      WriteLog(kMsg, "Audio capture duration=%lld(%gs)\n", static_cast<long long>(d), d / 1e7);
      longest = std::max(longest, d);
    }
    if (g_bAudioEnabled[0]) {
      int64_t d = g_Recording->nWaveOutDuration;
      WriteLog(kMsg, "Wave out duration=%lld(%gs)\n", static_cast<long long>(d), d / 1e7);
      longest = std::max(longest, d);
    }
  }
  WriteLog(kMsg, "Tick duation=%d\n", static_cast<int>(TickCount() - m_dwStartTick.load()));
  if (g_Recording) {
    g_Recording->nDuration = static_cast<uint32_t>((longest + 10000001) / 10000000);
    g_Recording->nFileBytes = m_nBytesWritten.load();
  }

  m_VideoCodec.reset();
  DestroyCaptureStreams();
  m_pClock = nullptr;
  m_pAudioStream.reset();

  if (m_nFrameCount != 0) {
    double elapsed = m_dwElapsed ? static_cast<double>(m_dwElapsed) : 1.0;
    WriteLog(kMsg, "Frame count=%lld, Frame rate: %gframe/s \n",
             static_cast<long long>(m_nFrameCount),
             static_cast<double>(m_nFrameCount) * 1000.0 / elapsed);
  }
  // Every thread of the session is gone: the next recording may begin.
  ov::ReleaseRecordingSlot();
}

void CScreenCapture::Start() {
  if (Failed("Start")) return;
  // A second start would move the clock back under frames already written.
  if (m_bStarted.exchange(true)) {
    WriteLog(ov::kWan, "Start: already started, ignored\n");
    return;
  }
  m_dwStartTick = ov::TickCount();
  m_hRunEvent.Set();
  ChangeRecording(1);
}

void CScreenCapture::Pause() {
  if (Failed("Pause")) return;
  m_dwPauseTick = ov::TickCount();
  // Without a video stream nothing else tracks the elapsed time that a
  // resume without an audio clock rebases on.
  if (!g_videoOpt.bStream) m_dwElapsed = m_dwPauseTick.load() - m_dwStartTick.load();
  ChangeRecording(0);
  m_hRunEvent.ResetEvent();
  if (g_bShowRecordingBox) PostToBox(CRecorderBox::kPause);
}

void CScreenCapture::Resume() {
  if (Failed("Resume")) return;
  uint32_t now = ov::TickCount();
  if (m_pClock) {
    uint32_t audioMs = static_cast<uint32_t>(m_pClock->GetTime() / kTicksPerMs);
    m_dwStartTick = now - m_dwBaseInterval - audioMs;
  } else {
    m_dwStartTick = now - m_dwElapsed - m_dwBaseInterval;
  }
  m_hRunEvent.Set();
  ChangeRecording(1);
  if (g_bShowRecordingBox) PostToBox(CRecorderBox::kResume);
}

void CScreenCapture::GetProgress(uint32_t* pSeconds, int64_t* pBytes) {
  uint32_t start = m_dwStartTick.load();
  uint32_t seconds = 0;
  if (start != 0) {
    // While paused the clock stands at the pause.
    uint32_t now = g_bRecording.load() ? ov::TickCount() : m_dwPauseTick.load();
    if (now == 0) now = ov::TickCount();
    seconds = (now - start) / 1000;
  }
  if (pSeconds) *pSeconds = seconds;
  const HRESULT failure = m_hrFailure.load();
  if (pBytes) *pBytes = FAILED(failure) ? failure : m_nBytesWritten.load();
}

bool CScreenCapture::Failed(const char* operation) const {
  const HRESULT failure = m_hrFailure.load();
  if (SUCCEEDED(failure)) return false;
  WriteLog(ov::kWan, "%s ignored: the recording ended on failure(0x%x)\n", operation,
           static_cast<unsigned>(failure));
  return true;
}

void CScreenCapture::WriteFailed(HRESULT hr) { EndOnFailure(hr); }

void CScreenCapture::EndOnFailure(HRESULT hr) {
  HRESULT none = S_OK;
  if (!m_hrFailure.compare_exchange_strong(none, hr)) return;
  WriteLog(ov::kErr, "Recording ended by failure(0x%x)\n", static_cast<unsigned>(hr));
  // As a pause that never resumes: the streams stop taking, the clock and
  // progress stand at this moment, and the stop adds no final frame.
  m_dwPauseTick = ov::TickCount();
  ChangeRecording(0);
  m_hRunEvent.ResetEvent();
}

uint32_t CScreenCapture::GetFrameCounter() { return m_nFrameCounter.load(); }

CScreenCanvas* CScreenCapture::SetCanvasCallback(CCanvasCallback* pCallback) {
  CRecorderBox* box = g_pRecorderBox.load();
  if (!box) return nullptr;
  box->SetCallback(pCallback);
  return box;
}
void CScreenCapture::AddExcludeWindow(HWND hWnd) {
  if (m_pMagnifierStream) m_pMagnifierStream->AddExcludeWindow(hWnd);
}
void CScreenCapture::RemoveExcludeWindow(HWND hWnd) {
  if (m_pMagnifierStream) m_pMagnifierStream->RemoveExcludeWindow(hWnd);
}
void CScreenCapture::AddIncludeWindow(HWND hWnd) {
  if (m_pMagnifierStream) m_pMagnifierStream->AddIncludeWindow(hWnd);
}
void CScreenCapture::RefreshBox() { PostToBox(CRecorderBox::kFlash); }

void CScreenCapture::AddBytes(int64_t count) { m_nBytesWritten.fetch_add(count); }
void CScreenCapture::AddFrame() { m_nFrameCounter.fetch_add(1); }

void CScreenCapture::ReportFrameTime(uint32_t milliseconds) {
  if (milliseconds > m_dwBaseInterval)
    m_dwFrameInterval.store(milliseconds);
  else if (m_dwFrameInterval.load() > m_dwBaseInterval)
    m_dwFrameInterval.store(m_dwBaseInterval);
}

HRESULT CScreenCapture::Create() {
  using namespace ov;
  const int32_t codecType = g_videoOpt.CodecType;
  const RECT& region = g_videoOpt.hWindow ? g_videoOpt.rcWindow : g_videoOpt.rcScreen;
  const int32_t width = Width(region), height = Height(region);

  if (s_codecFactoryForTesting)
    m_VideoCodec.reset(s_codecFactoryForTesting(codecType, this, this));
  else if (codecType == CodecType_WMV)
    m_VideoCodec = std::make_unique<CWMVMediaObject>(this, this);
  else if (codecType >= 1 && codecType <= 4)
    m_VideoCodec.reset(CreateLibraryVideoCodec(codecType, this, this));
  if (!m_VideoCodec) {
    WriteLog(kErr, "Unsupport codec type=(%d)%s\n", codecType, CodecTypeName(codecType));
    return E_FAIL;
  }
  HRESULT hr;
  // clang-format off
  if (OV_FAILED(hr, m_VideoCodec->Initialize( g_videoOpt.CodecType, width, height, g_videoOpt.FrameRate, g_videoOpt.videoQuality, g_Recording->szScreenCaptureFile)))
    return hr;
  // clang-format on
  return CreateCaptureStream(width, height);
}

HRESULT CScreenCapture::CreateAudio() {
  m_pAudioStream = std::make_unique<CAudioStream>();
  HRESULT hr = m_pAudioStream->Initialize(this, nullptr);
  if (FAILED(hr)) {
    WriteLog(ov::kErr,
             "Failed(0x%x) in m_pAudioStream->Initialize(this, __nullptr), FILE:%s, LINE:%d\n",
             static_cast<unsigned>(hr), OV_FILE, __LINE__);
    return hr;
  }
  m_pClock = m_pAudioStream->Clock();
  return S_OK;
}

void CScreenCapture::StartUIThread() {
  m_hUIThread = std::thread(&CScreenCapture::UIThread, this);
  m_hUIReadyEvent.Wait();
}

void CScreenCapture::UIThread() {
  ov::SetCurrentThreadName("ov-session-ui");
  ov::MessageQueue queue;
  m_dwUIThreadId = queue.ThreadId();
  // A change of the screen's layout falls back to the first display.
  ov::DisplayChangeWatcher displays;
  if (displays.Fd() >= 0)
    queue.Watch(displays.Fd(), [&displays, &queue] {
      if (displays.Drain()) ov::RebuildDisplayCatalogue(true);
      if (displays.Lost()) queue.Post(ov::Message{0, kDisplaysLostMessage, 0, 0});
    });
  std::unique_ptr<CRecorderBox> box;
  if (g_videoOpt.bStream) {
    box = std::make_unique<CRecorderBox>();
    if (FAILED(box->Create(queue))) box.reset();
    g_pRecorderBox = box.get();
  }
  ov::StartMouseHook(m_dwUIThreadId);
  if (box && g_bShowRecordingBox) box->SetAnimate(true);
  m_hUIReadyEvent.Set();
  ov::Message msg;
  while (queue.Get(&msg)) {
    if (msg.message == ov::kPointerMovedMessage) ov::OnPointerMoved(queue);
    if (msg.message == kDisplaysLostMessage) queue.Unwatch(displays.Fd());
    if (box) box->OnMessage(msg);
  }
  ov::StopMouseHook();
  g_pRecorderBox = nullptr;
  box.reset();
}

// The box's look follows the recording's state; it repaints on its thread.
void CScreenCapture::ChangeRecording(BOOL recording) {
  ov::SetRecording(recording);
  // The change-driven stream sleeps on the screen's changes: it hears of
  // this one here.
  Wake();
}

void CScreenCapture::PostToBox(uint32_t message) {
  if (g_pRecorderBox.load() && m_dwUIThreadId)
    ov::MessageQueue::PostThreadMessage(m_dwUIThreadId, message, 0, 0);
}
