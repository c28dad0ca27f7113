// Frames on the screen that a host shows round a region.
#pragma once

#include "orvanta/module.h"
#include "orvanta/types.h"

extern "C" {
// A frame that does nothing but mark rect (screen pixels, inside the
// display) while the host asks something else; the pointer passes through
// it. The host ends it with Destroy. Null for a rectangle that is empty or
// leaves the display.
OV_API CBaseClassObject* ovShowStaticBox(HWND ownerWindow, const RECT* rect, BOOL bTopmost);
}
