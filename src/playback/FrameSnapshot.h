// The player's snapshot: a frame written as a PNG file.
#pragma once

#include <cstdint>

#include "orvanta/types.h"

// pixels: width by height 32-bit pixels (B, G, R, unused), rows packed.
// Replaces the file. S_OK, or E_FAIL with a log line.
HRESULT SaveFramePng(const wchar_t* path, const uint8_t* pixels, int32_t width, int32_t height);
