// Annotated screenshots: the screen freezes, the user picks a window or drags
// a rectangle, adjusts it by its handles and draws on it with the canvas's
// tools; the host then saves the result or puts it on the clipboard.
//
// The capture runs on a thread of the engine, like the selections: its
// callbacks come from there, and the operations may be called from any one
// thread of the host's (or from the callbacks), each returning once done.
#pragma once

#include "orvanta/canvas.h"
#include "orvanta/types.h"

class OV_API CImageCaptureCallback {
 public:
  virtual void OnUndoState(BOOL canUndo, BOOL canRedo) = 0;
  // A badge showing number was drawn.
  virtual void OnNumberChanged(int number) = 0;
  // Escape before the selection was finished; the capture ends just after.
  virtual void OnCancelled() = 0;
  // Close was called; the capture ends just after.
  virtual void OnClosed() = 0;
  // The selection is finished; rc is relative to the frozen surface.
  virtual void OnSelected(const RECT* rc) = 0;
  // A handle or the selection was grabbed, moved, let go.
  virtual void OnAdjustBegin() = 0;
  virtual void OnAdjusting(const RECT* rc) = 0;
  virtual void OnAdjustEnd() = 0;

 protected:
  virtual ~CImageCaptureCallback() = default;
};

// Tools 9 to 12 of Start paint the frozen picture back (9 a stroke, 10 a
// box) or its blurred copy (11, 12).
class OV_API CImageCaptureObject : public CScreenCanvas {
 public:
  // Ends the capture.
  virtual void Release() = 0;
  // encoder: 0 PNG, 1 JPEG, 2 BMP, 3 GIF, 4 TIFF. The selection with its
  // shapes, without rings and handles. S_OK, E_INVALIDARG for an unknown
  // encoder or path, E_FAIL when encoding or writing failed.
  virtual HRESULT SaveToFile(int encoder, const wchar_t* path) = 0;
  // The same picture on the desktop's clipboard (image/png, image/bmp),
  // offered until another program takes the clipboard.
  virtual void CopyToClipboard() = 0;
  // Passes of the blur, 1 to 100 (10 at first); blur shapes follow it.
  virtual void SetBlurLevel(int level) = 0;
  // rc in screen pixels, inside the frozen surface.
  virtual void SetSelection(const RECT* rc) = 0;
  // OnClosed, then the capture ends.
  virtual void Close() = 0;

 protected:
  ~CImageCaptureObject() override = default;
};

extern "C" {
// Freezes the current display (with bAllDisplays and several displays, the
// whole virtual screen) and starts the selection. Null without a server or
// while a selection runs.
OV_API CImageCaptureObject* CreateImageCapture(CImageCaptureCallback* callback, BOOL bAllDisplays);
}
