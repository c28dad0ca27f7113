// Chooses, once per process, which kernels the pixel routines run on.
#pragma once

#include <atomic>
#include <cstdint>

#include "pixels/PixelKernels.h"

// 0 runs everywhere; 1 SSE2, 2 SSE3, 3 SSSE3, 4 SSE4.1, 5 SSE4.2, 6 AVX,
// 7 AVX2. Levels 1 to 6 share the 128-bit kernels, 7 has its own.
extern std::atomic<int32_t> g_nCpuLevel;

namespace ov {

// Sets g_nCpuLevel from the processor's features. Idempotent; a level already
// chosen stays. The routines call it themselves if nobody has.
void InitializePixelDispatch();

// The highest level this processor and system support, capped by the
// environment variable ORVANTA_CPU_LEVEL when it holds a number (to rule a
// vector path in or out when a machine misbehaves).
int32_t DetectPixelCpuLevel();

// The kernels of a level, for code that chooses its own (the encoder
// libraries, which have no share in the engine's choice).
const pixels::PixelKernels& PixelKernelsForLevel(int32_t level);

// Switches to the given level, taken down to what is supported, and returns
// the level in force. For comparing the paths; not for use while other
// threads convert.
int32_t SetPixelCpuLevel(int32_t level);

const pixels::PixelKernels& ActivePixelKernels();

}  // namespace ov
