// ovVideoRecord: the host's options checked and turned into a session.
#include <cstring>
#include <string>

#include "core/Globals.h"
#include "core/Log.h"
#include "core/Rect.h"
#include "platform/XServer.h"
#include "session/CapturedFileRecovery.h"
#include "session/CapturedFiles.h"
#include "session/ScreenCapture.h"

using ov::Height;
using ov::Width;

namespace {

bool SameRect(const RECT& a, const RECT& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

void SetUnborder(BOOL bShowRecordingBox) {
  if (!bShowRecordingBox) return;
  g_bUnborder = 1;
  WriteLog(ov::kMsg, "Unborder\n");
}

// Checks and adjusts the region of a video recording; false refuses it.
bool CheckRegion(VideoOpt* video, MouseOpt* mouse, BOOL bShowRecordingBox) {
  using namespace ov;
  RECT& rc = video->rcScreen;
  if (video->hWindow) {
    WindowState window = QueryWindow(video->hWindow);
    if (!window.exists || !window.viewable || window.iconic) return false;
    const RECT& w = video->rcWindow;
    rc = {w.left + window.rect.left, w.top + window.rect.top, w.right + window.rect.left,
          w.bottom + window.rect.top};
    mouse->Mode = MOUSE_MODE_FIXED;
    WriteLog(kMsg, "Window Rect:{%dx%d-%dx%d}(%dx%d)\nScreen Rect:{%dx%d-%dx%d}(%dx%d)\n", w.left,
             w.top, w.right, w.bottom, Width(w), Height(w), rc.left, rc.top, rc.right, rc.bottom,
             Width(rc), Height(rc));
    return true;
  }
  if (mouse->Mode == MOUSE_MODE_CENTER) {
    WriteLog(kMsg, "Mouse center :%dx%d\n", Width(rc), Height(rc));
    return Width(rc) >= 1 && Height(rc) >= 1;
  }
  if (mouse->Mode == MOUSE_MODE_FOLLOW) {
    WriteLog(kMsg, "Mouse follow :%dx%d\n", Width(rc), Height(rc));
    if (Width(rc) < 1 || Height(rc) < 1) return false;
    if (Width(rc) == Width(g_rcDisplay) && Height(rc) == Height(g_rcDisplay)) {
      WriteLog(kMsg, "Full Screen\n");
      mouse->Mode = MOUSE_MODE_FIXED;
      SetUnborder(bShowRecordingBox);
    }
    return true;
  }
  const RECT& d = g_rcDisplay;
  bool inside = rc.left >= d.left && rc.top >= d.top && rc.right <= d.right &&
                rc.bottom <= d.bottom && rc.left < rc.right && rc.top < rc.bottom;
  if (!inside) {
    WriteLog(kErr, "Error rect={%dx%d-%dx%d}(%dx%d), Display rect={%dx%d-%dx%d}(%dx%d)\n", rc.left,
             rc.top, rc.right, rc.bottom, Width(rc), Height(rc), d.left, d.top, d.right, d.bottom,
             Width(d), Height(d));
    return false;
  }
  if (SameRect(rc, d)) {
    WriteLog(kMsg, "Full Screen\n");
    mouse->Mode = MOUSE_MODE_FIXED;
    SetUnborder(bShowRecordingBox);
  }
  WriteLog(kMsg, "Rect:{%dx%d-%dx%d}(%dx%d)\n", rc.left, rc.top, rc.right, rc.bottom, Width(rc),
           Height(rc));
  return true;
}

// Everything after the slot is taken. Each refusal before the session object
// exists gives the slot back; the object gives it back when it is gone.
CScreenRecoderObject* RecordInSlot(HWND hHostWindow, const wchar_t* pszTempFolder,
                                   VideoOpt* pVideoOpt, AudioOpt audioOpt, MouseOpt* pMouseOpt,
                                   BOOL bShowRecordingBox, HRESULT* pResult) {
  using namespace ov;
  auto refuse = [] {
    ReleaseRecordingSlot();
    return nullptr;
  };
  // An earlier recording's files are never replaced unasked: the host
  // recovers or deletes them first (RecoverCapturedFile, DeleteFolder).
  if (std::wstring left = FindTempSetFile(pszTempFolder); !left.empty()) {
    WriteLog(kErr, "Error: an earlier recording left %ls in %ls\n", left.c_str(), pszTempFolder);
    return refuse();
  }
  if (pVideoOpt->bStream) {
    g_bUnborder = 0;
    if (pVideoOpt->FrameRate <= 0) {
      OV_BAD_ARG(pVideoOpt->FrameRate);
      return refuse();
    }
    if (!CheckRegion(pVideoOpt, pMouseOpt, bShowRecordingBox)) return refuse();
  }
  if (pMouseOpt->cursorAlpha == 0 || pMouseOpt->cursorAlpha > 255) pMouseOpt->cursorAlpha = 255;
  if (pVideoOpt->CodecType == CodecType_GIF) audioOpt.bRender = audioOpt.bCapture = 0;

  WriteLog(kMsg, "Video:bStream=%d, CodecType=%d, FrameRate=%d, Quality=%d\n", pVideoOpt->bStream,
           pVideoOpt->CodecType, pVideoOpt->FrameRate, pVideoOpt->videoQuality);
  WriteLog(kMsg, "Audio: bRender=%d, bCapture=%d\n", audioOpt.bRender, audioOpt.bCapture);
  WriteLog(kMsg, "Mouse: Flag=0x%x\n", pMouseOpt->Flag);
  WriteLog(kMsg, "ShowRecordingBox=%d\n", bShowRecordingBox);

  g_hHostWindow = hHostWindow;
  g_videoOpt = *pVideoOpt;
  // An audio-only session has no frame rate of its own; its base interval
  // only feeds the resume arithmetic.
  if (g_videoOpt.FrameRate <= 0) g_videoOpt.FrameRate = 1;
  g_bAudioEnabled[0] = audioOpt.bRender;
  g_bAudioEnabled[1] = audioOpt.bCapture;
  g_mouseOpt = *pMouseOpt;
  g_bShowRecordingBox = bShowRecordingBox;
  // The folder is checked before any thread or file exists.
  if (HRESULT hr = PrepareCapturedFiles(pszTempFolder); FAILED(hr)) {
    if (pResult) *pResult = hr;
    return refuse();
  }
  g_bRunning.exchange(1);
  ov::SetRecording(0);
  g_bLastFrame.exchange(0);

  auto* capture = new CScreenCapture();
  capture->StartUIThread();

  HRESULT hr = S_OK;
  if (g_videoOpt.bStream) {
    hr = capture->Create();
    if (FAILED(hr))
      WriteLog(kErr, "Failed(0x%x) in Create(), FILE:%s, LINE:%d\n", static_cast<unsigned>(hr),
               OV_FILE, __LINE__);
  }
  if (SUCCEEDED(hr) && (audioOpt.bRender || audioOpt.bCapture)) hr = capture->CreateAudio();
  if (pResult) *pResult = hr;
  if (SUCCEEDED(hr)) return capture;
  WriteLog(kErr, "Failed(0x%x) to Initialize recorder, delete...\n", static_cast<unsigned>(hr));
  delete capture;
  return nullptr;
}

}  // namespace

extern "C" CScreenRecoderObject* ovVideoRecord(HWND hHostWindow, const wchar_t* pszTempFolder,
                                               VideoOpt* pVideoOpt, AudioOpt audioOpt,
                                               MouseOpt* pMouseOpt, BOOL bShowRecordingBox,
                                               HRESULT* pResult) {
  using namespace ov;
  WriteLog(kMsg, "Video Redord ...\n");
  if (!pVideoOpt) {
    OV_BAD_ARG(pVideoOpt);
    return nullptr;
  }
  if (!pMouseOpt) {
    OV_BAD_ARG(pMouseOpt);
    return nullptr;
  }
  if (!pszTempFolder) {
    OV_BAD_ARG(pszTempFolder);
    return nullptr;
  }
  if (!ClaimRecordingSlot()) {
    WriteLog(kErr, "Error: a recording is already running\n");
    return nullptr;
  }
  return RecordInSlot(hHostWindow, pszTempFolder, pVideoOpt, audioOpt, pMouseOpt, bShowRecordingBox,
                      pResult);
}
