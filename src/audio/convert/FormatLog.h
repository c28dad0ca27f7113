// The one-line description of a format that the audio code writes to the
// log under a title ("Source", "Dest", "From", "To").
#pragma once

#include "orvanta/types.h"

namespace ov::audio {

// Level 1. An 18-byte record is read only that far unless its tag says it is
// extensible.
void LogFormat(const char* title, const WAVEFORMATEX& format);

}  // namespace ov::audio
