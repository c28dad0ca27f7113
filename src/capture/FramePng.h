// Still pictures of a recording's frames.
#pragma once

#include <cstdint>

namespace ov {

// Copies the reference frame under the canvas lock and writes the region's
// pixels (width x height of rows pitch bytes apart) as an opaque PNG. An
// existing file is replaced. False when the file could not be written.
bool SaveFramePng(const uint8_t* frame, int32_t pitch, int32_t width, int32_t height,
                  const wchar_t* path);

}  // namespace ov
