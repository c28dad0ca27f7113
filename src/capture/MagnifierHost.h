// Composed pictures of the desktop without chosen windows, for the window
// stream and the crop boxes, and the start-up probe that decides whether
// the composed capture is used at all.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "orvanta/types.h"
#include "platform/DesktopMirror.h"

extern std::atomic<BOOL> g_bHardwareCapture;
extern std::atomic<BOOL> g_bHardwareCaptureEnabled;

struct MagnifierHost {
  std::unique_ptr<ov::DesktopMirror> mirror;
  RECT source{};
  HWND target = 0;
  // The target's outer rectangle when source was measured against it; with
  // it set, each picture finds the target where it stands at that moment,
  // moves source and anchor with it, and fails once the target is gone.
  RECT anchor{};
  std::vector<HWND> windows;  // left out of the picture
  int32_t width = 0, height = 0;
};

// Makes the host for pictures up to width x height: S_OK or E_FAIL.
HRESULT InitializeMagnifier(MagnifierHost* host, int32_t width, int32_t height);
// The rectangle of the next pictures. With a target window, whatever lies
// above the target's top-level window is left out, so that a covered
// window can be recorded. S_OK or E_FAIL.
HRESULT SetMagnifierSource(MagnifierHost* host, const RECT& rc, HWND target);
// The picture of the source rectangle (its size at most the host's) into
// destination, rows pitch bytes apart. Off the screen it is black.
HRESULT GetMagnifierFrame(MagnifierHost* host, uint8_t* destination, int32_t pitch);
void CloseMagnifier(MagnifierHost* host);

namespace ov {
// The last-but-one step of the engine's start: sets g_bHardwareCapture when
// a composed picture of the desktop's corner came out and was not black.
void ProbeHardwareCapture();
}  // namespace ov
