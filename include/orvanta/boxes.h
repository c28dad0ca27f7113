// Frames on the screen that a host shows round a region.
#pragma once

#include "orvanta/module.h"
#include "orvanta/types.h"

// What a crop box tells its host, on the box's own thread.
class OV_API CCropCallback {
 public:
  // A drag of a handle, an edge or the move picture started; ended.
  virtual void OnCropBegin() = 0;
  virtual void OnCropEnd() = 0;
  // The rectangle, in screen pixels, after each change a drag made.
  virtual void OnCropChanged(const RECT* rect) = 0;

 protected:
  virtual ~CCropCallback() = default;
};

class OV_API CWindowCropCallback {
 public:
  // The rectangle, counted from the target window's outer corner.
  virtual void OnCropChanged(const RECT* rect) = 0;
  // The target took a new size; crop was pulled inside it where needed.
  virtual void OnTargetResized(int width, int height, const RECT* crop) = 0;
  // Called every 100 ms from the target's closing until the host ends the box.
  virtual void OnTargetClosed() = 0;
  virtual void OnTargetMinimized() = 0;
  virtual void OnTargetRestored() = 0;

 protected:
  virtual ~CWindowCropCallback() = default;
};

// A rectangle the user adjusts by its handles, edges and move picture, over
// the live desktop.
class OV_API CScreenCropObject : public CBaseClassObject {
 public:
  // A new rectangle (screen pixels) and ratio flag, without a callback. 0.
  virtual HRESULT Reset(const RECT* rect, BOOL bKeepRatio) = 0;

 protected:
  using CBaseClassObject::CBaseClassObject;
};

// The same inside a child window of the host, over a live copy of another
// window, the parts outside the rectangle dimmed.
class OV_API CWindowCropObject : public CBaseClassObject {
 public:
  // A new rectangle (relative to the target) and ratio flag. 0.
  virtual HRESULT Reset(const RECT* rect, BOOL bKeepRatio) = 0;

 protected:
  using CBaseClassObject::CBaseClassObject;
};

extern "C" {
// A crop box round rect (screen pixels, inside the display), owned by
// hostWindow; with bKeepRatio the rectangle keeps rect's proportion and has
// no corner handles. Null for a rectangle that is empty or leaves the
// display.
OV_API CScreenCropObject* ovShowScreenCropBox(CCropCallback* callback, const RECT* rect,
                                              HWND hostWindow, BOOL bKeepRatio);
// A crop window at (0, 0) in parentWindow, 16 pixels wider and higher than
// targetWindow, showing the target live with rect (relative to the target's
// outer corner; null: all of it) adjustable. Null when the target is gone or
// hidden, or rect is empty. At most one lives at a time.
OV_API CWindowCropObject* ovCreateWindowCrop(HWND parentWindow, CWindowCropCallback* callback,
                                             HWND targetWindow, const RECT* rect, BOOL bKeepRatio);

// A frame that does nothing but mark rect (screen pixels, inside the
// display) while the host asks something else; the pointer passes through
// it. The host ends it with Destroy. Null for a rectangle that is empty or
// leaves the display.
OV_API CBaseClassObject* ovShowStaticBox(HWND ownerWindow, const RECT* rect, BOOL bTopmost);
}
