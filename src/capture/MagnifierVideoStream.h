// The composed capture: the picture of the region without chosen windows
// (the recorder's own, and those the host names), which stay on the screen
// for the user. Change-driven like the duplication stream, and it follows a
// moving region.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <vector>

#include "capture/DuplicationVideoStream.h"

class CMagnifierVideoStream : public CDesktopDuplicationVideoStream {
 public:
  CMagnifierVideoStream(CFrameTiming* pOwner, CVideoCodec* pCodec, int32_t width, int32_t height);
  ~CMagnifierVideoStream() override;

  // From the host's thread. Null and repeated handles are ignored. The
  // process's own windows are left out unless included.
  void AddExcludeWindow(HWND window);
  void RemoveExcludeWindow(HWND window);
  void AddIncludeWindow(HWND window);

  // The most windows left out at once; the first of the list win.
  static constexpr size_t kMaxExcluded = 24;

 protected:
  RECT FrameRegion() override;
  bool BeforeFetch() override;
  bool SleepsBetweenChanges() const override { return false; }

 private:
  std::mutex m_csWindows;
  std::vector<HWND> m_ExcludeWindows;
  std::vector<HWND> m_IncludeWindows;
  bool m_bWindowsChanged = false;  // under m_csWindows
  std::array<uint64_t, kMaxExcluded> m_excluded{};
  size_t m_nExcluded = 0;
  std::array<uint64_t, kMaxExcluded> m_included{};
  size_t m_nIncluded = 0;
  const ov::DesktopMirror* m_pTold = nullptr;  // the mirror that has the list
};
