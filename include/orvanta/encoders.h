// What the video encoders of this machine can do, as found at ovInitialize.
#pragma once

#include "orvanta/types.h"

extern "C" {

// Non-zero when an encoder library serves this codec type (enum CodecType).
OV_API BOOL IsSupportHwVideoCodec(int codec);

// Whether the encoder of this codec type takes 4K frames; non-zero also for
// codec types that no library serves.
OV_API BOOL IsSupport4KCodec(int codec);
}
