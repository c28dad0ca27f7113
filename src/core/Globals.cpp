#include "core/Globals.h"

#include "core/CanvasPicture.h"
#include "platform/Clock.h"

VideoOpt g_videoOpt;
MouseOpt g_mouseOpt;
BOOL g_bAudioEnabled[2];
CapturedFile* g_Recording;

std::atomic<BOOL> g_bRunning{0};
std::atomic<BOOL> g_bRecording{0};
std::atomic<int64_t> g_nRecordingChanged{0};
std::atomic<BOOL> g_bLastFrame{0};

BOOL g_bUnborder;
BOOL g_bShowRecordingBox;
HWND g_hHostWindow;
std::atomic<CRecorderBox*> g_pRecorderBox{nullptr};
CanvasPicture g_CanvasPicture;

POINT g_ptRegion;
RECT g_rcDisplay;
std::atomic<int32_t> g_nDisplayIndex{0};
int32_t g_WindowsVersion;
int32_t g_D3DFeatureLevel;

std::recursive_mutex g_csMouse;
std::recursive_mutex g_csCanvas;

std::atomic<int32_t> g_nGdiplusBitmaps{0};
std::atomic<int32_t> g_nGdiplusGraphics{0};

void ov::SetRecording(BOOL recording) {
  g_nRecordingChanged.store(ov::MonotonicTime100ns());
  g_bRecording.exchange(recording);
}
