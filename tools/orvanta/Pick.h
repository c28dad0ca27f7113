// Asking the user what to record before the recording starts.
#pragma once

#include <string>

#include "RecordOptions.h"

namespace cli {

// Runs the engine's region or window picker and waits for the answer: a
// window sets o->window, a dragged rectangle o->region. False when the user
// cancelled.
bool PickTarget(RecordOptions* o, std::string* error);

}  // namespace cli
