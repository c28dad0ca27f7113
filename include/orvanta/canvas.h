// Drawing on the screen during a recording: the host gets the canvas from
// the session's SetCanvasCallback and picks tools on it.
#pragma once

#include <cstdint>

#include "orvanta/types.h"

// Tools of Start: 0 none; 1 rectangle; 2 ellipse; 3 arrow; 4 brush; 5 line;
// 6 airbrush; 7 numbered badge; 8 text; 9 eraser; 10 erased box; 11 blur
// stroke; 12 blurred box. Font style bits: 1 bold, 2 italic, 4 underline,
// 8 strike-out.
class OV_API CScreenCanvas {
 public:
  // Selects a tool; returns before the canvas has taken it. A colour's
  // alpha byte of 0 means opaque.
  virtual void Start(int tool, int size, uint32_t color, uint32_t color2, const wchar_t* fontName,
                     int nFontStyle) = 0;
  // Ends drawing; returns when the canvas has.
  virtual void Stop() = 0;
  virtual void Redo() = 0;
  virtual void Undo() = 0;
  virtual void Clear() = 0;
  virtual int GetShapeCount() = 0;
  virtual BOOL CanRedo() = 0;
  virtual BOOL CanUndo() = 0;
  // The next badge shows n + 1.
  virtual void SetNumber(int n) = 0;

 protected:
  virtual ~CScreenCanvas() = default;
};

// Called on the canvas's thread.
class OV_API CCanvasCallback {
 public:
  virtual void OnUndoState(BOOL canUndo, BOOL canRedo) = 0;
  virtual void OnNumberChanged(int number) = 0;

 protected:
  virtual ~CCanvasCallback() = default;
};
