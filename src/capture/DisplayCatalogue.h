// The displays the engine knows, and the one in use.
#pragma once

#include <cstdint>

#include "orvanta/displays.h"

namespace ov {

inline constexpr int kMaxDisplays = 16;

// Rebuilds the catalogue from the X server. After a change of the screen's
// layout the first display is taken again, whichever the host had chosen.
void RebuildDisplayCatalogue(bool afterDisplayChange);

// Start-up steps: the catalogue, with g_rcDisplay set to the first display;
// the video controllers and monitors, from /sys and EDID, into the log.
void BuildDisplayCatalogue();
void ReportVideoHardware();

}  // namespace ov
