#include "capture/MagnifierVideoStream.h"

#include <algorithm>

#include "core/Globals.h"

CMagnifierVideoStream::CMagnifierVideoStream(CFrameTiming* pOwner, CVideoCodec* pCodec,
                                             int32_t width, int32_t height)
    : CDesktopDuplicationVideoStream(pOwner, pCodec, width, height, true) {
  m_bRegionMoves = g_mouseOpt.Mode != MOUSE_MODE_FIXED;
  m_bLayCanvas = true;
}

CMagnifierVideoStream::~CMagnifierVideoStream() { Join(); }

void CMagnifierVideoStream::AddExcludeWindow(HWND window) {
  std::lock_guard<std::mutex> lock(m_csWindows);
  if (!window ||
      std::find(m_ExcludeWindows.begin(), m_ExcludeWindows.end(), window) != m_ExcludeWindows.end())
    return;
  m_ExcludeWindows.push_back(window);
  m_bWindowsChanged = true;
}

void CMagnifierVideoStream::RemoveExcludeWindow(HWND window) {
  std::lock_guard<std::mutex> lock(m_csWindows);
  auto it = std::find(m_ExcludeWindows.begin(), m_ExcludeWindows.end(), window);
  if (it == m_ExcludeWindows.end()) return;
  m_ExcludeWindows.erase(it);
  m_bWindowsChanged = true;
}

void CMagnifierVideoStream::AddIncludeWindow(HWND window) {
  std::lock_guard<std::mutex> lock(m_csWindows);
  if (!window ||
      std::find(m_IncludeWindows.begin(), m_IncludeWindows.end(), window) != m_IncludeWindows.end())
    return;
  m_IncludeWindows.push_back(window);
  m_bWindowsChanged = true;
}

RECT CMagnifierVideoStream::FrameRegion() {
  if (!m_bRegionMoves) return g_videoOpt.rcScreen;
  std::lock_guard<std::recursive_mutex> lock(g_csMouse);
  return {g_ptRegion.x, g_ptRegion.y, g_ptRegion.x + m_nRegionWidth,
          g_ptRegion.y + m_nRegionHeight};
}

// The lists are copied under the lock, so the host may change them during a
// frame; a change makes the next frame fetch the region anew, and a new
// mirror (after access was lost) is told the list again.
bool CMagnifierVideoStream::BeforeFetch() {
  {
    std::lock_guard<std::mutex> lock(m_csWindows);
    if (!m_bWindowsChanged && m_pDuplication.get() == m_pTold) return false;
    m_bWindowsChanged = false;
    m_nExcluded = 0;
    m_nExcluded = std::min(m_ExcludeWindows.size(), kMaxExcluded);
    std::copy_n(m_ExcludeWindows.begin(), m_nExcluded, m_excluded.begin());
    m_nIncluded = std::min(m_IncludeWindows.size(), kMaxExcluded);
    std::copy_n(m_IncludeWindows.begin(), m_nIncluded, m_included.begin());
  }
  m_pTold = m_pDuplication.get();
  if (m_pDuplication)
    m_pDuplication->SetWindowLists(m_excluded.data(), m_nExcluded, m_included.data(), m_nIncluded);
  return true;
}
