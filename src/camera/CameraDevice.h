// The engine's side of the camera list: built at start-up and again when
// devices change.
#pragma once

#include "orvanta/camera.h"

// Up to 4 cameras; a fifth is never seen.
inline constexpr int kMaxCameraDevices = 4;
extern CameraDevice CameraDevices[kMaxCameraDevices];

namespace ov {

// The start-up step: the list as the machine has it now.
void BuildCameraCatalogue();

}  // namespace ov

// Builds the list anew: 1 when it changed (in any byte of a record,
// including the sizes a preview wrote), 0 otherwise.
int RefreshCameraDevices();
