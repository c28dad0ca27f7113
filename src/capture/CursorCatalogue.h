// The pointer shapes of the overlay windows: the sizing cursors indexed by a
// box's hit code, the selection cursors and the drawing tools' cursors, read
// once from the resource folder's "Cursors", and the brush cursor made to
// the brush's size.
#pragma once

#include <cstdint>
#include <string>

#include "platform/OverlayWindow.h"

namespace ov {

inline constexpr int kSizeCursors = 14;
inline constexpr int kToolCursors = 10;

struct CursorCatalogue {
  PointerShape size[kSizeCursors];  // by hit code; 0 is the arrow
  PointerShape cross, rect, window, no;
  PointerShape tools[kToolCursors];  // by drawing tool: rectangle, ellipse, brush,
                                     // arrow, line, airbrush, number, text, cross, cross
};
extern CursorCatalogue g_Cursors;

// ovInitialize's step, after the resource folder is set. A file that cannot
// be read logs "Failed(<code>) to load file:<path>"; the sizing cursors then
// fall back to the desktop theme's.
void LoadCursors();

// Reads a cursor file (a 32-bit or PNG picture); false with an errno-style
// code otherwise.
bool ReadCursorFile(const std::string& path, PointerShape* shape, int* error);

// A round cursor for the brush tools: 64 x 64, hot spot in the middle, a
// light disc with a black rim of the diameter, forced even, 4 to 62.
PointerShape MakeBrushCursor(int32_t diameter);

}  // namespace ov
