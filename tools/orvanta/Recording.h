// `orvanta record`: one recording through the engine's exported API, from
// the options to the final file.
#pragma once

#include "RecordOptions.h"

namespace cli {

// Runs the whole command; returns the exit code. DISPLAY (and PULSE_SERVER,
// when sound is wanted) must be set before, since the engine reads them at
// start-up.
int RunRecording(const RecordOptions& options);

}  // namespace cli
