// The displays the engine knows, and the one in use.
#pragma once

#include <cstdint>

#include "orvanta/displays.h"

namespace ov {

inline constexpr int kMaxDisplays = 16;

// Rebuilds the catalogue from the X server. After a change of the screen's
// layout the first display is taken again, whichever the host had chosen.
void RebuildDisplayCatalogue(bool afterDisplayChange);

}  // namespace ov
