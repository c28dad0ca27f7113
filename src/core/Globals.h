// Process-wide state of a recording. One recording runs at a time, so the
// capture, audio and overlay threads read these directly.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "orvanta/captured.h"
#include "orvanta/recorder.h"

class CRecorderBox;

extern VideoOpt g_videoOpt;
extern MouseOpt g_mouseOpt;
extern BOOL g_bAudioEnabled[2];  // indexed by AudioDeviceType: render, capture
extern CapturedFile* g_Recording;

// Polled flags; writers use exchanges.
extern std::atomic<BOOL> g_bRunning;
extern std::atomic<BOOL> g_bRecording;
extern std::atomic<BOOL> g_bLastFrame;
// When g_bRecording last changed (ov::MonotonicTime100ns): threads that poll
// the flag place the start and the stop where they happened, not where they
// noticed them.
extern std::atomic<int64_t> g_nRecordingChanged;

namespace ov {
// Starts, pauses, resumes or stops the recording's threads, and notes when.
void SetRecording(BOOL recording);
}  // namespace ov

extern BOOL g_bUnborder;
extern BOOL g_bShowRecordingBox;
extern HWND g_hHostWindow;
extern std::atomic<CRecorderBox*> g_pRecorderBox;

extern POINT g_ptRegion;  // guarded by g_csMouse
extern RECT g_rcDisplay;
// Written by the thread that hears of display changes, read by the host.
extern std::atomic<int32_t> g_nDisplayIndex;
extern int32_t g_WindowsVersion;
extern int32_t g_D3DFeatureLevel;

// Lock order: g_csCanvas first, g_csMouse inside it. Both are recursive, as
// the overlay code re-enters them on one thread.
extern std::recursive_mutex g_csMouse;
extern std::recursive_mutex g_csCanvas;

// Live drawing surfaces and drawing contexts made by the engine.
extern std::atomic<int32_t> g_nGdiplusBitmaps;
extern std::atomic<int32_t> g_nGdiplusGraphics;

inline constexpr int32_t kWindows10 = 2560;
