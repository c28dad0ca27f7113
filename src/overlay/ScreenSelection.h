// The user's choice of what to record: a region dragged or a window clicked
// on the frozen, dimmed screen (CScreenBoxSelection), or a window picked on
// the live desktop (CWindowSelection). Each runs as one episode on the
// engine's selection thread and ends by itself.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "orvanta/selection.h"
#include "overlay/VideoRender.h"
#include "overlay/ZoomTips.h"
#include "platform/InputWindow.h"
#include "platform/WindowList.h"

typedef struct _cairo_surface cairo_surface_t;

namespace ov {
class MessageQueue;
// Runs episode on the selection thread; false (and nothing runs) while
// another episode is under way.
bool StartSelectionEpisode(std::function<void()> episode);
// Called by an episode as it ends, before it tells the host: from then on
// the host may start the next.
void EndSelectionEpisode();
// The window offered at a screen point: the nearest listed window there,
// clipped to the display, when both sides of the clipped rectangle are
// over 32 pixels. inWindow is where the clipped rectangle lies in the window.
bool FindWindowAt(const std::vector<ListedWindow>& windows, POINT point, HWND* window,
                  RECT* clipped, RECT* inWindow);
}  // namespace ov

class CScreenBoxSelection : public CVideoRender {
 public:
  CScreenBoxSelection(HWND host, CSelectionCallback* callback);
  // Tells the host how it ended and shows its window again.
  ~CScreenBoxSelection();
  // The episode, until the user has chosen or cancelled.
  void Run();

 private:
  bool SetUp(ov::MessageQueue& queue);
  void OnInput();
  void Hover(POINT point);
  void Draw(POINT point, bool crosshair);
  void Notify();

  HWND m_hwndHost;
  CSelectionCallback* m_pCallback;
  BOOL m_bCancelled = 0;
  bool m_bDone = false;
  std::vector<ov::ListedWindow> m_Windows;
  int32_t m_nState = 0;  // 0 hover, 1 pressed, 2 dragging
  ov::ZoomRecord m_zoom;
  ov::Font m_font;
  cairo_surface_t* m_pOverlaySurface = nullptr;
  uint32_t m_nPressTick = 0;
  POINT m_ptLast{-1, -1}, m_ptPress{};
  int32_t m_nWidth = 0, m_nHeight = 0;
  std::vector<uint32_t> m_pFrozen;  // the screen at the start, BGRA
  HWND m_hwndHover = 0;
  RECT m_rcSelection{}, m_rcInWindow{}, m_rcDisplay{};
  std::unique_ptr<ov::InputWindow> m_input;
};

class CWindowSelection {
 public:
  explicit CWindowSelection(CWindowSelectCallback* callback);
  ~CWindowSelection();
  void Run();

 private:
  void OnInput();
  void Outline();

  CWindowSelectCallback* m_pCallback;
  std::unique_ptr<ov::InputWindow> m_hwndMessage;
  std::unique_ptr<CVideoRender> m_hwndRect;
  POINT m_ptLast{-1, -1};
  HWND m_hwndTarget = 0;
  RECT m_rcTarget{};
  bool m_bDone = false;
  ov::Font m_font;
};
