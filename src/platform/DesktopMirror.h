// The desktop's pixels kept current from the X server's damage reports: a
// round in which the server reports no change costs nothing, and a change
// costs only the rectangles it touched. The composed kind can also leave
// chosen top-level windows out of the picture: what lies under them is
// composed from the windows below, each from its own off-screen pixmap.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "orvanta/types.h"

namespace ov {

class DesktopMirror {
 public:
  enum class Wait { Changed, Quiet, Lost };

  virtual ~DesktopMirror() = default;

  // Waits up to timeoutMs for the server to report a change. Changed once
  // something was drawn (the rectangles are kept for Update); Lost when the
  // screen's size changed or the server went away: the mirror is then of no
  // further use.
  // A readable wakeFd (when not -1) ends the wait early, as Quiet.
  virtual Wait WaitForChange(uint32_t timeoutMs, int wakeFd = -1) = 0;

  // Brings dst, which holds the rectangle region of the desktop (its
  // top-left pixel at dst, rows pitch bytes apart, BGRX), up to date: only
  // what changed since the last call is fetched, all of it when region
  // differs from the last call's or after Invalidate. Parts of region off
  // the screen are black. False when the server refused; LastError tells.
  virtual bool Update(const RECT& region, uint8_t* dst, int32_t pitch) = 0;
  // The next Update fetches the whole region.
  virtual void Invalidate() = 0;
  // The bounding box (screen pixels) of what the last Update wrote; empty
  // when it wrote nothing.
  virtual RECT LastUpdated() const = 0;

  // Composed kind only: the windows (any window; its top-level ancestor is
  // what goes) to leave out of the picture from the next Update on. The
  // process's own top-level windows are left out too, unless included.
  virtual void SetWindowLists(const uint64_t* excluded, size_t excludedCount,
                              const uint64_t* included, size_t includedCount) = 0;
  // Composed kind only: the region composed from the windows bottom-up,
  // leaving out those above stopAt's top-level window (0: none), and the
  // excluded ones. Fetches everything; for one-off pictures.
  // With anchor (stopAt's outer rectangle where the caller measured region
  // against it), the region keeps its place on stopAt: if the window has
  // moved since, the region moves with it and *anchor becomes the window's
  // rectangle now. The window's place and the pixels are then read while
  // the server serves no one else, so a window on the move never leaves the
  // place it has just left in the picture. False when stopAt is gone.
  virtual bool Compose(const RECT& region, uint64_t stopAt, RECT* anchor, uint8_t* dst,
                       int32_t pitch) = 0;

  virtual int LastError() const = 0;
  // The screen's size when the mirror was made.
  virtual void ScreenSize(int32_t* width, int32_t* height) const = 0;
};

// A mirror on its own X connection for regions up to maxWidth x maxHeight.
// Null, with a reason in *why, when the server has no DAMAGE (or, for the
// composed kind, no Composite) extension or cannot be reached.
std::unique_ptr<DesktopMirror> CreateDesktopMirror(int32_t maxWidth, int32_t maxHeight,
                                                   bool composed, const char** why);

// True when a compositing manager runs on the default screen.
bool CompositionManagerRunning();

}  // namespace ov
