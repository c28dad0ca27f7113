#include "capture/MagnifierHost.h"

#include <cstdlib>
#include <cstring>

#include "core/Log.h"
#include "orvanta/recorder.h"

std::atomic<BOOL> g_bHardwareCapture{0};
std::atomic<BOOL> g_bHardwareCaptureEnabled{1};

extern "C" BOOL SupportHarderwareScreenCapture() { return g_bHardwareCapture.load(); }
extern "C" void EnabledHarderwareScreenCapture(BOOL enabled) {
  g_bHardwareCaptureEnabled = enabled ? 1 : 0;
}

HRESULT InitializeMagnifier(MagnifierHost* host, int32_t width, int32_t height) {
  if (!host || width <= 0 || height <= 0) return E_INVALIDARG;
  const char* why = "";
  host->mirror = ov::CreateDesktopMirror(width, height, true, &why);
  if (!host->mirror) {
    WriteLog(ov::kErr, "Failed to Initialize MagnifierWindow\n");
    WriteLog(ov::kErr, "%s\n", why);
    return E_FAIL;
  }
  host->width = width;
  host->height = height;
  host->source = {0, 0, width, height};
  return S_OK;
}

HRESULT SetMagnifierSource(MagnifierHost* host, const RECT& rc, HWND target) {
  if (!host || !host->mirror || rc.right - rc.left > host->width ||
      rc.bottom - rc.top > host->height || rc.right <= rc.left || rc.bottom <= rc.top) {
    WriteLog(ov::kErr, "Failed(%d) to Set Source\n", 0);
    return E_FAIL;
  }
  host->source = rc;
  host->target = target;
  host->anchor = {};
  host->mirror->SetWindowLists(host->windows.data(), host->windows.size(), nullptr, 0);
  return S_OK;
}

HRESULT GetMagnifierFrame(MagnifierHost* host, uint8_t* destination, int32_t pitch) {
  if (!host || !host->mirror || !destination) return E_FAIL;
  bool ok;
  if (host->target) {
    RECT& a = host->anchor;
    const bool anchored = a.right > a.left && a.bottom > a.top;
    const POINT before{a.left, a.top};
    ok = host->mirror->Compose(host->source, host->target, anchored ? &a : nullptr, destination,
                               pitch);
    if (ok && anchored) {
      const int32_t dx = a.left - before.x, dy = a.top - before.y;
      RECT& s = host->source;
      s = {s.left + dx, s.top + dy, s.right + dx, s.bottom + dy};
    }
  } else {
    // The screen as it is, with the listed windows' areas composed anew.
    host->mirror->Invalidate();
    ok = host->mirror->Update(host->source, destination, pitch);
  }
  return ok ? S_OK : E_FAIL;
}

void CloseMagnifier(MagnifierHost* host) {
  if (!host) return;
  host->mirror.reset();
  host->windows.clear();
}

namespace ov {

void ProbeHardwareCapture() {
  g_bHardwareCapture = 0;
  if (!CompositionManagerRunning()) {
    WriteLog(kErr, "Harderware Screen Capture: Desktop Window Manage disabled\n");
    return;
  }
  MagnifierHost host;
  if (FAILED(InitializeMagnifier(&host, 64, 64))) {
    WriteLog(kErr, "Failed to Initialize Harderware Screen Capture\n");
    return;
  }
  uint32_t pixels[64 * 64];
  if (FAILED(SetMagnifierSource(&host, {0, 0, 64, 64}, 0)) ||
      FAILED(GetMagnifierFrame(&host, reinterpret_cast<uint8_t*>(pixels), 256))) {
    WriteLog(kErr, "Failed to Capture Harderware Screen\n");
  } else {
    bool empty = true;
    for (uint32_t p : pixels) empty = empty && (p & 0xFFFFFF) == 0;
    if (empty) {
      WriteLog(kErr, "Harderware Screen Capture: EMPTY?!\n");
    } else {
      g_bHardwareCapture = 1;
      WriteLog(kMsg, "Support Harderware Screen Capture\n");
    }
  }
  CloseMagnifier(&host);
}

}  // namespace ov
