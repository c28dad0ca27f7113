// The canvas's finished picture, as the capture streams that leave the
// engine's windows out of their frames lay it over those frames themselves.
#pragma once

#include <cstdint>

#include "orvanta/types.h"

struct CanvasPicture {
  const uint32_t* pixels = nullptr;  // premultiplied BGRA, width pixels a row
  int32_t width = 0, height = 0;
  POINT origin = {};    // the picture's top-left on the virtual screen
  BOOL hasContent = 0;  // a shape was painted at the last redraw
};

// g_csCanvas guards it; the canvas sets it and clears it at its end.
extern CanvasPicture g_CanvasPicture;
