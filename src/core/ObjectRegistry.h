// The list of live host-visible objects, reported at shut-down.
#pragma once

#include <cstdint>

class CBaseClassObject;

namespace ov {

// Writes the leak report: nothing when the list is empty.
void ReportLiveObjects();
int32_t LiveObjectCount();

}  // namespace ov
