// Large zeroed blocks straight from the system: page-aligned, and their
// pages cost nothing until they are first written, so a picture that may
// never be drawn (an unused canvas, a hidden frame) takes no memory.
#pragma once

#include <cstddef>

namespace ov {

// Null when the system has no memory to give.
void* AllocateZeroedPages(size_t bytes);
// bytes as given to AllocateZeroedPages; null is ignored.
void FreeZeroedPages(void* block, size_t bytes);

}  // namespace ov
